#include "foundation/ql_text.h"

#include <gtest/gtest.h>

namespace quarry {
namespace {

using texts = std::vector<std::string>;
using wide_texts = std::vector<std::wstring>;

std::string trimmed(std::string text, bool expected) {
    EXPECT_EQ(trim(text), expected) << text;
    return text;
}

std::wstring trimmed(std::wstring text, bool expected) {
    EXPECT_EQ(trim(text), expected);
    return text;
}

TEST(trim, narrow_text_loses_any_mixture_of_blanks_and_line_ends_at_both_ends) {
    EXPECT_EQ(trimmed(std::string(" \t\r\na b\n\r\t "), true), "a b");
    EXPECT_EQ(trimmed(std::string("a"), true), "a");
    EXPECT_EQ(trimmed(std::string("\va\v"), true), "\va\v");
}

TEST(trim, narrow_text_of_nothing_else_is_empty_and_false) {
    EXPECT_EQ(trimmed(std::string(" \t\r\n"), false), "");
    EXPECT_EQ(trimmed(std::string(), false), "");
}

TEST(trim, wide_text_is_stripped_of_each_character_in_a_pass_of_its_own) {
    EXPECT_EQ(trimmed(std::wstring(L"  a b  "), true), L"a b");
    EXPECT_EQ(trimmed(std::wstring(L" \t\ta\t\t "), true), L"a");
    EXPECT_EQ(trimmed(std::wstring(L"\t a \t"), true), L" a ");
    EXPECT_EQ(trimmed(std::wstring(L"a\n\r"), true), L"a");
    EXPECT_EQ(trimmed(std::wstring(L"a\r\n"), true), L"a\r");
    EXPECT_EQ(trimmed(std::wstring(L"a\n\n"), true), L"a");
    EXPECT_EQ(trimmed(std::wstring(L"\r\na"), true), L"\r\na");
    EXPECT_EQ(trimmed(std::wstring(L"a \r"), true), L"a ");
}

TEST(trim, wide_text_of_blanks_and_tabs_is_empty_and_false) {
    EXPECT_EQ(trimmed(std::wstring(), false), L"");
    EXPECT_EQ(trimmed(std::wstring(L"   "), false), L"");
    EXPECT_EQ(trimmed(std::wstring(L" \t "), false), L"");
    EXPECT_EQ(trimmed(std::wstring(L"\t \t"), false), L"");
}

texts pieces(std::string_view text, split_rules rules) {
    texts out = {"old"};
    EXPECT_EQ(split(out, text, ',', rules), !text.empty());
    return out;
}

wide_texts wide_pieces(std::wstring_view text, split_rules rules) {
    wide_texts out = {L"old"};
    EXPECT_EQ(split(out, text, L',', rules), !text.empty());
    return out;
}

TEST(split, text_is_parted_at_every_separator) {
    EXPECT_EQ(pieces("a,b c,d", {}), (texts{"a", "b c", "d"}));
    EXPECT_EQ(pieces("abc", {}), (texts{"abc"}));
    EXPECT_EQ(wide_pieces(L"a,b c,d", {}), (wide_texts{L"a", L"b c", L"d"}));
}

TEST(split, empty_text_is_a_failure_that_clears_the_list) {
    EXPECT_EQ(pieces("", {}), texts{});
    EXPECT_EQ(pieces("", {.keep_empty = true}), texts{});
    EXPECT_EQ(wide_pieces(L"", {.keep_empty = true}), wide_texts{});
}

TEST(split, empty_pieces_are_left_out_unless_they_are_kept) {
    EXPECT_EQ(pieces(",a,,b,", {}), (texts{"a", "b"}));
    EXPECT_EQ(pieces("a,,b", {.keep_empty = true}), (texts{"a", "", "b"}));
    EXPECT_EQ(wide_pieces(L",a,,b,", {}), (wide_texts{L"a", L"b"}));
    EXPECT_EQ(wide_pieces(L"a,,b", {.keep_empty = true}), (wide_texts{L"a", L"", L"b"}));
}

TEST(split, a_separator_at_the_end_gives_an_empty_last_piece_in_both_forms) {
    EXPECT_EQ(pieces("a,", {.keep_empty = true}), (texts{"a", ""}));
    EXPECT_EQ(wide_pieces(L"a,", {.keep_empty = true}), (wide_texts{L"a", L""}));
}

TEST(split, a_separator_at_the_very_start_gives_no_empty_first_piece_in_wide_text) {
    EXPECT_EQ(pieces(",a", {.keep_empty = true}), (texts{"", "a"}));
    EXPECT_EQ(wide_pieces(L",a", {.keep_empty = true}), (wide_texts{L"a"}));
    EXPECT_EQ(pieces(",,a", {.keep_empty = true}), (texts{"", "", "a"}));
    EXPECT_EQ(wide_pieces(L",,a", {.keep_empty = true}), (wide_texts{L"", L"a"}));
    EXPECT_EQ(pieces(",", {.keep_empty = true}), (texts{"", ""}));
    EXPECT_EQ(wide_pieces(L",", {.keep_empty = true}), (wide_texts{L""}));
}

TEST(split, pieces_are_trimmed_on_request) {
    EXPECT_EQ(pieces(" a ,\tb\r\n", {.trim_each = true}), (texts{"a", "b"}));
    EXPECT_EQ(pieces(" a ,\tb\r\n", {}), (texts{" a ", "\tb\r\n"}));
    EXPECT_EQ(pieces("a, ,b", {.trim_each = true}), (texts{"a", "b"}));
    EXPECT_EQ(pieces("a, ,b", {.trim_each = true, .keep_empty = true}), (texts{"a", "", "b"}));
    EXPECT_EQ(wide_pieces(L" a ,\tb\r\n", {.trim_each = true}), (wide_texts{L"a", L"b\r"}));
}

TEST(split, the_narrow_form_adds_to_the_list_on_request) {
    EXPECT_EQ(pieces("a,b", {.append = true}), (texts{"old", "a", "b"}));
    EXPECT_EQ(pieces("", {.append = true}), (texts{"old"}));
    EXPECT_EQ(wide_pieces(L"a,b", {.append = true}), (wide_texts{L"a", L"b"}));
}

std::string joined(const texts& list, std::string_view separator, bool skip_empty) {
    std::string out = "old";
    join(out, list, separator, skip_empty);
    return out;
}

TEST(join, entries_have_the_separator_between_them) {
    EXPECT_EQ(joined({"a", "b", "c"}, ", ", false), "a, b, c");
    EXPECT_EQ(joined({"a"}, ", ", false), "a");
    EXPECT_EQ(joined({}, ", ", false), "");
    EXPECT_EQ(joined({"", "a", "", ""}, "-", false), "-a--");
}

TEST(join, empty_entries_are_left_out_with_their_separators_on_request) {
    EXPECT_EQ(joined({"", "a", "", "b", ""}, "-", true), "a-b");
    EXPECT_EQ(joined({"a", "b-"}, "-", true), "a-b-");
    EXPECT_EQ(joined({"", ""}, "-", true), "");
}

TEST(drop_tail, the_last_characters_go) {
    std::string text = "abcde";
    EXPECT_TRUE(drop_tail(text, 2));
    EXPECT_EQ(text, "abc");
    EXPECT_TRUE(drop_tail(text, 3));
    EXPECT_EQ(text, "");
    text = "abc";
    EXPECT_TRUE(drop_tail(text, 4));
    EXPECT_EQ(text, "");
}

TEST(drop_tail, nothing_to_remove_is_a_failure) {
    std::string text;
    EXPECT_FALSE(drop_tail(text, 1));
    text = "abc";
    EXPECT_FALSE(drop_tail(text, 0));
    EXPECT_EQ(text, "abc");
}

TEST(remove_char, all_occurrences_go_and_are_counted) {
    std::string text = "\"a\"b\"";
    EXPECT_EQ(remove_char(text, '"'), 3u);
    EXPECT_EQ(text, "ab");
    EXPECT_EQ(remove_char(text, '"'), 0u);
    EXPECT_EQ(text, "ab");
}

std::string replaced(std::string text, char old_char, char new_char, bool ignore_case) {
    replace_char(text, old_char, new_char, ignore_case);
    return text;
}

std::wstring replaced(std::wstring text, wchar_t old_char, wchar_t new_char, bool ignore_case) {
    replace_char(text, old_char, new_char, ignore_case);
    return text;
}

TEST(replace_char, every_occurrence_is_replaced) {
    EXPECT_EQ(replaced(std::string("a\\b\\"), '\\', '/', false), "a/b/");
    EXPECT_EQ(replaced(std::wstring(L"a\\b\\"), L'\\', L'/', false), L"a/b/");
}

TEST(replace_char, both_cases_of_a_letter_are_replaced_on_request) {
    EXPECT_EQ(replaced(std::string("aAbB"), 'a', 'x', false), "xAbB");
    EXPECT_EQ(replaced(std::string("aAbB"), 'a', 'x', true), "xxbB");
    EXPECT_EQ(replaced(std::string("aAbB"), 'B', 'x', true), "aAxx");
    EXPECT_EQ(replaced(std::wstring(L"aAbB"), L'A', L'x', false), L"axbB");
    EXPECT_EQ(replaced(std::wstring(L"aAbB"), L'A', L'x', true), L"xxbB");
    EXPECT_EQ(replaced(std::wstring(L"\x00C4\x00E4"), L'\x00C4', L'x', true), L"x\x00E4");
}

TEST(replace_char, equal_characters_do_not_change_narrow_text_and_fold_the_case_of_wide_text) {
    EXPECT_EQ(replaced(std::string("aA"), 'a', 'a', true), "aA");
    EXPECT_EQ(replaced(std::wstring(L"aA"), L'a', L'a', true), L"aa");
}

TEST(replace_first, only_the_first_occurrence_is_replaced) {
    std::string text = "abcabc";
    std::string pattern = "bc";
    EXPECT_TRUE(replace_first(text, pattern, "X", false));
    EXPECT_EQ(text, "aXabc");
    EXPECT_TRUE(replace_first(text, pattern, "", false));
    EXPECT_EQ(text, "aXa");
}

TEST(replace_first, ignoring_case_lowers_the_pattern_and_keeps_the_case_around_the_occurrence) {
    std::string text = "One TWO Three";
    std::string pattern = "Two";
    EXPECT_TRUE(replace_first(text, pattern, "2", true));
    EXPECT_EQ(text, "One 2 Three");
    EXPECT_EQ(pattern, "two");
}

TEST(replace_first, a_pattern_that_does_not_occur_is_a_failure) {
    std::string text = "One TWO";
    std::string pattern = "Two";
    EXPECT_FALSE(replace_first(text, pattern, "2", false));
    EXPECT_EQ(text, "One TWO");
    EXPECT_EQ(pattern, "Two");
    pattern = "THREE";
    EXPECT_FALSE(replace_first(text, pattern, "3", true));
    EXPECT_EQ(pattern, "three");
    pattern = "";
    EXPECT_FALSE(replace_first(text, pattern, "!", false));
    EXPECT_EQ(text, "One TWO");
}

TEST(cut_at, the_text_ends_before_the_first_occurrence) {
    std::string text = "name:stream:$DATA";
    EXPECT_TRUE(cut_at(text, ":", false));
    EXPECT_EQ(text, "name");
    EXPECT_TRUE(cut_at(text, "name", false));
    EXPECT_EQ(text, "");
}

TEST(cut_at, ignoring_case_lowers_only_the_text_so_the_pattern_must_be_in_lower_case) {
    std::string text = "Readme.TXT.txt";
    EXPECT_FALSE(cut_at(text, ".Txt", true));
    EXPECT_EQ(text, "Readme.TXT.txt");
    EXPECT_TRUE(cut_at(text, ".txt", true));
    EXPECT_EQ(text, "Readme");
}

TEST(cut_at, a_pattern_that_does_not_occur_is_a_failure) {
    std::string text = "Readme";
    EXPECT_FALSE(cut_at(text, "r", false));
    EXPECT_FALSE(cut_at(text, "", false));
    EXPECT_EQ(text, "Readme");
}

}  // namespace
}  // namespace quarry
