// Dates and times as users type them, and the clock behind the elapsed time.
#pragma once

#include <cstdint>
#include <string_view>

#include "foundation/ql_time.h"

namespace ql {

[[nodiscard]] bool parse_date_time(_windows_systemtime& out, std::string_view date_text, std::string_view time_text,
                                   std::string_view order, char separator);
void system_time_to_filetime(std::uint64_t& out, const _windows_systemtime& system_time);

// A clock reading: seconds since 1900 and a fraction, both in network byte order.
struct ntp_time {
    std::uint32_t seconds = 0;
    std::uint32_t fraction = 0;
};
void clock_ntp(ntp_time& out);
[[nodiscard]] long double ntp_difference(const ntp_time& a, const ntp_time& b);

}  // namespace ql
