// The files of the host that a run reads as its source, so that no output is ever written over one of them.
#pragma once

#include "frontend/arg_list.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quarry {

// The files that source options of these arguments name, each as it is typed and as it is opened; also of
// options that another one hides, or that a slip leaves where nothing takes them, and what is beside a word
// that looks like a source option. A word that an option before it keeps away counts as well.
[[nodiscard]] std::vector<std::string> files_of_source_options(const arg_list& args);

// The same and the volumes that paths among these arguments name. Outputs that are opened before the paths
// are parsed look ahead with it.
[[nodiscard]] std::vector<std::string> source_files_ahead(const arg_list& args);

}  // namespace quarry
