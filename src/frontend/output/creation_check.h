// Can an output be made under this name?
#pragma once

#include <string>

namespace quarry {

// Opens a file for writing, with `append` at its end, and removes it again: an ordinary file of that name
// that was there before is gone afterwards. Anything else that was there, a link or a device, stays. No
// directory is made. False if the file cannot be opened; a FIFO or a socket counts as that.
[[nodiscard]] bool can_be_created(const std::string& path, bool append);

}  // namespace quarry
