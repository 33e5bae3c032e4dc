// Copies whose name proves them: it begins with the modification time and ends with the MD5 digest of the
// bytes.
#pragma once

#include "frontend/copy/copy_request.h"
#include "frontend/output/output_guard.h"
#include "volume/attr_item.h"
#include "volume/ntfs.h"
#include "volume/stream_pump.h"

#include <cstdint>

namespace quarry {

// Copies an attribute into the directory of the destination, under the 16 hexadecimal digits of `mod_time` (a
// FILETIME as it is stored), the name of the destination and the digest, with "_" between them. The report,
// if `report` is not empty, follows it under the same name and "_meta.txt". False, with no file left, if the
// copy could not be read, written or named.
[[nodiscard]] bool copy_named_by_hash(const copy_request& request, const std::wstring& report, CNtfs* ntfs,
                                      attr_item& item, std::uint64_t mod_time, pump_context& context,
                                      output_guard& guard);

}  // namespace quarry
