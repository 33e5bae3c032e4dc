#include "exact/name_text.h"

#include <array>

#include <gtest/gtest.h>

namespace quarry::test {

using namespace quarry::exact;

TEST(name_text, shows_plain_names_as_they_are) {
    EXPECT_EQ(shown_name(u"letter.txt"), "letter.txt");
    EXPECT_EQ(shown_name(u"Übung €"), "Übung €");
    EXPECT_EQ(shown_name(u"\xD83D\xDE00"), "\xF0\x9F\x98\x80");
}

TEST(name_text, escapes_what_separates) {
    EXPECT_EQ(shown_name(u"a\\b:c/d"), "a\\\\b\\:c\\u002Fd");
}

TEST(name_text, escapes_what_acts_on_a_terminal) {
    EXPECT_EQ(shown_name(u"a\nb\x1B[m"), "a\\u000Ab\\u001B[m");
    EXPECT_EQ(shown_name(u"\x7F\x80\x9F\xA0"), "\\u007F\\u0080\\u009F\xC2\xA0");
    EXPECT_EQ(shown_name(u"\x202E"), "\\u202E");
}

TEST(name_text, escapes_what_ends_a_line_turns_it_or_has_no_width) {
    EXPECT_EQ(shown_name(u"a\x2028z\x2029"), "a\\u2028z\\u2029");
    EXPECT_EQ(shown_name(u"\x200B\x200C\x200D\x200E\x200F"), "\\u200B\\u200C\\u200D\\u200E\\u200F");
    EXPECT_EQ(shown_name(u"\x202A\x202E\x2066\x2069\xFEFF"), "\\u202A\\u202E\\u2066\\u2069\\uFEFF");
    // Their neighbours are characters like any other.
    EXPECT_EQ(shown_name(u"\x200A\x2010\x2027\x202F\xFF01"), "\u200A\u2010\u2027\u202F\uFF01");
    EXPECT_EQ(shown_typed("a\u2028\u200B\uFEFF"), "a\\u2028\\u200B\\uFEFF");
}

TEST(name_text, escapes_surrogates_without_a_partner) {
    EXPECT_EQ(shown_name(u"\xD800"), "\\uD800");
    EXPECT_EQ(shown_name(u"\xDC00\xD800"), "\\uDC00\\uD800");
    EXPECT_EQ(shown_name(u"\xD800x"), "\\uD800x");
}

TEST(name_text, reads_utf8_of_every_length) {
    EXPECT_EQ(units_of_utf8("aß€\xF0\x9F\x98\x80"), u"aß€\xD83D\xDE00");
    EXPECT_EQ(units_of_utf8(""), u"");
    EXPECT_EQ(units_of_utf8("\x7F\xC2\x80"), u"\x7F\x80");
    EXPECT_EQ(units_of_utf8("\xF4\x8F\xBF\xBF"), u"\xDBFF\xDFFF");
}

TEST(name_text, refuses_what_is_not_utf8) {
    for (const char* text : {"\x80", "\xC1\x81", "\xC3", "\xE0\x80\x80", "\xED\xA0\x80", "\xF0\x80\x80\x80",
                             "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "\xC3x", "\xE2\x82"}) {
        EXPECT_FALSE(units_of_utf8(text).has_value()) << text;
    }
}

TEST(name_text, takes_little_endian_units_and_no_odd_byte) {
    const std::array<std::uint8_t, 5> bytes{0x61, 0x00, 0xAC, 0x20, 0x62};
    EXPECT_EQ(units_of_bytes(byte_view(bytes)), u"a€");
}

TEST(name_text, shows_typed_text_without_what_acts) {
    EXPECT_EQ(shown_typed("/a\\b:c"), "/a\\b:c");
    EXPECT_EQ(shown_typed("a\x1B\xFFz"), "a\\u001B\\xFFz");
}

}  // namespace quarry::test
