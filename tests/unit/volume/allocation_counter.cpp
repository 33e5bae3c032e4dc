#include "unit/volume/allocation_counter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t never = ~std::size_t{0};

std::atomic<std::size_t> calls{0};
std::atomic<std::size_t> missing_call{never};  // the number of the call that gets nothing

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return calls++ == missing_call ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* operator new(std::size_t size) {
    void* const memory = operator new(size, std::nothrow);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
    std::free(memory);
}

namespace quarry::test {

std::size_t allocations_so_far() {
    return calls;
}

missing_memory::missing_memory(std::size_t count) {
    missing_call = calls + count;
}

missing_memory::~missing_memory() {
    missing_call = never;
}

bool missing_memory::was_missed() const {
    return calls > missing_call;
}

}  // namespace quarry::test
