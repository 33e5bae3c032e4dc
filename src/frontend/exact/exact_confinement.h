// What a run of the exact mode needs of the host once its log is open and its destination is not refused.
#pragma once

#include "frontend/confinement.h"
#include "frontend/exact/exact_options.h"

#include <string>
#include <vector>

namespace quarry::exact {

// The files of the source for reading, and for writing only the directory of the destination. The log is open
// already.
[[nodiscard]] needed_files files_needed_by(const exact_options& options,
                                           const std::vector<std::string>& source_files);

}  // namespace quarry::exact
