#include "report/security_descriptor.h"

#include "support/security_builder.h"

#include <cstdint>
#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quarry {
namespace {

using test::ace;
using test::acl;
using test::byte_writer;
using test::bytes;
using test::concat;
using test::security_descriptor;
using test::sid;

const bytes local_system = sid(5, {18});
const bytes admins = sid(5, {32, 544});
const bytes users = sid(5, {32, 545});

std::string printed(const bytes& descriptor, std::string_view prefix = "  ") {
    std::ostringstream out;
    print_security_descriptor(out, byte_view(descriptor), prefix);
    return out.str();
}

std::string mask_words(std::uint32_t mask) {
    std::string words = "before";
    ace_mask_words(mask, words);
    return words;
}

std::string type_word(std::uint8_t type) {
    std::string word = "before";
    ace_type_word(type, word);
    return word;
}

// The lines of an ACL that follows four bytes, so that its offset is not 0.
std::vector<std::string> lines_of(const bytes& list) {
    return acl_lines(byte_view(concat({bytes(4), list})), 4);
}
using texts = std::vector<std::string>;

TEST(ace_type_word, every_type_has_its_word) {
    EXPECT_EQ(type_word(0), "access allowed");
    EXPECT_EQ(type_word(1), "access denied");
    EXPECT_EQ(type_word(2), "system audit");
    EXPECT_EQ(type_word(3), "system alarm");
    EXPECT_EQ(type_word(4), "access allowed");
    EXPECT_EQ(type_word(5), "access allowed");
    EXPECT_EQ(type_word(6), "access denied");
    EXPECT_EQ(type_word(7), "system audit");
    EXPECT_EQ(type_word(8), "system alarm");
    for (unsigned type = 9; type < 256; ++type) {
        EXPECT_EQ(type_word(static_cast<std::uint8_t>(type)), "unknown");
    }
}

TEST(ace_mask_words, every_bit_has_its_word_or_none) {
    EXPECT_EQ(mask_words(0x80000000), "GENERIC_READ");
    EXPECT_EQ(mask_words(0x40000000), "GENERIC_WRITE");
    EXPECT_EQ(mask_words(0x20000000), "GENERIC_EXECUTE");
    EXPECT_EQ(mask_words(0x10000000), "GENERIC_ALL");
    EXPECT_EQ(mask_words(0x00010000), "DELETE");
    EXPECT_EQ(mask_words(0x00020000), "READ_CONTROL");
    EXPECT_EQ(mask_words(0x00040000), "WRITE_DAC");
    EXPECT_EQ(mask_words(0x00080000), "WRITE_OWNER");
    EXPECT_EQ(mask_words(0x00100000), "SYNCHRONIZE");
    EXPECT_EQ(mask_words(0x01000000), "ACCESS_SYSTEM_SECURITY");
    EXPECT_EQ(mask_words(0x02000000), "MAXIMUM_ALLOWED");
    EXPECT_EQ(mask_words(0x0CE0FFFF), "");
    EXPECT_EQ(mask_words(0), "");
}

TEST(ace_mask_words, words_come_in_one_order_with_bars_between_them) {
    EXPECT_EQ(
        mask_words(0xFFFFFFFF),
        "GENERIC_READ | GENERIC_WRITE | GENERIC_EXECUTE | GENERIC_ALL | DELETE | READ_CONTROL | WRITE_DAC | "
        "WRITE_OWNER | SYNCHRONIZE | ACCESS_SYSTEM_SECURITY | MAXIMUM_ALLOWED");
}

TEST(ace_mask_words, the_usual_mask_of_a_file_shows_five_words) {
    EXPECT_EQ(mask_words(0x001F01FF), "DELETE | READ_CONTROL | WRITE_DAC | WRITE_OWNER | SYNCHRONIZE");
}

TEST(security_descriptor_text, a_whole_descriptor_is_printed_part_by_part) {
    const bytes value =
        security_descriptor{
            .owner = local_system,
            .group = admins,
            .sacl = acl({ace(2, 0x00010000, sid(1, {0}))}),
            .dacl = acl({ace(0, 0x001F01FF, local_system), ace(0, 0x80000000, sid(5, {21, 1, 2, 3, 1001}))})}
            .build();
    EXPECT_EQ(
        printed(value),
        "  Security Identifiers\n"
        "  owner sid [S-1-5-18]\n"
        "  group sid [S-1-5-32-544]\n"
        "\n"
        "  System Access Control List\n"
        "  system audit    World           DELETE\n"
        "\n"
        "  Discretionary Access Control List\n"
        "  access allowed  Local System    DELETE | READ_CONTROL | WRITE_DAC | WRITE_OWNER | SYNCHRONIZE\n"
        "  access allowed  unk             GENERIC_READ\n");
}

TEST(security_descriptor_text, the_prefix_starts_every_line_but_the_empty_ones) {
    const bytes value =
        security_descriptor{.owner = local_system, .dacl = acl({ace(1, 0x00010000, sid(1, {0}))})}.build();
    EXPECT_EQ(printed(value, "> "),
              "> Security Identifiers\n"
              "> owner sid [S-1-5-18]\n"
              "\n"
              "> Discretionary Access Control List\n"
              "> access denied   World           DELETE\n");
}

TEST(security_descriptor_text, long_types_and_names_run_over_and_move_what_follows) {
    const bytes value =
        security_descriptor{.dacl = acl({ace(0, 0x00010000, sid(5, {32, 560})), ace(9, 0, sid(5, {9}))})}
            .build();
    EXPECT_EQ(printed(value, ""),
              "Security Identifiers\n"
              "\n"
              "Discretionary Access Control List\n"
              "access allowed  Windows Authorization Access Group DELETE\n"
              "unknown         Server Logon [Domain Controllers] \n");
}

TEST(security_descriptor_text, without_an_owner_the_group_has_all_bytes_available) {
    // 20 bytes of head and 36 of group.
    const bytes value = security_descriptor{.group = sid(5, {21, 1, 2, 3, 4, 5, 513})}.build();
    EXPECT_EQ(printed(value, ""), "Security Identifiers\ngroup sid [S-1-5-21-1-2-3-4-5-513]\n");
}

TEST(security_descriptor_text, an_owner_without_sub_authorities_at_the_end_is_shown) {
    EXPECT_EQ(printed(security_descriptor{.owner = sid(5, {})}.build(), ""),
              "Security Identifiers\nowner sid [S-1-5]\n");
}

TEST(security_descriptor_text, the_owners_length_is_taken_off_what_the_group_may_have) {
    // The group overlaps the owner: 20 + 36 bytes, of which the owner takes 36 and leaves too few.
    byte_writer value(20);
    value.u32(4, 20).u32(8, 20).raw(20, sid(5, {21, 1, 2, 3, 4, 5, 513}));
    EXPECT_EQ(printed(value.content(), ""),
              "Security Identifiers\nowner sid [S-1-5-21-1-2-3-4-5-513]\ngroup sid []\n");
}

TEST(security_descriptor_text, an_owner_that_claims_more_than_there_is_leaves_the_group_nothing) {
    byte_writer value(20);
    value.u32(4, 20).u32(8, 32).raw(20, local_system).raw(32, local_system);
    value.u8(21, 255);
    EXPECT_EQ(printed(value.content(), ""), "Security Identifiers\nowner sid []\ngroup sid []\n");
}

TEST(security_descriptor_text, parts_outside_leave_empty_brackets_and_no_lists) {
    byte_writer value(20);
    value.u32(4, 0xFFFFFFFF).u32(8, 20).u32(12, 0x7FFFFFFF).u32(16, 19);
    EXPECT_EQ(printed(value.content(), ""), "Security Identifiers\nowner sid []\ngroup sid []\n");
}

TEST(security_descriptor_text, a_descriptor_without_parts_is_only_its_heading) {
    EXPECT_EQ(printed(bytes(20), "  "), "  Security Identifiers\n");
    EXPECT_EQ(printed({}, "  "), "  Security Identifiers\n");
}

TEST(security_descriptor_text, a_list_with_a_count_of_0_prints_neither_its_heading_nor_the_empty_line) {
    const bytes value = security_descriptor{.owner = local_system, .sacl = acl({}), .dacl = acl({})}.build();
    EXPECT_EQ(printed(value, ""), "Security Identifiers\nowner sid [S-1-5-18]\n");
}

TEST(security_descriptor_text, the_stream_is_left_right_aligned) {
    std::ostringstream out;
    out << std::right << std::hex;
    const bytes value = security_descriptor{.dacl = acl({ace(0, 0x00010000, admins)})}.build();
    print_security_descriptor(out, byte_view(value), "");
    EXPECT_EQ(out.flags() & std::ios_base::adjustfield, std::ios_base::right);
}

TEST(security_descriptor_text, a_descriptor_cut_at_any_length_prints_what_is_there) {
    const bytes value =
        security_descriptor{.owner = local_system,
                            .group = admins,
                            .sacl = acl({ace(2, 0x00010000, sid(1, {0}))}),
                            .dacl = acl({ace(0, 0x001F01FF, local_system), ace(1, 0, admins)})}
            .build();
    const std::string whole = printed(value, "");
    for (std::size_t length = 0; length < value.size(); ++length) {
        const bytes cut(value.begin(), value.begin() + static_cast<std::ptrdiff_t>(length));
        const std::string text = printed(cut, "");
        EXPECT_EQ(text.substr(0, 21), "Security Identifiers\n");
        EXPECT_NE(text, whole) << length;
    }
}

TEST(acl_lines, lines_are_sorted_by_sid_and_type_not_the_order_of_the_acl) {
    EXPECT_EQ(
        lines_of(acl({ace(1, 0x00010000, admins), ace(0, 0x00020000, users), ace(0, 0x00040000, admins),
                      ace(0, 0x00080000, local_system)})),
        (texts{"access allowed  Local System    WRITE_OWNER", "access allowed  Admins          WRITE_DAC",
               "access denied   Admins          DELETE", "access allowed  Users           READ_CONTROL"}));
}

TEST(acl_lines, sids_are_compared_byte_by_byte_as_text) {
    // "S-1-5-18access allowed" sorts before "S-1-5-2access allowed".
    EXPECT_EQ(lines_of(acl({ace(0, 0, sid(5, {2})), ace(0, 0, sid(5, {18}))})),
              (texts{"access allowed  Local System    ", "access allowed  Network         "}));
}

TEST(acl_lines, two_entries_of_one_sid_and_one_word_join_their_masks) {
    EXPECT_EQ(lines_of(acl({ace(0, 0x00010000, admins), ace(5, 0x00030000, admins)})),
              texts{"access allowed  Admins          DELETE | DELETE | READ_CONTROL"});
}

TEST(acl_lines, a_mask_without_words_joins_as_a_mere_bar) {
    EXPECT_EQ(lines_of(acl({ace(0, 0x1FF, admins), ace(0, 0x00010000, admins), ace(0, 0x1FF, admins)})),
              texts{"access allowed  Admins           | DELETE | "});
}

TEST(acl_lines, an_object_entry_is_read_with_the_layout_of_every_other) {
    // Flags 0 where the SID of the plain layout would be: no sub-authorities, so no text and no name.
    const bytes object_entry = concat({byte_writer(4).take(), bytes(16, 0xAB), admins});
    EXPECT_EQ(lines_of(acl({ace(5, 0x00010000, object_entry)})),
              texts{"access allowed  unk             DELETE"});
}

TEST(acl_lines, an_offset_of_0_or_outside_gives_no_lines) {
    const bytes list = acl({ace(0, 0x00010000, admins)});
    EXPECT_EQ(acl_lines(byte_view(list), 0), texts{});
    EXPECT_EQ(acl_lines(byte_view(list), static_cast<std::uint32_t>(list.size())), texts{});
    EXPECT_EQ(acl_lines(byte_view(list), 0xFFFFFFFF), texts{});
}

TEST(acl_lines, a_count_that_lies_ends_with_the_bytes) {
    EXPECT_EQ(lines_of(acl({ace(0, 0x00010000, admins)}, 65535)),
              texts{"access allowed  Admins          DELETE"});
    EXPECT_EQ(lines_of(acl({}, 65535)), texts{});
}

TEST(acl_lines, a_count_below_the_entries_leaves_the_others_out) {
    EXPECT_EQ(lines_of(acl({ace(0, 0x00010000, admins), ace(0, 0x00010000, users)}, 1)),
              texts{"access allowed  Admins          DELETE"});
}

TEST(acl_lines, an_entry_of_fewer_than_8_bytes_ends_its_list) {
    for (const std::uint16_t size : std::vector<std::uint16_t>{0, 1, 7}) {
        EXPECT_EQ(lines_of(acl({ace(0, 0x00010000, admins), ace(0, 0x00020000, users, size),
                                ace(0, 0x00040000, local_system)})),
                  texts{"access allowed  Admins          DELETE"})
            << size;
    }
}

TEST(acl_lines, an_entry_of_8_bytes_has_no_sid) {
    EXPECT_EQ(lines_of(acl({ace(0, 0x00010000, {}), ace(0, 0x00020000, {})})),
              texts{"access allowed  unk             DELETE | READ_CONTROL"});
}

TEST(acl_lines, an_entry_longer_than_the_bytes_is_the_last) {
    EXPECT_EQ(lines_of(acl({ace(0, 0x00010000, admins, 65535), ace(0, 0x00020000, users)})),
              texts{"access allowed  Admins          DELETE"});
}

TEST(acl_lines, a_sid_that_is_longer_than_its_entry_has_no_text) {
    bytes liar = admins;
    liar[1] = 3;
    EXPECT_EQ(
        lines_of(acl({ace(0, 0x00010000, liar), ace(0, 0x00020000, users)})),
        (texts{"access allowed  Users           READ_CONTROL", "access allowed  unk             DELETE"}));
}

TEST(acl_lines, entries_of_all_types_of_one_sid_are_sorted_by_type_word) {
    EXPECT_EQ(lines_of(acl({ace(9, 0, admins), ace(3, 0, admins), ace(2, 0, admins), ace(1, 0, admins),
                            ace(0, 0, admins)})),
              (texts{"access allowed  Admins          ", "access denied   Admins          ",
                     "system alarm    Admins          ", "system audit    Admins          ",
                     "unknown         Admins          "}));
}

}  // namespace
}  // namespace quarry
