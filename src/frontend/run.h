// One run of the program, from its arguments to its exit status.
#pragma once

namespace quarry {

class kernel_calls;

// Answers a request for help, or prints the header, parses the options, copies, and says how it went. Returns
// the exit status: 0, or -1, which a shell sees as 255.
//
// With a kernel, the whole process gives up between parsing and copying what it does not need, for good.
[[nodiscard]] int run(int argc, const char* const* argv, kernel_calls* kernel = nullptr);

}  // namespace quarry
