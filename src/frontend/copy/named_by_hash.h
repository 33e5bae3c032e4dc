// Copies whose name proves them: it begins with the modification time and ends with the MD5 digest of the
// bytes.
#pragma once

#include "frontend/copy/copy_request.h"
#include "frontend/output/output_guard.h"
#include "volume/attr_item.h"
#include "volume/ntfs.h"
#include "volume/stream_pump.h"

#include <cstdint>
#include <vector>

namespace quarry {

// Copies an attribute into the directory of the destination, under the name of path_with_digest. The reports
// that were written follow it. False, with no file left, if the copy could not be read, written or named.
[[nodiscard]] bool copy_named_by_hash(const copy_request& request, const std::vector<report_output>& reports,
                                      CNtfs* ntfs, attr_item& item, std::uint64_t mod_time,
                                      pump_context& context, output_guard& guard);

}  // namespace quarry
