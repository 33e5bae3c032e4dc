// The geometry of a volume, from its boot sector or the backup of it.
//
// The first sector of a volume says how large sectors, clusters, records and index blocks are and where $MFT
// and its mirror begin. Everything else is found from there. A copy of the sector is stored in the sector
// after the last one that the volume counts, which is the last one of its partition:
//
//     volume_offset                                      volume_offset + total sectors * bytes per sector
//     | boot sector | ...  clusters of the volume  ... | backup |
//
//     offset  3  "NTFS    "              offset 40  total sectors      offset 64  size of a record
//     offset 11  bytes per sector        offset 48  LCN of $MFT        offset 68  size of an index block
//     offset 13  sectors per cluster     offset 56  LCN of its mirror  offset 72  serial number
//
// The two sizes are signed bytes: n is n clusters, -n is 2^n bytes.
#pragma once

#include "exact/exact_source.h"
#include "exact/failure.h"
#include "foundation/byte_view.h"

#include <cstdint>

namespace quarry::exact {

// The largest cluster that NTFS has, in bytes.
inline constexpr std::uint32_t largest_cluster = 0x200000;

struct geometry {
    std::uint64_t volume_offset = 0;  // bytes from the start of the source
    std::uint32_t bytes_per_sector = 0;
    std::uint64_t total_sectors = 0;
    std::uint32_t cluster_size = 0;  // bytes
    std::uint64_t clusters = 0;      // whole ones
    std::uint32_t record_size = 0;   // bytes
    std::uint32_t index_block_size = 0;
    std::uint64_t mft_lcn = 0;
    std::uint64_t mirror_lcn = 0;
    std::uint64_t serial = 0;
    bool from_backup = false;

    // The byte of the source at which a cluster of the volume begins.
    [[nodiscard]] std::uint64_t source_byte_of(std::uint64_t lcn) const {
        return volume_offset + lcn * cluster_size;
    }
    // Bytes that the volume counts as its own; the backup of the boot sector follows.
    [[nodiscard]] std::uint64_t volume_bytes() const { return total_sectors * bytes_per_sector; }
};

// The geometry that a boot sector describes; `sector` needs its first 80 bytes. `volume_offset` is where the
// volume begins on the source, `sector_offset` where this sector lies, both in bytes. Fails with boot if a
// field has a value that no volume has.
[[nodiscard]] result<geometry> parse_boot_sector(byte_view sector, std::uint64_t volume_offset,
                                                 std::uint64_t sector_offset);

// The geometry of the volume at `volume_offset`, which may reach over `length_available` bytes: from its boot
// sector, or else from the backup at the end of these bytes, with the warning boot-backup. A backup counts
// only if record 0 of $MFT is where it says. Fails with what is wrong with the boot sector if neither is
// sound.
[[nodiscard]] result<geometry> read_geometry(const exact_source& source, std::uint64_t volume_offset,
                                             std::uint64_t length_available, notices& told);

}  // namespace quarry::exact
