// How many pieces of memory this test program has asked for, for tests of what must not ask for any, and
// memory that is not there, for tests of what must bear that.
#pragma once

#include <cstddef>

namespace quarry::test {

// Calls of operator new for single objects and by containers since the program began.
[[nodiscard]] std::size_t allocations_so_far();

// While it lives, the piece of memory that is asked for after `count` others is not there.
class missing_memory {
  public:
    explicit missing_memory(std::size_t count);
    missing_memory(const missing_memory&) = delete;
    missing_memory& operator=(const missing_memory&) = delete;
    ~missing_memory();
    // So many pieces were asked for that one was missing.
    [[nodiscard]] bool was_missed() const;
};

}  // namespace quarry::test
