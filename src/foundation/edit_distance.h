// How far two words are apart: what a mistyped option may have been meant to be.
#pragma once

#include <cstddef>
#include <string_view>

namespace quarry {

// The number of edits that make one text of another: a letter added, left out or replaced by another.
[[nodiscard]] std::size_t edit_distance(std::string_view left, std::string_view right);

}  // namespace quarry
