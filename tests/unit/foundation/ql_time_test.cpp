#include "foundation/ql_time.h"

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

namespace ql {
namespace {

// The values of this file were worked out with GNU date: (seconds since 1970 + 11644473600) * 10000000.
constexpr std::uint64_t year_1601_january_2 = 864000000000;
constexpr std::uint64_t year_1850 = 78576480000000000;
constexpr std::uint64_t last_tick_of_1899 = 94354847999999999;
constexpr std::uint64_t year_1900 = 94354848000000000;
constexpr std::uint64_t march_2019 = 131964565610930000;  // 2019-03-07 18:22:41.093
constexpr std::uint64_t year_3001 = 441796896000000000;

time filetime_of(std::uint64_t ticks) {
    return time(ticks, type_time::filetime);
}

// year month day weekday hour minute second milliseconds
std::string fields(const time& value) {
    const _windows_systemtime& t = value.system_time;
    std::string text;
    for (const std::uint16_t field :
         {t.wYear, t.wMonth, t.wDay, t.wDayOfWeek, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds}) {
        text += (text.empty() ? "" : " ") + std::to_string(field);
    }
    return text;
}

TEST(time_from_filetime, a_usual_value_gives_all_fields) {
    const time value = filetime_of(march_2019 + 4567);
    EXPECT_TRUE(value.valid);
    EXPECT_EQ(value.filetime, 131964565610934567u);
    EXPECT_EQ(value.unix_seconds, 1551982961);
    EXPECT_EQ(fields(value), "2019 3 7 4 18 22 41 93");
    EXPECT_EQ(value.system_time.microseconds, 93456u);
    EXPECT_EQ(value.system_time.nanoseconds, 93456700u);
    EXPECT_EQ(value.system_time.picoseconds, 93456700000u);
    EXPECT_EQ(value.filetime_copy.low, 0xC02DB127u);
    EXPECT_EQ(value.filetime_copy.high, 0x01D4D512u);
}

TEST(time_from_filetime, zero_is_not_valid) {
    const time value = filetime_of(0);
    EXPECT_FALSE(value.valid);
    EXPECT_EQ(value.unix_seconds, 0);
    EXPECT_EQ(fields(value), "0 0 0 0 0 0 0 0");
}

TEST(time_from_filetime, a_value_with_the_top_bit_set_is_kept_but_not_valid) {
    for (const std::uint64_t ticks : {0x8000000000000000u, 0x8000000000000001u, 0xFFFFFFFFFFFFFFFFu}) {
        const time value = filetime_of(ticks);
        EXPECT_FALSE(value.valid);
        EXPECT_EQ(value.filetime, ticks);
        EXPECT_EQ(value.unix_seconds, 0);
        EXPECT_EQ(fields(value), "0 0 0 0 0 0 0 0");
    }
}

TEST(time_from_filetime, the_first_second_of_1970_is_not_valid_not_a_time_like_any_other) {
    EXPECT_FALSE(filetime_of(unix_epoch_in_ticks).valid);
    EXPECT_FALSE(filetime_of(unix_epoch_in_ticks + ticks_per_second - 1).valid);
    const time next = filetime_of(unix_epoch_in_ticks + ticks_per_second);
    EXPECT_TRUE(next.valid);
    EXPECT_EQ(next.unix_seconds, 1);
    EXPECT_EQ(fields(next), "1970 1 1 4 0 0 1 0");
    const time before = filetime_of(unix_epoch_in_ticks - 1);
    EXPECT_TRUE(before.valid);
    EXPECT_EQ(fields(before), "1969 12 31 3 23 59 59 999");
}

TEST(time_from_filetime, years_up_to_1899_are_not_valid_not_every_date_since_1601_to_print) {
    EXPECT_FALSE(filetime_of(1).valid);
    EXPECT_FALSE(filetime_of(year_1601_january_2).valid);
    EXPECT_FALSE(filetime_of(year_1850).valid);
    EXPECT_EQ(fields(filetime_of(year_1850)), "1850 1 1 2 0 0 0 0");
    EXPECT_FALSE(filetime_of(last_tick_of_1899).valid);
    EXPECT_TRUE(filetime_of(year_1900).valid);
}

TEST(time_from_filetime, a_time_before_1970_has_a_huge_unix_time_and_no_local_one) {
    const time value = filetime_of(year_1900);
    // (2^64 + 94354848000000000 - 116444736000000000) / 10000000
    EXPECT_EQ(value.unix_seconds, 1842465418570);
    EXPECT_TRUE(value.tm_failed);
    EXPECT_EQ(value.local_tm.tm_year, 0);
    EXPECT_EQ(fields(value), "1900 1 1 1 0 0 0 0");
}

TEST(time_from_filetime, years_past_3000_are_not_valid) {
    EXPECT_TRUE(filetime_of(year_3001 - 1).valid);
    EXPECT_EQ(fields(filetime_of(year_3001 - 1)), "3000 12 31 3 23 59 59 999");
    const time value = filetime_of(year_3001);
    EXPECT_FALSE(value.valid);
    EXPECT_TRUE(value.tm_failed);
    EXPECT_EQ(fields(value), "3001 1 1 4 0 0 0 0");
    EXPECT_FALSE(filetime_of(0x7FFFFFFFFFFFFFFF).valid);
    EXPECT_EQ(filetime_of(0x7FFFFFFFFFFFFFFF).system_time.wYear, 30828);
}

TEST(time_from_filetime, leap_days_follow_the_gregorian_rule) {
    EXPECT_EQ(fields(filetime_of(131012639990000000)), "2016 2 29 1 23 59 59 0");
    EXPECT_EQ(fields(filetime_of(131012639999990000)), "2016 2 29 1 23 59 59 999");
    EXPECT_EQ(fields(filetime_of(131012640000000000)), "2016 3 1 2 0 0 0 0");
    // 1900 has no leap day, 2000 has one.
    EXPECT_EQ(fields(filetime_of(year_1900 + 58 * 864000000000)), "1900 2 28 3 0 0 0 0");
    EXPECT_EQ(fields(filetime_of(year_1900 + 59 * 864000000000)), "1900 3 1 4 0 0 0 0");
    EXPECT_EQ(fields(filetime_of(125962560000000000)), "2000 2 29 2 0 0 0 0");
    EXPECT_EQ(fields(filetime_of(125963424000000000)), "2000 3 1 3 0 0 0 0");
}

bool is_leap(int year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

TEST(time_from_filetime, every_day_from_1601_to_3100_is_the_calendars) {
    constexpr int month_days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    std::uint64_t ticks = ticks_per_second;  // the first second of 1970 has no fields
    int weekday = 1;                         // 1601-01-01 was a Monday
    for (int year = 1601; year <= 3100; ++year) {
        for (int month = 1; month <= 12; ++month) {
            const int days = month_days[month - 1] + (month == 2 && is_leap(year) ? 1 : 0);
            for (int day = 1; day <= days; ++day) {
                const _windows_systemtime t = filetime_of(ticks).system_time;
                if (t.wYear != year || t.wMonth != month || t.wDay != day || t.wDayOfWeek != weekday) {
                    FAIL() << year << '-' << month << '-' << day << " is " << fields(filetime_of(ticks));
                }
                ticks += 86400 * ticks_per_second;
                weekday = (weekday + 1) % 7;
            }
        }
    }
}

TEST(time_from_filetime, dos_fields_round_odd_seconds_up) {
    // 1980-01-01 00:00:00 and seconds after it
    constexpr std::uint64_t year_1980 = 119600064000000000;
    EXPECT_EQ(filetime_of(year_1980).dos_date, 0x0021);
    EXPECT_EQ(filetime_of(year_1980).dos_time, 0);
    EXPECT_EQ(filetime_of(year_1980 + 1 * ticks_per_second).dos_time, 1);
    EXPECT_EQ(filetime_of(year_1980 + 2 * ticks_per_second).dos_time, 1);
    EXPECT_EQ(filetime_of(year_1980 + 59 * ticks_per_second).dos_time, 30);
    // 18:22:41 is 18 * 2048 + 22 * 32 + 21, 2019-03-07 is 39 * 512 + 3 * 32 + 7
    EXPECT_EQ(filetime_of(march_2019).dos_time, 37589);
    EXPECT_EQ(filetime_of(march_2019).dos_date, 20071);
}

TEST(time_from_filetime, dos_fields_are_zero_outside_of_1980_to_2037) {
    constexpr std::uint64_t year_1980 = 119600064000000000;
    constexpr std::uint64_t year_2038 = 137903904000000000;
    EXPECT_EQ(filetime_of(year_1980 - 1).dos_date, 0);
    EXPECT_EQ(filetime_of(year_1980 - 1).dos_time, 0);
    EXPECT_EQ(filetime_of(year_2038 - 1).dos_date, 57 * 512 + 12 * 32 + 31);
    EXPECT_EQ(filetime_of(year_2038 - 1).dos_time, 23 * 2048 + 59 * 32 + 30);
    EXPECT_EQ(filetime_of(year_2038).dos_date, 0);
    EXPECT_EQ(filetime_of(year_2038).dos_time, 0);
}

// The hours that local time is ahead of the time in UTC, on this day.
int local_hours_ahead(const time& value) {
    return (value.local_tm.tm_hour - value.system_time.wHour + 36) % 24 - 12;
}

class with_zone {
  public:
    explicit with_zone(const char* zone) {
        const char* const before = std::getenv("TZ");
        m_was_set = before != nullptr;
        m_before = m_was_set ? before : "";
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
    with_zone(const with_zone&) = delete;
    with_zone& operator=(const with_zone&) = delete;
    ~with_zone() {
        if (m_was_set) {
            ::setenv("TZ", m_before.c_str(), 1);
        } else {
            ::unsetenv("TZ");
        }
        ::tzset();
    }

  private:
    bool m_was_set = false;
    std::string m_before;
};

TEST(time_from_filetime, local_time_is_the_offset_in_force_now_and_all_else_is_utc) {
    const with_zone zone("XYZ-5");  // five hours ahead, the year round
    const time value = filetime_of(march_2019);
    EXPECT_FALSE(value.tm_failed);
    EXPECT_EQ(local_hours_ahead(value), 5);
    EXPECT_EQ(value.local_tm.tm_year, 119);
    EXPECT_EQ(value.local_tm.tm_mon, 2);
    EXPECT_EQ(value.local_tm.tm_mday, 7);
    EXPECT_EQ(value.local_tm.tm_hour, 23);
    EXPECT_EQ(fields(value), "2019 3 7 4 18 22 41 93");
}

TEST(time_from_filetime, the_last_hours_of_3000_stay_valid_where_local_time_is_in_3001_already) {
    const with_zone zone("XYZ-5");
    const time value = filetime_of(year_3001 - 1);
    EXPECT_TRUE(value.tm_failed);
    EXPECT_EQ(value.local_tm.tm_year, 0);
    EXPECT_TRUE(value.valid);
}

TEST(time_from_filetime, the_first_hours_of_3001_are_not_valid_where_local_time_is_in_3000_still) {
    const with_zone zone("XYZ5");  // five hours west of UTC
    const time value = filetime_of(year_3001);
    EXPECT_TRUE(value.tm_failed);
    EXPECT_EQ(value.local_tm.tm_year, 0);
    EXPECT_FALSE(value.valid);
}

TEST(time_from_unix_time, seconds_become_a_filetime) {
    const time value(1551982961, type_time::unix_time);
    EXPECT_TRUE(value.valid);
    EXPECT_EQ(value.unix_seconds, 1551982961);
    EXPECT_EQ(value.filetime, 131964565610000000u);
    EXPECT_EQ(fields(value), "2019 3 7 4 18 22 41 0");
}

TEST(time_from_unix_time, zero_and_negative_seconds_are_not_valid_but_keep_their_filetime) {
    const time zero(0, type_time::unix_time);
    EXPECT_FALSE(zero.valid);
    EXPECT_EQ(zero.filetime, unix_epoch_in_ticks);
    const time negative(static_cast<std::uint64_t>(-10), type_time::unix_time);
    EXPECT_FALSE(negative.valid);
    EXPECT_EQ(negative.unix_seconds, 0);
    EXPECT_EQ(negative.filetime, unix_epoch_in_ticks - 100000000);
    EXPECT_EQ(fields(negative), "0 0 0 0 0 0 0 0");
}

TEST(time_from_unix_time, one_second_is_the_first_that_is_valid) {
    EXPECT_TRUE(time(1, type_time::unix_time).valid);
}

TEST(time_from_unix_time, seconds_beyond_the_range_of_a_filetime_do_not_come_back_as_another_date) {
    // (2^63 - 1 - 116444736000000000) / 10000000
    EXPECT_EQ(time(910692730085, type_time::unix_time).system_time.wYear, 30828);
    EXPECT_EQ(time(910692730086, type_time::unix_time).system_time.wYear, 0);
    // 2^64 / 10000000 more than 2019-03-07: the product would wrap to that day.
    EXPECT_FALSE(time(1551982961 + 1844674407371, type_time::unix_time).valid);
    EXPECT_FALSE(time(0x7FFFFFFFFFFFFFFF, type_time::unix_time).valid);
    EXPECT_EQ(time(910692730086, type_time::unix_time).unix_seconds, 910692730086)
        << "they are kept as they came";
}

TEST(time_now, the_default_is_the_systems_clock) {
    const std::time_t before = std::time(nullptr);
    const time now;
    const std::time_t after = std::time(nullptr);
    EXPECT_TRUE(now.valid);
    EXPECT_GE(now.unix_seconds, before);
    EXPECT_LE(now.unix_seconds, after);
}

TEST(type_time, kinds_are_one_bit_masks_with_names) {
    EXPECT_EQ(static_cast<std::uint32_t>(type_time::filetime), 1u);
    EXPECT_EQ(static_cast<std::uint32_t>(type_time::unix_time), 8u);
    EXPECT_STREQ(name_of(type_time::filetime), "filetime");
    EXPECT_STREQ(name_of(type_time::unix_time), "unix time");
    EXPECT_STREQ(name_of(static_cast<type_time>(2)), "");
}

}  // namespace
}  // namespace ql
