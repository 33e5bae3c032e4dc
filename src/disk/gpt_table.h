// The rules of the GUID partition table.
//
// Sector 1 of the disk holds the header, which names the place, the number and the size of the entries. Each
// entry in use is a partition: its first and its last sector, two GUIDs, a name. Which file system it holds
// is not taken from its type GUID but looked for in its first sector.
//
// The header is believed if it says that it is in sector 1. Its signature and its checksums are not looked
// at, so a table with a flipped bit somewhere is still read.
#pragma once

#include "disk/ql_disk_structs.h"
#include "disk/sector_source.h"

#include <cstdint>

namespace quarry {

// Reads the table into `list`, which is cleared first. True when it holds a partition, or with `with_gaps`
// the records of the table itself. False for a disk whose first sector has no mark of a table, a header that
// says it is elsewhere, entries of less than 128 bytes, an entry or a partition's first sector that cannot be
// read, and for a table without entries in use; the list then holds what came before. At most 65,536 entries
// are looked at; any more that the header claims must still lie inside of the source.
[[nodiscard]] bool read_gpt_table(partition_list& list, const sector_source& source,
                                  std::uint64_t source_size_bytes, bool with_gaps);

}  // namespace quarry
