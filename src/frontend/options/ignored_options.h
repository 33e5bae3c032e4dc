// Options that are accepted and have no meaning here. Scripts pass them to a whole family of tools; they must
// not be taken for paths.
#pragma once

#include "frontend/arg_list.h"

#include <cstddef>
#include <string_view>

namespace quarry {

// Removes each of these options, once, with the value of those that take one.
void drop_ignored_options(arg_list& args);

// The number of words that such an option takes, itself included; 0 for any other word. Lower-case letters.
[[nodiscard]] std::size_t words_of_ignored_option(std::string_view word);

}  // namespace quarry
