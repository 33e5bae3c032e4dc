// Where the log of a run goes.
//
// A log may take the place of an earlier log, and of nothing else: it is opened before anything is known of
// the source, so a slip with its name would lose a copy that was made before.
#pragma once

#include "exact/failure.h"
#include "frontend/output/output_guard.h"

#include <string>

namespace quarry::exact {

// Refuses a path that leads to the source or lies on it, to the destination as typed, to a block device, to a
// file that is standard input, output or error, and to a file that holds something and does not begin as a
// log does, with "->". Nothing is changed. Fails with create.
[[nodiscard]] result<void> check_log(const std::string& path, const output_guard& guard,
                                     const std::string& destination);

}  // namespace quarry::exact
