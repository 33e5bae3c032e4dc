// What a partition table says: the record that comes out of every reader of tables.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace quarry {

// One partition, or a bare volume. Start and length are in sectors of m_sector_size bytes; the byte offset of a
// partition is always m_start_sector times m_sector_size (64-bit, wrapping).
struct partition_stats {
    std::uint64_t m_start_sector = 0;
    std::uint64_t m_num_sectors = 0;
    std::uint16_t m_partition_type = 0;
    std::uint32_t m_sectors_per_cluster = 0;
    std::uint32_t m_sector_size = 0;
    std::vector<std::uint8_t> m_boot_data;
    std::uint32_t m_volume_signature = 0;
    bool m_format_known = false;
    bool m_is_gpt = false;
    std::array<std::uint8_t, 16> m_type_guid{};
    std::array<std::uint8_t, 16> m_partition_guid{};
    std::string m_name;
    std::string m_format;
    std::string m_volume_label;
    std::string m_mount_point;
    std::uint32_t m_flags = 0;

    [[nodiscard]] std::uint64_t byte_offset() const { return m_start_sector * m_sector_size; }
    [[nodiscard]] std::uint64_t byte_end() const { return (m_start_sector + m_num_sectors) * m_sector_size; }
};

// Records in order of discovery.
using partition_list = std::deque<partition_stats>;

}  // namespace quarry
