#include "disk/partition_buffer_reader.h"

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

struct reading {
    bool result = false;
    partition_list list;
};

reading read(const bytes& content, bool scan = false, bool with_gaps = false) {
    reading made;
    made.list.emplace_back();  // something that has to go
    made.result = read_partitions_from_buffer(content, made.list, scan, with_gaps);
    return made;
}

// Start and length, and the format if there is one: "2048+1000 ntfs".
std::vector<std::string> listed(const partition_list& list) {
    std::vector<std::string> texts;
    for (const partition_stats& record : list) {
        const std::string place =
            std::to_string(record.m_start_sector) + "+" + std::to_string(record.m_num_sectors);
        texts.push_back(record.m_format.empty() ? place : place + " " + record.m_format);
    }
    return texts;
}

TEST(partition_buffer_reader, needs_512_bytes) {
    const bytes sector = disk_builder(1).table(0, {{0x07, 63, 100}}).image();
    for (std::size_t length = 0; length < sector.size(); ++length) {
        partition_list list(2);
        EXPECT_FALSE(read_partitions_from_buffer(byte_view(sector).clipped(0, length), list, true, true))
            << length;
        EXPECT_TRUE(list.empty()) << length;
    }
    partition_list list;
    EXPECT_FALSE(read_partitions_from_buffer({}, list, true, false));
    EXPECT_TRUE(read(sector).result);
}

TEST(partition_buffer_reader, lists_the_partitions_of_a_first_sector_without_more) {
    const reading made = read(disk_builder(1).table(0, {{0x07, 63, 100}, {0x83, 200, 300}}).image());
    EXPECT_TRUE(made.result);
    EXPECT_THAT(listed(made.list), ElementsAre("63+100", "200+300"));
    EXPECT_EQ(made.list[0].m_partition_type, 0x07);
    EXPECT_EQ(made.list[0].m_sector_size, 512u);
}

TEST(partition_buffer_reader, reads_the_first_sector_up_to_its_first_unused_entry) {
    EXPECT_THAT(listed(read(disk_builder(1).table(0, {{0x07, 63, 100}, {}, {0x83, 200, 300}}).image()).list),
                ElementsAre("63+100"));
    EXPECT_FALSE(read(disk_builder(1).table(0, {{}, {0x83, 200, 300}}).image()).result);
}

TEST(partition_buffer_reader, knows_no_gpt) {
    disk_builder disk(2048);
    disk.gpt({{100, 199, "a"}});
    EXPECT_FALSE(read(disk.image()).result);
    disk.table(0, {{0x07, 63, 100}, {0xEE, 1, 2047}});
    EXPECT_THAT(listed(read(disk.image()).list), ElementsAre("63+100"));
}

TEST(partition_buffer_reader, looks_at_the_formats_of_partitions_that_begin_inside_the_buffer) {
    disk_builder disk(10);
    disk.table(0, {{0x83, 2, 100}, {0x83, 9, 100}, {0x83, 10, 100}, {0x83, 0xFFFFFFFF, 1}});
    disk.put(2, ntfs_boot_sector(99)).put(9, ntfs_boot_sector(99));
    const bytes image = disk.image();
    EXPECT_THAT(listed(read(image).list), ElementsAre("2+100 ntfs", "9+100 ntfs", "10+100", "4294967295+1"));
    const bytes cut(image.begin(), image.end() - 1);
    EXPECT_THAT(listed(read(cut).list), ElementsAre("2+100 ntfs", "9+100", "10+100", "4294967295+1"));
}

TEST(partition_buffer_reader, gives_the_rest_of_the_buffer_to_the_look_at_a_format) {
    disk_builder disk(10);
    disk.table(0, {{0x83, 2, 100}, {0x83, 7, 100}})
        .put(2, ext_volume_head(5, 0))
        .put(7, ext_volume_head(5, 0));
    EXPECT_THAT(listed(read(disk.image()).list), ElementsAre("2+100 ext", "7+100"));
}

TEST(partition_buffer_reader, follows_a_chain_inside_the_buffer_without_asking_linked_tables_for_their_mark) {
    disk_builder disk(200);
    disk.table(0, {{0x05, 100, 90}}).table(100, {{0x07, 1, 10}, {0x05, 50, 20}});
    disk.table(150, {{0x83, 2, 11}}).force(150 * 512 + 510, 2, 0);
    EXPECT_THAT(listed(read(disk.image()).list), ElementsAre("100+90", "101+10", "150+20", "152+11"));
}

TEST(partition_buffer_reader, ends_a_chain_where_the_buffer_ends) {
    // Sector numbers below the number of bytes, and past the last byte.
    disk_builder disk(120);
    disk.table(0, {{0x05, 100, 90}}).table(100, {{0x07, 1, 10}, {0x05, 20, 20}});
    EXPECT_THAT(listed(read(disk.image()).list), ElementsAre("100+90", "101+10", "120+20"));
    disk_builder first_outside(1);
    first_outside.table(0, {{0x05, 1, 90}});
    EXPECT_THAT(listed(read(first_outside.image()).list), ElementsAre("1+90"));
    disk_builder far_outside(1);
    far_outside.table(0, {{0x05, 0xFFFFFFFF, 90}});
    EXPECT_THAT(listed(read(far_outside.image()).list), ElementsAre("4294967295+90"));
}

TEST(partition_buffer_reader, a_table_of_which_a_part_lies_after_the_buffer_ends_the_chain) {
    disk_builder disk(101);
    disk.table(0, {{0x05, 100, 90}}).table(100, {{0x07, 1, 10}});
    bytes image = disk.image();
    EXPECT_THAT(listed(read(image).list), ElementsAre("100+90", "101+10"));
    image.pop_back();
    EXPECT_THAT(listed(read(image).list), ElementsAre("100+90"));
}

TEST(partition_buffer_reader, a_chain_that_comes_back_to_a_table_ends) {
    disk_builder disk(200);
    disk.table(0, {{0x05, 100, 90}}).table(100, {{0x07, 1, 10}, {0x05, 50, 20}});
    disk.table(150, {{0x83, 2, 11}, {0x05, 0, 20}});
    EXPECT_THAT(listed(read(disk.image()).list),
                ElementsAre("100+90", "101+10", "150+20", "152+11", "100+20"));
}

TEST(partition_buffer_reader, an_extended_partition_at_sector_0_is_not_followed) {
    EXPECT_THAT(listed(read(disk_builder(4).table(0, {{0x05, 0, 90}}).image()).list), ElementsAre("0+90"));
}

TEST(partition_buffer_reader, makes_no_guess_at_sector_63) {
    disk_builder disk(200);
    disk.table(0, {{0x05, 100, 90}}).table(100, {{0x07, 1, 10}}).put(63, ntfs_boot_sector(30));
    EXPECT_THAT(listed(read(disk.image()).list), ElementsAre("100+90", "101+10"));
}

TEST(partition_buffer_reader, takes_a_larger_sector_size_only_with_something_after_the_first_sector) {
    for (const std::uint32_t size : {1024u, 2048u, 4096u, 8192u, 16384u}) {
        bytes image = disk_builder(1, size).table(0, {{0x83, 2, 10}}).image();
        EXPECT_FALSE(read(image).result) << size;
        image.push_back(0);
        const reading made = read(image);
        EXPECT_TRUE(made.result) << size;
        EXPECT_EQ(made.list.at(0).m_sector_size, size);
    }
}

TEST(partition_buffer_reader, a_bare_volume_in_a_buffer_takes_a_permitted_search) {
    const bytes volume = concat({ntfs_boot_sector(1000), bytes(512)});
    EXPECT_FALSE(read(volume).result);
    EXPECT_TRUE(read(volume).list.empty());
    const reading made = read(volume, true, true);
    EXPECT_TRUE(made.result);
    EXPECT_THAT(listed(made.list), ElementsAre("0+1000 ntfs"));
    EXPECT_TRUE(made.list[0].m_format_known);
}

TEST(partition_buffer_reader, an_ext_volume_is_not_looked_for) {
    EXPECT_FALSE(read(ext_volume_head(10, 0)).result);
    EXPECT_FALSE(read(ext_volume_head(10, 0), true).result);
}

TEST(partition_buffer_reader, a_search_follows_the_first_table_and_does_not_look_at_formats) {
    disk_builder disk(200);
    disk.table(100, {{0x07, 1, 10}, {0x05, 50, 20}})
        .table(150, {{0x83, 2, 11}})
        .put(101, ntfs_boot_sector(9));
    EXPECT_FALSE(read(disk.image()).result);
    const reading made = read(disk.image(), true);
    EXPECT_TRUE(made.result);
    EXPECT_THAT(listed(made.list), ElementsAre("101+10", "150+20", "152+11"));
}

TEST(partition_buffer_reader, a_search_has_no_limit_but_the_end_of_the_buffer) {
    disk_builder disk(3000);
    disk.table(2999, {{0x07, 1, 10}});
    EXPECT_THAT(listed(read(disk.image(), true).list), ElementsAre("3000+10"));
    EXPECT_FALSE(read(bytes(512), true).result);
    EXPECT_FALSE(read(bytes(1000), true).result);
}

TEST(partition_buffer_reader, fewer_bytes_than_a_sector_hold_nothing) {
    bytes volume = ntfs_boot_sector(100);
    EXPECT_TRUE(read(volume, true).result);
    volume.resize(511);
    EXPECT_FALSE(read(volume, true).result);
    EXPECT_THAT(read(volume, true).list, IsEmpty());
    EXPECT_FALSE(read(bytes(), true).result);
}

TEST(partition_buffer_reader, fills_gaps_when_it_is_asked_to) {
    const reading made = read(disk_builder(200).table(0, {{0x07, 63, 100}}).image(), false, true);
    EXPECT_THAT(listed(made.list), ElementsAre("0+1", "1+62", "63+100", "163+37"));
    for (const partition_stats& record : made.list) {
        EXPECT_FALSE(record.m_is_gpt) << record.m_start_sector;
    }
}

}  // namespace
}  // namespace quarry::test
