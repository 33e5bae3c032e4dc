// The GUID partition table (UEFI specification, chapter 5), taken only if both of its checksums hold.
#pragma once

#include "exact/exact_source.h"
#include "exact/failure.h"
#include "exact/partition.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace quarry::exact {

// True if the header's signature is stored at the start of this sector; false too if it cannot be read.
[[nodiscard]] bool has_gpt_signature(const exact_source& source, std::uint64_t sector,
                                     std::uint32_t sector_size);

// The partitions of the table whose header is in this sector, in the order of its entries. Fails with table
// if the signature, the header's place, a checksum or an entry is wrong, and if it cannot be read.
[[nodiscard]] result<std::vector<partition>> read_gpt(const exact_source& source, std::uint64_t sector,
                                                      std::uint32_t sector_size);

}  // namespace quarry::exact
