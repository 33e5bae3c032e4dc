#include "foundation/ql_number.h"

#include <optional>

#include <gtest/gtest.h>

namespace quarry {
namespace {

constexpr auto none = std::nullopt;

// The number that a text is read as; none if it is refused, and then the output must be 0.
std::optional<std::uint32_t> u32(std::string_view text) {
    std::uint32_t out = 77;
    if (parse_u32(out, text)) {
        return out;
    }
    EXPECT_EQ(out, 0u) << text;
    return none;
}

std::optional<std::uint64_t> u64(std::string_view text) {
    std::uint64_t out = 77;
    if (parse_u64(out, text)) {
        return out;
    }
    EXPECT_EQ(out, 0u) << text;
    return none;
}

std::optional<std::int32_t> i32(std::string_view text) {
    std::int32_t out = 77;
    if (parse_int(out, text)) {
        return out;
    }
    EXPECT_EQ(out, 0) << text;
    return none;
}

// The same for the routine whose output keeps its value on refusal.
std::optional<std::int64_t> i64(std::string text) {
    std::int64_t out = 77;
    if (parse_i64(out, text)) {
        return out;
    }
    EXPECT_EQ(out, 77) << text;
    return none;
}

TEST(parse_u32, decimal_needs_a_digit_or_a_sign_in_front) {
    EXPECT_EQ(u32("0"), 0u);
    EXPECT_EQ(u32("42"), 42u);
    EXPECT_EQ(u32("+42"), 42u);
    EXPECT_EQ(u32("-1"), 0xFFFFFFFFu);
    EXPECT_EQ(u32("12abc"), 12u);
    EXPECT_EQ(u32("010"), 10u);
    EXPECT_EQ(u32("abc"), none);
    EXPECT_EQ(u32("#1"), none);
}

TEST(parse_u32, an_x_in_the_second_or_first_place_is_hexadecimal) {
    EXPECT_EQ(u32("0x1F"), 0x1Fu);
    EXPECT_EQ(u32("0X1f"), 0x1Fu);
    EXPECT_EQ(u32("9x10"), 0x10u);
    EXPECT_EQ(u32("x1F"), 0x1Fu);
    EXPECT_EQ(u32("X1F"), 0x1Fu);
    EXPECT_EQ(u32("0xffffffff"), 0xFFFFFFFFu);
    EXPECT_EQ(u32("x"), 0u) << "without digits";
    EXPECT_EQ(u32("ax"), 0u);
}

TEST(parse_u32, an_o_in_front_is_octal) {
    EXPECT_EQ(u32("o17"), 15u);
    EXPECT_EQ(u32("O17"), 15u);
    EXPECT_EQ(u32("0o17"), 0u);
}

TEST(parse_u32, a_character_in_single_quotes_is_its_code) {
    EXPECT_EQ(u32("'A'"), 65u);
    EXPECT_EQ(u32("'a'"), 97u);
    EXPECT_EQ(u32("'\xFF'"), 255u);
    EXPECT_EQ(u32("'A' "), 65u);
    EXPECT_EQ(u32("'A"), none);
    EXPECT_EQ(u32("'AB"), none);
    EXPECT_EQ(u32("AB'"), none);
    EXPECT_EQ(u32("'AB'"), none);
    EXPECT_EQ(u32("\"A\""), none);
}

TEST(parse_u32, an_x_between_single_quotes_is_taken_for_hexadecimal_without_digits) {
    EXPECT_EQ(u32("'x'"), 0u);
}

TEST(parse_u32, a_prefix_without_digits_is_zero) {
    EXPECT_EQ(u32("0x"), 0u);
    EXPECT_EQ(u32("x"), 0u);
    EXPECT_EQ(u32("o"), 0u);
    EXPECT_EQ(u32("-"), 0u);
}

TEST(parse_u32, blanks_decide_nothing_but_shift_the_digits_in_front_of_them) {
    EXPECT_EQ(u32("42 "), 42u);
    EXPECT_EQ(u32("0x10 "), 0x10u);
    EXPECT_EQ(u32(" 42"), none);
    EXPECT_EQ(u32(" 0x10"), 0u);
    EXPECT_EQ(u32("  x10"), 0u);
    EXPECT_EQ(u32(" 'A'"), none);
}

TEST(parse_u32, a_number_above_32_bits_is_cut_to_its_low_32) {
    EXPECT_EQ(u32("4294967296"), 0u);
    EXPECT_EQ(u32("0x100000001"), 1u);
    EXPECT_EQ(u32("0xFFFFFFFFFFFFFFFFF"), 0xFFFFFFFFu);
}

TEST(parse_u32, empty_text_is_refused) {
    EXPECT_EQ(u32(""), none);
    EXPECT_EQ(u32("   "), none);
    EXPECT_EQ(u32(std::string_view()), none);
}

TEST(parse_u64, decimal_hexadecimal_and_octal_reach_64_bits) {
    EXPECT_EQ(u64("0"), 0u);
    EXPECT_EQ(u64("18446744073709551615"), 0xFFFFFFFFFFFFFFFFu);
    EXPECT_EQ(u64("0xFFFFFFFFFFFFFFFF"), 0xFFFFFFFFFFFFFFFFu);
    EXPECT_EQ(u64("0X10"), 16u);
    EXPECT_EQ(u64("xff"), 255u);
    EXPECT_EQ(u64("X1F"), 31u);
    EXPECT_EQ(u64("o17"), 15u);
    EXPECT_EQ(u64("O1777777777777777777777"), 0xFFFFFFFFFFFFFFFFu);
    EXPECT_EQ(u64("o7"), 7u);
}

TEST(parse_u64, only_the_second_character_makes_the_two_character_prefix) {
    EXPECT_EQ(u64("9x10"), 16u);
    EXPECT_EQ(u64("qX10"), 16u);
    EXPECT_EQ(u64("xx10"), 16u);
}

TEST(parse_u64, one_or_two_characters_never_are_hexadecimal) {
    EXPECT_EQ(u64("x5"), 0u);
    EXPECT_EQ(u64("0x"), 0u);
    EXPECT_EQ(u64("x"), 0u);
    EXPECT_EQ(u64("42"), 42u);
}

TEST(parse_u64, text_without_readable_digits_is_zero_and_no_error) {
    EXPECT_EQ(u64("abc"), 0u);
    EXPECT_EQ(u64("0xg1"), 0u);
    EXPECT_EQ(u64("o9"), 0u);
    EXPECT_EQ(u64("o"), 0u);
    EXPECT_EQ(u64("-"), 0u);
    EXPECT_EQ(u64("12abc"), 12u);
    EXPECT_EQ(u64("0x1g"), 1u);
    EXPECT_EQ(u64("o18"), 1u);
}

TEST(parse_u64, a_negative_number_wraps_and_one_that_is_too_large_is_the_largest) {
    EXPECT_EQ(u64("-1"), 0xFFFFFFFFFFFFFFFFu);
    EXPECT_EQ(u64("18446744073709551616"), 0xFFFFFFFFFFFFFFFFu);
    EXPECT_EQ(u64("o7777777777777777777777"), 0xFFFFFFFFFFFFFFFFu);
}

TEST(parse_u64, blanks_are_skipped_in_front_and_refused_after) {
    EXPECT_EQ(u64("  12"), 12u);
    EXPECT_EQ(u64("\t0x12"), 18u);
    EXPECT_EQ(u64("12 "), none);
    EXPECT_EQ(u64("1 2"), none);
    EXPECT_EQ(u64("0x\t12"), none);
}

TEST(parse_u64, empty_text_and_nothing_but_blanks_are_refused) {
    EXPECT_EQ(u64(""), none);
    EXPECT_EQ(u64("   "), none);
}

TEST(parse_u64, the_number_of_digits_is_limited_in_each_form) {
    EXPECT_EQ(u64("0x0000000000000012"), 0x12u);
    EXPECT_EQ(u64("0x00000000000000012"), none);
    EXPECT_EQ(u64("x0000000000000012"), 0x12u);
    EXPECT_EQ(u64("x00000000000000012"), none);
    EXPECT_EQ(u64("o0000000000000000000012"), 10u);
    EXPECT_EQ(u64("o00000000000000000000012"), none);
    EXPECT_EQ(u64("00000000000000000012"), 12u);
    EXPECT_EQ(u64("000000000000000000012"), none);
}

TEST(parse_u64, more_than_30_characters_with_their_blanks_are_refused) {
    EXPECT_EQ(u64(std::string(28, ' ') + "12"), 12u);
    EXPECT_EQ(u64(std::string(29, ' ') + "12"), none);
    EXPECT_EQ(u64(std::string(31, '0')), none);
}

TEST(parse_i64, hexadecimal_follows_the_first_x_and_octal_the_first_o_wherever_they_are) {
    EXPECT_EQ(i64("0x10"), 16);
    EXPECT_EQ(i64("x10"), 16);
    EXPECT_EQ(i64("abcX1F"), 31);
    EXPECT_EQ(i64("o17"), 15);
    EXPECT_EQ(i64("0O17"), 15);
    EXPECT_EQ(i64("o7x10"), 16);
    EXPECT_EQ(i64("0x-10"), -16);
    EXPECT_EQ(i64("-0x10"), 16);
}

TEST(parse_i64, decimal_needs_a_digit_or_a_sign_in_front) {
    EXPECT_EQ(i64("42"), 42);
    EXPECT_EQ(i64("+42"), 42);
    EXPECT_EQ(i64("-42"), -42);
    EXPECT_EQ(i64("7up"), 7);
    EXPECT_EQ(i64("-"), 0);
}

TEST(parse_i64, what_is_no_number_is_refused_and_keeps_the_output) {
    EXPECT_EQ(i64("abc"), none);
    EXPECT_EQ(i64(""), none);
    EXPECT_EQ(i64("  "), none);
}

TEST(parse_i64, a_prefix_without_digits_is_zero) {
    EXPECT_EQ(i64("0x"), 0);
    EXPECT_EQ(i64("o"), 0);
}

TEST(parse_i64, the_text_is_trimmed_and_lowered_in_place) {
    std::string text = " \t0X1F\r\n";
    std::int64_t out = 0;
    EXPECT_TRUE(parse_i64(out, text));
    EXPECT_EQ(text, "0x1f");
    EXPECT_EQ(out, 31);
}

TEST(parse_i64, the_low_32_bits_of_the_number_are_taken_and_sign_extended) {
    EXPECT_EQ(i64("0x7fffffff"), 0x7FFFFFFF);
    EXPECT_EQ(i64("0x80000000"), -2147483648LL);
    EXPECT_EQ(i64("2147483648"), -2147483648LL);
    EXPECT_EQ(i64("0xffffffff"), -1);
    EXPECT_EQ(i64("0x100100000"), 0x100000);
    EXPECT_EQ(i64("4294967296"), 0);
    EXPECT_EQ(i64("o40000000000"), 0);
}

TEST(parse_i64, a_number_above_63_bits_is_the_largest_and_so_minus_one) {
    EXPECT_EQ(i64("0x8000000000000000"), -1);
    EXPECT_EQ(i64("99999999999999999999"), -1);
    EXPECT_EQ(i64("-99999999999999999999"), 0);
}

TEST(parse_int, the_forms_are_those_of_signed_numbers_read_from_a_copy) {
    EXPECT_EQ(i32(" 42 "), 42);
    EXPECT_EQ(i32("-7"), -7);
    EXPECT_EQ(i32("+7"), 7);
    EXPECT_EQ(i32("0X1f"), 31);
    EXPECT_EQ(i32("o17"), 15);
    EXPECT_EQ(i32("07"), 7);
    EXPECT_EQ(i32("0x80000000"), -2147483647 - 1);
    EXPECT_EQ(i32("0x8000000000000000"), 0);
}

TEST(parse_int, what_is_no_number_is_refused) {
    EXPECT_EQ(i32(""), none);
    EXPECT_EQ(i32(" "), none);
    EXPECT_EQ(i32("mar"), none);
}

}  // namespace
}  // namespace quarry
