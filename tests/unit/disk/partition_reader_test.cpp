#include "disk/partition_reader.h"

#include "support/byte_writer.h"
#include "support/device_files.h"
#include "support/disk_builder.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct reading {
    bool result = false;
    partition_list list;
};

// Type, start and length, and the format if there is one: "07 2048+1000 ntfs". A guessed type begins with an
// "8".
std::vector<std::string> listed(const partition_list& list) {
    std::vector<std::string> texts;
    for (const partition_stats& record : list) {
        const char* const digits = "0123456789abcdef";
        std::string text = (record.m_partition_type & 0x8000) != 0 ? "8" : "";
        text += digits[(record.m_partition_type >> 4) & 15];
        text += digits[record.m_partition_type & 15];
        text += " " + std::to_string(record.m_start_sector) + "+" + std::to_string(record.m_num_sectors);
        texts.push_back(record.m_format.empty() ? text : text + " " + record.m_format);
    }
    return texts;
}

class partition_reader_test : public ::testing::Test {
  protected:
    reading read_image(bool scan, bool with_gaps = false) {
        RAW_DISK_IO disk(m_image.wstring(), false, raw_kind_path);
        reading made;
        made.list.emplace_back();  // something that has to go
        made.result = read_partitions(&disk, made.list, scan, with_gaps);
        return made;
    }
    reading read(const disk_builder& disk, bool scan = false, bool with_gaps = false) {
        disk.write_to(m_image);
        return read_image(scan, with_gaps);
    }
    reading read(const bytes& content, bool scan = false, bool with_gaps = false) {
        write_file(m_image, content);
        return read_image(scan, with_gaps);
    }

    temp_dir m_dir;
    std::filesystem::path m_image = m_dir / "image";
};

TEST_F(partition_reader_test, fails_without_a_usable_disk) {
    partition_list list(3);
    EXPECT_FALSE(read_partitions(nullptr, list, true, true));
    EXPECT_TRUE(list.empty());
    list.resize(3);
    EXPECT_FALSE(read_gpt(nullptr, list, true));
    EXPECT_TRUE(list.empty());
    RAW_DISK_IO refused(L"", false, 0);
    list.resize(3);
    EXPECT_FALSE(read_partitions(&refused, list, true, true));
    EXPECT_TRUE(list.empty());
    EXPECT_FALSE(read_gpt(&refused, list, true));
    EXPECT_FALSE(ntfs_at(nullptr, 0));
    EXPECT_FALSE(ntfs_at(&refused, 0));
    RAW_DISK_IO missing((m_dir / "missing").wstring(), false, 0);
    EXPECT_FALSE(read_partitions(&missing, list, true, true));
}

TEST_F(partition_reader_test, lists_the_partitions_of_an_mbr_with_their_formats) {
    disk_builder disk(40000);
    disk.table(0, {{0x07, 2048, 1000}, {0x83, 4096, 2000}, {0x0B, 8192, 3000}, {0x06, 16384, 4000}});
    disk.put(2048, ntfs_boot_sector(999))
        .put(8192, fat32_boot_sector(2999))
        .put(16384, fat16_boot_sector(3999));
    const reading made = read(disk);
    EXPECT_TRUE(made.result);
    EXPECT_THAT(listed(made.list), ElementsAre("07 2048+1000 ntfs", "83 4096+2000", "0c 8192+2999 fat32",
                                               "04 16384+4000 fat16"));
}

TEST_F(partition_reader_test, a_bare_ntfs_volume_is_one_record_from_sector_0_on) {
    for (const bool scan : {false, true}) {
        const reading made = read(byte_writer(ntfs_boot_sector(20479)).fill(20000, 1, 1).take(), scan);
        EXPECT_TRUE(made.result);
        EXPECT_THAT(listed(made.list), ElementsAre("07 0+20479 ntfs"));
        EXPECT_EQ(made.list[0].m_sector_size, 512u);
        EXPECT_TRUE(made.list[0].m_format_known);
    }
}

TEST_F(partition_reader_test, a_bare_volume_gets_no_records_of_free_space) {
    EXPECT_THAT(listed(read(byte_writer(ntfs_boot_sector(10)).fill(20000, 1, 1).take(), false, true).list),
                ElementsAre("07 0+10 ntfs"));
}

TEST_F(partition_reader_test, a_bare_volume_that_is_cut_within_its_boot_sector_is_read_with_zeros_after) {
    write_file(m_image, ntfs_boot_sector(20479));
    for (std::size_t length = 511; length > 0; --length) {
        std::filesystem::resize_file(m_image, length);
        const reading made = read_image(false);
        EXPECT_EQ(made.result, length >= 7) << length;  // "NTFS" ends at byte 7, its four blanks at byte 11
        if (made.result) {
            EXPECT_EQ(made.list[0].m_format, length >= 11 ? "ntfs" : "") << length;
        }
    }
}

TEST_F(partition_reader_test, an_empty_image_and_one_of_zeros_have_no_partitions) {
    for (const std::size_t size : {0u, 1u, 511u, 512u, 513u, 16384u, 70000u}) {
        for (const bool scan : {false, true}) {
            const reading made = read(bytes(size), scan);
            EXPECT_FALSE(made.result) << size;
            EXPECT_TRUE(made.list.empty()) << size;
        }
    }
}

TEST_F(partition_reader_test, an_mbr_without_partitions_fails) {
    EXPECT_FALSE(read(disk_builder(100).table(0, {})).result);
    EXPECT_FALSE(read(disk_builder(100).table(0, {}), true, true).result);
}

TEST_F(partition_reader_test, only_what_the_gpt_says_counts_when_a_protective_entry_is_in_slot_3) {
    disk_builder disk(2048);
    disk.gpt({{100, 199, "a"}});
    disk.table(0, {{0x07, 300, 100}, {0x83, 400, 100}, {0xEE, 1, 2047}});
    const reading made = read(disk);
    EXPECT_TRUE(made.result);
    EXPECT_THAT(listed(made.list), ElementsAre("ee 100+100"));
}

TEST_F(partition_reader_test, a_gpt_that_fails_is_the_result_of_the_call) {
    disk_builder disk(2048);
    disk.gpt({{100, 199, "a"}});
    disk.table(0, {{0x07, 300, 100}, {0x83, 400, 100}, {0xEE, 1, 2047}});
    disk.force(512 + 24, 8, 2);
    const reading made = read(disk);
    EXPECT_FALSE(made.result);
    EXPECT_TRUE(made.list.empty());
}

TEST_F(partition_reader_test, a_gpt_is_believed_by_its_own_sector_and_not_by_its_signature) {
    disk_builder disk(2048);
    disk.gpt({{100, 199, "a"}}).force(512, 8, 0x4241444241444241);
    EXPECT_TRUE(read(disk).result);
}

TEST_F(partition_reader_test,
       a_table_whose_mark_is_at_the_end_of_a_larger_sector_is_read_in_sectors_of_that_size) {
    for (const std::uint32_t size : {1024u, 2048u, 4096u, 8192u, 16384u}) {
        disk_builder disk(64, size);
        disk.table(0, {{0x07, 10, 20}, {0x83, 40, 10}});
        disk.put(10, ntfs_boot_sector(19, static_cast<std::uint16_t>(size)));
        const reading made = read(disk);
        EXPECT_TRUE(made.result) << size;
        EXPECT_THAT(listed(made.list), ElementsAre("07 10+20 ntfs", "83 40+10")) << size;
        EXPECT_EQ(made.list[1].m_sector_size, size);
        EXPECT_EQ(made.list[0].byte_offset(), 10 * size);
    }
}

TEST_F(partition_reader_test,
       a_first_sector_of_zeros_with_a_mark_at_4096_bytes_has_its_entries_at_446_all_the_same) {
    bytes image(64 * 4096);
    image[4094] = 0x55;
    image[4095] = 0xAA;
    EXPECT_FALSE(read(image).result) << "no entries";
    image[446 + 4] = 0x83;
    image[446 + 8] = 10;
    image[446 + 12] = 20;
    const reading made = read(image);
    EXPECT_TRUE(made.result);
    EXPECT_THAT(listed(made.list), ElementsAre("83 10+20"));
    EXPECT_EQ(made.list[0].byte_offset(), 40960u);
}

TEST_F(partition_reader_test, a_mark_at_510_wins_over_one_at_the_end_of_a_larger_sector) {
    disk_builder disk(64, 4096);
    disk.table(0, {{0x83, 10, 20}}).force(510, 2, 0xAA55);
    EXPECT_EQ(read(disk).list.at(0).m_sector_size, 512u);
}

TEST_F(partition_reader_test, follows_an_extended_partition) {
    disk_builder disk(5000);
    disk.table(0, {{0x07, 64, 100}, {0x05, 1000, 4000}, {0x83, 300, 100}});
    disk.table(1000, {{0x07, 63, 400}, {0x05, 2000, 500}});
    disk.table(3000, {{0x83, 63, 437}});
    disk.put(64, ntfs_boot_sector(99)).put(1063, ntfs_boot_sector(399));
    const reading made = read(disk);
    EXPECT_TRUE(made.result);
    EXPECT_THAT(listed(made.list), ElementsAre("07 64+100 ntfs", "05 1000+4000", "07 1063+400 ntfs",
                                               "05 3000+500", "83 3063+437"));
}

TEST_F(partition_reader_test, an_extended_partition_at_sector_0_is_listed_and_not_followed) {
    const reading made = read(disk_builder(5000).table(0, {{0x05, 0, 4000}}));
    EXPECT_TRUE(made.result);
    EXPECT_THAT(listed(made.list), ElementsAre("05 0+4000"));
}

TEST_F(partition_reader_test, an_extended_entry_of_type_85_is_listed_and_not_followed) {
    disk_builder disk(5000);
    disk.table(0, {{0x85, 1000, 4000}}).table(1000, {{0x07, 63, 400}});
    EXPECT_THAT(listed(read(disk).list), ElementsAre("85 1000+4000"));
}

TEST_F(partition_reader_test, fails_when_the_first_extended_table_cannot_be_read) {
    EXPECT_FALSE(read(disk_builder(1000).table(0, {{0x07, 64, 100}, {0x05, 1000, 4000}})).result);
    EXPECT_TRUE(read(disk_builder(1001).table(0, {{0x07, 64, 100}, {0x05, 1000, 4000}})).result);
}

TEST_F(partition_reader_test, keeps_what_it_found_when_a_later_table_cannot_be_read) {
    disk_builder disk(1001);
    disk.table(0, {{0x05, 1000, 4000}}).table(1000, {{0x83, 1, 2}, {0x05, 2000, 500}});
    const reading made = read(disk);
    EXPECT_TRUE(made.result);
    EXPECT_THAT(listed(made.list), ElementsAre("05 1000+4000", "83 1001+2", "05 3000+500"));
}

TEST_F(partition_reader_test, lists_an_ntfs_volume_at_sector_63_in_front_of_an_extended_partition) {
    disk_builder disk(5000);
    disk.table(0, {{0x05, 1000, 4000}}).table(1000, {{0x83, 63, 400}}).put(63, ntfs_boot_sector(936));
    const reading made = read(disk);
    EXPECT_THAT(listed(made.list), ElementsAre("07 63+937 ntfs", "05 1000+4000", "83 1063+400"));
    EXPECT_EQ(made.list[0].m_sector_size, 512u);
}

TEST_F(partition_reader_test, makes_that_guess_also_when_a_bad_entry_ended_the_first_extended_table) {
    disk_builder disk(5000);
    disk.table(0, {{0x05, 1000, 4000}}).table(1000, {}).put(63, ntfs_boot_sector(936));
    EXPECT_THAT(listed(read(disk).list), ElementsAre("07 63+937 ntfs", "05 1000+4000"));
}

TEST_F(partition_reader_test, makes_no_guess_without_a_chain_or_without_ntfs) {
    disk_builder without_chain(5000);
    without_chain.table(0, {{0x83, 1000, 4000}}).put(63, ntfs_boot_sector(936));
    EXPECT_THAT(listed(read(without_chain).list), ElementsAre("83 1000+4000"));
    disk_builder without_ntfs(5000);
    without_ntfs.table(0, {{0x05, 1000, 4000}}).table(1000, {}).put(63, fat32_boot_sector(936));
    EXPECT_THAT(listed(read(without_ntfs).list), ElementsAre("05 1000+4000"));
}

TEST_F(partition_reader_test, looks_for_the_guess_in_sectors_of_the_disk) {
    disk_builder disk(500, 4096);
    disk.table(0, {{0x05, 100, 400}}).table(100, {}).put(63, ntfs_boot_sector(36, 4096));
    const reading made = read(disk);
    EXPECT_THAT(listed(made.list), ElementsAre("07 63+37 ntfs", "05 100+400"));
    EXPECT_EQ(made.list[0].byte_offset(), 63u * 4096);
}

TEST_F(partition_reader_test, the_byte_offset_follows_the_sector_size_that_the_boot_sector_states) {
    disk_builder disk(5000);
    disk.table(0, {{0x07, 100, 100}, {0x07, 200, 100}});
    disk.put(100, ntfs_boot_sector(99, 4096)).put(200, ntfs_boot_sector(99, 0));
    const reading made = read(disk);
    ASSERT_EQ(made.list.size(), 2u);
    EXPECT_EQ(made.list[0].byte_offset(), 409600u) << "eight times too far";
    EXPECT_EQ(made.list[1].byte_offset(), 0u);
}

TEST_F(partition_reader_test, a_partition_past_the_end_of_the_image_keeps_the_type_of_its_entry) {
    disk_builder disk(2000);
    disk.table(0, {{0x07, 100, 100}, {0x0B, 2000, 100}, {0x83, 0xFFFFFFFF, 0xFFFFFFFF}});
    const reading made = read(disk);
    EXPECT_TRUE(made.result);
    EXPECT_THAT(listed(made.list), ElementsAre("07 100+100", "0b 2000+100", "83 4294967295+4294967295"));
    EXPECT_FALSE(made.list[1].m_format_known);
}

TEST_F(partition_reader_test, a_boot_sector_of_which_only_a_part_is_there_is_not_recognised) {
    disk_builder disk(2000);
    disk.table(0, {{0x83, 1999, 100}}).put(1999, ntfs_boot_sector(99));
    bytes image = disk.image();
    EXPECT_THAT(listed(read(image).list), ElementsAre("07 1999+100 ntfs"));
    image.pop_back();
    EXPECT_THAT(listed(read(image).list), ElementsAre("83 1999+100"));
}

TEST_F(partition_reader_test, an_ext_partition_starts_at_0_only_where_sectors_have_2048_bytes_or_more) {
    const bytes ext = byte_writer(ext_volume_head(50, 0)).text(3, "GRUB").take();
    disk_builder small(2000);
    small.table(0, {{0x83, 100, 100}}).put(100, ext);
    EXPECT_THAT(listed(read(small).list), ElementsAre("83 100+100"));
    disk_builder large(200, 2048);
    large.table(0, {{0x83, 100, 100}}).put(100, ext);
    EXPECT_THAT(listed(read(large).list), ElementsAre("83 0+51200 ext2/3"));
}

TEST_F(partition_reader_test, a_source_that_is_an_ext_volume_is_one_record) {
    const reading made = read(byte_writer(ext_volume_head(50, 0, "label")).fill(20000, 1, 1).take());
    EXPECT_TRUE(made.result);
    EXPECT_THAT(listed(made.list), ElementsAre("83 0+0 ext"));
    EXPECT_EQ(made.list[0].m_volume_label, "label");
    EXPECT_EQ(made.list[0].m_sector_size, 512u);
    EXPECT_TRUE(made.list[0].m_format_known);
    const bytes cut = byte_view(ext_volume_head(50, 0)).clipped(0, 1082).to_vector();
    EXPECT_THAT(listed(read(cut).list), ElementsAre("83 0+0 ext")) << "with zeros after the magic word";
    const bytes without_magic = byte_view(ext_volume_head(50, 0)).clipped(0, 1081).to_vector();
    EXPECT_FALSE(read(without_magic).result);
}

TEST_F(partition_reader_test, a_search_finds_what_is_left_of_a_chain_and_does_not_look_at_formats) {
    disk_builder disk(5000);
    disk.table(1000, {{0x07, 63, 400}, {0x05, 2000, 500}}).table(3000, {{0x83, 63, 437}});
    disk.put(1063, fat32_boot_sector(399));
    EXPECT_FALSE(read(disk).result);
    const reading made = read(disk, true);
    EXPECT_TRUE(made.result);
    EXPECT_THAT(listed(made.list), ElementsAre("07 1063+400", "05 3000+500", "83 3063+437"));
    EXPECT_EQ(made.list[0].m_sector_size, 512u);
}

TEST_F(partition_reader_test, a_search_takes_the_first_table_and_passes_over_volume_boot_sectors) {
    disk_builder disk(5000);
    disk.put(500, ntfs_boot_sector(10)).table(1000, {{0x07, 1, 2}}).table(1001, {{0x83, 3, 4}});
    EXPECT_THAT(listed(read(disk, true).list), ElementsAre("07 1001+2"));
}

TEST_F(partition_reader_test, a_search_looks_at_1048576_bytes_and_not_at_1049088) {
    disk_builder at_limit(5000);
    at_limit.table(2048, {{0x07, 1, 2}});
    EXPECT_THAT(listed(read(at_limit, true).list), ElementsAre("07 2049+2"));
    disk_builder beyond(5000);
    beyond.table(2049, {{0x07, 1, 2}});
    EXPECT_FALSE(read(beyond, true).result);
}

TEST_F(partition_reader_test, a_search_that_finds_a_table_without_partitions_fails) {
    disk_builder disk(5000);
    disk.table(1000, {}).table(1001, {{0x83, 3, 4}});
    EXPECT_FALSE(read(disk, true).result);
}

TEST_F(partition_reader_test,
       a_guess_after_a_search_keeps_the_mark_of_a_guess_and_the_last_type_of_the_table) {
    disk_builder disk(5000);
    disk.table(1000, {{0x83, 63, 400}, {0x0B, 500, 10}, {0x05, 2000, 500}}).put(63, ntfs_boot_sector(936));
    EXPECT_THAT(listed(read(disk, true).list),
                ElementsAre("80b 63+937", "83 1063+400", "0b 1500+10", "05 3000+500"));
    disk_builder without_partition(5000);
    without_partition.table(1000, {{0x05, 2000, 500}}).put(63, ntfs_boot_sector(936));
    EXPECT_THAT(listed(read(without_partition, true).list), ElementsAre("800 63+937", "05 3000+500"));
}

TEST_F(partition_reader_test, an_ext_volume_that_is_searched_is_one_only_when_the_search_finds_a_table) {
    disk_builder disk(5000);
    disk.put(0, ext_volume_head(50, 0));
    EXPECT_TRUE(read(disk).result);
    EXPECT_FALSE(read(disk, true).result);
    disk.table(1000, {{0x83, 63, 400}});
    EXPECT_THAT(listed(read(disk, true).list), ElementsAre("83 0+0 ext"));
}

TEST_F(partition_reader_test, fills_gaps_when_it_is_asked_to) {
    disk_builder disk(5000);
    disk.table(0, {{0x07, 100, 900}, {0x83, 1000, 100}});
    const reading made = read(disk, false, true);
    EXPECT_TRUE(made.result);
    EXPECT_THAT(listed(made.list),
                ElementsAre("00 0+1", "00 1+99", "07 100+900", "83 1000+100", "00 1100+3900"));
    EXPECT_EQ(made.list[0].m_name, "mbr");
    EXPECT_EQ(made.list[1].m_name, "unalloc");
    disk_builder ext(5000);
    ext.put(0, ext_volume_head(50, 0));
    EXPECT_THAT(listed(read(ext, false, true).list), ElementsAre("83 0+0 ext", "00 0+5000"));
}

TEST_F(partition_reader_test, the_gaps_of_a_disk_without_a_gpt_are_none_of_a_gpt) {
    disk_builder disk(5000);
    disk.table(0, {{0x07, 100, 900}});
    for (const partition_stats& record : read(disk, false, true).list) {
        EXPECT_FALSE(record.m_is_gpt) << record.m_start_sector;
    }
    disk_builder ext(5000);
    ext.put(0, ext_volume_head(50, 0));
    const reading bare = read(ext, false, true);
    ASSERT_EQ(bare.list.size(), 2u);
    EXPECT_FALSE(bare.list[1].m_is_gpt);
}

TEST_F(partition_reader_test, fills_the_gaps_of_a_gpt_once) {
    disk_builder disk(2048);
    disk.gpt({{100, 199, "a"}});
    EXPECT_THAT(listed(read(disk, false, true).list),
                ElementsAre("ee 0+1", "ee 1+1", "ee 2+32", "00 34+66", "ee 100+100", "00 200+1848"));
}

TEST_F(partition_reader_test, reads_drives_as_it_reads_images) {
    const device_files devices;
    disk_builder disk(5000);
    disk.table(0, {{0x07, 100, 900}, {0x05, 1000, 4000}}).table(1000, {{0x83, 63, 400}});
    disk.put(100, ntfs_boot_sector(899)).write_to(devices.drive(1));
    RAW_DISK_IO drive(1, false, false, raw_kind_drive);
    partition_list list;
    EXPECT_TRUE(read_partitions(&drive, list, false, false));
    EXPECT_THAT(listed(list), ElementsAre("07 100+900 ntfs", "05 1000+4000", "83 1063+400"));
    disk_builder(2048).gpt({{100, 199, "a"}, {300, 399, "b"}}).write_to(devices.drive(2));
    RAW_DISK_IO gpt_drive(2, false, false, raw_kind_drive);
    EXPECT_TRUE(read_gpt(&gpt_drive, list, false));
    EXPECT_THAT(listed(list), ElementsAre("ee 100+100", "ee 300+100"));
}

TEST_F(partition_reader_test, finds_partitions_beyond_4_gib) {
    const std::uint64_t start = 0x00A00000;  // 5 GiB
    disk_builder disk(start + 1000);
    disk.table(0, {{0x07, static_cast<std::uint32_t>(start), 1000}, {0x05, 1000, 100}});
    disk.table(1000, {{0x83, static_cast<std::uint32_t>(start + 10 - 1000), 90}});
    disk.put(start, ntfs_boot_sector(999)).put(start + 10, ntfs_boot_sector(89));
    const reading made = read(disk);
    EXPECT_THAT(listed(made.list),
                ElementsAre("07 10485760+1000 ntfs", "05 1000+100", "07 10485770+90 ntfs"));
    EXPECT_EQ(made.list[0].byte_offset(), 0x140000000u);
}

// Each sector after the first links to the next one, and the last to the first of them.
TEST_F(partition_reader_test, a_mebibyte_of_tables_in_a_cycle_is_listed_once) {
    disk_builder disk(2048);
    disk.table(0, {{0x05, 1, 2047}});
    for (std::uint32_t sector = 1; sector < 2048; ++sector) {
        const std::uint32_t next = sector == 2047 ? 0 : sector;  // counted from sector 1
        disk.table(sector, {{0x83, 1, 1}, {0x83, 1, 1}, {0x83, 1, 1}, {0x05, next, 1}});
    }
    const reading made = read(disk);
    EXPECT_TRUE(made.result);
    EXPECT_EQ(made.list.size(), 1u + 4u * 2047u);
}

TEST_F(partition_reader_test, an_image_cut_at_any_length_gives_a_beginning_of_its_records) {
    disk_builder disk(64);
    disk.table(0, {{0x07, 5, 10}, {0x05, 20, 40}}).table(20, {{0x07, 2, 5}, {0x05, 20, 10}});
    disk.table(40, {{0x83, 1, 5}});
    disk.write_to(m_image);
    for (std::size_t length = disk.size(); length > 0; length -= 8) {
        std::filesystem::resize_file(m_image, length);
        const reading made = read_image(false);
        // The first extended table has to begin. Its two entries end at bytes 462 and 478; the linked table
        // is nothing without the mark at its end.
        const std::size_t first_table = 20 * 512;
        ASSERT_EQ(made.result, length > first_table) << length;
        const std::size_t expected = length < first_table + 462   ? 2
                                     : length < first_table + 478 ? 3
                                     : length < 41 * 512          ? 4
                                                                  : 5;
        if (made.result) {
            EXPECT_EQ(made.list.size(), expected) << length;
        }
    }
}

TEST(ntfs_at, goes_only_by_the_name) {
    const temp_dir dir;
    disk_builder disk(10);
    disk.put(3, byte_writer(512).text(3, "NTFS    ").take())
        .put(5, byte_writer(512).text(3, "NTFS   x").take());
    disk.write_to(dir / "image");
    RAW_DISK_IO image((dir / "image").wstring(), false, 0);
    EXPECT_TRUE(ntfs_at(&image, 3 * 512));
    EXPECT_FALSE(ntfs_at(&image, 3 * 512 + 1));
    EXPECT_FALSE(ntfs_at(&image, 5 * 512));
    EXPECT_FALSE(ntfs_at(&image, 10 * 512));
    EXPECT_FALSE(ntfs_at(&image, ~std::uint64_t{0}));
}

TEST(ntfs_at, needs_no_more_than_the_name_to_be_there) {
    const temp_dir dir;
    write_file(dir / "image", byte_writer().text(3, "NTFS    ").take());
    RAW_DISK_IO image((dir / "image").wstring(), false, 0);
    EXPECT_TRUE(ntfs_at(&image, 0));
    std::filesystem::resize_file(dir / "image", 10);
    RAW_DISK_IO cut((dir / "image").wstring(), false, 0);
    EXPECT_FALSE(ntfs_at(&cut, 0));
}

}  // namespace
}  // namespace quarry::test
