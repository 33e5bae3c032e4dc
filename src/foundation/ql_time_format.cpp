#include "foundation/ql_time_format.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>

namespace ql {

namespace {

constexpr std::size_t none = std::string_view::npos;

bool has(std::string_view pattern, std::string_view part) {
    return pattern.find(part) != none;
}

std::string padded(std::uint64_t value, std::size_t width) {
    std::string digits = std::to_string(value);
    if (digits.size() < width) {
        digits.insert(0, width - digits.size(), '0');
    }
    return digits;
}

// "/" before "-" before a blank, whichever is in the pattern; 0 for none.
char separator_of(std::string_view date_pattern) {
    for (const char candidate : {'/', '-', ' '}) {
        if (date_pattern.find(candidate) != none) {
            return candidate;
        }
    }
    return 0;
}

std::string month_name(std::uint16_t month) {
    static constexpr std::array<const char*, 12> names = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    return month >= 1 && month <= names.size() ? names[month - 1u] : "";
}

std::string date_by_pattern(const _windows_systemtime& t, std::string_view pattern) {
    const std::size_t year_at = pattern.find("yy");
    const std::size_t month_at = pattern.find("mm");
    const std::size_t day_at = pattern.find("dd");
    std::string day = padded(t.wDay, 2);
    std::string year = padded(t.wYear, 4);
    if (year_at == none || month_at == none || day_at == none) {
        // Deliberate: a pattern that lacks one of the three fields gives month/day/four-digit year, not the
        // fields that it does name. The user sees that form.
        return padded(t.wMonth, 2) + "/" + day + "/" + year;
    }
    if (!has(pattern, "yyyy")) {
        year.erase(0, year.size() - 2);
    }
    const std::string month = has(pattern, "mmm") ? month_name(t.wMonth) : padded(t.wMonth, 2);
    const char found = separator_of(pattern);
    const char separator = found == 0 ? '/' : found;
    std::string middle;
    if (month_at > day_at) {
        middle = day + separator + month;
    } else {
        const bool comma = separator == ' ' && pattern.find(',', day_at) != none;
        middle = month + separator + day + (comma ? "," : "");
    }
    return year_at == 0 ? year + separator + middle : middle + separator + year;
}

// The number of fraction digits that a time pattern asks for: from the first "xxx" to the last "x".
std::size_t fraction_digits_of(std::string_view time_pattern) {
    const std::size_t first = time_pattern.find("xxx");
    return first == none ? 0 : time_pattern.rfind('x') - first + 1;
}

std::string fraction_text(const _windows_systemtime& t, std::size_t digits) {
    switch (digits) {
        case 3:
            return "." + padded(t.wMilliseconds, 3);
        case 4:
        case 5:
        case 6:
            return "." + padded(t.microseconds, 6).substr(0, digits);
        case 7:
        case 8:
        case 9:
            return "." + padded(t.nanoseconds, 9).substr(0, digits);
        // Deliberate: ten digits and more give no fraction at all, not the digits that there are. The user
        // sees whole seconds.
        default:
            return "";
    }
}

std::string time_by_pattern(const _windows_systemtime& t, std::string_view pattern) {
    std::string text;
    if (has(pattern, "hh:mm")) {
        text = padded(t.wHour, 2) + ":" + padded(t.wMinute, 2);
    }
    if (has(pattern, "ss")) {
        text += ":" + padded(t.wSecond, 2);
    }
    return text + fraction_text(t, fraction_digits_of(pattern));
}

// The order of the three fields of a date pattern as its flag; 0 for any other order.
std::uint32_t order_of(std::string_view date_pattern) {
    const std::size_t year_at = date_pattern.find("yy");
    const std::size_t month_at = date_pattern.find("mm");
    const std::size_t day_at = date_pattern.find("dd");
    if (year_at == none || month_at == none || day_at == none) {
        return 0;
    }
    if (day_at < month_at && month_at < year_at) {
        return layout_day_month_year;
    }
    if (month_at < day_at && day_at < year_at) {
        return layout_month_day_year;
    }
    return year_at < month_at && month_at < day_at ? layout_year_month_day : 0;
}

bool read_date_pattern(time_layout& settings, std::string_view pattern) {
    settings.separator = separator_of(pattern);
    if (has(pattern, "mm")) {
        settings.flags |= has(pattern, "mmm") ? layout_month_name : layout_month_digits;
    }
    if (has(pattern, "yy")) {
        settings.flags |= has(pattern, "yyyy") ? layout_long_year : layout_short_year;
    }
    if (has(pattern, ",")) {
        settings.flags |= layout_comma;
    }
    const std::uint32_t order = order_of(pattern);
    settings.flags |= order;
    return order != 0 || pattern.empty();
}

}  // namespace

void format_date_time(std::string& date_out, std::string& time_out, const time& value, bool with_fraction) {
    date_out.clear();
    time_out.clear();
    if (!value.valid) {
        return;
    }
    const _windows_systemtime& t = value.system_time;
    std::array<char, 30> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d", t.wYear, t.wMonth, t.wDay);
    date_out = text.data();
    if (with_fraction) {
        std::snprintf(text.data(), text.size(), "%02d:%02d:%02d.%03d", t.wHour, t.wMinute, t.wSecond,
                      t.wMilliseconds);
    } else {
        std::snprintf(text.data(), text.size(), "%02d:%02d:%02d", t.wHour, t.wMinute, t.wSecond);
    }
    time_out = text.data();
}

std::ostream& operator<<(std::ostream& out, const time& value) {
    std::string date;
    std::string time_of_day;
    format_date_time(date, time_of_day, value, true);
    return out << date << ' ' << time_of_day;
}

bool format_with_patterns(std::string& date_out, std::string& time_out, const time& value,
                          std::string_view date_pattern, std::string_view time_pattern) {
    date_out.clear();
    time_out.clear();
    if (!value.valid) {
        return false;
    }
    date_out = date_by_pattern(value.system_time, date_pattern);
    time_out = time_by_pattern(value.system_time, time_pattern);
    return true;
}

bool validate_patterns(time_layout& settings, std::string_view date_pattern, std::string_view time_pattern,
                       bool paired) {
    constexpr std::size_t most_digits = 9;
    settings = {};
    const bool accepted = read_date_pattern(settings, date_pattern);
    settings.fraction_digits =
        static_cast<std::uint32_t>(std::min(fraction_digits_of(time_pattern), most_digits));
    settings.paired = paired;
    return accepted;
}

bool file_time_anomaly(std::string& word, std::uint64_t created, std::uint64_t modified,
                       std::uint64_t mft_changed, std::uint64_t accessed, std::uint64_t reference) {
    const std::array<std::uint64_t, 4> times = {created, modified, mft_changed, accessed};
    const std::uint64_t latest = reference == 0 ? std::numeric_limits<std::uint64_t>::max() : reference;
    word.clear();
    if (std::find(times.begin(), times.end(), 0u) != times.end()) {
        word = "null";
    } else if (std::any_of(times.begin(), times.end(), [latest](std::uint64_t t) { return t > latest; })) {
        word = "future";
    }
    return !word.empty();
}

}  // namespace ql
