#include "foundation/ql_time_parse.h"

#include <arpa/inet.h>
#include <cstdint>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

namespace ql {
namespace {

// "year month day hour minute second milliseconds", or "unreadable" for text that is refused and leaves
// nothing.
std::string parsed(const char* date, const char* time_of_day = "", char separator = '-',
                   const char* order = "YMD") {
    _windows_systemtime t;
    t.wYear = 4711;
    t.wMilliseconds = 4711;
    const bool readable = parse_date_time(t, date, time_of_day, order, separator);
    std::string text;
    for (const std::uint16_t field :
         {t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds}) {
        text += (text.empty() ? "" : " ") + std::to_string(field);
    }
    if (!readable) {
        EXPECT_EQ(text, "0 0 0 0 0 0 0");
        return "unreadable";
    }
    return text;
}

TEST(parse_date, a_date_without_a_time_is_midnight) {
    EXPECT_EQ(parsed("2019-03-07"), "2019 3 7 0 0 0 0");
    EXPECT_EQ(parsed("2019/3/7", "", '/'), "2019 3 7 0 0 0 0");
}

TEST(parse_date, years_of_two_digits_turn_at_30) {
    EXPECT_EQ(parsed("19-03-07"), "2019 3 7 0 0 0 0");
    EXPECT_EQ(parsed("31-03-07"), "1931 3 7 0 0 0 0");
    EXPECT_EQ(parsed("0-03-07"), "2000 3 7 0 0 0 0");
    EXPECT_EQ(parsed("30-03-07"), "2030 3 7 0 0 0 0");
    EXPECT_EQ(parsed("99-03-07"), "1999 3 7 0 0 0 0");
    EXPECT_EQ(parsed("100-03-07"), "100 3 7 0 0 0 0");
}

TEST(parse_date, months_above_12_and_days_above_31_are_refused) {
    EXPECT_EQ(parsed("2019-12-31"), "2019 12 31 0 0 0 0");
    EXPECT_EQ(parsed("2019-13-01"), "unreadable");
    EXPECT_EQ(parsed("2019-01-32"), "unreadable");
}

TEST(parse_date, lower_ends_and_days_of_the_month_are_not_checked) {
    EXPECT_EQ(parsed("2019-00-00"), "2019 0 0 0 0 0 0");
    EXPECT_EQ(parsed("2019-02-31"), "2019 2 31 0 0 0 0");
}

TEST(parse_date, missing_and_unreadable_fields_are_refused) {
    EXPECT_EQ(parsed(""), "unreadable");
    EXPECT_EQ(parsed("2019"), "unreadable");
    EXPECT_EQ(parsed("2019-03"), "unreadable");
    EXPECT_EQ(parsed("2019--07"), "unreadable");
    EXPECT_EQ(parsed("-03-07"), "unreadable");
    EXPECT_EQ(parsed("2019-march-07"), "unreadable");
    EXPECT_EQ(parsed("2019/03/07", "", '-'), "unreadable");
}

TEST(parse_date, a_missing_date_is_refused) {
    _windows_systemtime t;
    EXPECT_FALSE(parse_date_time(t, {}, {}, "YMD", '-'));
}

TEST(parse_date, numbers_that_no_field_holds_are_refused) {
    EXPECT_EQ(parsed("65536/01/01", "", '/'), "unreadable");
    EXPECT_EQ(parsed("-1/01/01", "", '/'), "unreadable");
    EXPECT_EQ(parsed("2019/-1/01", "", '/'), "unreadable");
}

TEST(parse_date, a_fourth_field_is_ignored) {
    EXPECT_EQ(parsed("2019-03-07-99"), "2019 3 7 0 0 0 0");
}

TEST(parse_date, the_order_names_the_fields) {
    EXPECT_EQ(parsed("03/07/2019", "", '/', "MDY"), "2019 3 7 0 0 0 0");
    EXPECT_EQ(parsed("07/03/2019", "", '/', "DMY"), "2019 3 7 0 0 0 0");
    EXPECT_EQ(parsed("2019/03/07", "", '/', "YM?"), "unreadable");
}

TEST(parse_time, hours_minutes_and_seconds_are_read) {
    EXPECT_EQ(parsed("2019-03-07", "18:22"), "2019 3 7 18 22 0 0");
    EXPECT_EQ(parsed("2019-03-07", "18:22:41"), "2019 3 7 18 22 41 0");
    EXPECT_EQ(parsed("2019-03-07", " 8:5 "), "2019 3 7 8 5 0 0");
}

TEST(parse_time, a_time_without_a_colon_is_refused) {
    EXPECT_EQ(parsed("2019-03-07", "18"), "unreadable");
    EXPECT_EQ(parsed("2019-03-07", "noon"), "unreadable");
    EXPECT_EQ(parsed("2019-03-07", "  "), "unreadable");
}

TEST(parse_time, fractions_of_a_second_are_rounded_to_milliseconds) {
    EXPECT_EQ(parsed("2019-03-07", "18:22:41.093"), "2019 3 7 18 22 41 93");
    EXPECT_EQ(parsed("2019-03-07", "18:22:41.5"), "2019 3 7 18 22 41 500");
    EXPECT_EQ(parsed("2019-03-07", "18:22:41.0934"), "2019 3 7 18 22 41 93");
    EXPECT_EQ(parsed("2019-03-07", "18:22:41.0936"), "2019 3 7 18 22 41 94");
    EXPECT_EQ(parsed("2019-03-07", "18:22:41.9999"), "2019 3 7 18 22 41 1000");
}

TEST(parse_time, pm_adds_twelve_hours) {
    EXPECT_EQ(parsed("2019-03-07", "6:22 pm"), "2019 3 7 18 22 0 0");
    EXPECT_EQ(parsed("2019-03-07", "6:22PM"), "2019 3 7 18 22 0 0");
    EXPECT_EQ(parsed("2019-03-07", "6:22:41.5 pm"), "2019 3 7 18 22 41 500");
    EXPECT_EQ(parsed("2019-03-07", "6:22 am"), "2019 3 7 6 22 0 0");
    EXPECT_EQ(parsed("2019-03-07", "6:22am"), "2019 3 7 6 22 0 0");
    EXPECT_EQ(parsed("2019-03-07", "12:00 am"), "2019 3 7 12 0 0 0");
}

TEST(parse_time, pm_at_noon_is_hour_24_not_hour_12) {
    EXPECT_EQ(parsed("2019-03-07", "12:30 pm"), "2019 3 7 24 30 0 0");
}

TEST(parse_time, an_m_without_ap_in_front_of_it_adds_nothing) {
    EXPECT_EQ(parsed("2019-03-07", "6:22 m"), "2019 3 7 6 22 0 0");
    EXPECT_EQ(parsed("2019-03-07", "6:22 xm"), "2019 3 7 6 22 0 0");
}

TEST(parse_time, minutes_have_one_to_31_characters) {
    EXPECT_EQ(parsed("2019-03-07", "18:"), "unreadable");
    EXPECT_EQ(parsed("2019-03-07", "18::41"), "unreadable");
    EXPECT_EQ(parsed("2019-03-07", "6: pm"), "unreadable");
    EXPECT_EQ(parsed("2019-03-07", "6:pm"), "unreadable");
    EXPECT_EQ(parsed("2019-03-07", "6:m"), "unreadable");
    EXPECT_EQ(parsed("2019-03-07", ("18:" + std::string(30, '0') + "5").c_str()), "2019 3 7 18 5 0 0");
    EXPECT_EQ(parsed("2019-03-07", ("18:" + std::string(31, '0') + "5").c_str()), "unreadable");
}

TEST(parse_time, parts_without_digits_read_as_zero) {
    EXPECT_EQ(parsed("2019-03-07", ":30"), "2019 3 7 0 30 0 0");
    EXPECT_EQ(parsed("2019-03-07", "x:y:z"), "2019 3 7 0 0 0 0");
}

TEST(parse_time, numbers_that_no_field_holds_are_refused) {
    EXPECT_EQ(parsed("2019-03-07", "1e300:00"), "unreadable");
    EXPECT_EQ(parsed("2019-03-07", "nan:00"), "unreadable");
    EXPECT_EQ(parsed("2019-03-07", "-1:00"), "unreadable");
    EXPECT_EQ(parsed("2019-03-07", "00:inf"), "unreadable");
    EXPECT_EQ(parsed("2019-03-07", "00:00:-1"), "unreadable");
    EXPECT_EQ(parsed("2019-03-07", "00:00:65536"), "unreadable");
}

std::uint64_t filetime_of(std::uint16_t year, std::uint16_t month, std::uint16_t day, std::uint16_t hour = 0,
                          std::uint16_t minute = 0, std::uint16_t second = 0,
                          std::uint16_t milliseconds = 0) {
    _windows_systemtime t;
    t.wYear = year;
    t.wMonth = month;
    t.wDay = day;
    t.wHour = hour;
    t.wMinute = minute;
    t.wSecond = second;
    t.wMilliseconds = milliseconds;
    t.wDayOfWeek = 9;
    t.nanoseconds = 999;
    std::uint64_t out = 4711;
    system_time_to_filetime(out, t);
    return out;
}

// Worked out with GNU date: (seconds since 1970 + 11644473600) * 10000000.
TEST(system_time_to_filetime, known_dates_have_their_filetimes) {
    EXPECT_EQ(filetime_of(1601, 1, 1), 0u);
    EXPECT_EQ(filetime_of(1970, 1, 1), 116444736000000000u);
    EXPECT_EQ(filetime_of(2019, 3, 7, 18, 22, 41, 93), 131964565610930000u);
    EXPECT_EQ(filetime_of(2016, 2, 29, 23, 59, 59, 999), 131012639999990000u);
    EXPECT_EQ(filetime_of(2016, 3, 1), 131012640000000000u);
    EXPECT_EQ(filetime_of(3001, 1, 1), 441796896000000000u);
}

TEST(system_time_to_filetime, fields_beyond_their_ends_run_over) {
    EXPECT_EQ(filetime_of(2019, 13, 1), filetime_of(2020, 1, 1));
    EXPECT_EQ(filetime_of(2019, 25, 1), filetime_of(2021, 1, 1));
    EXPECT_EQ(filetime_of(2019, 0, 1), filetime_of(2018, 12, 1));
    EXPECT_EQ(filetime_of(2019, 2, 31), filetime_of(2019, 3, 3));
    EXPECT_EQ(filetime_of(2019, 3, 0), filetime_of(2019, 2, 28));
    EXPECT_EQ(filetime_of(2019, 3, 7, 24, 30), filetime_of(2019, 3, 8, 0, 30));
    EXPECT_EQ(filetime_of(2019, 3, 7, 0, 0, 59, 1000), filetime_of(2019, 3, 7, 0, 1));
}

TEST(system_time_to_filetime, dates_before_1601_are_negative) {
    EXPECT_EQ(filetime_of(1600, 12, 31), static_cast<std::uint64_t>(-864000000000));
    // The year 0 of the proleptic calendar begins 584754 days earlier.
    EXPECT_EQ(filetime_of(0, 1, 1), static_cast<std::uint64_t>(-584754LL * 864000000000));
    EXPECT_EQ(filetime_of(0, 0, 1), static_cast<std::uint64_t>((-584754LL - 31) * 864000000000));
}

TEST(system_time_to_filetime, it_undoes_the_fields_of_a_time_to_the_millisecond) {
    for (std::uint64_t ticks = 12345678; ticks < 441796896000000000; ticks += 86399 * ticks_per_second * 97) {
        std::uint64_t back = 0;
        system_time_to_filetime(back, time(ticks + unix_epoch_in_ticks, type_time::filetime).system_time);
        ASSERT_EQ(back, (ticks + unix_epoch_in_ticks) / 10000 * 10000);
    }
}

// The seconds and the fraction of a clock reading in the machine's own order.
std::uint32_t seconds_of(const ntp_time& reading) {
    return ntohl(reading.seconds);
}
std::uint32_t fraction_of(const ntp_time& reading) {
    return ntohl(reading.fraction);
}

TEST(ntp_clock, seconds_are_counted_from_1900) {
    EXPECT_EQ(seconds_of(filetime_to_ntp(ntp_epoch_in_ticks)), 0u);
    EXPECT_EQ(fraction_of(filetime_to_ntp(ntp_epoch_in_ticks)), 0u);
    // 70 years and 17 leap days
    EXPECT_EQ(seconds_of(filetime_to_ntp(unix_epoch_in_ticks)), 2208988800u);
}

TEST(ntp_clock, both_words_are_in_network_order) {
    const ntp_time reading = filetime_to_ntp(ntp_epoch_in_ticks + 0x01020304 * ticks_per_second);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&reading.seconds);
    EXPECT_EQ(bytes[0], 1);
    EXPECT_EQ(bytes[1], 2);
    EXPECT_EQ(bytes[2], 3);
    EXPECT_EQ(bytes[3], 4);
}

TEST(ntp_clock, a_fraction_with_a_large_first_digit_is_right) {
    EXPECT_EQ(fraction_of(filetime_to_ntp(ntp_epoch_in_ticks + 5000000)), 0x80000000u);
    EXPECT_EQ(fraction_of(filetime_to_ntp(ntp_epoch_in_ticks + 625000)), 0x10000000u);
}

TEST(ntp_clock, a_fraction_of_003_reads_as_048_not_a_shift_by_four_bits) {
    // 300000 * 2^28 / 10000000 is 0x7AE147; shifted by eight bits it begins with the digit 7.
    EXPECT_EQ(fraction_of(filetime_to_ntp(ntp_epoch_in_ticks + 300000)), 0x7AE14700u);
    const long double seconds =
        ntp_difference(filetime_to_ntp(ntp_epoch_in_ticks), filetime_to_ntp(ntp_epoch_in_ticks + 300000));
    EXPECT_NEAR(static_cast<double>(seconds), 0.48, 0.0001);
}

TEST(ntp_clock, a_tick_is_shifted_up_to_the_top) {
    // 2^28 / 10000000 is 26, 0x1A.
    EXPECT_EQ(fraction_of(filetime_to_ntp(ntp_epoch_in_ticks + 1)), 0x1A000000u);
}

TEST(ntp_clock, a_value_with_the_top_bit_set_is_zero) {
    EXPECT_EQ(seconds_of(filetime_to_ntp(0x8000000000000000)), 0u);
    EXPECT_EQ(fraction_of(filetime_to_ntp(0xFFFFFFFFFFFFFFFF)), 0u);
}

TEST(ntp_clock, the_difference_is_the_same_both_ways) {
    const ntp_time early = filetime_to_ntp(ntp_epoch_in_ticks + 10 * ticks_per_second);
    const ntp_time late = filetime_to_ntp(ntp_epoch_in_ticks + 12 * ticks_per_second + 5000000);
    EXPECT_EQ(ntp_difference(early, late), 2.5L);
    EXPECT_EQ(ntp_difference(late, early), 2.5L);
    EXPECT_EQ(ntp_difference(late, late), 0.0L);
}

TEST(ntp_clock, the_clock_reads_the_present_in_whole_seconds) {
    const auto before = static_cast<std::uint32_t>(std::time(nullptr) + 2208988800);
    ntp_time now;
    clock_ntp(now);
    const auto after = static_cast<std::uint32_t>(std::time(nullptr) + 2208988800);
    EXPECT_GE(seconds_of(now), before);
    EXPECT_LE(seconds_of(now), after);
    EXPECT_EQ(fraction_of(now), 0u);
}

}  // namespace
}  // namespace ql
