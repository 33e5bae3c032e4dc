// The partitions of a disk, by tables whose checksums and marks hold.
//
// A disk is divided by one of two tables. The MBR is sector 0, with four entries; an entry of an extended
// type leads to a further table, whose own links count from the first one, so that they form a chain:
//
//     sector 0          E            E + a            E + b
//     | MBR: 1 2 3 E |  | table: 5 a |  | table: 6 b |  | table: 7 |
//
// The GPT has a header in sector 1, with a checksum of itself and one of its entries, and the same once more
// at the end of the disk:
//
//     | protective MBR | header | entries ...          ... entries | header |
//
// Sectors have 512 to 4,096 bytes; which it is shows in where the header lies.
#pragma once

#include "exact/exact_source.h"
#include "exact/failure.h"
#include "exact/partition.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace quarry::exact {

// The partitions in the order of their offsets. `sector_size` is the size of a sector in bytes, found out if
// it is empty. Warns (gpt-backup) if the copy of a GPT is used, (gpt-stale) if there is one that the MBR does
// not name. Nothing if sector 0 has no mark and there is no GPT. Fails with table if a rule is broken, and if
// a table cannot be read.
[[nodiscard]] result<std::optional<std::vector<partition>>> read_partitions(
    const exact_source& source, std::optional<std::uint32_t> sector_size, notices& told);

}  // namespace quarry::exact
