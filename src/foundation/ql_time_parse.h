// Dates and times as users type them, and the clock for the elapsed time of a run.
#pragma once

#include "foundation/ql_time.h"

#include <cstdint>
#include <string_view>

namespace ql {

// Reads a date and an optional time, both UTC. `order` names the date's three fields by the letters Y, M and
// D; `separator` is between them. Years up to 30 mean 2000 to 2030, years from 31 to 99 mean 1931 to 1999.
// The time is "h:m" or "h:m:s" with an optional fraction and an optional "am" or "pm"; "pm" adds 12 hours, at
// noon too. The lower ends of months and days are not checked. False, with `out` cleared, for text that
// cannot be read.
[[nodiscard]] bool parse_date_time(_windows_systemtime& out, std::string_view date_text,
                                   std::string_view time_text, std::string_view order, char separator);
// The FILETIME of calendar fields, down to the millisecond. A month outside 1 to 12 reaches into the years
// around.
void system_time_to_filetime(std::uint64_t& out, const _windows_systemtime& system_time);

// A clock reading as the Network Time Protocol writes it: seconds since 1900 and a fraction in 2^-32 seconds,
// both in network byte order.
struct ntp_time {
    std::uint32_t seconds = 0;
    std::uint32_t fraction = 0;
};
// The present time in whole seconds.
void clock_ntp(ntp_time& out);
// A FILETIME as a clock reading; zeros for a value with its top bit set.
[[nodiscard]] ntp_time filetime_to_ntp(std::uint64_t filetime);
// The seconds between two readings, whichever is the later.
[[nodiscard]] long double ntp_difference(const ntp_time& a, const ntp_time& b);

}  // namespace ql
