// The file that a report is written to.
#pragma once

#include "foundation/uni_streams.h"

#include <string>

namespace quarry {

// Opens the file of a report, makes it or empties it. False if it cannot be opened, and for a FIFO or a
// socket, whose other end is not waited for: a report never stops a copy.
[[nodiscard]] bool open_report(uni::ofstream& report, const std::wstring& path);

}  // namespace quarry
