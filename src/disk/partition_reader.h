// Partition tables of a disk or an image.
//
// The usual case is an MBR or a GPT in the first sectors. There are three others: a bare volume without any
// table (the image of one partition), a sector size other than 512 bytes, and a damaged disk, where a search
// through the first mebibyte may find what is left of a table.
#pragma once

#include "disk/ql_disk_structs.h"
#include "disk/raw_disk_io.h"

#include <cstdint>

namespace quarry {

// True if an NTFS boot sector is at this byte of the disk; only its name is looked at. False on a null or
// unusable disk and when it cannot be read.
[[nodiscard]] bool ntfs_at(RAW_DISK_IO* disk, std::uint64_t byte_offset);

// Fills `list`, cleared first, with the partitions of a disk, each with the file system that its first sector
// shows. A bare volume is one record. `scan` permits the search on a disk without a table; `with_gaps` adds
// records of the table itself and of free space. True when the list is not empty. False on a null or unusable
// disk too; the list may hold the beginning of a table that could not be read further.
[[nodiscard]] bool read_partitions(RAW_DISK_IO* disk, partition_list& list, bool scan, bool with_gaps);

// The same for a disk that has a GPT.
[[nodiscard]] bool read_gpt(RAW_DISK_IO* disk, partition_list& list, bool with_gaps);

}  // namespace quarry
