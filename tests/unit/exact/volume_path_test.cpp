#include "exact/volume_path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {

using namespace quarry::exact;

namespace {

using names = std::vector<std::u16string>;
using testing::EndsWith;

volume_path parsed(std::string_view text) {
    auto path = parse_volume_path(text);
    EXPECT_TRUE(path.has_value()) << text << ": " << (path ? "" : path.error().text());
    return path ? *path : volume_path{};
}

std::string refusal(std::string_view text) {
    const auto path = parse_volume_path(text);
    EXPECT_FALSE(path.has_value()) << text;
    return path ? "" : path.error().text();
}

}  // namespace

TEST(volume_path, in_canonical_form_is_separated_by_slashes) {
    EXPECT_EQ(parsed("/Documents/letter.txt").names, (names{u"Documents", u"letter.txt"}));
    EXPECT_EQ(parsed("Documents/letter.txt").names, (names{u"Documents", u"letter.txt"}));
    EXPECT_EQ(parsed("/a.txt").names, names{u"a.txt"});
}

TEST(volume_path, without_a_slash_is_in_windows_form) {
    EXPECT_EQ(parsed("\\Documents\\letter.txt").names, (names{u"Documents", u"letter.txt"}));
    EXPECT_EQ(parsed("Documents\\u0041.txt").names, (names{u"Documents", u"u0041.txt"}));
    EXPECT_EQ(parsed("a.txt").names, names{u"a.txt"});
}

TEST(volume_path, names_the_root_by_a_separator_alone) {
    EXPECT_TRUE(parsed("/").names.empty());
    EXPECT_TRUE(parsed("\\").names.empty());
    EXPECT_TRUE(parsed("C:\\").names.empty());
}

TEST(volume_path, passes_over_a_drive_letter_that_a_separator_follows) {
    const volume_path windows = parsed("C:\\a\\b");
    EXPECT_EQ(windows.names, (names{u"a", u"b"}));
    EXPECT_EQ(windows.prefix, "C:");
    EXPECT_EQ(parsed("x:/a").names, names{u"a"});
    EXPECT_EQ(parsed("a.txt").prefix, "");
    EXPECT_EQ(parsed("1:/a").names, (names{u"1:", u"a"}));
}

TEST(volume_path, takes_escapes_in_canonical_form) {
    EXPECT_EQ(parsed("/a\\\\b").names, names{u"a\\b"});
    EXPECT_EQ(parsed("/a\\:b").names, names{u"a:b"});
    EXPECT_EQ(parsed("/\\u0041\\ud800\\u002F").names, names{u"A\xD800/"});
    EXPECT_EQ(refusal("/a\\b"),
              "path \"/a\\b\": after a backslash comes \\, : or uXXXX; write \\\\ for a backslash, / between "
              "names");
    EXPECT_EQ(
        refusal("/a\\"),
        "path \"/a\\\": after a backslash comes \\, : or uXXXX; write \\\\ for a backslash, / between names");
    EXPECT_EQ(refusal("/\\u12"), "path \"/\\u12\": \\u is followed by four hexadecimal digits");
    EXPECT_EQ(refusal("/\\u12g4"), "path \"/\\u12g4\": \\u is followed by four hexadecimal digits");
}

TEST(volume_path, begins_a_stream_at_the_first_colon_of_the_last_name) {
    EXPECT_EQ(parsed("/a.txt:draft").stream, (stream_name{attr_data, u"draft"}));
    EXPECT_EQ(parsed("\\a.txt:draft").stream, (stream_name{attr_data, u"draft"}));
    EXPECT_EQ(parsed("/a:b/c").names, (names{u"a:b", u"c"}));
    EXPECT_EQ(parsed("/a\\:b:c\\:d").stream, (stream_name{attr_data, u"c:d"}));
    EXPECT_EQ(parsed("/a.txt").stream, (stream_name{attr_data, u""}));
}

TEST(volume_path, may_name_the_type_of_a_stream) {
    EXPECT_EQ(parsed("/a:$I30:$INDEX_ALLOCATION").stream, (stream_name{0xA0, u"$I30"}));
    EXPECT_EQ(parsed("/a::$data").stream, (stream_name{0x80, u""}));
    EXPECT_EQ(parsed("/a:$EFS:$LOGGED_UTILITY_STREAM").stream, (stream_name{0x100, u"$EFS"}));
    EXPECT_EQ(refusal("/a::$DAT"), "path \"/a::$DAT\": \"$DAT\" is no attribute type");
    EXPECT_EQ(refusal("/a::"), "path \"/a::\": \"\" is no attribute type");
    EXPECT_EQ(refusal("/a:"), "path \"/a:\": the stream has no name; ::$DATA is the unnamed one");
    EXPECT_EQ(refusal("/a:b:$DATA:c"),
              "path \"/a:b:$DATA:c\": a name, a stream and a type have two colons between them at most");
}

TEST(volume_path, may_name_a_stream_of_the_root) {
    const volume_path path = parsed("/:$I30:$INDEX_ROOT");
    EXPECT_TRUE(path.names.empty());
    EXPECT_EQ(path.stream, (stream_name{0x90, u"$I30"}));
}

TEST(volume_path, loses_the_separator_at_its_end_but_not_that_of_the_root) {
    EXPECT_EQ(without_last_separator("/Users/"), "/Users");
    EXPECT_EQ(without_last_separator("\\Users\\"), "\\Users");
    EXPECT_EQ(without_last_separator("/Users/a\\\\"), "/Users/a\\\\");
    EXPECT_EQ(without_last_separator("/Users"), "/Users");
    EXPECT_EQ(without_last_separator("/Users//"), "/Users/");
    for (const std::string_view root : {"/", "\\", "C:\\", "C:/", ""}) {
        EXPECT_EQ(without_last_separator(root), root);
    }
}

TEST(volume_path, that_is_a_drive_alone_is_told_where_its_root_is) {
    EXPECT_EQ(refusal("C:").substr(refusal("C:").find(": the") + 2),
              "the stream has no name; the root of a drive is / or C:\\");
    EXPECT_EQ(refusal("1:").substr(refusal("1:").find(": the") + 2),
              "the stream has no name; ::$DATA is the unnamed one");
}

TEST(volume_path, has_no_empty_name_and_no_dots) {
    EXPECT_EQ(refusal("\\\\a\\\\b"),
              "path \"\\\\a\\\\b\": has an empty name; with \\ between names nothing is escaped");
    EXPECT_EQ(refusal("/a//b"), "path \"/a//b\": has an empty name");
    EXPECT_EQ(refusal("/a/"), "path \"/a/\": has an empty name; leave the separator at its end out");
    EXPECT_EQ(refusal("\\a\\b\\"),
              "path \"\\a\\b\\\": has an empty name; leave the separator at its end out");
    EXPECT_EQ(refusal("//"), "path \"//\": has an empty name");
    EXPECT_EQ(refusal(""), "path \"\": has an empty name");
    EXPECT_EQ(refusal("/a/:s"), "path \"/a/:s\": has an empty name");
    EXPECT_EQ(refusal("/a/./b"), "path \"/a/./b\": has a name \".\"");
    EXPECT_EQ(refusal("/../b"), "path \"/../b\": has a name \"..\"");
    EXPECT_EQ(refusal("/\\u002E\\u002E"), "path \"/\\u002E\\u002E\": has a name \"..\"");
    EXPECT_EQ(parsed("/...").names, names{u"..."});
}

TEST(volume_path, is_utf8) {
    EXPECT_EQ(refusal("/\xFF"), "path \"/\\xFF\": is not UTF-8");
}

TEST(volume_path, is_shown_so_that_it_can_be_given_back) {
    for (const char* text :
         {"/", "/a.txt", "/a/b:c", "/x\\:y\\\\z/\\u000A\\uD800\\u002F:s\\:t:$BITMAP", "/a::$EA"}) {
        EXPECT_EQ(shown_path(parsed(text)), text);
        EXPECT_EQ(parsed(shown_path(parsed(text))).names, parsed(text).names) << text;
    }
}

TEST(stream_name, is_read_in_canonical_form) {
    EXPECT_EQ(parse_stream_name(":draft").value(), (stream_name{0x80, u"draft"}));
    EXPECT_EQ(parse_stream_name(":a\\:b").value(), (stream_name{0x80, u"a:b"}));
    EXPECT_EQ(parse_stream_name("::$INDEX_ROOT").value(), (stream_name{0x90, u""}));
    EXPECT_EQ(parse_stream_name("draft").error().text(), "path \"draft\": a stream begins with \":\"");
    EXPECT_EQ(parse_stream_name("").error().text(), "path \"\": a stream begins with \":\"");
    EXPECT_THAT(parse_stream_name(":\xFF").error().text(), EndsWith(": is not UTF-8"));
    EXPECT_THAT(parse_stream_name(":\\u12").error().text(),
                EndsWith(": \\u is followed by four hexadecimal digits"));
}

}  // namespace quarry::test
