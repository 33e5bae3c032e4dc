#include "disk/format_sniffer.h"

#include "disk/partition_types.h"

#include <algorithm>
#include <string>

namespace quarry {

namespace {

constexpr std::uint16_t sector_end_mark = 0xAA55;
constexpr std::uint32_t smallest_sector_size = 512;
constexpr std::uint64_t system_name = 3;

constexpr std::uint16_t type_fat16 = 0x04;
constexpr std::uint16_t type_fat32 = 0x0C;
constexpr std::uint16_t type_linux = 0x83;
constexpr std::uint16_t type_hfs = 0xAF;

// The fields that NTFS and FAT have in common.
class parameter_block {
  public:
    explicit parameter_block(byte_view bytes) : m_bytes(bytes) {}
    [[nodiscard]] std::uint16_t bytes_per_sector() const { return m_bytes.u16_or_zero(11); }
    [[nodiscard]] std::uint8_t sectors_per_cluster() const { return m_bytes.u8_or_zero(13); }

  private:
    byte_view m_bytes;
};

class exfat_boot_sector {
  public:
    explicit exfat_boot_sector(byte_view bytes) : m_bytes(bytes) {}
    [[nodiscard]] std::uint64_t num_sectors() const { return m_bytes.u64_or_zero(72); }
    [[nodiscard]] std::uint32_t serial_number() const { return m_bytes.u32_or_zero(100); }
    // Both are powers of two, and stored as the exponent.
    [[nodiscard]] std::uint8_t bytes_per_sector_shift() const { return m_bytes.u8_or_zero(108); }
    [[nodiscard]] std::uint8_t sectors_per_cluster_shift() const { return m_bytes.u8_or_zero(109); }

  private:
    byte_view m_bytes;
};

// The superblock of ext2, ext3 and ext4, 1,024 bytes after the start of the volume.
class ext_superblock {
  public:
    static constexpr std::uint64_t position = 1024;
    static constexpr std::uint16_t expected_magic = 0xEF53;

    explicit ext_superblock(byte_view volume) : m_bytes(volume.from(position)) {}
    [[nodiscard]] std::uint32_t block_count() const { return m_bytes.u32_or_zero(4); }
    [[nodiscard]] std::uint16_t magic() const { return m_bytes.u16_or_zero(56); }
    [[nodiscard]] std::uint32_t serial_number() const { return m_bytes.u32_or_zero(104); }
    [[nodiscard]] std::string volume_label() const { return text(120, 16); }
    [[nodiscard]] std::string mount_point() const { return text(136, 64); }
    // In bytes: 1024 times a power of two. What does not fit into 32 bits counts as the smallest.
    [[nodiscard]] std::uint32_t block_size() const {
        const std::uint32_t exponent = m_bytes.u32_or_zero(24);
        return exponent < 22 ? 1024u << exponent : 1024u;
    }

  private:
    // Text that ends at its first zero byte or fills its place.
    [[nodiscard]] std::string text(std::uint64_t offset, std::uint64_t length) const {
        const byte_view place = m_bytes.clipped(offset, length);
        const auto end = std::find(place.span().begin(), place.span().end(), std::uint8_t{0});
        return {place.span().begin(), end};
    }

    byte_view m_bytes;
};

bool reaches_superblock(byte_view bytes) {
    return bytes.size() >= whole_probe_size;
}

// Deliberate: only bits 0 to 5 of the exponent count, not all of them. The user sees 0 for an exponent with
// bit 5 set, such as 32, and 1 again for 64.
std::uint32_t power_of_two(std::uint8_t exponent) {
    constexpr std::uint8_t outside_of_32_bits = 0x20;
    return (exponent & outside_of_32_bits) != 0 ? 0 : 1u << (exponent & 0x1F);
}

void take_length_if_unknown(partition_stats& record, std::uint64_t num_sectors) {
    if (record.m_num_sectors == 0) {
        record.m_num_sectors = num_sectors;
    }
}

// Deliberate: the byte offset of a partition is counted in sectors of the size that its boot sector states,
// not in those of the disk. The user sees a volume of 4,096-byte sectors on a disk of 512-byte ones listed
// eight times too far, and one that states 0 at offset 0x0.
void take_parameter_block(partition_stats& record, byte_view bytes) {
    const parameter_block parameters(bytes);
    record.m_sectors_per_cluster = parameters.sectors_per_cluster();
    record.m_sector_size = parameters.bytes_per_sector();
}

void fill_exfat(partition_stats& record, byte_view bytes) {
    const exfat_boot_sector boot(bytes);
    record.m_partition_type = type_ntfs;
    record.m_format = "exfat";
    record.m_format_known = true;
    record.m_sectors_per_cluster = power_of_two(boot.sectors_per_cluster_shift());
    record.m_sector_size = power_of_two(boot.bytes_per_sector_shift());
    record.m_volume_signature = boot.serial_number();
    take_length_if_unknown(record, boot.num_sectors());
}

// NTFS, and a container that was encrypted in place and kept the layout of the boot sector.
void fill_ntfs(partition_stats& record, byte_view bytes, const char* format) {
    record.m_partition_type = type_ntfs;
    record.m_format = format;
    record.m_format_known = true;
    take_parameter_block(record, bytes);
    record.m_volume_signature = bytes.u32_or_zero(72);
    take_length_if_unknown(record, bytes.u64_or_zero(40));
}

void fill_fat32(partition_stats& record, byte_view bytes) {
    record.m_partition_type = type_fat32;
    record.m_format = "fat32";
    record.m_format_known = true;
    take_parameter_block(record, bytes);
    record.m_volume_signature = bytes.u32_or_zero(67);
    record.m_flags = bytes.u16_or_zero(40);
    // Deliberate: the length that FAT32 states, not that of the table's entry, which counts for the other
    // formats. The user sees the file system's length.
    record.m_num_sectors = bytes.u32_or_zero(32);
}

void fill_fat16(partition_stats& record, byte_view bytes) {
    record.m_partition_type = type_fat16;
    record.m_format = "fat16";
    record.m_format_known = true;
    take_parameter_block(record, bytes);
    record.m_volume_signature = bytes.u32_or_zero(39);
    take_length_if_unknown(record, bytes.u32_or_zero(32));
}

// An ext volume with something at byte 3, where others have their name.
void fill_named_ext(partition_stats& record, byte_view bytes) {
    const ext_superblock superblock(bytes);
    const std::uint32_t block_size = superblock.block_size();
    record.m_partition_type = type_linux;
    record.m_format = "ext2/3";
    record.m_name = "ext2/3";
    record.m_format_known = true;
    record.m_volume_signature = superblock.serial_number();
    record.m_sectors_per_cluster = block_size / 512;
    record.m_sector_size = 512;
    // Deliberate: the start becomes 0 and the length counts bytes; they are not the start of the table's
    // entry and a length in sectors. The user sees the partition listed at offset 0x0.
    record.m_start_sector = 0;
    record.m_num_sectors = static_cast<std::uint64_t>(block_size) * superblock.block_count();
}

// With eight zeros at byte 3 there is no name in the boot sector: what is known then is ext and HFS+.
bool sniff_nameless(partition_stats& record, byte_view bytes) {
    if (!reaches_superblock(bytes)) {
        return false;
    }
    if (has_ext_magic(bytes)) {
        const ext_superblock superblock(bytes);
        record.m_partition_type = type_linux;
        record.m_format = "ext";
        record.m_volume_label = superblock.volume_label();
        record.m_mount_point = superblock.mount_point();
        return true;
    }
    constexpr std::uint64_t hfs_header = 1024;
    if (bytes.u8_or_zero(hfs_header) != 'H') {
        return false;
    }
    // Deliberate: the first letter decides about the type, not both. The user sees "hfs" for any partition
    // with an "H" in this place, even if nothing was recognised.
    record.m_partition_type = type_hfs;
    if (bytes.text_at(hfs_header, "H+")) {
        record.m_format = "hfs+";
        return true;
    }
    if (bytes.text_at(hfs_header, "HX")) {
        record.m_format = "hfsx";
        return true;
    }
    return false;
}

}  // namespace

bool is_volume_boot_sector(byte_view bytes) {
    return bytes.text_at(system_name, "EXFA") || bytes.text_at(system_name, "MSDO") ||
           bytes.text_at(system_name, "NTFS");
}

bool is_mbr(byte_view bytes) {
    return find_sector_size(bytes, smallest_sector_size, smallest_sector_size).has_value() &&
           !is_volume_boot_sector(bytes);
}

bool has_ext_magic(byte_view bytes) {
    return ext_superblock(bytes).magic() == ext_superblock::expected_magic;
}

bool has_ntfs_name(byte_view bytes) {
    return bytes.text_at(system_name, "NTFS    ");
}

std::optional<std::uint32_t> find_sector_size(byte_view head, std::uint64_t smallest, std::uint64_t largest) {
    // Deliberate: the first mark settles the size, not what the table says. The user sees a disk of larger
    // sectors counted in sectors of 512 bytes if its table has a mark at byte 510, where most tools put it.
    for (std::uint32_t size = smallest_sector_size; size <= largest_sector_size; size *= 2) {
        if (size >= smallest && size <= largest && head.u16(size - 2) == sector_end_mark) {
            return size;
        }
    }
    return std::nullopt;
}

bool sniff_format(partition_stats& record, byte_view bytes) {
    if (bytes.size() < table_size) {
        return false;
    }
    // Deliberate: taken from any sector, not only from one that was recognised. The user sees nothing of it.
    const std::uint8_t sectors_per_cluster = parameter_block(bytes).sectors_per_cluster();
    if (sectors_per_cluster != 0) {
        record.m_sectors_per_cluster = sectors_per_cluster;
    }
    if (bytes.u64_or_zero(system_name) == 0) {
        return sniff_nameless(record, bytes);
    }
    if (bytes.text_at(system_name, "EXFAT   ")) {
        fill_exfat(record, bytes);
    } else if (has_ntfs_name(bytes)) {
        fill_ntfs(record, bytes, "ntfs");
    } else if (bytes.text_at(system_name, "-FVE-FS-")) {
        fill_ntfs(record, bytes, "bitlocker container");
    } else if (bytes.text_at(82, "FAT32")) {
        fill_fat32(record, bytes);
    } else if (bytes.text_at(54, "FAT16")) {
        fill_fat16(record, bytes);
    } else if (reaches_superblock(bytes) && has_ext_magic(bytes)) {
        fill_named_ext(record, bytes);
    } else {
        return false;
    }
    return true;
}

partition_stats bare_volume(byte_view bytes) {
    partition_stats record;
    record.m_sector_size = smallest_sector_size;
    record.m_format_known = true;
    sniff_format(record, bytes);
    return record;
}

}  // namespace quarry
