#include "disk/partition_types.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace quarry {

namespace {

constexpr std::array<std::uint8_t, 91> partition_types = {
    0x01, 0x04, 0x05, 0x06, 0x07, 0x08, 0x0B, 0x0C, 0x0E, 0x0F, 0x11, 0x12, 0x14, 0x15, 0x16, 0x1B,
    0x1C, 0x1E, 0x1F, 0x24, 0x27, 0x41, 0x42, 0x43, 0x56, 0x64, 0x66, 0x74, 0x76, 0x79, 0x7A, 0x7B,
    0x7C, 0x7D, 0x80, 0x81, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x8B, 0x8C, 0x8E, 0x90, 0x91,
    0x92, 0x93, 0x97, 0x98, 0x9A, 0xA8, 0xAB, 0xAC, 0xAF, 0xB6, 0xB7, 0xBB, 0xBC, 0xC2, 0xC3, 0xC4,
    0xC5, 0xC6, 0xC7, 0xCB, 0xCC, 0xCD, 0xCE, 0xCF, 0xD4, 0xD5, 0xD6, 0xD8, 0xDE, 0xE4, 0xE5, 0xE6,
    0xE8, 0xEF, 0xF0, 0xF2, 0xF4, 0xF6, 0xF9, 0xFB, 0xFC, 0xFD, 0xFE};

constexpr std::string_view unknown_type = "unk";

std::string_view plain_type_name(std::uint16_t type) {
    switch (type) {
        case 0x00:
            return "empty";
        case 0x01:
        case 0x8D:
            return "fat12";
        case 0x02:
            return "xenix root";
        case 0x03:
            return "xenix /usr";
        case 0x04:
            return "fat16";
        case 0x05:
        case 0x0F:
            return "exten";
        case 0x06:
            return "fat";
        case 0x07:
            return "ntfs or exfat";
        case 0x08:
            return "aix boot";
        case 0x09:
            return "aix data";
        case 0x0A:
            return "os/2 boot";
        case 0x0B:
        case 0x0C:
            return "fat32";
        case 0x0E:
            return "fat16 LBA mapped";
        case 0x11:
        case 0x14:
        case 0x16:
        case 0x1E:
        case 0x90:
        case 0x91:
        case 0x92:
            return "hidden fat16";
        case 0x17:
        case 0x27:
            return "hidden ntfs";
        case 0x1B:
        case 0x1C:
        case 0x97:
        case 0x98:
            return "hidden fat32";
        case 0x82:
            return "linux swap";
        case 0x83:
            return "linux";
        case 0x86:
            return "fat16 volume set";
        case 0x87:
            return "ntfs volume set";
        case 0x88:
            return "linux partition table";
        case 0x8B:
        case 0x8C:
            return "fat32 fault tolerant";
        case 0x8E:
            return "linux Logical Volume Mgr";
        case 0x93:
            return "hidden linux";
        case 0xA0:
        case 0xA1:
            return "hibernation partition";
        case 0xA6:
            return "openbsd";
        case 0xAF:
            return "hfs";
        case 0xEE:
            return "gpt";
        default:
            return unknown_type;
    }
}

}  // namespace

bool is_partition_type(std::uint8_t type) {
    return std::binary_search(partition_types.begin(), partition_types.end(), type);
}

bool is_partition_type(const partition_entry& entry) {
    return is_partition_type(entry.type());
}

bool is_used(const partition_entry& entry) {
    return entry.num_sectors() != 0 && entry.type() != 0;
}

// Deliberate: an extended partition of type 0x85 is not followed, only listed. The user does not see what it
// holds.
bool is_link(const partition_entry& entry) {
    return entry.type() == type_extended || entry.type() == type_extended_lba;
}

std::string partition_type_name(std::uint16_t type) {
    if ((type & type_guessed) == 0) {
        return std::string(plain_type_name(type));
    }
    return std::string(plain_type_name(type & 0xFF)) + " [guess]";
}

bool is_ntfs_type(std::uint16_t type) {
    return partition_type_name(type).find("ntfs") != std::string::npos;
}

}  // namespace quarry
