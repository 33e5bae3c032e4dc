// One run of the exact mode, from its arguments to its exit status.
#pragma once

#include "foundation/ql_time.h"
#include "frontend/arg_list.h"
#include "frontend/confinement.h"
#include "frontend/exact/exact_status.h"

namespace quarry::exact {

// Prints the header, or the help; then parses, refuses destinations, opens source and volume, and copies.
// `started` is shown in the header. With `kernel` the process gives up, before the source is opened, what the
// rest of the run does not need.
[[nodiscard]] exit_status run_exact(const arg_list& arguments, const ql::time& started, kernel_calls* kernel);

}  // namespace quarry::exact
