#include "foundation/ql_time_parse.h"

#include "foundation/ql_number.h"
#include "foundation/ql_string.h"
#include "foundation/ql_text.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cmath>
#include <cstdlib>
#include <string>
#include <sys/time.h>
#include <vector>

namespace ql {

namespace {

constexpr std::size_t none = std::string_view::npos;
constexpr std::uint16_t last_pivoted_year = 99;
constexpr std::uint16_t first_year_of_1900s = 31;
constexpr std::uint16_t last_month = 12;
constexpr std::uint16_t last_day = 31;
constexpr std::size_t longest_minutes = 31;

// False for a number that a field cannot hold.
bool set_field(std::uint16_t& field, double value) {
    if (!(value > -1.0 && value < 65536.0)) {
        return false;
    }
    field = static_cast<std::uint16_t>(std::max(value, 0.0));
    return true;
}

double number_in(std::string_view text) {
    return std::strtod(std::string(text).c_str(), nullptr);
}

bool set_date_field(_windows_systemtime& out, char letter, std::uint16_t value) {
    switch (letter) {
        case 'Y':
            out.wYear = value;
            if (value <= last_pivoted_year) {
                out.wYear = static_cast<std::uint16_t>(value + (value >= first_year_of_1900s ? 1900 : 2000));
            }
            return true;
        case 'M':
            out.wMonth = value;
            return value <= last_month;
        case 'D':
            out.wDay = value;
            return value <= last_day;
        default:
            return false;
    }
}

bool parse_date(_windows_systemtime& out, std::string_view text, std::string_view order, char separator) {
    std::vector<std::string> fields;
    if (!quarry::split(fields, text, separator, {.trim_each = true, .keep_empty = true}) ||
        fields.size() < order.size()) {
        return false;
    }
    for (std::size_t i = 0; i < order.size(); ++i) {
        std::int32_t number = 0;
        std::uint16_t value = 0;
        if (!quarry::parse_int(number, fields[i]) || !set_field(value, number) ||
            !set_date_field(out, order[i], value)) {
            return false;
        }
    }
    return true;
}

// A time text without its "am" or "pm" and the blanks before it.
struct half_day_text {
    std::string_view digits;
    bool afternoon = false;
};

half_day_text take_half_day(std::string_view text, std::size_t first_colon) {
    const std::size_t m = text.find('m', first_colon);
    if (m == none) {
        return {text, false};
    }
    const char letter = text[m - 1];
    std::string_view digits = text.substr(0, letter == 'a' || letter == 'p' ? m - 1 : m);
    while (digits.size() > first_colon + 1 && digits.back() == ' ') {
        digits.remove_suffix(1);
    }
    return {digits, letter == 'p'};
}

bool parse_seconds(_windows_systemtime& out, std::string_view text) {
    const double seconds = number_in(text);
    if (!set_field(out.wSecond, seconds)) {
        return false;
    }
    return set_field(out.wMilliseconds, (seconds - std::trunc(seconds)) * 1000 + 0.5);
}

bool parse_time(_windows_systemtime& out, std::string_view typed) {
    std::string text(typed);
    quarry::trim(text);
    quarry::lower_narrow(text);
    const std::size_t first_colon = text.find(':');
    if (first_colon == none) {
        return false;
    }
    const half_day_text half = take_half_day(text, first_colon);
    // Deliberate: "pm" always adds 12, also to 12. The user sees 12:30 pm taken for hour 24, not for half
    // past noon.
    const double hours =
        std::trunc(number_in(half.digits.substr(0, first_colon))) + (half.afternoon ? 12 : 0);
    const std::size_t second_colon = half.digits.find(':', first_colon + 1);
    const std::size_t minutes_end = std::min(second_colon, half.digits.size());
    const std::string_view minutes = half.digits.substr(first_colon + 1, minutes_end - first_colon - 1);
    if (minutes.empty() || minutes.size() > longest_minutes) {
        return false;
    }
    return set_field(out.wHour, hours) && set_field(out.wMinute, number_in(minutes)) &&
           (second_colon == none || parse_seconds(out, half.digits.substr(second_colon + 1)));
}

bool is_leap_year(std::int64_t year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

// Days from 1601-01-01 to the first day of a year of -1 or later; negative for years before 1601. The count
// starts at the year -399, which like 1601 begins a cycle of 400 years and keeps all divisions among positive
// numbers.
std::int64_t days_before_year(std::int64_t year) {
    constexpr std::int64_t days_in_2000_years = 730485;
    const std::int64_t years = year + 399;
    return years * 365 + years / 4 - years / 100 + years / 400 - days_in_2000_years;
}

std::int64_t days_before_month(std::int64_t month_from_0, bool leap_year) {
    static constexpr std::array<std::int64_t, 12> days = {0,   31,  59,  90,  120, 151,
                                                          181, 212, 243, 273, 304, 334};
    return days[static_cast<std::size_t>(month_from_0)] + (leap_year && month_from_0 > 1 ? 1 : 0);
}

}  // namespace

bool parse_date_time(_windows_systemtime& out, std::string_view date_text, std::string_view time_text,
                     std::string_view order, char separator) {
    out = {};
    _windows_systemtime parsed;
    if (!parse_date(parsed, date_text, order, separator) ||
        (!time_text.empty() && !parse_time(parsed, time_text))) {
        return false;
    }
    out = parsed;
    return true;
}

void system_time_to_filetime(std::uint64_t& out, const _windows_systemtime& system_time) {
    // Twelve months are put on top so that month 0 divides among positive numbers too.
    const std::int64_t months = system_time.wMonth + 11;
    const std::int64_t year = system_time.wYear - 1 + months / 12;
    const std::int64_t days =
        days_before_year(year) + days_before_month(months % 12, is_leap_year(year)) + system_time.wDay - 1;
    const std::int64_t seconds =
        ((days * 24 + system_time.wHour) * 60 + system_time.wMinute) * 60 + system_time.wSecond;
    out = static_cast<std::uint64_t>(seconds) * ticks_per_second +
          system_time.wMilliseconds * std::uint64_t{10000};
}

ntp_time filetime_to_ntp(std::uint64_t filetime) {
    if (static_cast<std::int64_t>(filetime) < 0) {
        return {};
    }
    const std::uint64_t since_1900 = filetime - ntp_epoch_in_ticks;
    auto fraction = static_cast<std::uint32_t>(((since_1900 % ticks_per_second) << 28) / ticks_per_second);
    // Deliberate: the fraction is shifted until its highest hexadecimal digit is at the top, not always by
    // four bits. The user sees 0.03 seconds taken for 0.48.
    while (fraction != 0 && (fraction & 0xF0000000u) == 0) {
        fraction <<= 4;
    }
    return {htonl(static_cast<std::uint32_t>(since_1900 / ticks_per_second)), htonl(fraction)};
}

void clock_ntp(ntp_time& out) {
    ::timeval now = {};
    ::gettimeofday(&now, nullptr);
    out = filetime_to_ntp(time(static_cast<std::uint64_t>(now.tv_sec), type_time::unix_time).filetime);
}

long double ntp_difference(const ntp_time& a, const ntp_time& b) {
    const auto seconds_of = [](const ntp_time& reading) {
        return static_cast<long double>(ntohl(reading.seconds)) +
               static_cast<long double>(ntohl(reading.fraction)) * 0x1p-32L;
    };
    return std::fabs(seconds_of(a) - seconds_of(b));
}

}  // namespace ql
