#include "support/gpt_builder.h"

namespace quarry::test {

namespace {

// Bit by bit, as ISO 3309 has it: slow, and independent of the one under test.
std::uint32_t slow_crc32(const bytes& content) {
    std::uint32_t remainder = 0xFFFFFFFF;
    for (const std::uint8_t byte : content) {
        for (unsigned bit = 0; bit < 8; ++bit) {
            const bool carry = ((remainder ^ (byte >> bit)) & 1) != 0;
            remainder = (remainder >> 1) ^ (carry ? 0xEDB88320 : 0);
        }
    }
    return ~remainder;
}

}  // namespace

std::uint64_t gpt_entry_sectors(const checked_gpt& table, std::uint32_t sector_size) {
    const std::uint64_t size = std::uint64_t{table.entry_count} * table.entry_size;
    return (size + sector_size - 1) / sector_size;
}

void put_gpt(disk_builder& disk, const checked_gpt& table, std::uint64_t header_sector,
             std::uint64_t entries_sector, std::uint32_t sector_size) {
    byte_writer entries(std::size_t{table.entry_count} * table.entry_size);
    for (std::size_t i = 0; i < table.partitions.size(); ++i) {
        const gpt_partition& partition = table.partitions[i];
        const std::size_t place = i * table.entry_size;
        entries.fill(place, 16, partition.type_guid_byte).fill(place + 16, 16, partition.partition_guid_byte);
        entries.u64(place + 32, partition.first).u64(place + 40, partition.last);
    }
    byte_writer header(92);
    header.text(0, "EFI PART").u32(8, 0x00010000).u32(12, 92).u64(24, header_sector);
    header.u64(72, entries_sector).u32(80, table.entry_count).u32(84, table.entry_size);
    header.u32(88, slow_crc32(entries.content()));
    bytes finished = header.take();
    apply(finished, table.forced_header);
    const std::uint32_t checksum = slow_crc32(finished);
    finished = byte_writer(finished).u32(16, checksum).take();
    finished.resize(sector_size);
    disk.put(header_sector, finished).put(entries_sector, entries.take());
}

void put_whole_gpt(disk_builder& disk, const checked_gpt& table, std::uint32_t sector_size) {
    const std::uint64_t last = disk.size() / sector_size - 1;
    disk.table(0, {{0xEE, 1, 0xFFFFFFFF}}).force(510, 2, 0xAA55);
    put_gpt(disk, table, 1, 2, sector_size);
    put_gpt(disk, table, last, last - gpt_entry_sectors(table, sector_size), sector_size);
}

}  // namespace quarry::test
