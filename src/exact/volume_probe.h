// What a volume is, by its first bytes.
//
//     offset  3  "NTFS    ", "EXFAT   ", "-FVE-FS-"      the name that the formatting system left
//     offset 54  "FAT12   ", "FAT16   "                  and in other places for the older ones
//     offset 82  "FAT32   "
//     offset 1080  0xEF53                                in the superblock of ext2, ext3 and ext4
//
// Nothing but the name is looked at. Whether a volume that calls itself NTFS is one is found out by opening
// it.
#pragma once

#include "foundation/byte_view.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace quarry::exact {

enum class volume_kind : std::uint8_t { unknown, unreadable, ntfs, fat, exfat, ext, bitlocker };

// Bytes from the start of a volume that hold every name.
inline constexpr std::size_t probe_bytes = 2048;

// The kind of the volume that begins with these bytes; `unknown` for one that is not recognised. Fewer than
// probe_bytes are enough for those whose name they hold.
[[nodiscard]] volume_kind probe_volume(byte_view head);

// "ntfs", "enciphered (BitLocker)".
[[nodiscard]] std::string_view kind_text(volume_kind kind);

}  // namespace quarry::exact
