#include "foundation/ql_hex_view.h"

#include <cstdint>
#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace ql {
namespace {

using bytes = std::vector<std::uint8_t>;

std::string dump(const bytes& content, std::uint32_t first, std::uint32_t count, std::uint64_t base_address) {
    std::ostringstream out;
    hex_dump(out, binary_data(content, false), first, count, base_address);
    return out.str();
}

std::string dump(const bytes& content) {
    return dump(content, 0, static_cast<std::uint32_t>(content.size()), 0);
}

bytes counted(std::size_t count) {
    bytes result;
    for (std::size_t i = 0; i < count; ++i) {
        result.push_back(static_cast<std::uint8_t>('A' + i % 26));
    }
    return result;
}

TEST(hex_dump, a_volume_name_in_utf16_shows_a_dot_after_each_letter) {
    EXPECT_EQ(dump({0x41, 0x00, 0x42, 0x00}), "0000 0000:  41 00 42 00 " + std::string(37, ' ') + " A.B.\n");
}

TEST(hex_dump, an_empty_view_prints_nothing) {
    EXPECT_EQ(dump({}), "");
    EXPECT_EQ(dump({}, 0, 16, 0x1000), "");
}

TEST(hex_dump, sixteen_bytes_print_one_line_without_filling) {
    EXPECT_EQ(dump(counted(16)),
              "0000 0000:  41 42 43 44 45 46 47 48  49 4a 4b 4c 4d 4e 4f 50  ABCDEFGHIJKLMNOP\n");
}

TEST(hex_dump, seventeen_bytes_begin_a_second_line_at_the_next_address) {
    EXPECT_EQ(dump(counted(17)),
              "0000 0000:  41 42 43 44 45 46 47 48  49 4a 4b 4c 4d 4e 4f 50  ABCDEFGHIJKLMNOP\n"
              "0000 0010:  51 " +
                  std::string(46, ' ') + " Q\n");
}

TEST(hex_dump, eight_bytes_are_filled_with_25_blanks) {
    EXPECT_EQ(dump(counted(8)),
              "0000 0000:  41 42 43 44 45 46 47 48 " + std::string(25, ' ') + " ABCDEFGH\n");
}

TEST(hex_dump, nine_bytes_are_filled_with_21_blanks) {
    EXPECT_EQ(dump(counted(9)),
              "0000 0000:  41 42 43 44 45 46 47 48  49 " + std::string(21, ' ') + " ABCDEFGHI\n");
}

TEST(hex_dump, the_character_column_is_in_one_place_for_every_count) {
    for (std::size_t count = 1; count <= 16; ++count) {
        const std::string line = dump(bytes(count, 'Z'));
        // 12 of the address, 16 pairs of 3, one between the groups, one before the characters.
        EXPECT_EQ(line.find('Z'), 62u) << count;
        EXPECT_EQ(line.size(), 62 + count + 1) << count;
    }
}

TEST(hex_dump, only_printable_ascii_shows_as_itself) {
    const std::string line = dump({0x1F, 0x20, 0x7E, 0x7F, 0x80, 0xFF, 0x00});
    EXPECT_EQ(line.substr(line.size() - 8), ". ~....\n");
}

TEST(hex_dump, the_address_grows_by_groups_of_four_digits) {
    EXPECT_EQ(dump({0x41}, 0, 1, 0xFFFFFFFF).substr(0, 12), "ffff ffff:  ");
    EXPECT_EQ(dump({0x41}, 0, 1, 0x100000000).substr(0, 17), "0001 0000 0000:  ");
    EXPECT_EQ(dump({0x41}, 0, 1, 0xFFFF00000000).substr(0, 17), "ffff 0000 0000:  ");
    EXPECT_EQ(dump({0x41}, 0, 1, 0x1000000000000).substr(0, 22), "0001 0000 0000 0000:  ");
    EXPECT_EQ(dump({0x41}, 0, 1, 0xFEDCBA9876543210).substr(0, 22), "fedc ba98 7654 3210:  ");
}

TEST(hex_dump, the_line_after_an_address_whose_upper_half_is_zero_is_counted_in_all_its_bits) {
    const std::string lines = dump(counted(17), 0, 17, 0xFFFFFFF0);
    EXPECT_EQ(lines.substr(0, 12), "ffff fff0:  ");
    EXPECT_EQ(lines.substr(79, 17), "0001 0000 0000:  ");
}

TEST(hex_dump, a_range_begins_and_ends_inside_the_view) {
    EXPECT_EQ(dump(counted(10), 2, 3, 0x20), "0000 0020:  43 44 45 " + std::string(40, ' ') + " CDE\n");
    EXPECT_EQ(dump(counted(10), 9, 100, 0), "0000 0000:  4a " + std::string(46, ' ') + " J\n");
    EXPECT_EQ(dump(counted(10), 10, 1, 0), "");
    EXPECT_EQ(dump(counted(10), 0xFFFFFFFF, 0xFFFFFFFF, 0), "");
    EXPECT_EQ(dump(counted(10), 0, 0, 0), "");
}

TEST(hex_dump, the_stream_keeps_its_flags_but_not_its_fill) {
    std::ostringstream out;
    out << std::dec << std::left << std::setfill('*') << std::showbase;
    const std::ios_base::fmtflags before = out.flags();
    hex_dump(out, binary_data(counted(1), true), 0, 1, 0);
    EXPECT_EQ(out.flags(), before);
    EXPECT_EQ(out.fill(), '0');
}

TEST(hex_dump, numbers_stay_plain_in_a_stream_that_shows_bases_or_capitals) {
    std::ostringstream out;
    out << std::showbase << std::uppercase << std::showpos;
    hex_dump(out, binary_data({0xAB}, true), 0, 1, 0xCD);
    EXPECT_EQ(out.str(), "0000 00cd:  ab " + std::string(46, ' ') + " .\n");
}

TEST(binary_data, a_view_looks_at_the_vector_and_a_copy_at_bytes_of_its_own) {
    bytes content = {1, 2};
    const binary_data view(content, false);
    const binary_data copy(content, true);
    content[1] = 9;
    EXPECT_EQ(view(1), 9);
    EXPECT_EQ(copy(1), 2);
    EXPECT_EQ(view.m_num_data, 2u);
    EXPECT_FALSE(view.m_is_copy);
    EXPECT_TRUE(copy.m_is_copy);
    EXPECT_EQ(copy.m_own_bytes, (bytes{1, 2}));
}

TEST(binary_data, an_empty_vector_gives_an_empty_view) {
    EXPECT_EQ(binary_data({}, false).m_num_data, 0u);
    EXPECT_EQ(binary_data({}, true).m_num_data, 0u);
}

TEST(binary_data_death_test, an_index_at_the_end_of_the_view_ends_the_program_with_the_assertion) {
    const bytes content = {1, 2};
    const binary_data view(content, false);
    EXPECT_DEATH((void)view(2), "index < m_num_data, in ql_hex_view");
    EXPECT_DEATH((void)binary_data({}, true)(0), "index < m_num_data");
}

}  // namespace
}  // namespace ql
