// Partition type bytes: which of them count as partitions, and what they are called.
#pragma once

#include <cstdint>
#include <string>

namespace quarry {

[[nodiscard]] bool is_partition_type(std::uint8_t type);
[[nodiscard]] std::string partition_type_name(std::uint16_t type);
// True when the name of the type contains "ntfs".
[[nodiscard]] bool is_ntfs_type(std::uint16_t type);

}  // namespace quarry
