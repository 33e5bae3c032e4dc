// The help of the exact mode.
#pragma once

namespace quarry::exact {

// Prints it to standard error.
void print_exact_help();

}  // namespace quarry::exact
