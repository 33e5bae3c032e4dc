#include "disk/grain_tables.h"

#include "support/byte_writer.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

// A file in memory that counts what is asked of it. From `m_bad_from` to `m_bad_to` it gives an error.
struct counted_file {
    explicit counted_file(bytes content) : m_content(std::move(content)) {}

    metadata_source source() {
        return {m_content.size(), [this](std::span<std::uint8_t> out, std::uint64_t offset) {
                    ++m_reads;
                    m_bytes_asked += out.size();
                    return read(out, offset);
                }};
    }

    std::int64_t read(std::span<std::uint8_t> out, std::uint64_t offset) const {
        std::fill(out.begin(), out.end(), std::uint8_t{0});
        std::size_t done = 0;
        for (; done < out.size() && offset + done < m_content.size(); ++done) {
            if (offset + done >= m_bad_from && offset + done < m_bad_to) {
                return done == 0 ? -1 : static_cast<std::int64_t>(done);
            }
            out[done] = m_content[offset + done];
        }
        return static_cast<std::int64_t>(done);
    }

    bytes m_content;
    std::uint64_t m_bad_from = 0;
    std::uint64_t m_bad_to = 0;
    std::uint64_t m_reads = 0;
    std::uint64_t m_bytes_asked = 0;
};

// Header numbers and a directory at sector 2: the file has eight sectors.
struct directory_file {
    std::uint64_t overhead = 8;
    std::uint64_t directory = 2;
    std::vector<std::uint32_t> entries = {3, 4, 5};
    std::size_t length = 4096;

    bytes build() const {
        byte_writer out(4096);
        out.text(0, "KDMV").u64(56, directory).u64(64, overhead);
        for (std::size_t i = 0; i < entries.size(); ++i) {
            out.u32(1024 + 4 * i, entries[i]);
        }
        bytes content = out.take();
        content.resize(length);
        return content;
    }
};

bool read(std::vector<std::uint32_t>& out, const directory_file& file) {
    counted_file counted(file.build());
    const bool result =
        read_grain_directory(out, vmdk_header(byte_view(counted.m_content)), counted.source());
    EXPECT_LE(counted.m_bytes_asked, counted.m_content.size() + 4);
    return result;
}

TEST(grain_directory, it_reaches_from_its_own_place_to_where_its_first_entry_says_that_the_first_table_is) {
    std::vector<std::uint32_t> out;
    ASSERT_TRUE(read(out, {}));
    ASSERT_EQ(out.size(), 128u);
    EXPECT_EQ((std::vector<std::uint32_t>(out.begin(), out.begin() + 4)),
              (std::vector<std::uint32_t>{3, 4, 5, 0}));
    ASSERT_TRUE(read(out, {.entries = {5, 1}}));
    EXPECT_EQ(out.size(), 3u * 128u);
}

TEST(grain_directory, a_first_table_at_or_in_front_of_the_directory_leaves_it_empty) {
    for (const std::uint32_t first : {0u, 1u, 2u}) {
        std::vector<std::uint32_t> out = {7};
        EXPECT_TRUE(read(out, {.entries = {first, 4}}));
        EXPECT_TRUE(out.empty());
    }
}

TEST(grain_directory, a_first_table_at_the_end_of_the_metadata_is_good_and_one_after_it_is_not) {
    std::vector<std::uint32_t> out;
    EXPECT_TRUE(read(out, {.entries = {8}}));
    EXPECT_EQ(out.size(), 6u * 128u);
    EXPECT_FALSE(read(out, {.entries = {9}}));
    EXPECT_TRUE(out.empty());
    EXPECT_FALSE(read(out, {.entries = {0xFFFFFFFF}}));
}

TEST(grain_directory, a_directory_at_or_past_the_end_of_the_metadata_is_refused) {
    std::vector<std::uint32_t> out;
    EXPECT_TRUE(read(out, {.directory = 7}));
    EXPECT_FALSE(read(out, {.directory = 8}));
    EXPECT_FALSE(read(out, {.directory = 9}));
    EXPECT_FALSE(read(out, {.directory = 0xFFFFFFFFFFFFFFFF}));
    EXPECT_FALSE(read(out, {.directory = 0x0080000000000002}));
}

TEST(grain_directory, metadata_of_no_sectors_or_of_four_gibibytes_is_refused) {
    std::vector<std::uint32_t> out;
    EXPECT_FALSE(read(out, {.overhead = 0}));
    EXPECT_TRUE(read(out, {.overhead = 0x7FFFFF}));
    EXPECT_FALSE(read(out, {.overhead = 0x800000}));
    EXPECT_FALSE(read(out, {.overhead = 0x800008}));
    EXPECT_FALSE(read(out, {.overhead = 0xFFFFFFFF}));
}

TEST(grain_directory, only_the_low_half_of_the_metadatas_size_counts) {
    std::vector<std::uint32_t> out;
    EXPECT_TRUE(read(out, {.overhead = 0x500000008}));
    EXPECT_EQ(out.size(), 128u);
    EXPECT_FALSE(read(out, {.overhead = 0x500000000}));
}

TEST(grain_directory, it_ends_with_the_file) {
    std::vector<std::uint32_t> out;
    ASSERT_TRUE(read(out, {.length = 1034}));
    EXPECT_EQ(out, (std::vector<std::uint32_t>{3, 4}));
    ASSERT_TRUE(read(out, {.overhead = 0x7FFFFF, .entries = {0x7FFFFF}}));
    EXPECT_EQ(out.size(), 6u * 128u);
    ASSERT_TRUE(read(out, {.length = 1024}));
    EXPECT_TRUE(out.empty());
}

TEST(grain_directory, an_error_is_a_failure) {
    counted_file file(directory_file().build());
    file.m_bad_from = 1024;
    file.m_bad_to = 1025;
    std::vector<std::uint32_t> out;
    EXPECT_FALSE(read_grain_directory(out, vmdk_header(byte_view(file.m_content)), file.source()));
    EXPECT_TRUE(out.empty());
}

// Sixteen sectors; the number at each place is its own index among all numbers of the file.
bytes numbered_sectors() {
    byte_writer out(16 * 512);
    for (std::size_t index = 0; index < 16 * 128; ++index) {
        out.u32(4 * index, index);
    }
    return out.take();
}

TEST(grain_directory, an_error_after_its_first_entry_is_a_failure) {
    counted_file file(directory_file().build());
    metadata_source source = file.source();
    source.m_read = [&file](std::span<std::uint8_t> out, std::uint64_t offset) {
        return ++file.m_reads == 1 ? file.read(out, offset) : std::int64_t{-1};
    };
    std::vector<std::uint32_t> out;
    EXPECT_FALSE(read_grain_directory(out, vmdk_header(byte_view(file.m_content)), source));
    EXPECT_EQ(file.m_reads, 2u);
    EXPECT_TRUE(out.empty());
}

TEST(grain_tables, each_entry_of_the_directory_has_a_table_in_its_place) {
    counted_file file(numbered_sectors());
    grain_tables tables;
    tables.read({3, 9, 4}, 128, file.source());
    ASSERT_EQ(tables.size(), 3u);
    EXPECT_FALSE(tables.empty());
    EXPECT_EQ(tables.entry(3, 0), 3u * 128u);
    EXPECT_EQ(tables.entry(3, 127), 3u * 128u + 127u);
    EXPECT_EQ(tables.entry(9, 5), 9u * 128u + 5u);
    EXPECT_EQ(tables.entry(4, 1), 4u * 128u + 1u);
}

TEST(grain_tables, tables_that_touch_are_read_at_once_and_no_byte_is_read_twice) {
    counted_file file(numbered_sectors());
    grain_tables tables;
    tables.read({6, 5, 4, 3, 5, 5}, 200, file.source());
    EXPECT_EQ(tables.size(), 6u);
    EXPECT_EQ(file.m_reads, 1u);
    EXPECT_EQ(file.m_bytes_asked, 3u * 512u + 800u);
    EXPECT_EQ(tables.entry(5, 199), 5u * 128u + 199u);
}

TEST(grain_tables, an_entry_of_zero_in_the_directory_takes_its_table_from_the_start_of_the_file) {
    counted_file file(numbered_sectors());
    grain_tables tables;
    tables.read({2, 0}, 128, file.source());
    EXPECT_EQ(tables.size(), 2u);
    EXPECT_EQ(tables.entry(0, 17), 17u);
}

TEST(grain_tables, what_a_table_has_past_the_end_of_the_file_is_zeros) {
    counted_file file(numbered_sectors());
    file.m_content.resize(15 * 512 + 6);
    grain_tables tables;
    tables.read({15, 16, 0xFFFFFFFF}, 128, file.source());
    EXPECT_EQ(tables.size(), 3u);
    EXPECT_EQ(tables.entry(15, 0), 15u * 128u);
    EXPECT_EQ(tables.entry(15, 1), (15u * 128u + 1u) & 0xFFFFu);
    EXPECT_EQ(tables.entry(15, 2), 0u);
    EXPECT_EQ(tables.entry(16, 0), 0u);
    EXPECT_EQ(tables.entry(0xFFFFFFFF, 127), 0u);
}

TEST(grain_tables, tables_larger_than_the_file_or_over_each_other_cost_no_more_than_the_file) {
    counted_file file(numbered_sectors());
    std::vector<std::uint32_t> everywhere;
    for (std::uint32_t sector = 0; sector < 5000; ++sector) {
        everywhere.push_back(sector % 20);
    }
    grain_tables tables;
    tables.read(everywhere, 0xFFFFFFFF, file.source());
    EXPECT_EQ(tables.size(), 5000u);
    EXPECT_EQ(file.m_bytes_asked, 16u * 512u);
    EXPECT_EQ(tables.entry(15, 127), 16u * 128u - 1u);
    EXPECT_EQ(tables.entry(15, 128), 0u);
    EXPECT_EQ(tables.entry(0, 0xFFFFFFFE), 0u);
}

TEST(grain_tables, a_table_that_cannot_be_read_ends_the_work_and_those_in_front_of_it_stay) {
    counted_file file(numbered_sectors());
    file.m_bad_from = 9 * 512;
    file.m_bad_to = 10 * 512;
    grain_tables tables;
    tables.read({3, 5, 9, 4}, 128, file.source());
    ASSERT_EQ(tables.size(), 2u);
    EXPECT_EQ(tables.entry(5, 1), 5u * 128u + 1u);
    tables.read({9, 3}, 128, file.source());
    EXPECT_TRUE(tables.empty());
}

TEST(grain_tables, a_table_that_begins_in_front_of_an_error_stays_with_zeros_after_it) {
    counted_file file(numbered_sectors());
    file.m_bad_from = 4 * 512 + 256;
    file.m_bad_to = 5 * 512;
    grain_tables tables;
    tables.read({3, 4, 5}, 128, file.source());
    EXPECT_EQ(tables.size(), 2u);
    EXPECT_EQ(tables.entry(4, 63), 4u * 128u + 63u);
    EXPECT_EQ(tables.entry(4, 64), 0u);
    EXPECT_TRUE(tables.has_failed());
    tables.read({3}, 128, file.source());
    EXPECT_FALSE(tables.has_failed());
}

TEST(grain_tables, a_file_that_shrinks_while_it_is_read_leaves_zeros) {
    counted_file file(numbered_sectors());
    metadata_source source = file.source();
    file.m_content.resize(3 * 512);
    grain_tables tables;
    tables.read({2, 3}, 128, source);
    EXPECT_EQ(tables.size(), 2u);
    EXPECT_EQ(tables.entry(2, 3), 2u * 128u + 3u);
    EXPECT_EQ(tables.entry(3, 0), 0u);
}

TEST(grain_tables, a_file_that_gives_few_bytes_at_a_time_is_asked_for_the_rest) {
    const counted_file file(numbered_sectors());
    const metadata_source source = {
        file.m_content.size(), [&file](std::span<std::uint8_t> out, std::uint64_t offset) {
            return file.read(out.first(std::min<std::size_t>(100, out.size())), offset);
        }};
    grain_tables tables;
    tables.read({2, 3}, 128, source);
    ASSERT_EQ(tables.size(), 2u);
    for (std::uint64_t index = 0; index < 128; ++index) {
        ASSERT_EQ(tables.entry(2, index), 2u * 128u + index);
        ASSERT_EQ(tables.entry(3, index), 3u * 128u + index);
    }
}

TEST(grain_tables, a_table_of_which_the_file_has_a_byte_more_than_4096_keeps_that_byte) {
    byte_writer content(512 + 4096);
    content.u32(512 + 4092, 0x11223344).u8(512 + 4096, 0x55);
    counted_file file(content.take());
    ASSERT_EQ(file.m_content.size(), 512u + 4097u);
    grain_tables tables;
    tables.read({1}, 2048, file.source());
    ASSERT_EQ(tables.size(), 1u);
    EXPECT_EQ(tables.entry(1, 1022), 0u);
    EXPECT_EQ(tables.entry(1, 1023), 0x11223344u);
    EXPECT_EQ(tables.entry(1, 1024), 0x55u);
    EXPECT_EQ(tables.entry(1, 1025), 0u);
}

// 3 MiB of tables from sector 1 on, each number its own index among all numbers of the file, but for a
// mebibyte of zeros from byte 0x80000 on.
bytes large_tables() {
    byte_writer out(0x300200);
    for (std::size_t index = 0; index < 0x300200 / 4; ++index) {
        const bool zero = index * 4 >= 0x80000 && index * 4 < 0x180000;
        out.u32(4 * index, zero ? 0 : index);
    }
    return out.take();
}

TEST(grain_tables, tables_of_several_mebibytes_with_zeros_between_them_are_read_in_parts) {
    counted_file file(large_tables());
    grain_tables tables;
    tables.read({1}, 0xC0000, file.source());
    ASSERT_EQ(tables.size(), 1u);
    EXPECT_EQ(file.m_bytes_asked, 0x300000u);
    EXPECT_EQ(file.m_reads, 3u);
    for (const std::uint64_t index : {0ull, 1ull, 1023ull, 1024ull, 0x1FF7Full, 0x5FF80ull, 0x60000ull,
                                      0x7FFFFull, 0x80000ull, 0xBFFFEull, 0xBFFFFull}) {
        EXPECT_EQ(tables.entry(1, index), 128 + index) << index;
    }
    EXPECT_EQ(tables.entry(1, 0x1FF80), 0u);
    EXPECT_EQ(tables.entry(1, 0x5FF7F), 0u);
    EXPECT_EQ(tables.entry(1, 0xC0000), 0u);
}

TEST(grain_tables, an_error_in_a_later_part_leaves_the_parts_in_front_of_it) {
    counted_file file(large_tables());
    file.m_bad_from = 0x280000;
    file.m_bad_to = 0x280200;
    std::vector<std::uint32_t> directory;
    for (std::uint32_t sector = 1; sector < 0x1801; ++sector) {
        directory.push_back(sector);
    }
    grain_tables tables;
    tables.read(directory, 128, file.source());
    EXPECT_EQ(tables.size(), 0x1400u - 1u);
    EXPECT_EQ(tables.entry(0x13FF, 127), 0x9FFFFu);
}

// Data from 0x100000 to 0x101000 and from 0x300000 on, and holes around them.
TEST(grain_tables, holes_of_the_file_are_passed_over) {
    byte_writer content(0x400000);
    content.u32(0x100008, 7).u32(0x100FFC, 8).u32(0x300000, 9).u32(0x3FFFFC, 10);
    counted_file file(content.take());
    metadata_source source = file.source();
    source.m_next_data = [](std::uint64_t position) -> std::optional<file_stretch> {
        if (position < 0x101000) {
            return file_stretch{std::max<std::uint64_t>(position, 0x100000), 0x101000};
        }
        return file_stretch{std::max<std::uint64_t>(position, 0x300000), 0x400000};
    };
    grain_tables tables;
    tables.read({0, 0x800, 0x1000, 0x1800}, 0x40000, source);
    EXPECT_EQ(tables.size(), 4u);
    EXPECT_EQ(file.m_bytes_asked, 0x101000u);
    EXPECT_EQ(tables.entry(0x800, 0), 0u);
    EXPECT_EQ(tables.entry(0x800, 2), 7u);
    EXPECT_EQ(tables.entry(0x800, 0x3FF), 8u);
    EXPECT_EQ(tables.entry(0x800, 0x400), 0u);
    EXPECT_EQ(tables.entry(0x1800, 0), 9u);
    EXPECT_EQ(tables.entry(0x1800, 0x3FFFF), 10u);
    EXPECT_EQ(tables.entry(0, 0), 0u);
}

TEST(grain_tables, a_file_that_is_a_hole_from_the_tables_on_is_not_read) {
    counted_file file(bytes(0x100000));
    metadata_source source = file.source();
    source.m_next_data = [](std::uint64_t) { return std::optional<file_stretch>(); };
    grain_tables tables;
    tables.read({8, 16}, 128, source);
    EXPECT_EQ(tables.size(), 2u);
    EXPECT_EQ(file.m_reads, 0u);
    EXPECT_EQ(tables.entry(16, 127), 0u);
}

TEST(grain_tables, an_error_after_a_hole_ends_the_work_there) {
    counted_file file(numbered_sectors());
    metadata_source source = file.source();
    source.m_next_data = [](std::uint64_t position) {
        return std::optional(file_stretch{std::max<std::uint64_t>(position, 4 * 512), 16 * 512});
    };
    file.m_bad_from = 9 * 512;
    file.m_bad_to = 10 * 512;
    grain_tables tables;
    tables.read({3, 4, 8, 9, 10}, 128, source);
    EXPECT_EQ(tables.size(), 3u);
    EXPECT_EQ(tables.entry(3, 5), 0u);
    EXPECT_EQ(tables.entry(4, 5), 4u * 128u + 5u);
}

// 160 MiB of tables without a zero, more than stays in memory.
TEST(grain_tables, tables_that_memory_has_no_room_for_are_read_when_they_are_wanted) {
    constexpr std::uint64_t size = 160ULL << 20;
    std::uint64_t asked = 0;
    bool gone = false;
    const metadata_source source = {
        size, [&](std::span<std::uint8_t> out, std::uint64_t offset) {
            asked += out.size();
            std::fill(out.begin(), out.end(), static_cast<std::uint8_t>(1 + offset / 0x100000));
            return gone ? std::int64_t{-1} : static_cast<std::int64_t>(out.size());
        }};
    grain_tables tables;
    tables.read({0}, size / 4, source);
    EXPECT_EQ(tables.size(), 1u);
    EXPECT_EQ(asked, 128ULL << 20);
    EXPECT_EQ(tables.entry(0, 0), 0x01010101u);
    EXPECT_EQ(tables.entry(0, (128ULL << 20) / 4 - 1), 0x80808080u);
    EXPECT_EQ(tables.entry(0, (128ULL << 20) / 4), 0x81818181u);
    EXPECT_EQ(tables.entry(0, size / 4 - 1), 0xA0A0A0A0u);
    EXPECT_EQ(asked, (128ULL << 20) + 8);
    gone = true;
    EXPECT_EQ(tables.entry(0, 0), 0x01010101u);
    EXPECT_EQ(tables.entry(0, size / 4 - 1), 0xFFFFFFFFu) << "no parent's grain comes in its place";
}

// 4 GiB of metadata whose directory is said to fill them.
TEST(grain_directory, has_no_more_entries_than_the_file_stores_or_2_tebibytes_need) {
    const bytes head = directory_file{.overhead = 0x7FFFFF}.build();
    std::uint64_t asked = 0;
    metadata_source source = {0xFFFFFE00, [&](std::span<std::uint8_t> out, std::uint64_t) {
                                  asked += out.size();
                                  std::fill(out.begin(), out.end(), std::uint8_t{0});
                                  out[0] = 0xFF;
                                  out[1] = 0xFF;
                                  out[2] = 0x7F;
                                  return static_cast<std::int64_t>(out.size());
                              }};
    for (const auto& [stored, entries] :
         {std::pair{0x1000u, 0x10000u}, std::pair{0x100000u, 0x40000u}, std::pair{0x80000000u, 0x200000u}}) {
        source.m_stored = stored;
        asked = 0;
        std::vector<std::uint32_t> out;
        EXPECT_TRUE(read_grain_directory(out, vmdk_header(byte_view(head)), source));
        EXPECT_EQ(out.size(), entries);
        EXPECT_EQ(asked, 4 + 4u * entries);
    }
}

TEST(grain_tables, no_directory_makes_no_tables) {
    counted_file file(numbered_sectors());
    grain_tables tables;
    tables.read({}, 128, file.source());
    EXPECT_TRUE(tables.empty());
    EXPECT_EQ(file.m_reads, 0u);
}

}  // namespace
}  // namespace quarry::test
