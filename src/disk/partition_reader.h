// Partition tables read through a RAW_DISK_IO.
#pragma once

#include <cstdint>

#include "disk/ql_disk_structs.h"
#include "disk/raw_disk_io.h"

namespace quarry {

[[nodiscard]] bool ntfs_at(RAW_DISK_IO* disk, std::uint64_t byte_offset);
[[nodiscard]] bool read_partitions(RAW_DISK_IO* disk, partition_list& list, bool scan, bool with_gaps);
[[nodiscard]] bool read_gpt(RAW_DISK_IO* disk, partition_list& list, bool with_gaps);

}  // namespace quarry
