// From a path to an MFT entry, and back.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "foundation/status_log.h"
#include "volume/ntfs.h"

namespace quarry {

[[nodiscard]] bool resolve_path(std::uint64_t& entry, std::uint64_t& parent_entry, std::wstring& canonical_path,
                                CNtfs* ntfs, std::wstring& path, bool follow_links, status_log& log);
[[nodiscard]] bool paths_of_entry(CNtfs& ntfs, std::uint64_t entry, const std::vector<std::wstring>& components,
                                  std::vector<std::wstring>& results);

}  // namespace quarry
