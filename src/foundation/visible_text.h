// Text from a disk as it may be shown.
//
// A name on disk is whatever somebody wrote there. Printed as it is, a line feed in it begins a line of its
// own in a report or a log, an escape sequence acts on the terminal, and a bidirectional control turns the
// text around it so that one name looks like another.
#pragma once

#include <string>
#include <string_view>

namespace quarry {

// The UTF-8 text with each control character (U+0000 to U+001F, U+007F to U+009F) and each bidirectional
// control (U+061C, U+200E, U+200F, U+202A to U+202E, U+2066 to U+2069) as "\uXXXX", four upper-case digits.
// All other text, backslashes and bytes that are no UTF-8 included, is as it was.
[[nodiscard]] std::string visible_text(std::string_view text);

}  // namespace quarry
