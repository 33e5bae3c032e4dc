// Can an output be made under this name?
#pragma once

#include "frontend/output/output_guard.h"

#include <string>

namespace quarry {

// Opens a file for writing, with `append` at its end, and removes it again: an ordinary file of that name
// that was there before is gone afterwards. Anything else that was there, a link or a device, stays. No
// directory is made. False, with nothing opened, if the guard keeps it from that, and if the file cannot be
// opened; a FIFO or a socket counts as that.
[[nodiscard]] bool can_be_created(const output_guard& guard, const std::string& path, output_kind kind,
                                  bool append);

}  // namespace quarry
