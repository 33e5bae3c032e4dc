// Partition type bytes: which of them count as partitions, and what they are called.
//
// The type byte of an entry says what the system that made the partition meant it for. Nobody ever assigned
// these bytes. The two tables here are what this program knows, and they differ: a byte may count without
// having a name, and the reverse.
#pragma once

#include "disk/ql_disk_structs.h"

#include <cstdint>
#include <string>

namespace quarry {

// Leads to a further table.
inline constexpr std::uint8_t type_extended = 0x05;
inline constexpr std::uint8_t type_extended_lba = 0x0F;
// NTFS, exFAT, and what is encrypted in their place.
inline constexpr std::uint8_t type_ntfs = 0x07;
// The disk has a GPT. No partition: it does not count as a type.
inline constexpr std::uint8_t type_gpt = 0xEE;
// Set in partition_stats::m_partition_type for an entry that no table holds.
inline constexpr std::uint16_t type_guessed = 0x8000;

// True when an entry of this type byte counts as a partition.
[[nodiscard]] bool is_partition_type(std::uint8_t type);
[[nodiscard]] bool is_partition_type(const partition_entry& entry);
// True when the entry has a length and a type. An entry can be used and of no type that counts.
[[nodiscard]] bool is_used(const partition_entry& entry);
// True when the entry leads to a further table. Type 0x85 counts as a partition and is not followed.
[[nodiscard]] bool is_link(const partition_entry& entry);

// The name of a type for users; "unk" for a type without one. A guessed type is named by its lower byte, with
// " [guess]" after the name.
[[nodiscard]] std::string partition_type_name(std::uint16_t type);
// True when the name of the type contains "ntfs": a volume to be offered to the user.
[[nodiscard]] bool is_ntfs_type(std::uint16_t type);

}  // namespace quarry
