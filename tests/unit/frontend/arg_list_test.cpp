#include "frontend/arg_list.h"

#include <gtest/gtest.h>

namespace quarry {
namespace {

TEST(arg_list, a_flag_is_found_in_any_case_of_its_letters_and_removed) {
    arg_list args = {"quarry", "a", "-MD5", "b"};
    EXPECT_TRUE(find_flag("-md5", args));
    EXPECT_EQ(args, (arg_list{"quarry", "a", "b"}));
    EXPECT_FALSE(find_flag("-md5", args));
}

TEST(arg_list, a_flag_that_is_kept_stays) {
    arg_list args = {"quarry", "-raw"};
    EXPECT_TRUE(find_flag("-raw", args, true));
    EXPECT_EQ(args, (arg_list{"quarry", "-raw"}));
}

TEST(arg_list, a_flag_must_have_the_whole_name_and_nothing_more) {
    arg_list args = {"quarry", "-md", "-md55", "md5", ""};
    EXPECT_FALSE(find_flag("-md5", args));
    EXPECT_EQ(args.size(), 5U);
}

TEST(arg_list, a_flag_that_is_twice_is_taken_once) {
    arg_list args = {"quarry", "-raw", "-RAW"};
    EXPECT_TRUE(find_flag("-raw", args));
    EXPECT_EQ(args, (arg_list{"quarry", "-RAW"}));
}

TEST(arg_list, a_value_is_the_word_after_its_option_whatever_it_looks_like) {
    arg_list args = {"quarry", "-Dst", "-src", "x"};
    std::string value;
    EXPECT_TRUE(find_value("-dst", value, args));
    EXPECT_EQ(value, "-src");
    EXPECT_EQ(args, (arg_list{"quarry", "x"}));
}

TEST(arg_list, an_option_with_a_value_is_absent_as_last_word_and_nothing_is_removed) {
    arg_list args = {"quarry", "x", "-dst"};
    std::string value = "kept";
    EXPECT_FALSE(find_value("-dst", value, args));
    EXPECT_EQ(value, "kept");
    EXPECT_EQ(args, (arg_list{"quarry", "x", "-dst"}));
    EXPECT_FALSE(find_value("-src", value, args));
    EXPECT_EQ(value, "kept");
}

TEST(arg_list, an_empty_word_is_a_value) {
    arg_list args = {"quarry", "-dst", ""};
    std::string value = "old";
    EXPECT_TRUE(find_value("-dst", value, args));
    EXPECT_EQ(value, "");
}

TEST(arg_list, two_values_need_two_words) {
    arg_list args = {"quarry", "-cluster", "1"};
    std::string first;
    std::string second;
    EXPECT_FALSE(find_two_values("-cluster", first, second, args));
    EXPECT_EQ(args.size(), 3U);
    args.emplace_back("2");
    args.emplace_back("rest");
    EXPECT_TRUE(find_two_values("-cluster", first, second, args));
    EXPECT_EQ(first, "1");
    EXPECT_EQ(second, "2");
    EXPECT_EQ(args, (arg_list{"quarry", "rest"}));
}

TEST(arg_list, peeking_removes_nothing_and_begins_at_the_given_index) {
    const arg_list args = {"-pipe", "x", "-dateformat", "yyyy"};
    EXPECT_TRUE(peek_flag("-PIPE", args, 0));
    EXPECT_FALSE(peek_flag("-pipe", args, 1));
    std::string value = "kept";
    EXPECT_TRUE(peek_value("-dateformat", value, args, 1));
    EXPECT_EQ(value, "yyyy");
    value = "kept";
    EXPECT_FALSE(peek_value("-dateformat", value, args, 3));
    EXPECT_FALSE(peek_value("yyyy", value, args, 0));
    EXPECT_EQ(value, "kept");
}

TEST(arg_list, arguments_are_joined_with_quotes_around_those_that_hold_a_blank) {
    EXPECT_EQ(joined_arguments({"quarry", "a b", "", "c"}, '\''), "quarry 'a b'  c");
    EXPECT_EQ(joined_arguments({"quarry", "a b"}, '"'), "quarry \"a b\"");
    EXPECT_EQ(joined_arguments({""}, '"'), "");
    EXPECT_EQ(joined_arguments({}, '"'), "");
}

}  // namespace
}  // namespace quarry
