#include "support/memory_peak/memory_peak.h"

#include <algorithm>
#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

std::size_t in_use = 0;
std::size_t highest = 0;
std::size_t at_start = 0;

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory != nullptr) {
        in_use += ::malloc_usable_size(memory);
        highest = std::max(highest, in_use);
    }
    return memory;
}

void* operator new(std::size_t size) {
    void* const memory = ::operator new(size, std::nothrow);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* operator new[](std::size_t size) {
    return ::operator new(size);
}

void operator delete(void* memory) noexcept {
    if (memory != nullptr) {
        in_use -= ::malloc_usable_size(memory);
        std::free(memory);
    }
}

void operator delete(void* memory, std::size_t) noexcept {
    ::operator delete(memory);
}

void operator delete(void* memory, const std::nothrow_t&) noexcept {
    ::operator delete(memory);
}

void operator delete[](void* memory) noexcept {
    ::operator delete(memory);
}

void operator delete[](void* memory, std::size_t) noexcept {
    ::operator delete(memory);
}

namespace quarry::test {

void start_memory_peak() {
    at_start = in_use;
    highest = in_use;
}

std::size_t memory_peak() {
    return highest - at_start;
}

}  // namespace quarry::test
