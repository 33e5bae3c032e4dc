// The files of the host that a run reads as its source, so that no output is ever written over one of them.
#pragma once

#include "frontend/arg_list.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quarry {

// The files that the source options among these arguments name, each as it is typed and as it is opened. All
// of them count: also those of an option that has no effect because another one comes first, those after a
// word that is nearly a source option ("-imgae"), and both words where it is not clear which of them an
// option will take as its value.
[[nodiscard]] std::vector<std::string> files_of_source_options(const arg_list& args);

// The same and the volumes that paths among these arguments name. For outputs that are opened before the
// paths are parsed.
[[nodiscard]] std::vector<std::string> source_files_ahead(const arg_list& args);

}  // namespace quarry
