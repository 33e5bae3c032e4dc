// Partition tables read from bytes in memory: the first sector of a virtual disk.
//
// The rules are those of a disk, with fewer ways out: no GPT, no ext volume, no guess at a lost first
// partition.
#pragma once

#include "disk/ql_disk_structs.h"
#include "foundation/byte_view.h"

namespace quarry {

// Fills `list`, cleared first, with the partitions that the bytes from the start of a disk on show. Tables
// and volumes past the bytes do not exist here. `scan` permits a bare volume, and the search for a table;
// `with_gaps` adds records of the table itself and of free space. True when the list is not empty. False for
// less than 512 bytes too.
[[nodiscard]] bool read_partitions_from_buffer(byte_view bytes, partition_list& list, bool scan,
                                               bool with_gaps);

}  // namespace quarry
