#include "disk/damaged_ranges.h"

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

namespace quarry::test {

namespace {

constexpr std::uint64_t everything = ~std::uint64_t{0};

// All ranges, as "10-20 30-40".
std::string text_of(const damaged_ranges& ranges) {
    std::string text;
    std::uint64_t from = 0;
    while (const auto range = ranges.first_between(from, everything)) {
        text += (text.empty() ? "" : " ") + std::to_string(range->first) + "-" + std::to_string(range->end);
        from = range->end;
    }
    return text;
}

}  // namespace

TEST(damaged_ranges, are_none_at_first) {
    EXPECT_EQ(text_of({}), "");
}

TEST(damaged_ranges, stay_apart_in_the_order_of_their_bytes) {
    damaged_ranges ranges;
    ranges.add(30, 40);
    ranges.add(10, 20);
    EXPECT_EQ(text_of(ranges), "10-20 30-40");
}

TEST(damaged_ranges, that_touch_or_overlap_become_one) {
    const struct {
        std::uint64_t first;
        std::uint64_t end;
        const char* expected;
    } rows[] = {
        {20, 30, "10-40"},       {15, 35, "10-40"},       {10, 20, "10-20 30-40"},   {5, 10, "5-20 30-40"},
        {0, 100, "0-100"},       {20, 29, "10-29 30-40"}, {21, 30, "10-20 21-40"},   {40, 50, "10-20 30-50"},
        {12, 13, "10-20 30-40"}, {10, 40, "10-40"},       {0, 9, "0-9 10-20 30-40"},
    };
    for (const auto& row : rows) {
        damaged_ranges ranges;
        ranges.add(10, 20);
        ranges.add(30, 40);
        ranges.add(row.first, row.end);
        EXPECT_EQ(text_of(ranges), row.expected) << row.first << " to " << row.end;
    }
}

TEST(damaged_ranges, take_no_range_that_is_empty_or_turned_around) {
    damaged_ranges ranges;
    ranges.add(10, 10);
    ranges.add(20, 10);
    EXPECT_EQ(text_of(ranges), "");
}

TEST(damaged_ranges, are_looked_up_from_a_byte_on_and_up_to_another) {
    damaged_ranges ranges;
    ranges.add(10, 20);
    EXPECT_FALSE(ranges.first_between(0, 10));
    EXPECT_FALSE(ranges.first_between(20, 30));
    const auto before = ranges.first_between(0, 11);
    ASSERT_TRUE(before);
    EXPECT_EQ(before->first, 10U);
    EXPECT_EQ(before->end, 20U);
    const auto within = ranges.first_between(19, 20);
    ASSERT_TRUE(within);
    EXPECT_EQ(within->first, 19U);
    EXPECT_EQ(within->end, 20U);
}

}  // namespace quarry::test
