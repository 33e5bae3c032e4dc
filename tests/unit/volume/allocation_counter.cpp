#include "unit/volume/allocation_counter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> calls{0};

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    ++calls;
    return std::malloc(size == 0 ? 1 : size);
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

}  // namespace quarry::test
