#include "frontend/options/time_range.h"

#include "foundation/byte_view.h"
#include "foundation/ql_time_parse.h"

#include <algorithm>
#include <limits>

namespace quarry {

namespace {

constexpr std::uint64_t latest_filetime = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint32_t latest_unix_time = std::numeric_limits<std::uint32_t>::max();
constexpr std::string_view last_second_of_a_day = "23:59:59";

// Unix seconds as far as 32 bits reach, from 1970 to 2106; what lies outside takes the nearer end.
std::uint32_t unix_seconds(std::uint64_t filetime) {
    if (filetime < ql::unix_epoch_in_ticks) {
        return 0;
    }
    const std::uint64_t seconds = (filetime - ql::unix_epoch_in_ticks) / ql::ticks_per_second;
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(seconds, latest_unix_time));
}

// Reads a date and, after the first blank, a time of day.
range_result read_point(std::uint64_t& filetime, std::string_view value, std::string_view default_time) {
    const std::size_t blank = value.find(' ');
    const std::string_view date = value.substr(0, blank);
    std::string_view time = blank == std::string_view::npos ? std::string_view() : value.substr(blank + 1);
    const char separator = date.find('/') != std::string_view::npos ? '/' : '-';
    if (date.find(separator) == std::string_view::npos) {
        return range_result::no_date;
    }
    if (time.empty()) {
        time = default_time;
    }
    ql::_windows_systemtime fields;
    if (!ql::parse_date_time(fields, date, time, "YMD", separator)) {
        return range_result::ignored;
    }
    ql::system_time_to_filetime(filetime, fields);
    return range_result::set;
}

// Deliberate: one time inside is enough at the start of the range and not at its end. A file that was made
// before the start and changed after it is shown; one that was changed before the stop and made after it, as
// a copy is, is not.
template <typename Number>
bool range_holds(const time_range& range, Number start, Number stop, Number modified, Number created) {
    if (range.m_range_start_on && modified < start && created < start) {
        return false;
    }
    return !range.m_range_stop_on || (modified <= stop && created <= stop);
}

}  // namespace

range_result time_range::set_start(std::string_view value) {
    *this = time_range();
    std::uint64_t start = 0;
    const range_result result = read_point(start, value, {});
    if (result == range_result::set) {
        m_range_start_on = true;
        m_range_start = start;
        m_range_start_unix = unix_seconds(start);
        m_range_stop_on = true;
        m_range_stop = latest_filetime;
        m_range_stop_unix = latest_unix_time;
    }
    return result;
}

range_result time_range::set_stop(std::string_view value) {
    std::uint64_t stop = 0;
    range_result result = read_point(stop, value, last_second_of_a_day);
    if (result == range_result::set && m_range_start_on && stop < m_range_start) {
        result = range_result::ignored;
    }
    m_range_stop_on = result == range_result::set;
    m_range_stop = m_range_stop_on ? stop : 0;
    m_range_stop_unix = m_range_stop_on ? unix_seconds(stop) : 0;
    return result;
}

bool time_range::holds(const uni::fileio_stats& stats) const {
    switch (stats.m_time_kind) {
        case ql::type_time::filetime:
            return range_holds(*this, m_range_start, m_range_stop, stats.m_modified, stats.m_created);
        case ql::type_time::unix_time:
            return range_holds(*this, m_range_start_unix, m_range_stop_unix, low_32_bits(stats.m_modified),
                               low_32_bits(stats.m_created));
    }
    return false;
}

}  // namespace quarry
