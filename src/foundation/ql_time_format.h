// Times as text: the fixed form of all reports, and the pattern language of the run header.
//
// A report writes 2019-03-07 and 18:22:41.093, in UTC, whatever options say. The pattern language serves the
// run header and the check of -dateformat and -timeformat. A date pattern ("mm/dd/yyyy", "mmm dd, yyyy") is
// looked at for its separator and for the places of "yy", "mm" and "dd"; a time pattern ("hh:mm:ss.xxx") for
// "hh:mm", "ss" and a row of x. Patterns are lower case.
#pragma once

#include "foundation/ql_time.h"

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

namespace ql {

// The fixed form; the fraction has three digits and is cut, not rounded. A time that is not valid gives empty
// texts.
void format_date_time(std::string& date_out, std::string& time_out, const time& value, bool with_fraction);
// The fixed form with fraction: date, one blank, time. A time that is not valid writes only the blank.
std::ostream& operator<<(std::ostream& out, const time& value);

// Date and time by patterns. An empty time pattern gives an empty time. False, with both texts empty, for a
// time that is not valid.
[[nodiscard]] bool format_with_patterns(std::string& date_out, std::string& time_out, const time& value,
                                        std::string_view date_pattern, std::string_view time_pattern);

// What a date pattern holds.
inline constexpr std::uint32_t layout_month_name = 0x01;    // "mmm"
inline constexpr std::uint32_t layout_month_digits = 0x02;  // only "mm"
inline constexpr std::uint32_t layout_long_year = 0x04;     // "yyyy"
inline constexpr std::uint32_t layout_short_year = 0x08;    // only "yy"
inline constexpr std::uint32_t layout_comma = 0x10;
inline constexpr std::uint32_t layout_day_month_year = 0x20;
inline constexpr std::uint32_t layout_month_day_year = 0x40;
inline constexpr std::uint32_t layout_year_month_day = 0x80;

// The settings that two patterns make.
struct time_layout {
    char separator = 0;  // "/", "-" or a blank; 0 for a pattern without one
    std::uint32_t flags = 0;
    std::uint16_t first_year = 1900;
    std::uint16_t last_year = 2600;
    std::uint32_t fraction_digits = 0;  // 0 to 9
    bool paired = false;                // date and time belong into one column
};
// Reads two patterns into settings, which are reset first. An empty date pattern is accepted; any other must
// name month, year and day in one of the three orders. False for a date pattern that does not; the settings
// then hold what was read of it.
[[nodiscard]] bool validate_patterns(time_layout& settings, std::string_view date_pattern,
                                     std::string_view time_pattern, bool paired);

// What is odd about four FILETIMEs of one attribute: "null" if any is zero, else "future" if any is later
// than the reference, else "". A reference of zero is later than everything. True if there is a word.
[[nodiscard]] bool file_time_anomaly(std::string& word, std::uint64_t created, std::uint64_t modified,
                                     std::uint64_t mft_changed, std::uint64_t accessed,
                                     std::uint64_t reference);

}  // namespace ql
