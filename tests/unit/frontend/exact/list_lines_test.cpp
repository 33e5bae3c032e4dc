#include "frontend/exact/list_lines.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using namespace exact;
using testing::ElementsAre;
using testing::IsEmpty;

// The lines of a text that comes in portions of so many bytes, as "number:line". "too long" ends one that is;
// a failure is the last one.
std::vector<std::string> lines_of(std::string text, std::size_t portion, int error_at_end = 0) {
    list_lines lines([text, portion, error_at_end, at = std::size_t{0}](std::span<char> buffer) mutable {
        const std::size_t count = std::min({portion, buffer.size(), text.size() - at});
        if (count == 0 && error_at_end != 0) {
            errno = error_at_end;
            return std::ptrdiff_t{-1};
        }
        std::copy_n(text.begin() + static_cast<std::ptrdiff_t>(at), count, buffer.begin());
        at += count;
        return static_cast<std::ptrdiff_t>(count);
    });
    if (const auto begun = lines.begin(); !begun) {
        return {begun.error().text()};
    }
    std::vector<std::string> found;
    while (true) {
        const auto line = lines.next();
        if (!line) {
            found.push_back(line.error().text());
            return found;
        }
        if (!*line) {
            return found;
        }
        found.push_back(std::to_string((*line)->number) + ":" +
                        ((*line)->too_long ? "too long" : (*line)->text));
    }
}

std::vector<std::string> lines_of(const std::string& text) {
    const std::vector<std::string> at_once = lines_of(text, 1000000);
    EXPECT_EQ(lines_of(text, 1), at_once);
    EXPECT_EQ(lines_of(text, 3), at_once);
    return at_once;
}

// What a line asks for: a path as it is, an entry with its sequence, stream and listed names.
std::string order_of(std::string_view text) {
    const auto object = parse_list_line(text);
    if (!object) {
        return object.error().text();
    }
    if (const auto* const path = std::get_if<object_by_path>(&*object)) {
        return "path " + path->text;
    }
    const auto& entry = std::get<object_by_entry>(*object);
    std::string shown = "entry " + std::to_string(entry.entry);
    shown += entry.sequence ? " sequence " + std::to_string(*entry.sequence) : "";
    shown += entry.stream.empty() ? "" : " stream " + entry.stream;
    const std::vector<std::u16string> listed = entry.listed.value_or(std::vector<std::u16string>());
    for (const std::u16string& name : listed) {
        shown += " /" + std::string(name.begin(), name.end());
    }
    return shown;
}

TEST(list_lines, end_in_lf_or_cr_lf_and_the_last_one_in_nothing) {
    EXPECT_THAT(lines_of("/a\n/b\r\n/c"), ElementsAre("1:/a", "2:/b", "3:/c"));
    EXPECT_THAT(lines_of("/a\n/b\n"), ElementsAre("1:/a", "2:/b"));
}

TEST(list_lines, that_are_empty_are_counted_and_passed_over) {
    EXPECT_THAT(lines_of("\n\r\n/a\n\n\n/b\n\n"), ElementsAre("3:/a", "6:/b"));
    EXPECT_THAT(lines_of(""), IsEmpty());
    EXPECT_THAT(lines_of("\n\n"), IsEmpty());
}

TEST(list_lines, keep_blanks_and_a_cr_that_is_no_end) {
    EXPECT_THAT(lines_of(" /a \n/b\rc\n/d\r\r\n/e\r"), ElementsAre("1: /a ", "2:/b\rc", "3:/d\r", "4:/e\r"));
}

TEST(list_lines, may_begin_with_a_byte_order_mark_of_utf_8_but_not_of_utf_16) {
    EXPECT_THAT(lines_of("\xEF\xBB\xBF/a\n\xEF\xBB\xBF/b"), ElementsAre("1:/a", "2:\xEF\xBB\xBF/b"));
    EXPECT_THAT(lines_of("\xEF\xBB\xBF"), IsEmpty());
    const std::string refused = "list: is UTF-16; it must be UTF-8";
    EXPECT_THAT(lines_of(std::string("\xFF\xFE/\0a\0", 6)), ElementsAre(refused));
    EXPECT_THAT(lines_of(std::string("\xFE\xFF\0/\0a", 6)), ElementsAre(refused));
    EXPECT_THAT(lines_of("\xFF\xFE"), ElementsAre(refused));
    EXPECT_THAT(lines_of("\xFF"), ElementsAre("1:\xFF"));
}

TEST(list_lines, have_a_longest_length) {
    const std::string longest(262144, 'x');
    EXPECT_THAT(lines_of(longest + "\n/b", 65536), ElementsAre("1:" + longest, "2:/b"));
    EXPECT_THAT(lines_of(longest + "\r\n/b", 65536), ElementsAre("1:" + longest, "2:/b"));
    EXPECT_THAT(lines_of(longest + "x\n/b", 65536), ElementsAre("1:too long", "2:/b"));
    EXPECT_THAT(lines_of(longest + "xx", 65536), ElementsAre("1:too long"));
    EXPECT_THAT(lines_of(std::string(5000000, 'x') + "\n/b", 65536), ElementsAre("1:too long", "2:/b"));
}

TEST(list_lines, that_came_whole_are_at_hand_before_they_are_given_out) {
    const std::string text = "/a\n/b\r\n\n/c\n/d";
    list_lines lines([&text, given = false](std::span<char> buffer) mutable {
        const std::size_t count = std::exchange(given, true) ? 0 : text.size();
        std::copy_n(text.begin(), count, buffer.begin());
        return static_cast<std::ptrdiff_t>(count);
    });
    ASSERT_TRUE(lines.begin());
    const auto at_hand = [&lines](std::uint64_t after, std::uint64_t last) {
        std::vector<std::string> found;
        for (const list_lines::line& each : lines.at_hand(after, last)) {
            found.push_back(std::to_string(each.number) + ":" + each.text);
        }
        return found;
    };
    ASSERT_EQ((*lines.next())->text, "/a");
    // Of the last one more may come.
    EXPECT_THAT(at_hand(1, 9), ElementsAre("2:/b", "4:/c"));
    EXPECT_THAT(at_hand(2, 9), ElementsAre("4:/c"));
    EXPECT_THAT(at_hand(1, 3), ElementsAre("2:/b"));
    ASSERT_EQ((*lines.next())->text, "/b");
    EXPECT_THAT(at_hand(2, 9), ElementsAre("4:/c"));
}

TEST(list_lines, that_cannot_be_read_on_are_told_after_those_that_came) {
    EXPECT_THAT(lines_of("/a\n/b", 1000, EIO),
                ElementsAre("1:/a", "list: cannot be read: Input/output error"));
    EXPECT_THAT(lines_of("", 1000, EISDIR), ElementsAre("list: cannot be read: Is a directory"));
}

TEST(parse_list_line, takes_a_path_in_either_form) {
    EXPECT_EQ(order_of("/docs/a.txt:Note"), "path /docs/a.txt:Note");
    EXPECT_EQ(order_of("\\docs\\a.txt"), "path \\docs\\a.txt");
    EXPECT_EQ(order_of("C:\\docs\\a.txt"), "path C:\\docs\\a.txt");
    EXPECT_EQ(order_of("a.txt"), "path a.txt");
    EXPECT_EQ(order_of("/365-1"), "path /365-1");
    EXPECT_EQ(order_of("365-1.txt"), "path 365-1.txt");
    EXPECT_EQ(order_of("365-1-2"), "path 365-1-2");
    EXPECT_EQ(order_of("365 "), "path 365 ");
    EXPECT_EQ(order_of("-1"), "path -1");
    EXPECT_EQ(order_of("0x"), "path 0x");
}

TEST(parse_list_line, takes_an_entry_with_its_sequence_and_stream) {
    EXPECT_EQ(order_of("365"), "entry 365");
    EXPECT_EQ(order_of("0x16D-0x1"), "entry 365 sequence 1");
    EXPECT_EQ(order_of("365-65535"), "entry 365 sequence 65535");
    EXPECT_EQ(order_of("365-1:Note"), "entry 365 sequence 1 stream :Note");
    EXPECT_EQ(order_of("365::$DATA"), "entry 365 stream ::$DATA");
    EXPECT_EQ(order_of("365:a\\:b:$DATA"), "entry 365 stream :a\\:b:$DATA");
}

TEST(parse_list_line, refuses_an_entry_whose_numbers_are_too_large) {
    EXPECT_EQ(order_of("365-65536"), "\"365-65536\": is no entry; say N or N-SEQUENCE");
    EXPECT_EQ(order_of("18446744073709551616"), "\"18446744073709551616\": is no entry; say N or N-SEQUENCE");
}

TEST(parse_list_line, refuses_an_entry_whose_stream_is_none) {
    EXPECT_EQ(order_of("365:"), "path \":\": the stream has no name; ::$DATA is the unnamed one");
    EXPECT_EQ(order_of("365:a:$NONE"), "path \":a:$NONE\": \"$NONE\" is no attribute type");
}

TEST(parse_list_line, takes_a_line_of_a_listing_by_its_first_and_last_field) {
    EXPECT_EQ(order_of("365-1\tf\t90002\t2026-11-22T00:35:43.6281234Z\t/Users/setup.exe"),
              "entry 365 sequence 1 /Users /setup.exe");
    EXPECT_EQ(order_of("365-1\ts\t26\t2026-11-22T00:35:43.6281234Z\t/Users/setup.exe:Zone.Identifier"),
              "entry 365 sequence 1 stream :Zone.Identifier /Users /setup.exe");
    EXPECT_EQ(order_of("365-0\tF\t\t\t/?/a\\\\b\\:c"), "entry 365 sequence 0 /? /a\\b:c");
    EXPECT_EQ(order_of("5-5\ts\t0\t-\t/:x\\:y"), "entry 5 sequence 5 stream :x\\:y");
    EXPECT_EQ(order_of("9-9\tS\t0\t-\t/$Secure:$SDH:$INDEX_ROOT"),
              "entry 9 sequence 9 stream :$SDH:$INDEX_ROOT /$Secure");
    // As "cut -f1,5" leaves it.
    EXPECT_EQ(order_of("365-1\t/Users/setup.exe:Zone.Identifier"),
              "entry 365 sequence 1 stream :Zone.Identifier /Users /setup.exe");
}

TEST(parse_list_line, refuses_tabs_that_make_no_line_of_a_listing) {
    const auto refused = [](const std::string& shown) {
        return "\"" + shown + "\": has tabs and is no line of a listing";
    };
    EXPECT_EQ(order_of("a\tb"), refused("a\\u0009b"));
    EXPECT_EQ(order_of("365\tf\t1\t-\t/a"), refused("365\\u0009f\\u00091\\u0009-\\u0009/a"));
    EXPECT_EQ(order_of("365-1\tf\t1\t-\ta"), refused("365-1\\u0009f\\u00091\\u0009-\\u0009a"));
    EXPECT_EQ(order_of("365-1\tf\t1\t-\t"), refused("365-1\\u0009f\\u00091\\u0009-\\u0009"));
    EXPECT_EQ(order_of("365-1x\tf\t1\t-\t/a"), refused("365-1x\\u0009f\\u00091\\u0009-\\u0009/a"));
    EXPECT_EQ(order_of("365-1\tf\t1\t-\t/a/../b"), "path \"/a/../b\": has a name \"..\"");
}

TEST(parse_list_line, refuses_what_is_no_path_or_not_utf_8) {
    EXPECT_EQ(order_of("/a//b"), "path \"/a//b\": has an empty name");
    EXPECT_EQ(order_of("/a/../b"), "path \"/a/../b\": has a name \"..\"");
    EXPECT_EQ(order_of("/\xFF"), "\"/\\xFF\": is not UTF-8");
    EXPECT_EQ(order_of("\xED\xA0\x80"), "\"\\xED\\xA0\\x80\": is not UTF-8");
    EXPECT_EQ(order_of("/\x1B[2J\\"),
              "path \"/\\u001B[2J\\\": after a backslash comes \\, : or uXXXX; write \\\\ for a backslash, / "
              "between names");
}

}  // namespace
}  // namespace quarry::test
