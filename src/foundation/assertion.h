// The check of something that only an error in this program can make false.
//
// It holds in every build, optimised ones too: a program that has lost its footing must not go on writing
// evidence. Bytes of a source, host files and words of a user are never a reason to come here.
#pragma once

namespace quarry {

// Returns if `holds` is true. Otherwise prints the expression and its source file to standard error and
// aborts.
void require(bool holds, const char* expression, const char* source);

}  // namespace quarry
