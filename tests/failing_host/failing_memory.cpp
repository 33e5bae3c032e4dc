// A host without memory on demand: a library to be loaded ahead of the C library, which comes between a
// program and its allocations. They are counted from 1, from the program's own start on. Environment
// variables say what it does:
//
// - FAIL_ALLOCATION: the allocation of this number fails
// - FAIL_ALLOCATIONS_FROM: that of this number fails, and all after it
// - ALLOCATION_COUNT: a file that gets the number of allocations when the program ends
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

// The C library's own.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* old, std::size_t size);
}

namespace {

constexpr unsigned long never = ~0UL;

bool is_armed = false;
unsigned long calls = 0;
unsigned long only = never;
unsigned long from = never;
int count_file = -1;

unsigned long setting(const char* name) {
    const char* const text = std::getenv(name);
    return text == nullptr ? never : std::strtoul(text, nullptr, 10);
}

__attribute__((constructor)) void arm() {
    only = setting("FAIL_ALLOCATION");
    from = setting("FAIL_ALLOCATIONS_FROM");
    if (const char* const path = std::getenv("ALLOCATION_COUNT"); path != nullptr) {
        count_file = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    }
    is_armed = true;
}

__attribute__((destructor)) void write_count() {
    std::array<char, 24> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), calls).ptr;
    if (count_file >= 0 &&
        ::write(count_file, text.data(), static_cast<std::size_t>(end - text.data())) < 0) {
        ::_exit(126);
    }
}

bool fails() {
    if (!is_armed) {
        return false;
    }
    const unsigned long number = __atomic_add_fetch(&calls, 1UL, __ATOMIC_RELAXED);
    if (number != only && number < from) {
        return false;
    }
    errno = ENOMEM;
    return true;
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) noexcept {
    return fails() ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    return fails() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* old, std::size_t size) noexcept {
    return fails() ? nullptr : __libc_realloc(old, size);
}
}
