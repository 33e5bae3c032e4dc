#include "support/disk_builder.h"

#include <fstream>
#include <stdexcept>

namespace quarry::test {

namespace {

constexpr std::uint16_t table_mark = 0xAA55;
constexpr std::size_t first_slot = 446;
constexpr std::size_t slot_size = 16;

}  // namespace

disk_builder& disk_builder::table(std::uint64_t sector, const std::vector<table_slot>& slots) {
    byte_writer writer(512);
    for (std::size_t i = 0; i < slots.size(); ++i) {
        const std::size_t place = first_slot + i * slot_size;
        writer.u8(place + 4, slots[i].type).u32(place + 8, slots[i].first).u32(place + 12, slots[i].count);
    }
    writer.u16((sector == 0 ? m_sector_size : 512) - 2, table_mark);
    return put(sector, writer.take());
}

disk_builder& disk_builder::gpt(const std::vector<gpt_partition>& partitions, const gpt_shape& shape) {
    table(0, {{0xEE, 1, 0xFFFFFFFF}});
    byte_writer header(512);
    header.text(0, "EFI PART").u32(8, 0x00010000).u32(12, 92).u64(24, 1).u64(32, m_sectors - 1);
    header.u64(72, shape.entries_sector).u32(80, shape.entry_count).u32(84, shape.entry_size);
    put(1, header.take());
    byte_writer entries;
    for (std::size_t i = 0; i < partitions.size(); ++i) {
        const gpt_partition& partition = partitions[i];
        const std::size_t place = i * shape.entry_size;
        entries.fill(place, 16, partition.type_guid_byte).fill(place + 16, 16, partition.partition_guid_byte);
        entries.u64(place + 32, partition.first).u64(place + 40, partition.last);
        entries.u64(place + 48, partition.flags).raw(place + 56, partition.name.on_disk());
    }
    return put(shape.entries_sector, entries.take());
}

disk_builder& disk_builder::put(std::uint64_t sector, bytes content) {
    put_at(sector * m_sector_size, std::move(content));
    return *this;
}

disk_builder& disk_builder::force(std::uint64_t offset, unsigned width, std::uint64_t value) {
    put_at(offset, byte_writer().number(0, width, value).take());
    return *this;
}

bytes disk_builder::image() const {
    byte_writer writer(size());
    for (const auto& [offset, content] : m_pieces) {
        writer.raw(offset, content);
    }
    bytes result = writer.take();
    result.resize(size());
    return result;
}

void disk_builder::write_to(const std::filesystem::path& path) const {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    for (const auto& [offset, content] : m_pieces) {
        file.seekp(static_cast<std::streamoff>(offset));
        file.write(reinterpret_cast<const char*>(content.data()),
                   static_cast<std::streamsize>(content.size()));
    }
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + path.string());
    }
    std::filesystem::resize_file(path, size());
}

bytes ntfs_boot_sector(std::uint64_t sectors, std::uint16_t bytes_per_sector,
                       std::uint8_t sectors_per_cluster) {
    byte_writer writer(512);
    writer.text(3, "NTFS    ").u16(11, bytes_per_sector).u8(13, sectors_per_cluster);
    writer.u64(40, sectors).u64(72, 0x1122334455667788).u16(510, table_mark);
    return writer.take();
}

bytes fat32_boot_sector(std::uint32_t sectors) {
    byte_writer writer(512);
    writer.text(3, "mkfs.fat").u16(11, 512).u8(13, 2).u32(32, sectors).u16(40, 0x0180);
    writer.u32(67, 0xCAFE0032).text(82, "FAT32   ").u16(510, table_mark);
    return writer.take();
}

bytes fat16_boot_sector(std::uint32_t sectors) {
    byte_writer writer(512);
    writer.text(3, "mkfs.fat").u16(11, 1024).u8(13, 4).u32(32, sectors);
    writer.u32(39, 0xCAFE0016).text(54, "FAT16   ").u16(510, table_mark);
    return writer.take();
}

bytes exfat_boot_sector(std::uint64_t sectors, std::uint8_t sector_size_shift, std::uint8_t cluster_shift) {
    byte_writer writer(512);
    writer.text(3, "EXFAT   ").u64(72, sectors).u32(100, 0xCAFE00EF);
    writer.u8(108, sector_size_shift).u8(109, cluster_shift).u16(510, table_mark);
    return writer.take();
}

bytes ext_volume_head(std::uint32_t blocks, std::uint32_t block_shift, const std::string& label,
                      const std::string& mount_point) {
    byte_writer writer(2048);
    writer.u32(1024 + 4, blocks)
        .u32(1024 + 24, block_shift)
        .u16(1024 + 56, 0xEF53)
        .u32(1024 + 104, 0xCAFE00E2);
    writer.text(1024 + 120, label).text(1024 + 136, mount_point);
    return writer.take();
}

}  // namespace quarry::test
