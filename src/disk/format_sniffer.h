// Recognises a file system by its first sector.
//
// The first sector of a volume is a boot sector. NTFS, exFAT and FAT describe themselves in it: a name (at
// byte 3, 54 or 82), the bytes in a sector (11), the sectors in a cluster (13), the length, a serial number.
// An ext volume does not use its first 1,024 bytes. Its superblock follows them, with the word 0xEF53 at its
// byte 56; HFS+ has a volume header at the same place. Those two are only found when the bytes reach that
// far.
#pragma once

#include "disk/ql_disk_structs.h"
#include "foundation/byte_view.h"

#include <cstdint>
#include <optional>

namespace quarry {

// Bytes that have to be there for everything that is looked for: the boot sector, and the superblock after
// it.
inline constexpr std::size_t whole_probe_size = 2048;

// True for a sector that says it is a volume's: "EXFA", "MSDO" or "NTFS" at byte 3.
[[nodiscard]] bool is_volume_boot_sector(byte_view bytes);
// True for a sector that holds a partition table: the word 0xAA55 at byte 510, and no volume boot sector.
[[nodiscard]] bool is_mbr(byte_view bytes);
// True when the bytes from the start of a volume on reach to the magic word of an ext superblock and hold it.
[[nodiscard]] bool has_ext_magic(byte_view bytes);
// True for an NTFS boot sector's eight characters at byte 3.
[[nodiscard]] bool has_ntfs_name(byte_view bytes);
// The sector size of a disk: the first of 512, 1024, 2048, 4096, 8192 and 16384 bytes, from `smallest` to
// `largest`, whose sector 0 ends with the word 0xAA55. Nothing when none does.
[[nodiscard]] std::optional<std::uint32_t> find_sector_size(byte_view head, std::uint64_t smallest,
                                                            std::uint64_t largest);

// Fills a record from the first bytes of its volume: type, format, serial number, sizes, and the length where
// the record has none. Needs 512 bytes, and 2,048 for ext and HFS+. True when a file system was recognised.
// After false the sectors per cluster may have been taken from byte 13, and the type may be HFS+'s; the rest
// is unchanged.
//
// The sector size of the record becomes what the boot sector says, and the byte offset of the volume is
// computed with it from then on.
bool sniff_format(partition_stats& record, byte_view bytes);

// The record of a source that is one volume from its first byte on, with no table around it. It counts as a
// known format whether or not these bytes are recognised.
[[nodiscard]] partition_stats bare_volume(byte_view bytes);

}  // namespace quarry
