// References to the environment in paths that a user gives: %NAME%.
#pragma once

#include <string>

namespace quarry {

// The text with each %NAME% replaced by the value of that environment variable. References in a value are
// replaced in turn. What the environment does not know stays as it is, and so does a text of more than 512
// bytes. With `allow_vss`, %vss% in any case of its letters is replaced by the name under which shadow copies
// are addressed, unless the environment has a variable of that name.
[[nodiscard]] std::string expand_env(std::string text, bool allow_vss);

}  // namespace quarry
