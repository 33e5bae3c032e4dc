// How much memory a piece of work took: the bytes that `new` has given out and not got back, at their
// highest. It has a folder of its own because it replaces `new` and `delete` of the program that links it.
#pragma once

#include <cstddef>

namespace quarry::test {

// From here on the peak counts afresh, from what is in use now.
void start_memory_peak();
// The most bytes in use at once since then, beyond what was in use at the start.
[[nodiscard]] std::size_t memory_peak();

}  // namespace quarry::test
