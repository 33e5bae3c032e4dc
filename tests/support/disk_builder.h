// Disks with partition tables, byte by byte, and the first sectors of the volumes on them.
//
//     disk_builder disk(4096);
//     disk.table(0, {{0x07, 2048, 1000}}).put(2048, ntfs_boot_sector(1000));
//     const bytes image = disk.image();
#pragma once

#include "support/byte_writer.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace quarry::test {

// An entry of an MBR or of an extended table. Sectors.
struct table_slot {
    std::uint8_t type = 0;
    std::uint32_t first = 0;
    std::uint32_t count = 0;
};

struct gpt_partition {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    ntfs_name name = {};
    std::uint64_t flags = 0;
    // Every byte of the two GUIDs.
    std::uint8_t type_guid_byte = 0xA1;
    std::uint8_t partition_guid_byte = 0xB2;
};

struct gpt_shape {
    std::uint64_t entries_sector = 2;
    std::uint32_t entry_count = 128;
    std::uint32_t entry_size = 128;
};

class disk_builder {
  public:
    explicit disk_builder(std::uint64_t sectors, std::uint32_t sector_size = 512)
        : m_sectors(sectors), m_sector_size(sector_size) {}

    // A table with its mark: at the end of sector 0, at byte 510 of any other sector.
    disk_builder& table(std::uint64_t sector, const std::vector<table_slot>& slots);
    // A protective entry in sector 0, a header in sector 1, and entries in the order given.
    disk_builder& gpt(const std::vector<gpt_partition>& partitions, const gpt_shape& shape = {});
    disk_builder& put(std::uint64_t sector, bytes content);
    // A number over what is there, at a byte of the disk.
    disk_builder& force(std::uint64_t offset, unsigned width, std::uint64_t value);

    [[nodiscard]] std::uint64_t size() const { return m_sectors * m_sector_size; }
    [[nodiscard]] bytes image() const;
    // The same as a file, in which what was never written takes no space.
    void write_to(const std::filesystem::path& path) const;

  private:
    void put_at(std::uint64_t offset, bytes content) { m_pieces.emplace_back(offset, std::move(content)); }

    std::uint64_t m_sectors;
    std::uint32_t m_sector_size;
    std::vector<std::pair<std::uint64_t, bytes>> m_pieces;
};

// Boot sectors of 512 bytes, whatever the sector size that they state.
[[nodiscard]] bytes ntfs_boot_sector(std::uint64_t sectors, std::uint16_t bytes_per_sector = 512,
                                     std::uint8_t sectors_per_cluster = 8);
[[nodiscard]] bytes fat32_boot_sector(std::uint32_t sectors);
[[nodiscard]] bytes fat16_boot_sector(std::uint32_t sectors);
// The two sizes are exponents of two.
[[nodiscard]] bytes exfat_boot_sector(std::uint64_t sectors, std::uint8_t sector_size_shift,
                                      std::uint8_t cluster_shift);
// The first 2,048 bytes of an ext volume: zeros, and a superblock. A block has 1024 << `block_shift` bytes.
[[nodiscard]] bytes ext_volume_head(std::uint32_t blocks, std::uint32_t block_shift,
                                    const std::string& label = {}, const std::string& mount_point = {});

}  // namespace quarry::test
