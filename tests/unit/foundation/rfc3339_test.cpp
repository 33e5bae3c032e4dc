#include "foundation/rfc3339.h"

#include <cstdint>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

namespace quarry {
namespace {

constexpr std::uint64_t second = 10000000;
constexpr std::uint64_t day = 86400 * second;

std::string text(std::uint64_t filetime) {
    return rfc3339_of_filetime(filetime).value_or("(nothing)");
}

TEST(rfc3339, has_seven_decimals_for_a_filetime) {
    // 134,083,405,611,234,567 ticks: 11,644,473,600 seconds lie between 1601 and 1970, 1,763,866,961 after.
    EXPECT_EQ(text(134083405611234567), "2025-11-23T03:02:41.1234567Z");
    EXPECT_EQ(text(116444736000000000), "1970-01-01T00:00:00.0000000Z");
}

TEST(rfc3339, begins_with_1601) {
    EXPECT_EQ(text(0), "1601-01-01T00:00:00.0000000Z");
    EXPECT_EQ(text(1), "1601-01-01T00:00:00.0000001Z");
    EXPECT_EQ(text(second - 1), "1601-01-01T00:00:00.9999999Z");
    EXPECT_EQ(text(day - 1), "1601-01-01T23:59:59.9999999Z");
    EXPECT_EQ(text(day), "1601-01-02T00:00:00.0000000Z");
}

TEST(rfc3339, ends_with_the_year_9999) {
    EXPECT_EQ(text(2650467743999999999), "9999-12-31T23:59:59.9999999Z");
    EXPECT_EQ(rfc3339_of_filetime(2650467744000000000), std::nullopt);
    EXPECT_EQ(rfc3339_of_filetime(0xFFFFFFFFFFFFFFFF), std::nullopt);
}

TEST(rfc3339, knows_leap_days) {
    // 1604 is the first leap year: 3 * 365 + 31 + 28 = 1,154 days come before its 29th of February.
    EXPECT_EQ(text(1154 * day), "1604-02-29T00:00:00.0000000Z");
    EXPECT_EQ(text(1155 * day), "1604-03-01T00:00:00.0000000Z");
    // 1700 has none: 99 years with 24 leap days, 31 + 28 days.
    EXPECT_EQ(text((99 * 365 + 24 + 59) * day), "1700-03-01T00:00:00.0000000Z");
    // 2000 has one: 399 years with 96 leap days.
    EXPECT_EQ(text((399 * 365 + 96 + 59) * day), "2000-02-29T00:00:00.0000000Z");
    EXPECT_EQ(text((399 * 365 + 96 + 365) * day), "2000-12-31T00:00:00.0000000Z");
    EXPECT_EQ(text((399 * 365 + 96 + 366) * day), "2001-01-01T00:00:00.0000000Z");
}

// Every day of the 400 years after which the calendar repeats itself, then some up to the year 10000.
TEST(rfc3339, agrees_with_the_c_library_on_every_day) {
    for (std::int64_t days = 0; days < 3067671; days += days < 146097 ? 1 : 23) {
        const std::time_t seconds = days * 86400 + 86399 - 11644473600;
        std::tm broken_down{};
        ASSERT_NE(::gmtime_r(&seconds, &broken_down), nullptr);
        char expected[40];
        ASSERT_NE(std::strftime(expected, sizeof(expected), "%Y-%m-%dT%H:%M:%SZ", &broken_down), 0u);
        ASSERT_EQ(rfc3339_of_seconds(seconds), expected) << days;
    }
}

TEST(rfc3339, has_no_decimals_for_seconds) {
    EXPECT_EQ(rfc3339_of_seconds(0), "1970-01-01T00:00:00Z");
    EXPECT_EQ(rfc3339_of_seconds(-1), "1969-12-31T23:59:59Z");
    EXPECT_EQ(rfc3339_of_seconds(-11644473600), "1601-01-01T00:00:00Z");
    EXPECT_EQ(rfc3339_of_seconds(-11644473601), std::nullopt);
    EXPECT_EQ(rfc3339_of_seconds(253402300799), "9999-12-31T23:59:59Z");
    EXPECT_EQ(rfc3339_of_seconds(253402300800), std::nullopt);
}

}  // namespace
}  // namespace quarry
