#include "foundation/ql_time.h"

#include <sys/time.h>

namespace ql {

namespace {

constexpr std::uint64_t seconds_per_day = 86400;
constexpr std::uint64_t days_per_year = 365;
constexpr std::uint64_t days_per_4_years = 4 * days_per_year + 1;
constexpr std::uint64_t days_per_century = 25 * days_per_4_years - 1;
constexpr std::uint64_t days_per_400_years = 4 * days_per_century + 1;

constexpr std::uint64_t low_32 = 0xFFFFFFFF;

constexpr std::uint16_t first_dos_year = 1980;
constexpr std::uint16_t last_dos_year = 2037;
constexpr std::uint16_t last_year_shown = 3000;
constexpr std::uint16_t last_year_hidden = 1899;
constexpr int first_tm_year_refused = 1101;  // 3001

std::uint16_t field(std::uint64_t value) {
    return static_cast<std::uint16_t>(value);
}

// Year, month and day of a count of days since 1601-01-01. Years are counted from March on, so that the leap
// day ends a year and the months' lengths run in an even pattern: (153 * month + 2) / 5 days lie before the
// month that comes `month` months after March. 1601-01-01 is day 306 of the year that began in March 1600,
// the first of a cycle of 400.
void set_date(_windows_systemtime& out, std::uint64_t days_since_1601) {
    const std::uint64_t days = days_since_1601 + 306;
    const std::uint64_t cycle = days / days_per_400_years;
    const std::uint64_t day_of_cycle = days % days_per_400_years;
    const std::uint64_t year_of_cycle =
        (day_of_cycle - day_of_cycle / (days_per_4_years - 1) + day_of_cycle / days_per_century -
         day_of_cycle / (days_per_400_years - 1)) /
        days_per_year;
    const std::uint64_t day_of_year =
        day_of_cycle - (days_per_year * year_of_cycle + year_of_cycle / 4 - year_of_cycle / 100);
    const std::uint64_t months_after_march = (5 * day_of_year + 2) / 153;
    const bool next_calendar_year = months_after_march >= 10;
    out.wDay = field(day_of_year - (153 * months_after_march + 2) / 5 + 1);
    out.wMonth = field(next_calendar_year ? months_after_march - 9 : months_after_march + 3);
    out.wYear = field(1600 + 400 * cycle + year_of_cycle + (next_calendar_year ? 1 : 0));
}

_windows_systemtime calendar_fields(std::uint64_t ticks) {
    const std::uint64_t seconds = ticks / ticks_per_second;
    const std::uint64_t fraction = ticks % ticks_per_second;
    const std::uint64_t days = seconds / seconds_per_day;
    const std::uint64_t second_of_day = seconds % seconds_per_day;
    _windows_systemtime out;
    set_date(out, days);
    out.wDayOfWeek = field((days + 1) % 7);
    out.wHour = field(second_of_day / 3600);
    out.wMinute = field(second_of_day / 60 % 60);
    out.wSecond = field(second_of_day % 60);
    out.wMilliseconds = field(fraction / 10000);
    out.microseconds = fraction / 10;
    out.nanoseconds = fraction * 100;
    out.picoseconds = fraction * 100000;
    return out;
}

// How far local time is ahead of UTC at present, daylight saving included.
std::time_t present_local_offset_in_seconds() {
    const std::time_t now = ::time(nullptr);
    std::tm local = {};
    return ::localtime_r(&now, &local) == nullptr ? 0 : local.tm_gmtoff;
}

}  // namespace

const char* name_of(type_time kind) {
    switch (kind) {
        case type_time::filetime:
            return "filetime";
        case type_time::unix_time:
            return "unix time";
    }
    return "";
}

time::time() {
    ::timeval now = {};
    ::gettimeofday(&now, nullptr);
    set_filetime(static_cast<std::uint64_t>(now.tv_sec) * ticks_per_second +
                 static_cast<std::uint64_t>(now.tv_usec) * 10 + unix_epoch_in_ticks);
}

time::time(std::uint64_t value, type_time kind) {
    if (kind == type_time::filetime) {
        set_filetime(value);
        return;
    }
    const auto seconds = static_cast<std::int64_t>(value);
    const std::uint64_t ticks = value * ticks_per_second + unix_epoch_in_ticks;
    // Seconds beyond the range of a FILETIME must not come back as some other date.
    constexpr std::int64_t largest = (INT64_MAX - unix_epoch_in_ticks) / ticks_per_second;
    if (seconds > 0 && seconds <= largest) {
        set_filetime(ticks);
    } else {
        filetime = ticks;
    }
    unix_seconds = seconds > 0 ? seconds : 0;
}

void time::set_filetime(std::uint64_t ticks) {
    filetime = ticks;
    if (ticks == 0 || static_cast<std::int64_t>(ticks) < 0) {
        return;
    }
    unix_seconds = static_cast<std::int64_t>((ticks - unix_epoch_in_ticks) / ticks_per_second);
    // Deliberate: the first second of 1970 is not a valid time, not one like any other. The user sees nothing
    // printed for a zero that was converted from Unix time on its way to the disk.
    if (unix_seconds == 0) {
        return;
    }
    system_time = calendar_fields(ticks);
    filetime_copy = {static_cast<std::uint32_t>(ticks & low_32), static_cast<std::uint32_t>(ticks >> 32)};
    set_dos_fields();
    set_local_tm();
    if (tm_failed && system_time.wYear > last_year_shown) {
        return;
    }
    // Deliberate: years up to 1899 print as nothing, not as dates. The user sees an empty time.
    valid = system_time.wYear > last_year_hidden;
}

void time::set_dos_fields() {
    const _windows_systemtime& t = system_time;
    if (t.wYear < first_dos_year || t.wYear > last_dos_year) {
        return;
    }
    dos_date = field((t.wYear - first_dos_year) * 512u + t.wMonth * 32u + t.wDay);
    // Two seconds a unit; an odd second rounds up, and 59 takes the unit 30.
    const std::uint32_t units = (t.wSecond / 2u + t.wSecond % 2u) & 31u;
    dos_time = field(t.wHour * 2048u + t.wMinute * 32u + units);
}

void time::set_local_tm() {
    const std::time_t local_seconds = unix_seconds + present_local_offset_in_seconds();
    if (unix_seconds < 0 || system_time.wYear > last_year_shown ||
        ::gmtime_r(&local_seconds, &local_tm) == nullptr || local_tm.tm_year >= first_tm_year_refused) {
        local_tm = {};
        tm_failed = true;
    }
}

}  // namespace ql
