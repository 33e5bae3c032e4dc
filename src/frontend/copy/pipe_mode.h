// One run for a whole list of paths: lines of standard input, or the files of a directory of this host. The
// volume is opened once, at the first path that needs it.
#pragma once

#include "frontend/options/quarry_opts.h"

namespace quarry {

// Copies path after path and says of each how it went. No path stops the loop.
void run_pipe(quarry_opts& opts);

}  // namespace quarry
