// Partition tables as they are on disk, and the record that every reader of tables makes.
//
// A disk is divided by one of two tables. The MBR is the first sector of the disk: boot code, four entries of
// 16 bytes from byte 446 on, and the word 0xAA55 at byte 510. An entry of an "extended" type leads to a
// further sector of the same layout, whose entries may lead on in turn, so that a chain of tables holds more
// than four partitions. The GPT (UEFI specification, chapter 5) has a header in sector 1 that says where an
// array of entries lies; its disks carry an MBR as well, with one "protective" entry of type 0xEE.
//
// All numbers are little-endian. The classes below are views on such bytes: one accessor for each field that
// is looked at. A field that lies outside of the bytes reads as zero.
#pragma once

#include "foundation/byte_view.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace quarry {

// Bytes of a table sector that are looked at, whatever the sector size of the disk.
inline constexpr std::size_t table_size = 512;
// The largest sector that a disk is searched for.
inline constexpr std::uint32_t largest_sector_size = 16384;

// An entry of an MBR or of a table in an extended chain. The status byte (0) and the two addresses by
// cylinder, head and sector (1 and 5, three bytes each) are not looked at.
class partition_entry {
  public:
    explicit partition_entry(byte_view bytes) : m_bytes(bytes) {}

    [[nodiscard]] std::uint8_t type() const { return m_bytes.u8_or_zero(4); }
    // In sectors: from the start of the disk in an MBR; in an extended chain from the sector that the rules
    // of the chain name.
    [[nodiscard]] std::uint32_t first_sector() const { return m_bytes.u32_or_zero(8); }
    [[nodiscard]] std::uint32_t num_sectors() const { return m_bytes.u32_or_zero(12); }

  private:
    byte_view m_bytes;
};

// A sector with four partition entries. The disk signature at byte 440 is not looked at.
class partition_table {
  public:
    static constexpr std::size_t entry_count = 4;

    explicit partition_table(byte_view bytes) : m_bytes(bytes) {}

    // The mark 55 AA at the end of the first 512 bytes.
    [[nodiscard]] bool has_mark() const { return m_bytes.u16_or_zero(510) == 0xAA55; }
    [[nodiscard]] partition_entry entry(std::size_t index) const {
        return partition_entry(m_bytes.clipped(first_entry + index * entry_size, entry_size));
    }

  private:
    static constexpr std::uint64_t first_entry = 446;
    static constexpr std::uint64_t entry_size = 16;
    byte_view m_bytes;
};

// The GPT header, the first 512 bytes of sector 1, and again in the last sector of the disk. The default mode
// looks only at the place and the shape of the entries.
class gpt_header {
  public:
    static constexpr std::string_view signature_text = "EFI PART";
    static constexpr std::uint64_t own_checksum_offset = 16;

    explicit gpt_header(byte_view bytes) : m_bytes(bytes) {}

    [[nodiscard]] bool has_signature() const { return m_bytes.text_at(0, signature_text); }
    // Bytes of the header that its checksum covers, with zeros in place of the checksum.
    [[nodiscard]] std::uint32_t header_size() const { return m_bytes.u32_or_zero(12); }
    [[nodiscard]] std::uint32_t own_checksum() const { return m_bytes.u32_or_zero(own_checksum_offset); }
    // The sector in which this header says it is.
    [[nodiscard]] std::uint64_t own_sector() const { return m_bytes.u64_or_zero(24); }
    [[nodiscard]] std::uint64_t entries_sector() const { return m_bytes.u64_or_zero(72); }
    [[nodiscard]] std::uint32_t entry_count() const { return m_bytes.u32_or_zero(80); }
    // Bytes from one entry to the next.
    [[nodiscard]] std::uint32_t entry_size() const { return m_bytes.u32_or_zero(84); }
    [[nodiscard]] std::uint32_t entries_checksum() const { return m_bytes.u32_or_zero(88); }

  private:
    byte_view m_bytes;
};

class gpt_entry {
  public:
    // Bytes that hold the fields of an entry; larger entries have nothing of use after them.
    static constexpr std::size_t size = 128;

    explicit gpt_entry(byte_view bytes) : m_bytes(bytes) {}

    // All zero for an entry that is not in use.
    [[nodiscard]] std::array<std::uint8_t, 16> type_guid() const { return guid(0); }
    [[nodiscard]] std::array<std::uint8_t, 16> partition_guid() const { return guid(16); }
    [[nodiscard]] std::uint64_t first_sector() const { return m_bytes.u64_or_zero(32); }
    // The last sector that belongs to the partition.
    [[nodiscard]] std::uint64_t last_sector() const { return m_bytes.u64_or_zero(40); }
    // The lower half of the attributes.
    [[nodiscard]] std::uint32_t flags() const { return m_bytes.u32_or_zero(48); }
    // 36 units of UTF-16, zeros after a shorter name.
    [[nodiscard]] byte_view name() const { return m_bytes.clipped(56, 72); }

  private:
    [[nodiscard]] std::array<std::uint8_t, 16> guid(std::uint64_t offset) const {
        std::array<std::uint8_t, 16> bytes{};
        const byte_view place = m_bytes.clipped(offset, bytes.size());
        std::copy(place.span().begin(), place.span().end(), bytes.begin());
        return bytes;
    }

    byte_view m_bytes;
};

// One partition, or a bare volume. Start and length are in sectors of m_sector_size bytes; the byte offset of
// a partition is always m_start_sector times m_sector_size (64-bit, wrapping).
struct partition_stats {
    std::uint64_t m_start_sector = 0;
    // 0 when unknown.
    std::uint64_t m_num_sectors = 0;
    // The type byte; bit 15 marks an entry that was guessed.
    std::uint16_t m_partition_type = 0;
    // From the boot sector, when known.
    std::uint32_t m_sectors_per_cluster = 0;
    std::uint32_t m_sector_size = 0;
    std::vector<std::uint8_t> m_boot_data;
    // The serial number of the file system, when known.
    std::uint32_t m_volume_signature = 0;
    // A boot sector was recognised.
    bool m_format_known = false;
    bool m_is_gpt = false;
    std::array<std::uint8_t, 16> m_type_guid{};
    std::array<std::uint8_t, 16> m_partition_guid{};
    // The name that the GPT holds, or a label such as "mbr". UTF-8.
    std::string m_name;
    // "ntfs", "fat32" and so on; empty when unknown.
    std::string m_format;
    // These two come from an ext superblock only.
    std::string m_volume_label;
    std::string m_mount_point;
    // The attributes of a GPT entry, or the flags of a FAT32 boot sector.
    std::uint32_t m_flags = 0;

    [[nodiscard]] std::uint64_t byte_offset() const { return m_start_sector * m_sector_size; }
    [[nodiscard]] std::uint64_t byte_end() const { return (m_start_sector + m_num_sectors) * m_sector_size; }
};

// Records in order of discovery.
using partition_list = std::deque<partition_stats>;

// A record of a place without a file system to look at: metadata of the table, or free space.
[[nodiscard]] inline partition_stats labelled_record(std::string_view name, std::uint64_t start_sector,
                                                     std::uint64_t num_sectors, std::uint32_t sector_size) {
    partition_stats record;
    record.m_name = name;
    record.m_start_sector = start_sector;
    record.m_num_sectors = num_sectors;
    record.m_sector_size = sector_size;
    return record;
}

}  // namespace quarry
