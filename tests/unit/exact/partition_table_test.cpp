#include "exact/partition_table.h"

#include "support/disk_builder.h"
#include "support/gpt_builder.h"
#include "support/memory_source.h"

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {

namespace {

using namespace exact;
using places = std::vector<std::pair<std::uint64_t, std::uint64_t>>;

struct answer {
    places found;
    bool has_table = false;
    std::string failed;
    std::vector<std::string> warnings;
};

answer table_of(memory_source& bytes, std::optional<std::uint32_t> sector_size = std::nullopt) {
    const exact_source source(bytes, "disk.dd");
    notices told;
    const auto partitions = read_partitions(source, sector_size, told);
    answer answered;
    if (!partitions) {
        answered.failed = std::string(code_text(partitions.error().code)) + ": " + partitions.error().text();
    } else if (*partitions) {
        answered.has_table = true;
        for (const partition& each : **partitions) {
            answered.found.emplace_back(each.offset, each.length);
        }
    }
    for (const notice& each : told.all()) {
        answered.warnings.push_back(each.code);
    }
    return answered;
}

answer table_of(const disk_builder& disk, std::optional<std::uint32_t> sector_size = std::nullopt) {
    memory_source source(disk.image());
    return table_of(source, sector_size);
}

// A disk of 1,024 sectors with two partitions.
disk_builder gpt_disk(std::uint32_t sector_size, const checked_gpt& table = {{{100, 199}, {64, 99}}}) {
    disk_builder disk(1024, sector_size);
    put_whole_gpt(disk, table, sector_size);
    return disk;
}

}  // namespace

TEST(partition_table, a_sector_without_a_mark_is_no_table) {
    const answer found = table_of(disk_builder(64));
    EXPECT_FALSE(found.has_table);
    EXPECT_EQ(found.failed, "");
}

TEST(partition_table, the_four_entries_of_an_mbr_are_found_in_the_order_of_their_offsets) {
    disk_builder disk(4096);
    disk.table(0, {{0x07, 2048, 1000}, {0x83, 1024, 24}, {0x00, 5, 5}, {0x0C, 3048, 0}});
    EXPECT_EQ(table_of(disk).found, (places{{524288, 12288}, {1048576, 512000}}));
}

TEST(partition_table, an_mbr_reaches_as_far_as_32_bits_of_sectors) {
    disk_builder disk(64);
    disk.table(0, {{0x07, 0xFFFFFFFF, 0xFFFFFFFF}});
    EXPECT_EQ(table_of(disk).found, (places{{0x1FFFFFFFE00, 0x1FFFFFFFE00}}));
    EXPECT_EQ(table_of(disk, 4096).found, (places{{0xFFFFFFFF000, 0xFFFFFFFF000}}));
}

TEST(partition_table, links_count_from_the_first_extended_table) {
    disk_builder disk(4096);
    disk.table(0, {{0x07, 64, 100}, {0x0F, 1000, 2000}});
    disk.table(1000, {{0x07, 10, 20}, {0x05, 100, 50}});
    disk.table(1100, {{0x07, 11, 21}, {0x85, 200, 50}});
    disk.table(1200, {{0x07, 12, 22}});
    EXPECT_EQ(
        table_of(disk).found,
        (places{
            {64 * 512, 100 * 512}, {1010 * 512, 20 * 512}, {1111 * 512, 21 * 512}, {1212 * 512, 22 * 512}}));
}

TEST(partition_table, each_extended_entry_of_the_mbr_opens_a_chain_of_its_own) {
    disk_builder disk(4096);
    disk.table(0, {{0x05, 1000, 100}, {0x85, 2000, 100}});
    disk.table(1000, {{0x07, 1, 2}});
    disk.table(2000, {{0x07, 1, 2}, {0x85, 10, 10}});
    disk.table(2010, {{0x07, 1, 3}});
    EXPECT_EQ(table_of(disk).found, (places{{1001 * 512, 1024}, {2001 * 512, 1024}, {2011 * 512, 1536}}));
}

TEST(partition_table, a_chain_that_comes_back_fails) {
    disk_builder disk(4096);
    disk.table(0, {{0x05, 1000, 100}});
    disk.table(1000, {{0x07, 1, 2}, {0x05, 10, 10}});
    disk.table(1010, {{0x07, 1, 2}, {0x05, 0, 10}});
    EXPECT_EQ(table_of(disk).failed,
              "table: partition table: the chain of extended tables comes back to sector 1000 "
              "(source byte 0x7D000)");
}

TEST(partition_table, a_chain_may_have_1024_tables_and_no_more) {
    for (const std::uint32_t tables : {1024u, 1025u}) {
        disk_builder disk(4096);
        disk.table(0, {{0x05, 100, 3000}});
        for (std::uint32_t i = 0; i < tables; ++i) {
            disk.table(100 + i, {{0x07, 1, 1}, {0x05, i + 1, i + 1 < tables ? 1u : 0u}});
        }
        EXPECT_EQ(table_of(disk).failed.empty(), tables == 1024);
        EXPECT_EQ(table_of(disk).found.size(), tables == 1024 ? 1024u : 0u);
    }
}

TEST(partition_table, an_extended_table_without_its_mark_fails) {
    disk_builder disk(2000);
    disk.table(0, {{0x05, 1000, 100}});
    EXPECT_EQ(table_of(disk).failed,
              "table: partition table: the extended table in sector 1000 has no mark 55 AA "
              "(source byte 0x7D000)");
}

TEST(partition_table, an_extended_table_that_cannot_be_read_fails) {
    disk_builder disk(2000);
    disk.table(0, {{0x05, 1000, 100}});
    memory_source source(disk.image());
    source.unreadable(1000 * 512, 512);
    EXPECT_EQ(table_of(source).failed.rfind("source-read: ", 0), 0u) << table_of(source).failed;
    EXPECT_TRUE(table_of(source).found.empty());
}

TEST(partition_table, an_extended_table_past_the_end_of_the_source_hides_no_other_partition) {
    disk_builder disk(2000);
    disk.table(0, {{0x05, 2000, 100}, {0x07, 100, 50}});
    const answer found = table_of(disk);
    EXPECT_EQ(found.found, (places{{100 * 512, 50 * 512}}));
    EXPECT_EQ(found.warnings, std::vector<std::string>{"source-short"});
}

TEST(partition_table, the_mark_is_at_byte_510_whatever_the_size_of_a_sector) {
    disk_builder disk(64, 4096);
    disk.table(0, {{0x07, 2, 5}}).force(510, 2, 0xAA55).put(2, ntfs_boot_sector(40));
    EXPECT_EQ(table_of(disk).found, (places{{8192, 20480}}));
    disk_builder without(64, 4096);
    without.table(0, {{0x07, 2, 5}}).put(2, ntfs_boot_sector(40));
    EXPECT_FALSE(table_of(without).has_table);
}

TEST(partition_table, large_sectors_are_taken_only_where_they_lead_to_a_volume_and_small_ones_do_not) {
    disk_builder disk(64, 4096);
    disk.table(0, {{0x07, 8, 5}}).force(510, 2, 0xAA55);
    EXPECT_EQ(table_of(disk).found, (places{{4096, 2560}}));
    disk.put(8, ntfs_boot_sector(40));
    EXPECT_EQ(table_of(disk).found, (places{{32768, 20480}}));
    disk.put(1, ntfs_boot_sector(40));  // at 8 sectors of 512 bytes
    EXPECT_EQ(table_of(disk).found, (places{{4096, 2560}}));
    EXPECT_EQ(table_of(disk, 4096).found, (places{{32768, 20480}}));
}

TEST(partition_table, a_volume_of_another_type_says_nothing_about_sectors) {
    disk_builder disk(64, 4096);
    disk.table(0, {{0x83, 8, 5}}).force(510, 2, 0xAA55).put(8, ntfs_boot_sector(40));
    EXPECT_EQ(table_of(disk).found, (places{{4096, 2560}}));
}

TEST(partition_table, a_gpt_is_found_with_sectors_of_every_size) {
    for (const std::uint64_t size : {512u, 1024u, 2048u, 4096u}) {
        const answer found = table_of(gpt_disk(static_cast<std::uint32_t>(size)));
        EXPECT_EQ(found.found, (places{{64 * size, 36 * size}, {100 * size, 100 * size}})) << size;
        EXPECT_TRUE(found.warnings.empty());
    }
}

TEST(partition_table, a_gpt_leads_beyond_two_tebibytes) {
    const answer found = table_of(gpt_disk(512, {{{0x200000000, 0x2000000FF}}}));
    EXPECT_EQ(found.found, (places{{std::uint64_t{1} << 42, 0x20000}}));
}

TEST(partition_table, one_changed_byte_of_header_or_entries_leads_to_the_backup) {
    // Every byte that the two checksums cover, and the checksum itself.
    for (std::uint64_t byte = 512; byte < 512 + 92; byte += 1) {
        disk_builder disk = gpt_disk(512);
        const bytes whole = disk.image();
        disk.force(byte, 1, static_cast<std::uint8_t>(whole[byte] ^ 0x10));
        const answer found = table_of(disk);
        EXPECT_EQ(found.found, (places{{64 * 512, 36 * 512}, {100 * 512, 100 * 512}})) << byte;
        EXPECT_EQ(found.warnings, std::vector<std::string>{"gpt-backup"}) << byte;
    }
    for (const std::uint64_t byte : {1024u, 1024u + 127, 1024u + 128 * 128 - 1}) {
        disk_builder disk = gpt_disk(512);
        disk.force(byte, 1, 0x77);
        EXPECT_EQ(table_of(disk).warnings, std::vector<std::string>{"gpt-backup"}) << byte;
    }
}

TEST(partition_table, a_header_that_cannot_be_read_leads_to_the_backup) {
    memory_source source(gpt_disk(4096).image());
    source.unreadable(4096, 4096);
    EXPECT_EQ(table_of(source).found, (places{{64 * 4096, 36 * 4096}, {100 * 4096, 100 * 4096}}));
}

TEST(partition_table, a_gpt_that_is_wrong_at_both_ends_fails) {
    disk_builder disk = gpt_disk(512);
    disk.force(512 + 16, 4, 0x12345678).force(1023 * 512 + 16, 4, 0x12345678);
    const answer found = table_of(disk);
    EXPECT_EQ(found.failed.substr(0, 66),
              "table: partition table: GPT header has checksum 0x12345678, its by");
    EXPECT_TRUE(found.found.empty());
}

TEST(partition_table, a_protective_entry_without_a_gpt_fails) {
    disk_builder disk(64);
    disk.table(0, {{0xEE, 1, 63}});
    EXPECT_EQ(table_of(disk).failed, "table: partition table: a protective entry, and no GPT at either end");
}

TEST(partition_table, a_gpt_without_its_protective_sector_is_taken) {
    disk_builder disk = gpt_disk(512);
    disk.put(0, bytes(512));
    EXPECT_EQ(table_of(disk).found.size(), 2u);
    disk.put(1, bytes(512));
    EXPECT_EQ(table_of(disk).found.size(), 2u);
    EXPECT_EQ(table_of(disk).warnings, std::vector<std::string>{"gpt-backup"});
}

TEST(partition_table, a_gpt_that_the_mbr_does_not_name_is_old) {
    disk_builder disk = gpt_disk(512);
    disk.table(0, {{0x07, 300, 10}});
    EXPECT_EQ(table_of(disk).found, (places{{300 * 512, 10 * 512}}));
    EXPECT_EQ(table_of(disk).warnings, std::vector<std::string>{"gpt-stale"});
}

TEST(partition_table, the_limits_of_a_gpt_hold) {
    auto wrong = [](const checked_gpt& table) {
        disk_builder disk(8192);
        put_whole_gpt(disk, table, 512);
        const std::string failed = table_of(disk).failed;
        return failed.substr(0, failed.find(" (source"));
    };
    const std::string head = "table: partition table: GPT ";
    EXPECT_EQ(wrong({{{64, 99}}, 1024, 128}), "");
    EXPECT_EQ(wrong({{{64, 99}}, 1025, 128}), head + "has 1025 entries");
    EXPECT_EQ(wrong({{{64, 99}}, 4, 127}), head + "entries have 127 bytes");
    EXPECT_EQ(wrong({{{64, 99}}, 4, 4096}), "");
    EXPECT_EQ(wrong({{{64, 99}}, 4, 4097}), head + "entries have 4097 bytes");
    EXPECT_EQ(wrong({{{64, 64}}}), "");
    EXPECT_EQ(wrong({{{64, 63}}}), head + "entry 0 reaches from sector 64 to 63");
    EXPECT_EQ(wrong({{{64, 99}, {1, 0xFFFFFFFFFFFFFFFF}}}),
              head + "entry 1 reaches from sector 1 to 18446744073709551615");
    EXPECT_EQ(wrong({.partitions = {{64, 99}}, .forced_header = {{12, 4, 91}}}),
              head + "header has 91 bytes");
    EXPECT_EQ(wrong({.partitions = {{64, 99}}, .forced_header = {{12, 4, 513}}}),
              head + "header has 513 bytes");
    EXPECT_EQ(wrong({.partitions = {{64, 99}}, .forced_header = {{24, 8, 7}}}),
              head + "header of sector 1 says that it is in sector 7");
    EXPECT_EQ(wrong({.partitions = {{64, 99}}, .forced_header = {{72, 8, 0x8000000000000000}}}),
              head + "entries begin in sector 9223372036854775808");
    EXPECT_EQ(wrong({{{0x8000000000000000, 0x8000000000000001}}}),
              head + "entry 0 reaches from sector 9223372036854775808 to 9223372036854775809");
    // The last sector is in the range of the numbers, its end is not.
    EXPECT_EQ(wrong({{{64, 0x7FFFFFFFFFFFFFFF}}}),
              head + "entry 0 reaches from sector 64 to 9223372036854775807");
}

TEST(partition_table, a_source_cut_anywhere_never_gives_other_partitions) {
    const bytes whole = gpt_disk(512).image();
    const places both = {{64 * 512, 36 * 512}, {100 * 512, 100 * 512}};
    for (std::size_t length = 0; length < 40 * 512; length += 100) {
        memory_source source(bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
        const answer found = table_of(source);
        EXPECT_TRUE(found.found.empty() || found.found == both) << length;
        EXPECT_EQ(found.found.empty(), length < 1024 + 128 * 128) << length;
    }
}

}  // namespace quarry::test
