#include "disk/partition_chain.h"

#include "support/byte_writer.h"
#include "support/disk_builder.h"

#include <cstdint>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Type, start and length of each record, "07 2048+1000".
std::vector<std::string> listed(const partition_list& list) {
    std::vector<std::string> texts;
    for (const partition_stats& record : list) {
        const char* const digits = "0123456789abcdef";
        const std::string type = {digits[(record.m_partition_type >> 4) & 15],
                                  digits[record.m_partition_type & 15]};
        texts.push_back(type + " " + std::to_string(record.m_start_sector) + "+" +
                        std::to_string(record.m_num_sectors));
    }
    return texts;
}

// The bytes of a disk, with a count of the reads.
struct counted_source {
    bytes content;
    unsigned reads = 0;

    sector_source source() {
        return [this](std::uint64_t offset, std::uint64_t length) -> std::optional<byte_view> {
            ++reads;
            const byte_view view = byte_view(content).clipped(offset, length);
            return view.empty() ? std::nullopt : std::optional<byte_view>(view);
        };
    }
};

bytes table(const std::vector<table_slot>& slots) {
    return disk_builder(1).table(0, slots).image();
}

TEST(primary_table, lists_its_four_entries_in_order) {
    partition_list list;
    const auto result = walk_primary_table(
        list, table({{0x07, 63, 100}, {0x83, 200, 300}, {0x0C, 0xFFFFFFFF, 0xFFFFFFFF}, {0x27, 0, 1}}), 512,
        rules_for_disks, false);
    EXPECT_FALSE(result.is_gpt);
    EXPECT_EQ(result.chain_base, 0u);
    EXPECT_THAT(listed(list), ElementsAre("07 63+100", "83 200+300", "0c 4294967295+4294967295", "27 0+1"));
    EXPECT_EQ(list[0].m_sector_size, 512u);
    EXPECT_FALSE(list[0].m_is_gpt);
    EXPECT_FALSE(list[0].m_format_known);
}

// A fifth would begin at byte 510; its type is byte 514, its length bytes 522 to 525.
TEST(primary_table, has_four_entries_whatever_is_after_them_in_a_large_sector) {
    const bytes sector =
        byte_writer(
            disk_builder(1, 4096).table(0, {{0x07, 1, 1}, {0x07, 2, 1}, {0x07, 3, 1}, {0x07, 4, 1}}).image())
            .u8(514, 0x07)
            .u32(518, 5)
            .u32(522, 1)
            .take();
    partition_list list;
    static_cast<void>(walk_primary_table(list, sector, 4096, rules_for_disks, false));
    EXPECT_THAT(listed(list), ElementsAre("07 1+1", "07 2+1", "07 3+1", "07 4+1"));
}

TEST(primary_table, stamps_the_sector_size_of_the_disk_on_its_records) {
    partition_list list;
    static_cast<void>(walk_primary_table(list, table({{0x07, 100, 100}}), 4096, rules_for_disks, false));
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].m_sector_size, 4096u);
    EXPECT_EQ(list[0].byte_offset(), 409600u);
    EXPECT_EQ(list[0].byte_end(), 819200u);
}

TEST(primary_table, passes_over_bad_entries_on_a_disk) {
    partition_list list;
    static_cast<void>(
        walk_primary_table(list, table({{0x00, 10, 10}, {0x07, 20, 0}, {0xA5, 30, 30}, {0x07, 63, 100}}), 512,
                           rules_for_disks, false));
    EXPECT_THAT(listed(list), ElementsAre("07 63+100"));
}

TEST(primary_table, of_a_buffer_is_read_only_up_to_its_first_bad_entry) {
    partition_list list;
    static_cast<void>(walk_primary_table(list, table({{0x07, 63, 100}, {0x00, 0, 0}, {0x83, 200, 300}}), 512,
                                         rules_for_buffers, false));
    EXPECT_THAT(listed(list), ElementsAre("07 63+100"));
}

TEST(primary_table, ends_at_an_extended_entry_which_it_lists) {
    for (const std::uint8_t type : {std::uint8_t{0x05}, std::uint8_t{0x0F}}) {
        partition_list list;
        const auto result =
            walk_primary_table(list, table({{0x07, 63, 100}, {type, 1000, 5000}, {0x83, 200, 300}}), 512,
                               rules_for_disks, false);
        EXPECT_EQ(result.chain_base, 1000u);
        EXPECT_EQ(list.size(), 2u);
        EXPECT_EQ(list[1].m_partition_type, type);
    }
}

TEST(primary_table, lists_an_extended_entry_of_type_85_and_does_not_follow_it) {
    partition_list list;
    const auto result =
        walk_primary_table(list, table({{0x85, 1000, 5000}, {0x07, 63, 100}}), 512, rules_for_disks, false);
    EXPECT_EQ(result.chain_base, 0u);
    EXPECT_THAT(listed(list), ElementsAre("85 1000+5000", "07 63+100"));
}

TEST(primary_table, hands_over_at_a_protective_entry_in_any_slot) {
    for (std::size_t slot = 0; slot < 4; ++slot) {
        std::vector<table_slot> slots(4, {0x07, 63, 100});
        slots[slot] = {0xEE, 0, 0};
        partition_list list;
        EXPECT_TRUE(walk_primary_table(list, table(slots), 512, rules_for_disks, false).is_gpt) << slot;
    }
    partition_list list;
    const auto after_extended =
        walk_primary_table(list, table({{0x05, 1000, 5000}, {0xEE, 1, 1}}), 512, rules_for_disks, false);
    EXPECT_FALSE(after_extended.is_gpt);
}

TEST(primary_table, of_a_buffer_takes_a_protective_entry_for_a_bad_one) {
    partition_list list;
    const auto result = walk_primary_table(list, table({{0x07, 63, 100}, {0xEE, 1, 1000}, {0x07, 200, 100}}),
                                           512, rules_for_buffers, false);
    EXPECT_FALSE(result.is_gpt);
    EXPECT_THAT(listed(list), ElementsAre("07 63+100"));
}

TEST(primary_table, has_a_record_of_itself_in_front_of_the_first_partition_when_gaps_are_asked_for) {
    partition_list list;
    static_cast<void>(walk_primary_table(list, table({{0x00, 0, 0}, {0x07, 63, 100}, {0x83, 200, 300}}), 512,
                                         rules_for_disks, true));
    EXPECT_THAT(listed(list), ElementsAre("00 0+1", "07 63+100", "83 200+300"));
    EXPECT_EQ(list[0].m_name, "mbr");
    EXPECT_EQ(list[0].m_sector_size, 512u);
    partition_list none;
    static_cast<void>(walk_primary_table(none, table({}), 512, rules_for_disks, true));
    EXPECT_THAT(listed(none), IsEmpty());
}

TEST(primary_table, that_is_cut_has_only_the_entries_it_holds) {
    const bytes whole = table({{0x07, 1, 1}, {0x07, 2, 1}, {0x07, 3, 1}, {0x07, 4, 1}});
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        partition_list list;
        static_cast<void>(
            walk_primary_table(list, byte_view(whole).clipped(0, length), 512, rules_for_disks, false));
        // Entry i has its length in the bytes up to 446 + 16 * (i + 1).
        const std::size_t expected = length < 462   ? 0
                                     : length < 478 ? 1
                                     : length < 494 ? 2
                                     : length < 510 ? 3
                                                    : 4;
        EXPECT_EQ(list.size(), expected) << length;
    }
}

// Base 100. Partitions count from the table that holds their entry, links from the base.
TEST(extended_chain, counts_partitions_from_their_table_and_links_from_the_base) {
    disk_builder disk(1000);
    disk.table(100, {{0x07, 1, 10}, {0x05, 50, 20}});
    disk.table(150, {{0x83, 2, 11}, {0x0F, 80, 21}});
    disk.table(180, {{0x0B, 3, 12}});
    counted_source bytes_of = {disk.image()};
    partition_list list;
    const chain_result result = walk_extended_chain(list, 100, 512, rules_for_disks, bytes_of.source());
    EXPECT_TRUE(result.first_table_read);
    EXPECT_EQ(result.last_ordinary_type, 0x07);
    EXPECT_THAT(listed(list), ElementsAre("07 101+10", "05 150+20", "83 152+11", "0f 180+21", "0b 183+12"));
    EXPECT_EQ(bytes_of.reads, 3u);
}

TEST(extended_chain, takes_up_to_four_partitions_from_one_table) {
    disk_builder disk(1000);
    disk.table(100, {{0x07, 1, 1}, {0x83, 2, 2}, {0x0B, 3, 3}, {0x0C, 4, 4}});
    counted_source bytes_of = {disk.image()};
    partition_list list;
    const chain_result result = walk_extended_chain(list, 100, 512, rules_for_disks, bytes_of.source());
    EXPECT_EQ(result.last_ordinary_type, 0x0C);
    EXPECT_THAT(listed(list), ElementsAre("07 101+1", "83 102+2", "0b 103+3", "0c 104+4"));
}

TEST(extended_chain, ends_at_a_bad_entry_even_if_a_link_is_after_it) {
    for (const table_slot bad : {table_slot{0x00, 5, 5}, table_slot{0x07, 5, 0}, table_slot{0xA5, 5, 5}}) {
        disk_builder disk(1000);
        disk.table(100, {{0x07, 1, 10}, bad, {0x05, 50, 20}});
        disk.table(150, {{0x83, 2, 11}});
        counted_source bytes_of = {disk.image()};
        partition_list list;
        const chain_result result = walk_extended_chain(list, 100, 512, rules_for_disks, bytes_of.source());
        EXPECT_TRUE(result.first_table_read);
        EXPECT_THAT(listed(list), ElementsAre("07 101+10"));
        EXPECT_EQ(bytes_of.reads, 1u);
    }
}

TEST(extended_chain, links_are_in_the_list_among_the_other_partitions) {
    disk_builder disk(1000);
    disk.table(100, {{0x05, 50, 20}}).table(150, {{0x0F, 80, 21}});
    counted_source bytes_of = {disk.image()};
    partition_list list;
    walk_extended_chain(list, 100, 512, rules_for_disks, bytes_of.source());
    EXPECT_THAT(listed(list), ElementsAre("05 150+20", "0f 180+21"));
}

TEST(extended_chain, does_not_look_after_a_link_in_a_table) {
    disk_builder disk(1000);
    disk.table(100, {{0x05, 50, 20}, {0x07, 1, 10}});
    disk.table(150, {{0x83, 2, 11}});
    counted_source bytes_of = {disk.image()};
    partition_list list;
    const chain_result result = walk_extended_chain(list, 100, 512, rules_for_disks, bytes_of.source());
    EXPECT_EQ(result.last_ordinary_type, 0x00);
    EXPECT_THAT(listed(list), ElementsAre("05 150+20", "83 152+11"));
}

TEST(extended_chain, needs_no_mark_in_its_first_table_and_one_in_each_linked_table_of_a_disk) {
    disk_builder disk(1000);
    disk.table(100, {{0x05, 50, 20}}).force(100 * 512 + 510, 2, 0);
    disk.table(150, {{0x83, 2, 11}}).force(150 * 512 + 510, 2, 0);
    counted_source bytes_of = {disk.image()};
    partition_list on_disk;
    EXPECT_TRUE(walk_extended_chain(on_disk, 100, 512, rules_for_disks, bytes_of.source()).first_table_read);
    EXPECT_THAT(listed(on_disk), ElementsAre("05 150+20"));
    partition_list in_buffer;
    EXPECT_TRUE(
        walk_extended_chain(in_buffer, 100, 512, rules_for_buffers, bytes_of.source()).first_table_read);
    EXPECT_THAT(listed(in_buffer), ElementsAre("05 150+20", "83 152+11"));
}

TEST(extended_chain, a_linked_volume_boot_sector_is_no_table) {
    disk_builder disk(1000);
    disk.table(100, {{0x05, 50, 20}});
    disk.table(150, {{0x83, 2, 11}}).force(150 * 512 + 3, 4, 0x5346544E);  // "NTFS"
    counted_source bytes_of = {disk.image()};
    partition_list list;
    walk_extended_chain(list, 100, 512, rules_for_disks, bytes_of.source());
    EXPECT_THAT(listed(list), ElementsAre("05 150+20"));
}

TEST(extended_chain, keeps_what_it_found_when_a_linked_table_cannot_be_read) {
    disk_builder disk(200);
    disk.table(100, {{0x07, 1, 10}, {0x05, 100, 20}});
    counted_source bytes_of = {disk.image()};
    partition_list list;
    EXPECT_TRUE(walk_extended_chain(list, 100, 512, rules_for_disks, bytes_of.source()).first_table_read);
    EXPECT_THAT(listed(list), ElementsAre("07 101+10", "05 200+20"));
}

TEST(extended_chain, reports_a_first_table_that_cannot_be_read) {
    counted_source bytes_of = {disk_builder(100).image()};
    partition_list list;
    EXPECT_FALSE(walk_extended_chain(list, 100, 512, rules_for_disks, bytes_of.source()).first_table_read);
    EXPECT_THAT(listed(list), IsEmpty());
}

TEST(extended_chain, finds_its_tables_by_the_sector_size_of_the_disk) {
    disk_builder disk(300, 4096);
    disk.table(100, {{0x07, 1, 10}, {0x05, 50, 20}});
    disk.table(150, {{0x83, 2, 11}});
    counted_source bytes_of = {disk.image()};
    partition_list list;
    walk_extended_chain(list, 100, 4096, rules_for_disks, bytes_of.source());
    EXPECT_THAT(listed(list), ElementsAre("07 101+10", "05 150+20", "83 152+11"));
    EXPECT_EQ(list[2].m_sector_size, 4096u);
}

TEST(extended_chain, a_table_that_links_to_itself_ends_the_chain) {
    disk_builder disk(1000);
    disk.table(100, {{0x07, 1, 10}, {0x05, 50, 20}});
    disk.table(150, {{0x83, 2, 11}, {0x05, 50, 20}});
    counted_source bytes_of = {disk.image()};
    partition_list list;
    walk_extended_chain(list, 100, 512, rules_for_disks, bytes_of.source());
    EXPECT_THAT(listed(list), ElementsAre("07 101+10", "05 150+20", "83 152+11", "05 150+20"));
    EXPECT_EQ(bytes_of.reads, 2u);
}

TEST(extended_chain, a_link_back_to_the_first_table_ends_the_chain) {
    disk_builder disk(1000);
    disk.table(100, {{0x07, 1, 10}, {0x05, 0, 20}});
    counted_source bytes_of = {disk.image()};
    partition_list list;
    walk_extended_chain(list, 100, 512, rules_for_disks, bytes_of.source());
    EXPECT_THAT(listed(list), ElementsAre("07 101+10", "05 100+20"));
    EXPECT_EQ(bytes_of.reads, 1u);
}

TEST(extended_chain, two_tables_that_link_to_each_other_end_the_chain) {
    disk_builder disk(1000);
    disk.table(100, {{0x05, 50, 20}});
    disk.table(150, {{0x07, 1, 10}, {0x05, 80, 20}});
    disk.table(180, {{0x83, 1, 10}, {0x05, 50, 20}});
    counted_source bytes_of = {disk.image()};
    partition_list list;
    walk_extended_chain(list, 100, 512, rules_for_disks, bytes_of.source());
    EXPECT_THAT(listed(list), ElementsAre("05 150+20", "07 151+10", "05 180+20", "83 181+10", "05 150+20"));
    EXPECT_EQ(bytes_of.reads, 3u);
}

TEST(extended_chain, of_100000_links_is_followed_to_its_end) {
    // Every sector is a table that links to the next one, up to sector 100,001, which links past the disk.
    byte_writer sector(table({{0x05, 0, 1}}));
    const sector_source source = [&](std::uint64_t offset, std::uint64_t) -> std::optional<byte_view> {
        const std::uint64_t number = offset / 512;
        if (number > 100001) {
            return std::nullopt;
        }
        sector.u32(446 + 8, number);
        return byte_view(sector.content());
    };
    partition_list list;
    EXPECT_TRUE(walk_extended_chain(list, 1, 512, rules_for_disks, source).first_table_read);
    ASSERT_EQ(list.size(), 100001u);
    EXPECT_EQ(list.front().m_start_sector, 2u);
    EXPECT_EQ(list.back().m_start_sector, 100002u);
}

// As above, with three partitions before each link.
TEST(extended_chain, is_not_followed_further_when_the_list_has_262144_partitions) {
    byte_writer sector(table({{0x83, 1, 1}, {0x83, 1, 1}, {0x83, 1, 1}, {0x05, 0, 1}}));
    const sector_source source = [&](std::uint64_t offset, std::uint64_t) -> std::optional<byte_view> {
        sector.u32(446 + 3 * 16 + 8, offset / 512);
        return byte_view(sector.content());
    };
    partition_list list;
    EXPECT_TRUE(walk_extended_chain(list, 1, 512, rules_for_disks, source).first_table_read);
    ASSERT_EQ(list.size(), 262144u);
    EXPECT_EQ(list.back().m_start_sector, 65537u) << "of 65,536 tables";
}

TEST(extended_chain, a_link_past_32_bits_is_not_cut) {
    disk_builder disk(1000);
    disk.table(100, {{0x07, 0xFFFFFFFF, 10}, {0x05, 0xFFFFFFFF, 0xFFFFFFFF}});
    counted_source bytes_of = {disk.image()};
    partition_list list;
    walk_extended_chain(list, 100, 512, rules_for_disks, bytes_of.source());
    EXPECT_THAT(listed(list), ElementsAre("07 4294967395+10", "05 4294967395+4294967295"));
    EXPECT_EQ(list[1].byte_offset(), 4294967395u * std::uint64_t{512});
}

TEST(guessed_partition, reaches_from_sector_63_to_the_chain_and_is_first) {
    partition_list list;
    list.emplace_back();
    prepend_guessed_partition(list, 1000, 4096, 0x83);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].m_start_sector, 63u);
    EXPECT_EQ(list[0].m_num_sectors, 937u);
    EXPECT_EQ(list[0].m_partition_type, 0x8083);
    EXPECT_EQ(list[0].m_sector_size, 4096u);
}

TEST(guessed_partition, ends_at_the_chain_even_if_that_begins_before_sector_63) {
    partition_list list;
    prepend_guessed_partition(list, 10, 512, 0);
    EXPECT_EQ(list[0].m_partition_type, 0x8000);
    EXPECT_EQ(list[0].byte_end(), 5120u);
}

partition_stats record(std::uint64_t start, std::uint64_t length, std::uint32_t sector_size = 512) {
    partition_stats made = labelled_record("p", start, length, sector_size);
    made.m_partition_type = 0x07;
    return made;
}

TEST(gaps, are_records_of_free_space_in_front_of_between_and_after_partitions) {
    partition_list list = {record(10, 5), record(15, 5), record(30, 10, 1024)};
    fill_gaps(list, 50 * 512 + 511, 512, false);
    EXPECT_THAT(listed(list),
                ElementsAre("00 0+10", "07 10+5", "07 15+5", "00 20+10", "07 30+10", "00 40+10"));
    EXPECT_EQ(list[0].m_name, "unalloc");
    EXPECT_EQ(list[0].m_sector_size, 512u);
    EXPECT_EQ(list[3].m_name, "unalloc");
    EXPECT_EQ(list[3].m_sector_size, 1024u);
    EXPECT_EQ(list[5].m_name, "unalloc");
    EXPECT_EQ(list[5].m_sector_size, 512u);
    EXPECT_FALSE(list[5].m_is_gpt);
    EXPECT_EQ(list[1].m_name, "p");
}

TEST(gaps, are_none_on_a_disk_that_is_full) {
    partition_list list = {record(0, 10), record(10, 40)};
    fill_gaps(list, 50 * 512, 512, true);
    EXPECT_THAT(listed(list), ElementsAre("07 0+10", "07 10+40"));
}

TEST(gaps, are_counted_from_the_end_of_the_record_before_even_if_it_lies_inside_of_another) {
    partition_list list = {record(0, 40), record(10, 5), record(20, 5)};
    fill_gaps(list, 50 * 512, 512, true);
    EXPECT_THAT(listed(list), ElementsAre("07 0+40", "07 10+5", "00 15+5", "07 20+5", "00 25+25"));
    EXPECT_TRUE(list[2].m_is_gpt);
}

}  // namespace
}  // namespace quarry::test
