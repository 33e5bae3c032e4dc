#include "frontend/options/time_range.h"

#include <limits>

#include <gtest/gtest.h>

namespace quarry {
namespace {

constexpr std::uint64_t ticks = 10'000'000;
// 2020-01-02 00:00:00 UTC: 153,037 days after 1601-01-01, 1,577,923,200 seconds after 1970-01-01.
constexpr std::uint64_t day = 153'037ULL * 86'400 * ticks;
constexpr std::uint32_t day_unix = 1'577'923'200;

uni::fileio_stats stats_of(std::uint64_t modified, std::uint64_t created,
                           ql::type_time kind = ql::type_time::filetime) {
    uni::fileio_stats stats;
    stats.m_modified = modified;
    stats.m_created = created;
    stats.m_time_kind = kind;
    return stats;
}

TEST(time_range, a_start_opens_a_range_up_to_the_latest_time) {
    time_range range;
    EXPECT_FALSE(range.is_on());
    EXPECT_EQ(range.set_start("2020/01/02"), range_result::set);
    EXPECT_TRUE(range.is_on());
    EXPECT_TRUE(range.m_range_start_on);
    EXPECT_EQ(range.m_range_start, day);
    EXPECT_EQ(range.m_range_start_unix, day_unix);
    EXPECT_TRUE(range.m_range_stop_on);
    EXPECT_EQ(range.m_range_stop, std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(range.m_range_stop_unix, std::numeric_limits<std::uint32_t>::max());
}

TEST(time_range, a_date_is_parted_by_slashes_or_dashes_and_a_time_of_day_may_follow_the_first_blank) {
    time_range range;
    EXPECT_EQ(range.set_start("2020-01-02 01:02:03"), range_result::set);
    EXPECT_EQ(range.m_range_start, day + 3'723 * ticks);
    EXPECT_EQ(range.set_start("20/1/2 13:00"), range_result::set);
    EXPECT_EQ(range.m_range_start, day + 46'800 * ticks);
}

TEST(time_range, a_stop_without_a_time_of_day_is_the_last_second_of_its_day) {
    time_range range;
    EXPECT_EQ(range.set_stop("2020-01-02"), range_result::set);
    EXPECT_FALSE(range.m_range_start_on);
    EXPECT_TRUE(range.m_range_stop_on);
    EXPECT_EQ(range.m_range_stop, day + 86'399 * ticks);
    EXPECT_EQ(range.m_range_stop_unix, day_unix + 86'399);
    EXPECT_EQ(range.set_stop("2020-01-02 "), range_result::set);
    EXPECT_EQ(range.m_range_stop, day + 86'399 * ticks);
    EXPECT_EQ(range.set_stop("2020-01-02 00:00"), range_result::set);
    EXPECT_EQ(range.m_range_stop, day);
}

TEST(time_range, a_text_without_a_separator_of_dates_refuses_the_command_line) {
    for (const char* text : {"20200102", "", "x", " 2020/01/02", "20200102 10:00", "today 2020/01/02"}) {
        time_range range;
        EXPECT_EQ(range.set_start(text), range_result::no_date) << text;
        EXPECT_EQ(range.set_stop(text), range_result::no_date) << text;
        EXPECT_FALSE(range.is_on()) << text;
    }
}

TEST(time_range, a_bad_start_leaves_both_ends_off) {
    for (const char* text : {"2020/13/01", "2020/01/32", "2020/01", "a/b/c", "2020/01/02 noon", "/"}) {
        time_range range;
        ASSERT_EQ(range.set_start("2019/01/01"), range_result::set);
        EXPECT_EQ(range.set_start(text), range_result::ignored) << text;
        EXPECT_FALSE(range.is_on()) << text;
    }
}

TEST(time_range, a_bad_stop_or_one_before_the_start_takes_the_stop_off_and_keeps_the_start) {
    for (const char* text : {"2020/13/01", "2020/01/01", "2019-12-31 23:59:59"}) {
        time_range range;
        ASSERT_EQ(range.set_start("2020/01/02"), range_result::set);
        EXPECT_EQ(range.set_stop(text), range_result::ignored) << text;
        EXPECT_TRUE(range.m_range_start_on) << text;
        EXPECT_FALSE(range.m_range_stop_on) << text;
    }
}

TEST(time_range, a_stop_at_the_very_start_is_good) {
    time_range range;
    ASSERT_EQ(range.set_start("2020/01/02 10:00"), range_result::set);
    EXPECT_EQ(range.set_stop("2020/01/02 10:00"), range_result::set);
    EXPECT_TRUE(range.m_range_stop_on);
}

TEST(time_range, unix_seconds_take_the_nearer_end_where_32_bits_do_not_reach) {
    time_range range;
    ASSERT_EQ(range.set_start("1960/01/01"), range_result::set);
    EXPECT_EQ(range.m_range_start_unix, 0U);
    ASSERT_EQ(range.set_stop("2200/01/01"), range_result::set);
    EXPECT_EQ(range.m_range_stop_unix, std::numeric_limits<std::uint32_t>::max());
}

TEST(time_range, one_time_inside_is_enough_at_the_start_of_the_range) {
    time_range range;
    ASSERT_EQ(range.set_start("2020/01/02"), range_result::set);
    EXPECT_TRUE(range.holds(stats_of(day, day)));
    EXPECT_TRUE(range.holds(stats_of(day - 1, day)));
    EXPECT_TRUE(range.holds(stats_of(day, day - 1)));
    EXPECT_FALSE(range.holds(stats_of(day - 1, day - 1)));
}

TEST(time_range, one_time_outside_is_too_much_at_the_end_of_the_range) {
    time_range range;
    ASSERT_EQ(range.set_stop("2020/01/02 00:00"), range_result::set);
    EXPECT_TRUE(range.holds(stats_of(day, day)));
    EXPECT_FALSE(range.holds(stats_of(day + 1, day)));
    EXPECT_FALSE(range.holds(stats_of(day, day + 1)));
}

TEST(time_range, unix_times_are_held_against_the_unix_ends) {
    time_range range;
    ASSERT_EQ(range.set_start("2020/01/02"), range_result::set);
    ASSERT_EQ(range.set_stop("2020/01/02 00:00:01"), range_result::set);
    const auto kind = ql::type_time::unix_time;
    EXPECT_TRUE(range.holds(stats_of(day_unix, day_unix + 1, kind)));
    EXPECT_FALSE(range.holds(stats_of(day_unix - 1, day_unix - 1, kind)));
    EXPECT_FALSE(range.holds(stats_of(day_unix, day_unix + 2, kind)));
}

TEST(time_range, a_fraction_in_an_end_of_the_range_does_not_count_for_unix_times) {
    time_range range;
    ASSERT_EQ(range.set_start("2020/01/02 00:00:00.5"), range_result::set);
    EXPECT_TRUE(range.holds(stats_of(day_unix, day_unix, ql::type_time::unix_time)));
    EXPECT_FALSE(range.holds(stats_of(day, day)));
}

TEST(time_range, of_unix_times_the_low_32_bits_count) {
    time_range range;
    ASSERT_EQ(range.set_start("2020/01/02"), range_result::set);
    ASSERT_EQ(range.set_stop("2020/01/02 00:00"), range_result::set);
    const auto kind = ql::type_time::unix_time;
    const std::uint64_t wrap = std::uint64_t{1} << 32;
    EXPECT_TRUE(range.holds(stats_of(wrap + day_unix, day_unix, kind)));
    EXPECT_FALSE(range.holds(stats_of(wrap + day_unix + 1, day_unix, kind)));
}

TEST(time_range, times_of_any_other_kind_are_outside) {
    time_range range;
    ASSERT_EQ(range.set_start("2020/01/02"), range_result::set);
    EXPECT_FALSE(range.holds(stats_of(day, day, static_cast<ql::type_time>(2))));
}

}  // namespace
}  // namespace quarry
