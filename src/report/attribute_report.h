// The metadata report of a copy by name or by entry.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "volume/attr_item.h"
#include "volume/ntfs.h"

namespace quarry {

void write_attribute_report(std::ostream& out, CNtfs& ntfs, std::uint64_t entry, const std::wstring& source_path,
                            const attr_item_list& items);

}  // namespace quarry
