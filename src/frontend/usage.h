// The help text, and the name and version that are in it and in the run header.
#pragma once

#include <string>
#include <string_view>

namespace quarry {

inline constexpr std::string_view version_text = "ver: 1.14";

// "quarry", a blank and the version.
[[nodiscard]] std::string banner();

// Writes the help text to standard error.
void print_usage();

}  // namespace quarry
