// The range of file times that -cmd_start_time and -cmd_stop_time set.
//
// Each end is kept twice: as a FILETIME (ticks of 100 ns since 1601) and as Unix seconds of 32 bits, so that
// times of either kind can be held against it. Those of a host file are Unix seconds.
#pragma once

#include "foundation/uni_streams.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace quarry {

// What became of a typed end of the range.
enum class range_result {
    set,      // the range holds it
    ignored,  // a date that cannot be read, or an end before the start: that end is off, the run goes on
    no_date   // no separator of a date at all: the command line is refused
};

struct time_range {
    bool m_range_start_on = false;
    std::uint64_t m_range_start = 0;
    std::uint32_t m_range_start_unix = 0;
    bool m_range_stop_on = false;
    std::uint64_t m_range_stop = 0;
    std::uint32_t m_range_stop_unix = 0;

    // "2020/03/07" or "2020-03-07", with an optional time of day after the first blank. A start without a
    // stop reaches up to the latest time there is. A start given again begins a new range.
    [[nodiscard]] range_result set_start(std::string_view value);
    // The same; a day without a time of day ends with its last second.
    [[nodiscard]] range_result set_stop(std::string_view value);

    [[nodiscard]] bool is_on() const { return m_range_start_on || m_range_stop_on; }
    // True if the modification and creation times of `stats` lie in the range. Of Unix seconds the low 32
    // bits count.
    [[nodiscard]] bool holds(const uni::fileio_stats& stats) const;
};

}  // namespace quarry
