// Options that are accepted and have no meaning here must not be taken for paths.
#pragma once

#include "frontend/arg_list.h"

namespace quarry {

// Removes each of `ignored_words`, once, with the value of those that take one.
void drop_ignored_options(arg_list& args);

}  // namespace quarry
