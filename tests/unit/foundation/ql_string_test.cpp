#include "foundation/ql_string.h"

#include <random>
#include <sstream>

#include <gtest/gtest.h>

namespace quarry {
namespace {

using bytes = std::vector<std::uint8_t>;
using units = std::vector<std::uint16_t>;

// Units as they lie on disk.
bytes on_disk(const units& numbers) {
    bytes out;
    for (const std::uint16_t unit : numbers) {
        out.push_back(static_cast<std::uint8_t>(unit & 0xFF));
        out.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    return out;
}

const units grinning_face = {0xD83D, 0xDE00};  // U+1F600

TEST(utf16_to_utf8, a_code_point_takes_one_to_four_bytes_by_its_size) {
    const struct {
        units m_units;
        std::string m_text;
    } cases[] = {
        {{0x0001}, "\x01"},
        {{0x007F}, "\x7F"},
        {{0x0080}, "\xC2\x80"},
        {{0x07FF}, "\xDF\xBF"},
        {{0x0800}, "\xE0\xA0\x80"},
        {{0xFFFF}, "\xEF\xBF\xBF"},
        {{0xD800, 0xDC00}, "\xF0\x90\x80\x80"},
        {grinning_face, "\xF0\x9F\x98\x80"},
        {{0xDBFF, 0xDFFF}, "\xF4\x8F\xBF\xBF"},
    };
    for (const auto& example : cases) {
        std::string out = "old";
        EXPECT_TRUE(utf16_to_utf8(out, on_disk(example.m_units)));
        EXPECT_EQ(out, example.m_text);
    }
}

TEST(utf16_to_utf8, fewer_than_two_bytes_are_a_failure_that_does_not_change_the_output) {
    std::string out = "old";
    EXPECT_FALSE(utf16_to_utf8(out, byte_view()));
    EXPECT_EQ(out, "old");
    EXPECT_FALSE(utf16_to_utf8(out, bytes{'A'}));
    EXPECT_EQ(out, "old");
}

TEST(utf16_to_utf8, an_odd_last_byte_is_left_out) {
    std::string out;
    EXPECT_TRUE(utf16_to_utf8(out, bytes{'A', 0, 'B', 0, 'C'}));
    EXPECT_EQ(out, "AB");
}

TEST(utf16_to_utf8, a_high_surrogate_without_a_low_one_fails_with_what_came_before_it) {
    std::string out;
    EXPECT_FALSE(utf16_to_utf8(out, on_disk({'A', 0xD800})));
    EXPECT_EQ(out, "A");
    EXPECT_FALSE(utf16_to_utf8(out, on_disk({'B', 0xDBFF, 'C'})));
    EXPECT_EQ(out, "B");
    EXPECT_FALSE(utf16_to_utf8(out, on_disk({0xD83D, 0xD83D, 0xDE00})));
    EXPECT_EQ(out, "");
}

TEST(utf16_to_utf8, the_units_next_to_the_low_surrogates_are_none) {
    for (const std::uint16_t neighbour : units{0xDBFF, 0xE000}) {
        std::string out;
        EXPECT_FALSE(utf16_to_utf8(out, on_disk({0xD83D, neighbour}))) << neighbour;
    }
}

TEST(utf16_to_utf8, the_units_next_to_the_high_surrogates_are_code_points_of_their_own) {
    std::string out;
    EXPECT_TRUE(utf16_to_utf8(out, on_disk({0xD7FF, 0xDC00, 0xE000})));
    EXPECT_EQ(out, "\xED\x9F\xBF\xED\xB0\x80\xEE\x80\x80");
}

TEST(utf16_to_utf8, a_lone_low_surrogate_is_a_code_point_of_its_own) {
    std::string out;
    EXPECT_TRUE(utf16_to_utf8(out, on_disk({'A', 0xDC00, 0xDFFF})));
    EXPECT_EQ(out, "A\xED\xB0\x80\xED\xBF\xBF");
}

TEST(utf16_to_utf8, a_zero_unit_is_text_like_any_other) {
    std::string out;
    EXPECT_TRUE(utf16_to_utf8(out, on_disk({'A', 0, 'B'})));
    EXPECT_EQ(out, std::string("A\0B", 3));
}

TEST(utf8_to_wide, a_sequence_of_one_to_four_bytes_is_one_element) {
    std::wstring out;
    EXPECT_TRUE(utf8_to_wide(out, "A\xC3\x84\xE2\x82\xAC\xF0\x9F\x98\x80"));
    EXPECT_EQ(out, (std::wstring{0x41, 0xC4, 0x20AC, 0x1F600}));
}

TEST(utf8_to_wide, empty_text_is_a_failure) {
    std::wstring out = L"old";
    EXPECT_FALSE(utf8_to_wide(out, ""));
    EXPECT_EQ(out, L"");
}

TEST(utf8_to_wide, bytes_that_begin_no_sequence_end_the_text_with_a_failure) {
    for (const char* text : {"A\x80", "A\xBF", "A\xF8\x80\x80\x80\x80", "A\xFE", "A\xFF"}) {
        std::wstring out;
        EXPECT_FALSE(utf8_to_wide(out, text));
        EXPECT_EQ(out, L"A");
    }
}

TEST(utf8_to_wide, a_sequence_cut_at_any_length_is_a_failure) {
    for (const std::string whole : {"\xC3\x84", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
        for (std::size_t length = 1; length < whole.size(); ++length) {
            std::wstring out;
            EXPECT_FALSE(utf8_to_wide(out, "A" + whole.substr(0, length)));
            EXPECT_EQ(out, L"A");
            EXPECT_FALSE(utf8_to_wide(out, "A" + whole.substr(0, length) + "BBBB"));
            EXPECT_EQ(out, L"A");
        }
    }
}

TEST(utf8_to_wide, overlong_forms_surrogates_and_values_above_unicode_are_taken_by_their_value) {
    std::wstring out;
    EXPECT_TRUE(utf8_to_wide(out, "\xC1\x81\xE0\x80\xAF\xED\xA0\x80\xF7\xBF\xBF\xBF"));
    EXPECT_EQ(out, (std::wstring{0x41, 0x2F, 0xD800, 0x1FFFFF}));
}

TEST(wide_to_utf8, the_answer_is_false_also_when_all_went_well) {
    std::string out = "old";
    EXPECT_FALSE(wide_to_utf8(out, L""));
    EXPECT_EQ(out, "");
    EXPECT_FALSE(wide_to_utf8(out, L"A\x00C4\x20AC\x0001F600"));
    EXPECT_EQ(out, "A\xC3\x84\xE2\x82\xAC\xF0\x9F\x98\x80");
}

TEST(wide_to_utf8, the_text_stops_at_an_element_above_unicode_without_a_report) {
    std::string out;
    EXPECT_FALSE(wide_to_utf8(out, std::wstring{'A', 0x10FFFF, 0x110000, 'B'}));
    EXPECT_EQ(out, "A\xF4\x8F\xBF\xBF");
    EXPECT_EQ(narrow(std::wstring{'A', 0x110000, 'B'}), "A");
    EXPECT_EQ(narrow(std::wstring{'A', static_cast<wchar_t>(-1), 'B'}), "A");
}

TEST(widen, text_that_is_not_utf8_is_empty_where_the_conversion_itself_keeps_a_part) {
    std::wstring part;
    EXPECT_FALSE(utf8_to_wide(part, "\x41\xFF"));
    EXPECT_EQ(part, L"A");
    EXPECT_EQ(widen("\x41\xFF"), L"");
    EXPECT_EQ(widen(""), L"");
    EXPECT_EQ(widen("A\xC3\x84"), (std::wstring{0x41, 0xC4}));
}

TEST(narrow, surrogates_are_written_by_their_value) {
    EXPECT_EQ(narrow(std::wstring{0xD800, 0xDFFF}), "\xED\xA0\x80\xED\xBF\xBF");
    EXPECT_EQ(narrow(L""), "");
}

TEST(read_utf16_wide, a_surrogate_pair_becomes_one_element_and_four_bytes) {
    std::wstring out = L"old";
    EXPECT_EQ(read_utf16_wide(out, on_disk(grinning_face), 4), 4u);
    EXPECT_EQ(out, (std::wstring{0x1F600}));
    EXPECT_EQ(narrow(out), "\xF0\x9F\x98\x80");
}

TEST(read_utf16_wide, a_name_with_a_lone_high_surrogate_becomes_one_element_for_each_unit) {
    std::wstring out;
    EXPECT_EQ(read_utf16_wide(out, on_disk({0x0041, 0xD800, 0x0042}), 6), 6u);
    EXPECT_EQ(out, (std::wstring{0x41, 0xD800, 0x42}));
    EXPECT_EQ(narrow(out), "A\xED\xA0\x80\x42");
}

TEST(read_utf16_wide, the_fall_back_takes_good_pairs_of_a_damaged_name_apart_too) {
    std::wstring out;
    EXPECT_EQ(read_utf16_wide(out, on_disk({0xD83D, 0xDE00, 0xD800}), 6), 6u);
    EXPECT_EQ(out, (std::wstring{0xD83D, 0xDE00, 0xD800}));
}

TEST(read_utf16_wide, a_lone_low_surrogate_converts_without_the_fall_back) {
    std::wstring out;
    EXPECT_EQ(read_utf16_wide(out, on_disk({0x0041, 0xDC00, 0xD83D, 0xDE00}), 8), 8u);
    EXPECT_EQ(out, (std::wstring{0x41, 0xDC00, 0x1F600}));
}

TEST(read_utf16_wide, text_of_unknown_length_ends_after_500_units) {
    std::wstring out;
    EXPECT_EQ(read_utf16_wide(out, on_disk(units(600, 'x')), terminated_text), 1000u);
    EXPECT_EQ(out, std::wstring(500, L'x'));
}

TEST(read_utf16_wide, text_of_unknown_length_ends_at_a_zero_unit_and_with_its_buffer) {
    std::wstring out;
    EXPECT_EQ(read_utf16_wide(out, on_disk({'a', 'b', 0, 'c'}), terminated_text), 4u);
    EXPECT_EQ(out, L"ab");
    EXPECT_EQ(read_utf16_wide(out, on_disk({'a', 'b', 'c'}), terminated_text), 6u);
    EXPECT_EQ(out, L"abc");
}

TEST(read_utf16_wide, a_name_is_cut_at_an_embedded_zero_unit) {
    std::wstring out;
    EXPECT_EQ(read_utf16_wide(out, on_disk({'a', 0, 0xD800}), 6), 2u);
    EXPECT_EQ(out, L"a");
    EXPECT_EQ(read_utf16_wide(out, on_disk({0, 'a'}), 4), 0u);
    EXPECT_EQ(out, L"");
}

TEST(read_utf16_wide, an_odd_byte_length_leaves_the_last_byte_out) {
    std::wstring out;
    EXPECT_EQ(read_utf16_wide(out, on_disk({'a', 'b', 'c'}), 5), 4u);
    EXPECT_EQ(out, L"ab");
    EXPECT_EQ(read_utf16_wide(out, on_disk({'a'}), 1), 0u);
    EXPECT_EQ(out, L"");
}

TEST(read_utf16_wide, no_bytes_and_no_length_read_nothing) {
    std::wstring out = L"old";
    EXPECT_EQ(read_utf16_wide(out, byte_view(), 10), 0u);
    EXPECT_EQ(out, L"");
    out = L"old";
    EXPECT_EQ(read_utf16_wide(out, on_disk({'a'}), 0), 0u);
    EXPECT_EQ(out, L"");
    EXPECT_EQ(read_utf16_wide(out, on_disk({'a'}), -2), 0u);
    EXPECT_EQ(out, L"");
}

TEST(read_utf16_wide, a_length_beyond_the_bytes_reads_what_there_is) {
    const bytes name = on_disk({'a', 0xD83D, 0xDE00});
    const std::size_t read_at_length[] = {0, 0, 2, 2, 4, 4, 6};
    for (std::size_t length = 0; length <= name.size(); ++length) {
        std::wstring out;
        EXPECT_EQ(read_utf16_wide(out, byte_view(name.data(), length), 510), read_at_length[length])
            << length;
    }
}

TEST(read_utf16_wide, the_longest_name_of_255_units_is_read_whole) {
    std::wstring out;
    EXPECT_EQ(read_utf16_wide(out, on_disk(units(255, 0x0416)), 510), 510u);
    EXPECT_EQ(out, std::wstring(255, wchar_t{0x0416}));
}

TEST(read_utf16_wide, the_direct_way_gives_what_the_way_over_utf8_gives) {
    std::mt19937 random(61);  // NOLINT: the same names in every run
    const std::uint16_t interesting[] = {'a',    0x7F,   0x80,   0x7FF,  0x800,  0xD7FF,
                                         0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0xE000, 0xFFFF};
    for (int round = 0; round < 20000; ++round) {
        units name(1 + random() % 6);
        for (std::uint16_t& unit : name) {
            unit = interesting[random() % std::size(interesting)];
        }
        std::string utf8;
        std::wstring expected;
        if (!utf16_to_utf8(utf8, on_disk(name)) || !utf8_to_wide(expected, utf8)) {
            expected.assign(name.begin(), name.end());
        }
        std::wstring out;
        EXPECT_EQ(read_utf16_wide(out, on_disk(name), 12), 2 * name.size());
        ASSERT_EQ(out, expected);
    }
}

TEST(read_utf16_narrow, a_name_on_disk_becomes_utf8) {
    std::string out = "old";
    EXPECT_EQ(read_utf16_narrow(out, on_disk({0x00C4, 0xD83D, 0xDE00, 'x'}), 8, false), 8u);
    EXPECT_EQ(out, "\xC3\x84\xF0\x9F\x98\x80x");
    EXPECT_EQ(read_utf16_narrow(out, byte_view(), 8, true), 0u);
    EXPECT_EQ(out, "");
}

TEST(read_utf16_narrow, two_bytes_for_the_terminator_count_only_where_the_length_has_room_for_them) {
    const bytes name = on_disk({'a', 'b', 0, 0});
    std::string out;
    EXPECT_EQ(read_utf16_narrow(out, name, 8, true), 6u);
    EXPECT_EQ(read_utf16_narrow(out, name, 6, true), 6u);
    EXPECT_EQ(read_utf16_narrow(out, name, 5, true), 4u);
    EXPECT_EQ(read_utf16_narrow(out, name, 4, true), 4u);
    EXPECT_EQ(read_utf16_narrow(out, name, 8, false), 4u);
    EXPECT_EQ(read_utf16_narrow(out, name, terminated_text, true), 4u);
    EXPECT_EQ(read_utf16_narrow(out, on_disk({0, 0, 0}), 6, true), 0u);
}

TEST(utf16_units_to_wide, units_become_wide_text_by_the_rules_for_names_on_disk) {
    std::wstring out;
    EXPECT_TRUE(utf16_units_to_wide(out, grinning_face));
    EXPECT_EQ(out, (std::wstring{0x1F600}));
    EXPECT_TRUE(utf16_units_to_wide(out, {'A', 0xD800, 'B'}));
    EXPECT_EQ(out, (std::wstring{0x41, 0xD800, 0x42}));
    EXPECT_TRUE(utf16_units_to_wide(out, {'A', 0, 'B'}));
    EXPECT_EQ(out, L"A");
}

TEST(utf16_units_to_wide, an_empty_result_is_a_failure) {
    std::wstring out = L"old";
    EXPECT_FALSE(utf16_units_to_wide(out, {}));
    EXPECT_EQ(out, L"");
    out = L"old";
    EXPECT_FALSE(utf16_units_to_wide(out, {0, 'A'}));
    EXPECT_EQ(out, L"");
}

TEST(widen_all, a_list_is_converted_element_by_element) {
    std::vector<std::wstring> wide = {L"old"};
    EXPECT_TRUE(widen_all(wide, {"a", "\xC3\x84", "\xFF", ""}));
    EXPECT_EQ(wide, (std::vector<std::wstring>{L"a", L"\x00C4", L"", L""}));
    EXPECT_FALSE(widen_all(wide, {}));
    EXPECT_TRUE(wide.empty());
}

TEST(narrow_all, a_list_is_converted_element_by_element) {
    std::vector<std::string> texts = {"old"};
    EXPECT_TRUE(narrow_all(texts, {L"a", L"\x00C4", L""}));
    EXPECT_EQ(texts, (std::vector<std::string>{"a", "\xC3\x84", ""}));
    EXPECT_FALSE(narrow_all(texts, {}));
    EXPECT_TRUE(texts.empty());
}

TEST(widen_bytes, each_byte_is_sign_extended_to_one_element) {
    EXPECT_EQ(widen_bytes("A\x7F\x80\xFF"), (std::wstring{0x41, 0x7F, -128, -1}));
    EXPECT_EQ(widen_bytes(""), L"");
}

TEST(letter_case, wide_folding_covers_only_a_to_z) {
    std::wstring text = L"@AZ[`az{\x00C4\x00E4\x0416\x212A";
    lower_wide(text);
    EXPECT_EQ(text, L"@az[`az{\x00C4\x00E4\x0416\x212A");
    std::wstring left = L"\x00C4.TXT";
    std::wstring right = L"\x00E4.txt";
    EXPECT_FALSE(equal_ignore_case(left, right));
}

TEST(letter_case, narrow_folding_covers_only_a_to_z_and_back) {
    std::string text = "@AZ[`az{\xC3\x84\xC4";
    lower_narrow(text);
    EXPECT_EQ(text, "@az[`az{\xC3\x84\xC4");
    upper_narrow(text);
    EXPECT_EQ(text, "@AZ[`AZ{\xC3\x84\xC4");
}

TEST(compare_text, null_equals_null_and_comes_before_any_text) {
    for (const bool ignore_case : {false, true}) {
        EXPECT_EQ(compare_text(nullptr, nullptr, ignore_case), 0);
        EXPECT_EQ(compare_text(nullptr, "", ignore_case), -1);
        EXPECT_EQ(compare_text("", nullptr, ignore_case), 1);
    }
}

TEST(compare_text, the_flag_decides_whether_case_counts) {
    EXPECT_EQ(compare_text("abc", "abc", false), 0);
    EXPECT_GT(compare_text("abc", "ABC", false), 0);
    EXPECT_LT(compare_text("ABC", "abc", false), 0);
    EXPECT_EQ(compare_text("abC", "ABc", true), 0);
    EXPECT_LT(compare_text("abc", "ABD", true), 0);
    EXPECT_GT(compare_text("abcd", "ABC", true), 0);
}

TEST(compare_text, ignoring_case_folds_ascii_letters_only) {
    EXPECT_NE(compare_text("\xC3\x84", "\xC3\xA4", true), 0);
}

TEST(equal_ignore_case, both_texts_are_lowered_and_stay_so) {
    std::string left = "ReadMe";
    std::string right = "rEADmE";
    EXPECT_TRUE(equal_ignore_case(left, right));
    EXPECT_EQ(left, "readme");
    EXPECT_EQ(right, "readme");
    std::wstring wide_left = L"AB";
    std::wstring wide_right = L"aC";
    EXPECT_FALSE(equal_ignore_case(wide_left, wide_right));
    EXPECT_EQ(wide_left, L"ab");
    EXPECT_EQ(wide_right, L"ac");
}

TEST(equal_ignore_case, texts_of_different_length_are_unequal_and_keep_their_case) {
    std::string left = "AB";
    std::string right = "ABC";
    EXPECT_FALSE(equal_ignore_case(left, right));
    EXPECT_EQ(left, "AB");
    EXPECT_EQ(right, "ABC");
    std::wstring wide_left = L"AB";
    std::wstring wide_right = L"A";
    EXPECT_FALSE(equal_ignore_case(wide_left, wide_right));
    EXPECT_EQ(wide_left, L"AB");
}

const bytes guid = {0x33, 0x22, 0x11, 0x00, 0x55, 0x44, 0x77, 0x66,
                    0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};

TEST(format_guid, the_first_three_fields_are_little_endian_numbers_and_the_rest_bytes_in_order) {
    std::string out;
    EXPECT_TRUE(format_guid(out, guid));
    EXPECT_EQ(out, "00112233-4455-6677-8899-aabbccddeeff");
}

TEST(format_guid, fewer_than_sixteen_bytes_are_a_failure_with_empty_text) {
    for (std::size_t length = 0; length < 16; ++length) {
        std::string out = "old";
        EXPECT_FALSE(format_guid(out, byte_view(guid.data(), length))) << length;
        EXPECT_EQ(out, "");
    }
}

TEST(format_guid, a_stream_prints_it_in_braces) {
    std::ostringstream stream;
    stream << guid_record{byte_view(guid)};
    EXPECT_EQ(stream.str(), "{ 00112233-4455-6677-8899-aabbccddeeff }");
    EXPECT_EQ(guid_in_braces(byte_view(guid)), "{ 00112233-4455-6677-8899-aabbccddeeff }");
    EXPECT_EQ(guid_in_braces(byte_view(guid).clipped(0, 15)), "{  }")
        << "a GUID that is cut off is shown empty";
}

}  // namespace
}  // namespace quarry
