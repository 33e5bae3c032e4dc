// Arguments of a run, made from bytes, that reach no file outside of the current directory.
//
// Bytes choose options, names of files that the fuzzer puts into its directory, names on the volume, numbers
// and free text. A path in free text is made harmless: it is relative, it goes up nowhere, and it holds
// nothing that the program would replace by something else.
#pragma once

#include "foundation/byte_view.h"

#include <string>
#include <vector>

namespace quarry::fuzz {

// The name of the image, of a symbolic and of a hard link to it, and of a directory.
inline constexpr const char* image_name = "image";
inline constexpr const char* link_name = "link";
inline constexpr const char* hard_link_name = "hard";
inline constexpr const char* directory_name = "dir";

// The program's name first, as in a vector of arguments.
[[nodiscard]] std::vector<std::string> arguments_of(byte_view script);

// Text in which every path is harmless.
[[nodiscard]] std::string harmless(std::string text);

// What writes a script: one argument each.
[[nodiscard]] std::vector<std::uint8_t> script_of(const std::vector<std::string>& arguments);

}  // namespace quarry::fuzz
