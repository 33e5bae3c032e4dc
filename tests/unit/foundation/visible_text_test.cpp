#include "foundation/visible_text.h"

#include <string>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

TEST(visible_text, leaves_ordinary_text_as_it_is) {
    EXPECT_EQ(visible_text(""), "");
    EXPECT_EQ(visible_text(" letter to all.txt~"), " letter to all.txt~");
    // A backslash is no start of anything, so a name that spells an escape is shown as it is.
    EXPECT_EQ(visible_text("C:\\u000Anew"), "C:\\u000Anew");
    // o with diaeresis, the Euro sign, an emoji of four bytes, Hebrew and Arabic letters.
    const std::string far = "\xC3\xB6 \xE2\x82\xAC \xF0\x9F\x98\x80 \xD7\x90 \xD8\xA7";
    EXPECT_EQ(visible_text(far), far);
}

TEST(visible_text, shows_every_control_character_by_its_number) {
    EXPECT_EQ(visible_text(std::string("a\0b", 3)), "a\\u0000b");
    EXPECT_EQ(visible_text("a\nb\r\tc"), "a\\u000Ab\\u000D\\u0009c");
    EXPECT_EQ(visible_text("\x1b[2J"), "\\u001B[2J");
    EXPECT_EQ(visible_text("\x1F \x7E\x7F"), "\\u001F ~\\u007F");
    EXPECT_EQ(visible_text("\xC2\x80|\xC2\x85|\xC2\x9B|\xC2\x9F"), "\\u0080|\\u0085|\\u009B|\\u009F");
    // U+00A0 is the first that is none.
    EXPECT_EQ(visible_text("\xC2\xA0"), "\xC2\xA0");
}

TEST(visible_text, shows_every_bidirectional_control_by_its_number) {
    EXPECT_EQ(visible_text("\xD8\x9C|\xE2\x80\x8E|\xE2\x80\x8F"), "\\u061C|\\u200E|\\u200F");
    EXPECT_EQ(visible_text("\xE2\x80\xAA|\xE2\x80\xAB|\xE2\x80\xAC|\xE2\x80\xAD|\xE2\x80\xAE"),
              "\\u202A|\\u202B|\\u202C|\\u202D|\\u202E");
    EXPECT_EQ(visible_text("\xE2\x81\xA6|\xE2\x81\xA7|\xE2\x81\xA8|\xE2\x81\xA9"),
              "\\u2066|\\u2067|\\u2068|\\u2069");
    EXPECT_EQ(visible_text("invoice\xE2\x80\xAE"
                           "fdp.exe"),
              "invoice\\u202Efdp.exe");
}

TEST(visible_text, leaves_the_neighbours_of_bidirectional_controls_as_they_are) {
    // U+061B, U+061D, U+200D, U+2010, U+2029, U+202F, U+2065, U+206A.
    for (const std::string text : {"\xD8\x9B", "\xD8\x9D", "\xE2\x80\x8D", "\xE2\x80\x90", "\xE2\x80\xA9",
                                   "\xE2\x80\xAF", "\xE2\x81\xA5", "\xE2\x81\xAA"}) {
        EXPECT_EQ(visible_text(text), text);
    }
}

TEST(visible_text, leaves_bytes_that_are_no_utf8_as_they_are) {
    // Continuation bytes without a start, sequences that are cut, and a start before ordinary text.
    for (const std::string text : {"\x9B",
                                   "\x85"
                                   "a",
                                   "\xC2", "\xC2z", "\xE2\x80", "\xE2", "\xE2z\xAE", "\xD8", "\xFF"}) {
        EXPECT_EQ(visible_text(text), text);
    }
    // What follows a cut sequence is looked at all the same.
    EXPECT_EQ(visible_text("\xE2\x80\n"), "\xE2\x80\\u000A");
    EXPECT_EQ(visible_text("\xC2\n"), "\xC2\\u000A");
}

}  // namespace
}  // namespace quarry::test
