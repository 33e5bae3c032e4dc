// The first pass over a list of VMDK files: is it a whole chain, and what would make it one?
#pragma once

#include <sstream>
#include <string>
#include <vector>

namespace quarry {

[[nodiscard]] bool check_list(const std::vector<std::wstring>& list, std::ostringstream& stream,
                              std::vector<std::wstring>& suggested);

}  // namespace quarry
