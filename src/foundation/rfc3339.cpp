#include "foundation/rfc3339.h"

#include <array>
#include <cinttypes>
#include <cstdio>

namespace quarry {

namespace {

constexpr std::uint64_t ticks_in_second = 10000000;
constexpr std::uint64_t seconds_in_day = 86400;
constexpr std::uint64_t days_in_year = 365;
constexpr std::uint64_t days_in_4_years = 4 * days_in_year + 1;
constexpr std::uint64_t days_in_century = 25 * days_in_4_years - 1;
constexpr std::uint64_t days_in_400_years = 4 * days_in_century + 1;
constexpr std::uint64_t first_year = 1601;
constexpr std::int64_t seconds_from_1601_to_1970 = 11644473600;

struct date {
    std::uint64_t year;
    std::uint64_t month;
    std::uint64_t day;
};

// 1601 is the first year of 400 of the calendar, so leap years end the groups of 4, and of 400.
date date_of(std::uint64_t days) {
    const std::uint64_t rounds = days / days_in_400_years;
    days %= days_in_400_years;
    const std::uint64_t centuries = days / days_in_century < 4 ? days / days_in_century : 3;
    days -= centuries * days_in_century;
    const std::uint64_t fours = days / days_in_4_years;
    days %= days_in_4_years;
    const std::uint64_t years = days / days_in_year < 4 ? days / days_in_year : 3;
    days -= years * days_in_year;
    const bool is_leap = years == 3 && (fours != 24 || centuries == 3);
    const std::array<std::uint64_t, 12> months = {31, is_leap ? 29u : 28u, 31, 30, 31, 30, 31, 31, 30, 31, 30,
                                                  31};
    std::size_t month = 0;
    while (days >= months[month]) {
        days -= months[month++];
    }
    return {first_year + rounds * 400 + centuries * 100 + fours * 4 + years, month + 1, days + 1};
}

// Seconds since 1601, without a zone.
std::string text_of(std::uint64_t seconds) {
    const date day = date_of(seconds / seconds_in_day);
    const std::uint64_t time = seconds % seconds_in_day;
    std::array<char, 72> text{};
    std::snprintf(text.data(), text.size(),
                  "%04" PRIu64 "-%02" PRIu64 "-%02" PRIu64 "T%02" PRIu64 ":%02" PRIu64 ":%02" PRIu64,
                  day.year, day.month, day.day, time / 3600, time / 60 % 60, time % 60);
    return text.data();
}

}  // namespace

std::optional<std::string> rfc3339_of_filetime(std::uint64_t filetime) {
    if (filetime >= first_filetime_of_year_10000) {
        return std::nullopt;
    }
    std::array<char, 24> decimals{};
    std::snprintf(decimals.data(), decimals.size(), ".%07" PRIu64 "Z", filetime % ticks_in_second);
    return text_of(filetime / ticks_in_second) + decimals.data();
}

std::optional<std::string> rfc3339_of_seconds(std::int64_t seconds) {
    constexpr std::int64_t last = static_cast<std::int64_t>(first_filetime_of_year_10000 / ticks_in_second);
    if (seconds < -seconds_from_1601_to_1970 || seconds >= last - seconds_from_1601_to_1970) {
        return std::nullopt;
    }
    return text_of(static_cast<std::uint64_t>(seconds + seconds_from_1601_to_1970)) + "Z";
}

}  // namespace quarry
