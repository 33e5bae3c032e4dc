// What copy routines say: to the status log, and on standard output unless the run is quiet.
#pragma once

#include "frontend/options/cmd_params.h"

#include <string>

namespace quarry {

// One line of text.
void print_copy_message(cmd_params& opts, const std::string& text);

// "err: copy failed: <source> -> <destination>"
void print_copy_failed(cmd_params& opts, const std::wstring& source, const std::wstring& destination);

// The last word on one copy: a line for standard error, unless the run is quiet. The log gets it after "info:
// " or "err: ".
void print_outcome(cmd_params& opts, bool success, const std::string& text);

}  // namespace quarry
