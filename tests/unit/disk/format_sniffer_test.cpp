#include "disk/format_sniffer.h"

#include "support/byte_writer.h"
#include "support/disk_builder.h"

#include <array>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

bytes with_text(std::size_t size, std::size_t offset, const std::string& text) {
    return byte_writer(size).text(offset, text).take();
}

bytes with_mark(std::size_t size, std::size_t offset) {
    return byte_writer(size).u16(offset, 0xAA55).take();
}

// A record as a table gives it, so that a test can see what the sniffer does not touch.
partition_stats from_table() {
    partition_stats record;
    record.m_start_sector = 2048;
    record.m_num_sectors = 5000;
    record.m_partition_type = 0x42;
    record.m_sector_size = 512;
    return record;
}

TEST(volume_boot_sector, is_known_by_four_characters_at_byte_3) {
    EXPECT_TRUE(is_volume_boot_sector(with_text(512, 3, "EXFA")));
    EXPECT_TRUE(is_volume_boot_sector(with_text(512, 3, "MSDO")));
    EXPECT_TRUE(is_volume_boot_sector(with_text(512, 3, "NTFS")));
    EXPECT_TRUE(is_volume_boot_sector(with_text(7, 3, "NTFS")));
    EXPECT_FALSE(is_volume_boot_sector(with_text(512, 3, "ntfs")));
    EXPECT_FALSE(is_volume_boot_sector(with_text(512, 3, "mkfs.fat")));
    EXPECT_FALSE(is_volume_boot_sector(with_text(512, 3, "-FVE-FS-")));
    EXPECT_FALSE(is_volume_boot_sector(with_text(512, 4, "NTFS")));
    EXPECT_FALSE(is_volume_boot_sector(bytes(512)));
    EXPECT_FALSE(is_volume_boot_sector(bytes{0, 0, 0, 'N', 'T', 'F'}));
    EXPECT_FALSE(is_volume_boot_sector({}));
}

TEST(mbr, is_known_by_the_mark_at_byte_510_unless_a_volume_begins_there) {
    EXPECT_TRUE(is_mbr(with_mark(512, 510)));
    EXPECT_TRUE(is_mbr(with_mark(4096, 510)));
    EXPECT_FALSE(is_mbr(bytes(512)));
    EXPECT_FALSE(is_mbr(byte_writer(512).u16(510, 0x55AA).take()));
    EXPECT_FALSE(is_mbr(with_mark(4096, 4094)));
    EXPECT_FALSE(is_mbr(ntfs_boot_sector(1000))) << "a boot sector carries the mark as well";
    EXPECT_FALSE(is_mbr(byte_writer(with_mark(512, 510)).text(3, "MSDOS5.0").take()));
    EXPECT_TRUE(is_mbr(byte_writer(with_mark(512, 510)).text(3, "mkfs.fat").take()));
}

TEST(mbr, a_sector_that_is_cut_is_no_mbr) {
    const bytes whole = with_mark(512, 510);
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_FALSE(is_mbr(byte_view(whole).clipped(0, length))) << length;
    }
}

TEST(sector_size, is_the_first_of_six_at_whose_end_the_mark_is) {
    EXPECT_EQ(find_sector_size(with_mark(16384, 510), 0, 16384), 512u);
    EXPECT_EQ(find_sector_size(with_mark(16384, 1022), 0, 16384), 1024u);
    EXPECT_EQ(find_sector_size(with_mark(16384, 2046), 0, 16384), 2048u);
    EXPECT_EQ(find_sector_size(with_mark(16384, 4094), 0, 16384), 4096u);
    EXPECT_EQ(find_sector_size(with_mark(16384, 8190), 0, 16384), 8192u);
    EXPECT_EQ(find_sector_size(with_mark(16384, 16382), 0, 16384), 16384u);
    EXPECT_EQ(find_sector_size(byte_writer(with_mark(16384, 8190)).u16(2046, 0xAA55).take(), 0, 16384),
              2048u);
    EXPECT_EQ(find_sector_size(bytes(16384), 0, 16384), std::nullopt);
    EXPECT_EQ(find_sector_size(with_mark(16384, 254), 0, 16384), std::nullopt);
    EXPECT_EQ(find_sector_size(with_mark(32768, 32766), 0, 32768), std::nullopt);
    EXPECT_EQ(find_sector_size({}, 0, 16384), std::nullopt);
}

TEST(sector_size, is_looked_for_between_two_bounds) {
    EXPECT_EQ(find_sector_size(with_mark(16384, 510), 1024, 16384), std::nullopt);
    EXPECT_EQ(find_sector_size(with_mark(16384, 1022), 1024, 16384), 1024u);
    EXPECT_EQ(find_sector_size(with_mark(16384, 4094), 0, 4096), 4096u);
    EXPECT_EQ(find_sector_size(with_mark(16384, 4094), 0, 4095), std::nullopt);
}

TEST(ntfs_name, needs_its_four_blanks) {
    EXPECT_TRUE(has_ntfs_name(ntfs_boot_sector(1)));
    EXPECT_FALSE(has_ntfs_name(with_text(512, 3, "NTFS   X")));
    EXPECT_FALSE(has_ntfs_name(with_text(10, 3, "NTFS   ")));
}

TEST(sniffer, takes_nothing_from_less_than_512_bytes) {
    const bytes boot = ntfs_boot_sector(1000);
    for (std::size_t length = 0; length < 512; ++length) {
        partition_stats record;
        EXPECT_FALSE(sniff_format(record, byte_view(boot).clipped(0, length))) << length;
        EXPECT_EQ(record.m_sectors_per_cluster, 0u) << length;
        EXPECT_EQ(record.m_format, "") << length;
    }
    partition_stats record;
    EXPECT_TRUE(sniff_format(record, boot));
}

TEST(sniffer, recognises_ntfs) {
    partition_stats record = from_table();
    ASSERT_TRUE(sniff_format(record, ntfs_boot_sector(4999, 512, 8)));
    EXPECT_EQ(record.m_partition_type, 0x07);
    EXPECT_EQ(record.m_format, "ntfs");
    EXPECT_TRUE(record.m_format_known);
    EXPECT_EQ(record.m_sectors_per_cluster, 8u);
    EXPECT_EQ(record.m_sector_size, 512u);
    EXPECT_EQ(record.m_volume_signature, 0x55667788u);
    EXPECT_EQ(record.m_start_sector, 2048u);
    EXPECT_EQ(record.m_num_sectors, 5000u) << "the length of the table's entry is kept";
}

TEST(sniffer, takes_the_length_of_ntfs_from_the_boot_sector_where_there_is_none) {
    partition_stats record;
    ASSERT_TRUE(sniff_format(record, ntfs_boot_sector(0x123456789A)));
    EXPECT_EQ(record.m_num_sectors, 0x123456789Au);
}

TEST(sniffer, recognises_an_encrypted_container_by_the_layout_of_ntfs) {
    partition_stats record;
    ASSERT_TRUE(sniff_format(record, byte_writer(ntfs_boot_sector(777)).text(3, "-FVE-FS-").take()));
    EXPECT_EQ(record.m_partition_type, 0x07);
    EXPECT_EQ(record.m_format, "bitlocker container");
    EXPECT_TRUE(record.m_format_known);
    EXPECT_EQ(record.m_sectors_per_cluster, 8u);
    EXPECT_EQ(record.m_sector_size, 512u);
    EXPECT_EQ(record.m_volume_signature, 0x55667788u);
    EXPECT_EQ(record.m_num_sectors, 777u);
}

TEST(sniffer, takes_whatever_sector_and_cluster_size_ntfs_states) {
    for (const std::uint16_t sector_size : std::array<std::uint16_t, 6>{0, 1, 511, 512, 4096, 65535}) {
        partition_stats record = from_table();
        ASSERT_TRUE(sniff_format(record, ntfs_boot_sector(1, sector_size, 0)));
        EXPECT_EQ(record.m_sector_size, sector_size);
        EXPECT_EQ(record.m_sectors_per_cluster, 0u);
        EXPECT_EQ(record.byte_offset(), 2048u * sector_size);
    }
}

TEST(sniffer, recognises_exfat) {
    partition_stats record = from_table();
    record.m_num_sectors = 0;
    ASSERT_TRUE(sniff_format(record, exfat_boot_sector(0x100000000, 9, 3)));
    EXPECT_EQ(record.m_partition_type, 0x07);
    EXPECT_EQ(record.m_format, "exfat");
    EXPECT_TRUE(record.m_format_known);
    EXPECT_EQ(record.m_sector_size, 512u);
    EXPECT_EQ(record.m_sectors_per_cluster, 8u);
    EXPECT_EQ(record.m_volume_signature, 0xCAFE00EFu);
    EXPECT_EQ(record.m_num_sectors, 0x100000000u);
    partition_stats with_length = from_table();
    ASSERT_TRUE(sniff_format(with_length, exfat_boot_sector(1, 9, 3)));
    EXPECT_EQ(with_length.m_num_sectors, 5000u);
}

TEST(sniffer, only_bits_0_to_5_of_an_exfat_exponent_count_and_bit_5_gives_0) {
    struct {
        std::uint8_t exponent;
        std::uint32_t value;
    } const cases[] = {{0, 1},  {1, 2},  {12, 4096}, {31, 0x80000000}, {32, 0},
                       {33, 0}, {63, 0}, {64, 1},    {65, 2},          {255, 0}};
    for (const auto& one : cases) {
        partition_stats record;
        ASSERT_TRUE(sniff_format(record, exfat_boot_sector(1, one.exponent, one.exponent)));
        EXPECT_EQ(record.m_sector_size, one.value) << int{one.exponent};
        EXPECT_EQ(record.m_sectors_per_cluster, one.value) << int{one.exponent};
    }
}

TEST(sniffer, recognises_fat32_and_lets_its_length_take_the_place_of_the_tables) {
    partition_stats record = from_table();
    ASSERT_TRUE(sniff_format(record, fat32_boot_sector(4000)));
    EXPECT_EQ(record.m_partition_type, 12);
    EXPECT_EQ(record.m_format, "fat32");
    EXPECT_TRUE(record.m_format_known);
    EXPECT_EQ(record.m_num_sectors, 4000u);
    EXPECT_EQ(record.m_flags, 0x0180u);
    EXPECT_EQ(record.m_volume_signature, 0xCAFE0032u);
    EXPECT_EQ(record.m_sectors_per_cluster, 2u);
    EXPECT_EQ(record.m_sector_size, 512u);
}

TEST(sniffer, recognises_fat16) {
    partition_stats record = from_table();
    ASSERT_TRUE(sniff_format(record, fat16_boot_sector(4000)));
    EXPECT_EQ(record.m_partition_type, 4);
    EXPECT_EQ(record.m_format, "fat16");
    EXPECT_TRUE(record.m_format_known);
    EXPECT_EQ(record.m_num_sectors, 5000u);
    EXPECT_EQ(record.m_flags, 0u);
    EXPECT_EQ(record.m_volume_signature, 0xCAFE0016u);
    EXPECT_EQ(record.m_sectors_per_cluster, 4u);
    EXPECT_EQ(record.m_sector_size, 1024u);
    partition_stats without_length;
    ASSERT_TRUE(sniff_format(without_length, fat16_boot_sector(4000)));
    EXPECT_EQ(without_length.m_num_sectors, 4000u);
}

TEST(sniffer, prefers_fat32_to_fat16_and_fat16_to_ext) {
    partition_stats record;
    ASSERT_TRUE(sniff_format(record, byte_writer(fat32_boot_sector(1)).text(54, "FAT16").take()));
    EXPECT_EQ(record.m_format, "fat32");
    ASSERT_TRUE(sniff_format(record, byte_writer(ext_volume_head(1, 0)).raw(0, fat16_boot_sector(1)).take()));
    EXPECT_EQ(record.m_format, "fat16");
}

TEST(sniffer, recognises_ext_after_a_boot_sector_that_has_something_at_byte_3) {
    const bytes head = byte_writer(ext_volume_head(3000, 2)).text(3, "GRUB").take();
    partition_stats record = from_table();
    ASSERT_TRUE(sniff_format(record, head));
    EXPECT_EQ(record.m_partition_type, 0x83);
    EXPECT_EQ(record.m_format, "ext2/3");
    EXPECT_EQ(record.m_name, "ext2/3");
    EXPECT_TRUE(record.m_format_known);
    EXPECT_EQ(record.m_volume_signature, 0xCAFE00E2u);
    EXPECT_EQ(record.m_sectors_per_cluster, 8u);
    EXPECT_EQ(record.m_sector_size, 512u);
}

TEST(sniffer, the_start_of_such_an_ext_volume_becomes_0_and_its_length_counts_bytes) {
    const bytes head = byte_writer(ext_volume_head(0xFFFFFFFF, 2)).text(3, "GRUB").take();
    partition_stats record = from_table();
    ASSERT_TRUE(sniff_format(record, head));
    EXPECT_EQ(record.m_start_sector, 0u);
    EXPECT_EQ(record.m_num_sectors, 0xFFFFFFFF000u);
    EXPECT_EQ(record.byte_offset(), 0u);
}

TEST(sniffer, an_ext_block_size_that_32_bits_cannot_hold_counts_as_1024) {
    struct {
        std::uint32_t exponent;
        std::uint32_t sectors_per_block;
    } const cases[] = {{0, 2}, {1, 4}, {21, 0x80000000 / 512}, {22, 2}, {32, 2}, {64, 2}, {0xFFFFFFFF, 2}};
    for (const auto& one : cases) {
        partition_stats record;
        ASSERT_TRUE(
            sniff_format(record, byte_writer(ext_volume_head(1, one.exponent)).text(3, "GRUB").take()));
        EXPECT_EQ(record.m_sectors_per_cluster, one.sectors_per_block) << one.exponent;
        EXPECT_EQ(record.m_num_sectors, std::uint64_t{one.sectors_per_block} * 512)
            << "the bytes of its only block";
    }
}

TEST(sniffer, looks_for_ext_and_hfs_only_in_2048_bytes) {
    const bytes named = byte_writer(ext_volume_head(1, 0)).text(3, "GRUB").take();
    const bytes nameless = ext_volume_head(1, 0);
    const bytes hfs = with_text(2048, 1024, "H+");
    partition_stats record = from_table();
    EXPECT_FALSE(sniff_format(record, byte_view(named).clipped(0, 2047)));
    EXPECT_FALSE(sniff_format(record, byte_view(nameless).clipped(0, 2047)));
    EXPECT_FALSE(sniff_format(record, byte_view(hfs).clipped(0, 2047)));
    EXPECT_EQ(record.m_partition_type, 0x42);
    EXPECT_TRUE(sniff_format(record, nameless));
    EXPECT_TRUE(sniff_format(record, named));
    EXPECT_TRUE(sniff_format(record, hfs));
}

TEST(sniffer, recognises_ext_with_its_label_and_its_mount_point) {
    partition_stats record = from_table();
    ASSERT_TRUE(sniff_format(record, ext_volume_head(3000, 2, "evidence", "/mnt/x")));
    EXPECT_EQ(record.m_partition_type, 0x83);
    EXPECT_EQ(record.m_format, "ext");
    EXPECT_EQ(record.m_volume_label, "evidence");
    EXPECT_EQ(record.m_mount_point, "/mnt/x");
    EXPECT_FALSE(record.m_format_known);
    EXPECT_EQ(record.m_start_sector, 2048u);
    EXPECT_EQ(record.m_num_sectors, 5000u);
    EXPECT_EQ(record.m_sector_size, 512u);
}

TEST(sniffer, a_label_that_fills_its_place_ends_with_it) {
    partition_stats record;
    ASSERT_TRUE(
        sniff_format(record, ext_volume_head(1, 0, "sixteen letters!", std::string(64, 'm') + "more")));
    EXPECT_EQ(record.m_volume_label, "sixteen letters!");
    EXPECT_EQ(record.m_mount_point, std::string(64, 'm'));
}

TEST(sniffer, recognises_the_two_hfs_formats) {
    partition_stats record;
    ASSERT_TRUE(sniff_format(record, with_text(2048, 1024, "H+")));
    EXPECT_EQ(record.m_partition_type, 0xAF);
    EXPECT_EQ(record.m_format, "hfs+");
    ASSERT_TRUE(sniff_format(record, with_text(2048, 1024, "HX")));
    EXPECT_EQ(record.m_format, "hfsx");
}

TEST(sniffer, leaves_the_type_of_hfs_when_only_its_first_letter_fits) {
    partition_stats record = from_table();
    EXPECT_FALSE(sniff_format(record, with_text(2048, 1024, "HY")));
    EXPECT_EQ(record.m_partition_type, 0xAF);
    EXPECT_EQ(record.m_format, "");
    record = from_table();
    EXPECT_FALSE(sniff_format(record, with_text(2048, 1024, "B+")));
    EXPECT_EQ(record.m_partition_type, 0x42);
}

TEST(sniffer, takes_the_sectors_per_cluster_even_from_what_it_does_not_recognise) {
    partition_stats record = from_table();
    record.m_sectors_per_cluster = 3;
    EXPECT_FALSE(sniff_format(record, byte_writer(512).text(3, "unknown!").take()));
    EXPECT_EQ(record.m_sectors_per_cluster, 3u);
    EXPECT_FALSE(sniff_format(record, byte_writer(512).text(3, "unknown!").u8(13, 64).take()));
    EXPECT_EQ(record.m_sectors_per_cluster, 64u);
    EXPECT_EQ(record.m_partition_type, 0x42);
    EXPECT_EQ(record.m_sector_size, 512u);
    EXPECT_EQ(record.m_num_sectors, 5000u);
}

TEST(bare_volume, starts_at_0_with_sectors_of_512_bytes_and_counts_as_known) {
    const partition_stats ntfs = bare_volume(ntfs_boot_sector(20000, 4096));
    EXPECT_EQ(ntfs.m_start_sector, 0u);
    EXPECT_EQ(ntfs.m_num_sectors, 20000u);
    EXPECT_EQ(ntfs.m_partition_type, 0x07);
    EXPECT_EQ(ntfs.m_sector_size, 4096u);
    const partition_stats unknown = bare_volume(with_text(512, 3, "MSDOS5.0"));
    EXPECT_EQ(unknown.m_partition_type, 0);
    EXPECT_EQ(unknown.m_num_sectors, 0u);
    EXPECT_EQ(unknown.m_sector_size, 512u);
    EXPECT_TRUE(unknown.m_format_known);
    EXPECT_EQ(unknown.m_format, "");
}

}  // namespace
}  // namespace quarry::test
