// Partition tables read from bytes in memory, for the first sector of a virtual disk.
#pragma once

#include "disk/ql_disk_structs.h"
#include "foundation/byte_view.h"

namespace quarry {

[[nodiscard]] bool read_partitions_from_buffer(byte_view bytes, partition_list& list, bool scan, bool with_gaps);

}  // namespace quarry
