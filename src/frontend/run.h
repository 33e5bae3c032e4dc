// One run of the program, from its arguments to its exit status.
#pragma once

namespace quarry {

// Answers a request for help, or prints the header, parses the options, copies, and says how it went. Returns
// the exit status: 0, or -1, which a shell sees as 255.
[[nodiscard]] int run(int argc, const char* const* argv);

}  // namespace quarry
