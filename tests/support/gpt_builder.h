// A GUID partition table with its checksums, at both ends of a disk.
#pragma once

#include "support/disk_builder.h"

#include <cstdint>
#include <vector>

namespace quarry::test {

// One header and its entries. What is forced is covered by the checksums; break those by writing over the
// disk afterwards.
struct checked_gpt {
    std::vector<gpt_partition> partitions;
    std::uint32_t entry_count = 128;
    std::uint32_t entry_size = 128;
    std::vector<forced_number> forced_header = {};
};

// Sectors that the entries take.
[[nodiscard]] std::uint64_t gpt_entry_sectors(const checked_gpt& table, std::uint32_t sector_size);

// Puts the header into `header_sector` and the entries from `entries_sector` on.
void put_gpt(disk_builder& disk, const checked_gpt& table, std::uint64_t header_sector,
             std::uint64_t entries_sector, std::uint32_t sector_size);

// A protective MBR, the table from sector 1 on, and its copy in the last sectors of the disk.
void put_whole_gpt(disk_builder& disk, const checked_gpt& table, std::uint32_t sector_size);

}  // namespace quarry::test
