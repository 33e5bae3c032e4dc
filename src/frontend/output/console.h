// The words and the one status line that a run shows on the terminal.
#pragma once

#include <string>

namespace quarry {

// Hands over all text of standard output that is still in a buffer. Where both streams lead to one file,
// their lines are then in the order in which they were said, and a signal loses none of them.
void flush_output();

// Text that belongs to the user whatever becomes of the rest: messages about the command line. Written to
// standard error as it is, after all text of standard output.
void print_error(const std::string& text);

// Shows a message on the status line of standard error, without a new line: at most 60 characters of what a
// printf format gives, line feeds taken out.
[[gnu::format(printf, 1, 2)]] void console_status(const char* format, ...);

// Empties the status line.
void clear_console_status();

}  // namespace quarry
