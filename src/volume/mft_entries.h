// Entry categorising: from an MFT entry number to its attr_item_list.
#pragma once

#include <cstdint>

#include "foundation/status_log.h"
#include "volume/attr_item.h"
#include "volume/ntfs.h"

namespace quarry {

[[nodiscard]] bool categorize_entry(CNtfs& ntfs, std::uint64_t entry, attr_item_list& out, status_log& log);
[[nodiscard]] bool categorize_index_only(CNtfs& ntfs, std::uint64_t entry, attr_item_list& out, status_log& log);

}  // namespace quarry
