// How many pieces of memory this test program has asked for, for tests of what must not ask for any.
#pragma once

#include <cstddef>

namespace quarry::test {

// Calls of operator new for single objects and by containers since the program began.
[[nodiscard]] std::size_t allocations_so_far();

}  // namespace quarry::test
