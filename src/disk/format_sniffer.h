// Recognises a file system by its first sector.
#pragma once

#include "disk/ql_disk_structs.h"
#include "foundation/byte_view.h"

namespace quarry {

[[nodiscard]] bool is_volume_boot_sector(byte_view bytes);
[[nodiscard]] bool is_mbr(byte_view bytes);
bool sniff_format(partition_stats& record, byte_view bytes);

}  // namespace quarry
