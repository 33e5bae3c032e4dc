// Times as text: the fixed form of reports, and the pattern language of the run header.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "foundation/ql_time.h"

namespace ql {

void format_date_time(std::string& date_out, std::string& time_out, const time& value, bool with_fraction);
[[nodiscard]] bool format_with_patterns(std::string& date_out, std::string& time_out, const time& value,
                                        std::string_view date_pattern, std::string_view time_pattern);

struct time_layout {
    char separator = 0;
    std::uint32_t flags = 0;
    std::uint16_t first_year = 1900;
    std::uint16_t last_year = 2600;
    std::uint32_t fraction_digits = 0;
    bool paired = false;
};
[[nodiscard]] bool validate_patterns(time_layout& settings, std::string_view date_pattern,
                                     std::string_view time_pattern, bool paired);

// "null", "future" or "" for four FILETIMEs against a reference; the flag is true for either word.
[[nodiscard]] bool file_time_anomaly(std::string& word, std::uint64_t created, std::uint64_t modified,
                                     std::uint64_t mft_changed, std::uint64_t accessed, std::uint64_t reference);

}  // namespace ql
