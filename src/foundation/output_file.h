// The files that a run writes: copies and reports.
#pragma once

#include "foundation/uni_streams.h"

#include <string>

namespace uni {

// Opens a file for output, makes it or empties it. False if it cannot be opened, and for a FIFO or a socket,
// whose other end is not waited for: a name that leads to one must not hold up the rest of a run.
[[nodiscard]] bool open_output(ofstream& out, const std::wstring& path);

}  // namespace uni
