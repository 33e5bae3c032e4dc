// The NTFS boot sector, the first 512 bytes of a volume.
//
// It is written when a volume is made and holds the geometry (bytes per sector, sectors per cluster) and
// where $MFT begins. Only the eight bytes of the signature make a sector one: the checksum and the end marker
// are not looked at, and no number in it is true of the volume until it is tested.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quarry {

#pragma pack(push, 1)
// Read straight from the volume; little-endian.
struct NTFS_BOOT {
    std::uint8_t jump[3];
    char signature[4];  // "NTFS"
    char oem_rest[4];   // four blanks
    std::uint16_t bytes_per_sector;
    std::uint8_t sectors_per_cluster;
    std::uint16_t reserved_sectors;
    std::uint8_t zero_1[5];
    std::uint8_t media_descriptor;
    std::uint16_t zero_2;
    std::uint16_t sectors_per_track;
    std::uint16_t number_of_heads;
    std::uint32_t hidden_sectors;
    std::uint32_t zero_3;
    std::uint32_t not_interpreted_1;
    std::uint64_t total_sectors;
    std::uint64_t mft_lcn;
    std::uint64_t mft_mirror_lcn;  // never read
    // Below zero: the negated power of two of the record's size in bytes.
    std::int8_t clusters_per_record;
    std::uint8_t not_interpreted_2[3];
    std::int8_t clusters_per_index_block;
    std::uint8_t not_interpreted_3[3];
    std::uint64_t volume_serial;
    std::uint32_t checksum;
    std::uint8_t bootstrap[426];
    std::uint8_t end_marker[2];
};
#pragma pack(pop)
static_assert(sizeof(NTFS_BOOT) == 512);
static_assert(offsetof(NTFS_BOOT, bytes_per_sector) == 11);
static_assert(offsetof(NTFS_BOOT, signature) == 3);
static_assert(offsetof(NTFS_BOOT, sectors_per_cluster) == 13);
static_assert(offsetof(NTFS_BOOT, total_sectors) == 40);
static_assert(offsetof(NTFS_BOOT, mft_lcn) == 48);
static_assert(offsetof(NTFS_BOOT, clusters_per_record) == 64);
static_assert(offsetof(NTFS_BOOT, volume_serial) == 72);
static_assert(offsetof(NTFS_BOOT, end_marker) == 510);

}  // namespace quarry
