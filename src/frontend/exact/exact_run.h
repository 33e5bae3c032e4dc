// One run of the exact mode, from its arguments to its exit status.
#pragma once

#include "foundation/ql_time.h"
#include "frontend/arg_list.h"
#include "frontend/confinement.h"

namespace quarry::exact {

// What a run ends with. Memory that runs out and faults of the program end it with 255.
enum class exit_status : int {
    complete = 0,
    failed = 1,
    refused = 2,  // the command line or the destination; nothing was read
    in_doubt = 4,
    not_opened = 5,  // the source or the volume
};

// Prints the header, or the help; then parses, refuses destinations, opens source and volume, and copies.
// `started` is shown in the header. With `kernel` the process gives up, before the source is opened, what the
// rest of the run does not need.
[[nodiscard]] exit_status run_exact(const arg_list& arguments, const ql::time& started, kernel_calls* kernel);

}  // namespace quarry::exact
