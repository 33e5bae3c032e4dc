#include "exact/volume_probe.h"

namespace quarry::exact {

namespace {

constexpr std::uint64_t name_offset = 3;
constexpr std::uint64_t fat_name_offset = 54;
constexpr std::uint64_t fat32_name_offset = 82;
constexpr std::uint64_t ext_magic_offset = 1080;
constexpr std::uint16_t ext_magic = 0xEF53;

}  // namespace

volume_kind probe_volume(byte_view head) {
    if (head.text_at(name_offset, "NTFS    ")) {
        return volume_kind::ntfs;
    }
    if (head.text_at(name_offset, "-FVE-FS-")) {
        return volume_kind::bitlocker;
    }
    if (head.text_at(name_offset, "EXFAT   ")) {
        return volume_kind::exfat;
    }
    if (head.text_at(fat32_name_offset, "FAT32   ") || head.text_at(fat_name_offset, "FAT16   ") ||
        head.text_at(fat_name_offset, "FAT12   ")) {
        return volume_kind::fat;
    }
    if (head.u16_or_zero(ext_magic_offset) == ext_magic) {
        return volume_kind::ext;
    }
    return volume_kind::unknown;
}

std::string_view kind_text(volume_kind kind) {
    switch (kind) {
        case volume_kind::ntfs:
            return "ntfs";
        case volume_kind::fat:
            return "fat";
        case volume_kind::exfat:
            return "exfat";
        case volume_kind::ext:
            return "ext";
        case volume_kind::bitlocker:
            return "enciphered (BitLocker)";
        case volume_kind::unreadable:
            return "unreadable";
        case volume_kind::unknown:
            break;
    }
    return "unknown";
}

}  // namespace quarry::exact
