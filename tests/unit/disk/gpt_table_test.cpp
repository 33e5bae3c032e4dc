#include "disk/gpt_table.h"

#include "support/byte_writer.h"
#include "support/disk_builder.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

struct reading {
    bool result = false;
    partition_list list;
    std::uint64_t reads = 0;
    std::uint64_t longest_read = 0;
};

reading read(const bytes& disk, bool with_gaps = false) {
    reading made;
    const sector_source source = [&](std::uint64_t offset, std::uint64_t length) -> std::optional<byte_view> {
        ++made.reads;
        made.longest_read = std::max(made.longest_read, length);
        const byte_view view = byte_view(disk).clipped(offset, length);
        return view.empty() ? std::nullopt : std::optional<byte_view>(view);
    };
    made.list.emplace_back();  // something that has to go
    made.result = read_gpt_table(made.list, source, disk.size(), with_gaps);
    return made;
}

constexpr std::uint64_t header = 512;

TEST(gpt_table, lists_the_entries_in_use_in_the_order_of_the_table) {
    disk_builder disk(2048);
    disk.gpt({{100, 199, "Basic data", 0x8000000000000001, 0x11, 0x22}, {}, {40, 49, "second"}});
    disk.force(2 * 512 + 128, 8, 0).force(2 * 512 + 136, 8, 0);
    disk.put(100, ntfs_boot_sector(99));
    const reading made = read(disk.image());
    ASSERT_TRUE(made.result);
    ASSERT_EQ(made.list.size(), 2u);
    const partition_stats& first = made.list[0];
    EXPECT_EQ(first.m_start_sector, 100u);
    EXPECT_EQ(first.m_num_sectors, 100u);
    EXPECT_EQ(first.m_sector_size, 512u);
    EXPECT_EQ(first.m_partition_type, 0x07);
    EXPECT_EQ(first.m_format, "ntfs");
    EXPECT_EQ(first.m_name, "Basic data");
    EXPECT_EQ(first.m_flags, 1u) << "the lower half of the attributes";
    EXPECT_TRUE(first.m_is_gpt);
    EXPECT_TRUE(first.m_format_known);
    std::array<std::uint8_t, 16> type_guid{};
    type_guid.fill(0x11);
    std::array<std::uint8_t, 16> partition_guid{};
    partition_guid.fill(0x22);
    EXPECT_EQ(first.m_type_guid, type_guid);
    EXPECT_EQ(first.m_partition_guid, partition_guid);
    const partition_stats& second = made.list[1];
    EXPECT_EQ(second.m_start_sector, 40u);
    EXPECT_EQ(second.m_num_sectors, 10u);
    EXPECT_EQ(second.m_name, "second");
    EXPECT_EQ(second.m_partition_type, 0xEE) << "an unknown file system reads as gpt";
    EXPECT_FALSE(second.m_format_known);
}

TEST(gpt_table, an_entry_is_in_use_when_any_byte_of_its_type_guid_is_set) {
    for (std::size_t i = 0; i < 16; ++i) {
        disk_builder disk(2048);
        disk.gpt({{100, 199, "x", 0, 0x00}}).force(2 * 512 + i, 1, 1);
        EXPECT_TRUE(read(disk.image()).result) << i;
    }
    disk_builder unused(2048);
    unused.gpt({{100, 199, "x", 0, 0x00}});
    EXPECT_FALSE(read(unused.image()).result);
}

TEST(gpt_table, is_read_with_any_of_the_six_sector_sizes) {
    for (const std::uint32_t size : {512u, 1024u, 2048u, 4096u, 8192u, 16384u}) {
        disk_builder disk(64, size);
        disk.gpt({{40, 49, "p"}}).put(40, ntfs_boot_sector(9, static_cast<std::uint16_t>(size)));
        const reading made = read(disk.image());
        ASSERT_TRUE(made.result) << size;
        EXPECT_EQ(made.list[0].m_sector_size, size);
        EXPECT_EQ(made.list[0].byte_offset(), 40 * size);
        EXPECT_EQ(made.list[0].m_partition_type, 0x07);
    }
}

TEST(gpt_table, needs_the_mark_of_a_table_in_its_first_sector_and_minds_no_volume_there) {
    disk_builder disk(2048);
    disk.gpt({{100, 199, "x"}});
    disk.force(3, 4, 0x5346544E);  // "NTFS"
    EXPECT_TRUE(read(disk.image()).result);
    disk.force(510, 2, 0);
    EXPECT_FALSE(read(disk.image()).result);
}

TEST(gpt_table, is_believed_when_its_header_says_that_it_is_in_sector_1_whatever_its_signature) {
    disk_builder disk(2048);
    disk.gpt({{100, 199, "x"}});
    disk.force(header, 8, 0).force(header + 16, 4, 0xDEADBEEF);
    EXPECT_TRUE(read(disk.image()).result);
    for (const std::uint64_t own :
         {std::uint64_t{0}, std::uint64_t{2}, ~std::uint64_t{0}, std::uint64_t{0x100000001}}) {
        disk_builder moved(2048);
        moved.gpt({{100, 199, "x"}}).force(header + 24, 8, own);
        const reading made = read(moved.image());
        EXPECT_FALSE(made.result) << own;
        EXPECT_TRUE(made.list.empty()) << own;
    }
}

TEST(gpt_table, takes_the_place_the_number_and_the_size_of_its_entries_from_the_header) {
    disk_builder disk(2048);
    disk.gpt({{100, 199, "one"}, {200, 299, "two"}, {300, 399, "three"}}, {500, 2, 256});
    const reading made = read(disk.image());
    ASSERT_TRUE(made.result);
    ASSERT_EQ(made.list.size(), 2u);
    EXPECT_EQ(made.list[0].m_name, "one");
    EXPECT_EQ(made.list[1].m_name, "two");
}

TEST(gpt_table, with_entries_of_less_than_128_bytes_is_refused) {
    for (const std::uint32_t size : {0u, 1u, 47u, 127u}) {
        disk_builder disk(2048);
        disk.gpt({{100, 199, "x"}}).force(header + 80, 4, 0xFFFFFFFF).force(header + 84, 4, size);
        const reading made = read(disk.image());
        EXPECT_FALSE(made.result) << size;
        EXPECT_LT(made.reads, 10u) << size;
    }
}

TEST(gpt_table, with_more_entries_than_the_source_holds_is_refused_where_the_source_ends) {
    for (const std::uint32_t size : {128u, 129u, 4096u, 0x80000000u, 0xFFFFFFFFu}) {
        disk_builder disk(2048);
        disk.gpt({{100, 199, "x"}}).force(header + 80, 4, 0xFFFFFFFF).force(header + 84, 4, size);
        const reading made = read(disk.image());
        EXPECT_FALSE(made.result) << size;
        EXPECT_EQ(made.list.size(), 1u) << "what was found stays in the list";
        EXPECT_LT(made.reads, 2048u * 512 / 128 + 10) << size;
        EXPECT_EQ(made.longest_read, 16384u) << "no read is as large as an entry claims";
    }
}

TEST(gpt_table, that_fills_a_mebibyte_with_entries_in_use_costs_two_reads_for_each) {
    disk_builder disk(2048);
    disk.gpt(std::vector<gpt_partition>(8184, gpt_partition{1, 2000, "used"}), {2, 8184, 128});
    const reading made = read(disk.image());
    EXPECT_TRUE(made.result);
    EXPECT_EQ(made.list.size(), 8184u);
    // The first sector, the header, and of each entry itself and its partition.
    EXPECT_EQ(made.reads, 2u + 2u * 8184u);
    disk.force(header + 80, 4, 0xFFFFFFFF);
    const reading claimed = read(disk.image());
    EXPECT_FALSE(claimed.result);
    EXPECT_EQ(claimed.list.size(), 8184u);
    EXPECT_EQ(claimed.reads, 2u + 2u * 8184u + 1u);
}

// A disk of `size` bytes that begins with `head` and is zeros from there on.
reading read_sparse(const bytes& head, std::uint64_t size) {
    reading made;
    bytes buffer;
    const sector_source source = [&](std::uint64_t offset, std::uint64_t length) -> std::optional<byte_view> {
        if (offset >= size) {
            return std::nullopt;
        }
        ++made.reads;
        buffer = byte_view(head).clipped(offset, length).to_vector();
        buffer.resize(std::min(length, size - offset));
        return byte_view(buffer);
    };
    made.result = read_gpt_table(made.list, source, size, false);
    return made;
}

TEST(gpt_table, is_looked_through_up_to_65536_entries_and_must_lie_inside_of_the_source_beyond) {
    disk_builder disk(2048);
    disk.gpt({{100, 199, "x"}}).force(header + 80, 4, 0xFFFFFFFF);
    const bytes head = disk.image();
    // 1,024 bytes ahead of the table, and the last of 2^32 - 1 entries of 128 bytes begins 128 before its
    // end.
    const std::uint64_t last_entry = 1024 + std::uint64_t{0xFFFFFFFE} * 128;
    const reading fits = read_sparse(head, last_entry + 1);
    EXPECT_TRUE(fits.result);
    EXPECT_EQ(fits.list.size(), 1u);
    EXPECT_LT(fits.reads, 65536u + 10);
    EXPECT_FALSE(read_sparse(head, last_entry).result);
    EXPECT_FALSE(read_sparse(head, 1024 + 65536 * 128).result) << "entry 65,536 is past the source";
    disk.force(header + 84, 4, 0xFFFFFFFF);
    EXPECT_FALSE(read_sparse(disk.image(), ~std::uint64_t{0} >> 1).result) << "2^64 bytes of entries";
}

TEST(gpt_table, finds_the_last_of_65536_entries_and_not_the_one_after_it) {
    disk_builder disk(20000);
    std::vector<gpt_partition> partitions(65537, gpt_partition{0, 0, "", 0, 0, 0});
    partitions[65535] = {100, 199, "last"};
    partitions[65536] = {200, 299, "behind"};
    disk.gpt(partitions, {2, 65537, 128});
    const reading made = read(disk.image());
    EXPECT_TRUE(made.result);
    ASSERT_EQ(made.list.size(), 1u);
    EXPECT_EQ(made.list[0].m_name, "last");
}

TEST(gpt_table, with_its_entries_after_the_source_is_refused) {
    for (const std::uint64_t sector :
         {std::uint64_t{2048}, std::uint64_t{1} << 54, (std::uint64_t{1} << 55) - 1, std::uint64_t{1} << 55,
          std::uint64_t{1} << 63, ~std::uint64_t{0}}) {
        disk_builder disk(2048);
        disk.gpt({{100, 199, "x"}}).force(header + 72, 8, sector);
        const reading made = read(disk.image());
        EXPECT_FALSE(made.result) << sector;
        EXPECT_TRUE(made.list.empty()) << sector;
    }
}

TEST(gpt_table, without_entries_is_refused) {
    disk_builder disk(2048);
    disk.gpt({{100, 199, "x"}}).force(header + 80, 4, 0);
    EXPECT_FALSE(read(disk.image()).result);
    disk_builder empty(2048);
    empty.gpt({});
    EXPECT_FALSE(read(empty.image()).result);
}

TEST(gpt_table, is_refused_when_the_first_sector_of_a_partition_cannot_be_read_and_keeps_what_came_before) {
    for (const std::uint64_t first : {std::uint64_t{2048}, std::uint64_t{1} << 55, ~std::uint64_t{0}}) {
        disk_builder disk(2048);
        disk.gpt({{100, 199, "here"}, {first, first + 10, "gone"}, {200, 299, "behind"}});
        const reading made = read(disk.image());
        EXPECT_FALSE(made.result) << first;
        ASSERT_EQ(made.list.size(), 1u) << first;
        EXPECT_EQ(made.list[0].m_name, "here");
    }
}

TEST(gpt_table, lengths_of_odd_partitions_are_what_their_two_sectors_say) {
    disk_builder disk(2048);
    disk.gpt({{100, 100, "one sector"},
              {100, 0, "no last"},
              {0, 99, "no first"},
              {100, 50, "turned"},
              {1, ~0ull, "all"}});
    const reading made = read(disk.image());
    ASSERT_TRUE(made.result);
    EXPECT_EQ(made.list[0].m_num_sectors, 1u);
    EXPECT_EQ(made.list[1].m_num_sectors, 0u);
    EXPECT_EQ(made.list[2].m_start_sector, 0u);
    EXPECT_EQ(made.list[2].m_num_sectors, 100u);
    EXPECT_EQ(made.list[3].m_num_sectors, 0xFFFFFFFFFFFFFFCFu);
    EXPECT_EQ(made.list[3].byte_end(), 51u * 512);
    EXPECT_EQ(made.list[4].m_num_sectors, 0xFFFFFFFFFFFFFFFFu);
}

// An ext superblock is only found when 2,048 bytes are looked at.
TEST(gpt_table, looks_at_2048_bytes_of_a_partition_that_is_larger_than_that) {
    disk_builder disk(2048);
    disk.gpt({{100, 104, "five sectors"}, {200, 203, "four sectors"}});
    disk.put(100, ext_volume_head(10, 0)).put(200, ext_volume_head(10, 0));
    const reading made = read(disk.image());
    ASSERT_TRUE(made.result);
    EXPECT_EQ(made.list[0].m_format, "ext");
    EXPECT_EQ(made.list[1].m_format, "");
    EXPECT_EQ(made.list[1].m_partition_type, 0xEE);
}

TEST(gpt_table, a_partition_of_no_sectors_on_a_disk_of_large_ones_is_looked_at_with_one_sector) {
    disk_builder disk(64, 16384);
    disk.gpt({{40, 39, "none"}}).put(40, ext_volume_head(10, 0));
    const reading made = read(disk.image());
    ASSERT_TRUE(made.result);
    EXPECT_EQ(made.list[0].m_num_sectors, 0u);
    EXPECT_EQ(made.list[0].m_format, "ext");
}

TEST(gpt_table, a_partition_of_which_less_than_512_bytes_are_left_has_no_type) {
    disk_builder disk(2048);
    disk.gpt({{2047, 3000, "cut"}}).put(2047, ntfs_boot_sector(900));
    bytes image = disk.image();
    const reading whole = read(image);
    ASSERT_TRUE(whole.result);
    EXPECT_EQ(whole.list[0].m_partition_type, 0x07);
    image.pop_back();
    const reading cut = read(image);
    ASSERT_TRUE(cut.result);
    EXPECT_EQ(cut.list[0].m_partition_type, 0);
}

TEST(gpt_table, names_are_utf_16_up_to_36_units_or_a_zero) {
    disk_builder disk(2048);
    disk.gpt({{100, 199, u"\u00E4\u20AC\U0001F600"},
              {100, 199, u"123456789012345678901234567890123456"},
              {100, 199, ""},
              {100, 199, std::u16string(u"ab\0cd", 5)},
              {100, 199, std::u16string{u'a', u'b', static_cast<char16_t>(0xD800), u'c'}}});
    const reading made = read(disk.image());
    ASSERT_TRUE(made.result);
    ASSERT_EQ(made.list.size(), 5u);
    EXPECT_EQ(made.list[0].m_name, "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(made.list[1].m_name, "123456789012345678901234567890123456");
    EXPECT_EQ(made.list[2].m_name, "");
    EXPECT_EQ(made.list[3].m_name, "ab");
    EXPECT_EQ(made.list[4].m_name, "ab") << "up to the half of a pair";
}

TEST(gpt_table, has_records_of_itself_and_of_free_space_when_gaps_are_asked_for) {
    disk_builder disk(2048);
    disk.gpt({{100, 199, "a"}, {200, 299, "b"}}).put(200, ntfs_boot_sector(99, 4096));
    const reading made = read(disk.image(), true);
    ASSERT_TRUE(made.result);
    ASSERT_EQ(made.list.size(), 7u);
    struct {
        const char* name;
        std::uint64_t start;
        std::uint64_t length;
        std::uint16_t type;
        std::uint32_t sector_size;
    } const expected[] = {
        {"protective_mbr", 0, 1, 0xEE, 512},
        {"gpt header", 1, 1, 0xEE, 512},
        {"gpt partition entries", 2, 32, 0xEE, 512},
        {"unalloc", 34, 66, 0, 512},
        {"a", 100, 100, 0xEE, 512},
        {"b", 200, 100, 0x07, 4096},
        {"unalloc", 300, 1748, 0, 512},
    };
    for (std::size_t i = 0; i < 7; ++i) {
        EXPECT_EQ(made.list[i].m_name, expected[i].name);
        EXPECT_EQ(made.list[i].m_start_sector, expected[i].start) << i;
        EXPECT_EQ(made.list[i].m_num_sectors, expected[i].length) << i;
        EXPECT_EQ(made.list[i].m_partition_type, expected[i].type) << i;
        EXPECT_EQ(made.list[i].m_sector_size, expected[i].sector_size) << i;
        EXPECT_TRUE(made.list[i].m_is_gpt) << i;
    }
}

TEST(gpt_table, a_gap_has_the_sector_size_of_the_record_after_it) {
    disk_builder disk(2048);
    disk.gpt({{100, 199, "a"}, {250, 299, "b"}}).put(250, ntfs_boot_sector(99, 4096));
    const reading made = read(disk.image(), true);
    ASSERT_EQ(made.list.size(), 8u);
    EXPECT_EQ(made.list[5].m_name, "unalloc");
    EXPECT_EQ(made.list[5].m_start_sector, 200u);
    EXPECT_EQ(made.list[5].m_sector_size, 4096u);
}

TEST(gpt_table, that_is_cut_anywhere_gives_what_it_still_holds) {
    disk_builder disk(64);
    disk.gpt({{40, 49, "a"}, {50, 59, "b"}}, {2, 2, 128});
    const bytes whole = disk.image();
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        const reading made = read(bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
        // Both partitions have to begin inside of the source.
        EXPECT_EQ(made.result, length > 50 * 512) << length;
        if (length >= 2 * 512 + 2 * 128) {  // both entries are whole
            EXPECT_EQ(made.list.size(), length > 50 * 512 ? 2u : length > 40 * 512 ? 1u : 0u) << length;
        }
    }
}

}  // namespace
}  // namespace quarry::test
