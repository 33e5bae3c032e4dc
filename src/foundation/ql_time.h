// Time values: FILETIME ticks with their calendar fields.
#pragma once

#include <cstdint>
#include <ctime>
#include <ostream>

namespace ql {

enum class type_time : std::uint32_t { filetime = 1, unix_time = 8 };

struct _windows_systemtime {
    std::uint16_t wYear = 0;
    std::uint16_t wMonth = 0;
    std::uint16_t wDayOfWeek = 0;
    std::uint16_t wDay = 0;
    std::uint16_t wHour = 0;
    std::uint16_t wMinute = 0;
    std::uint16_t wSecond = 0;
    std::uint16_t wMilliseconds = 0;
    std::uint64_t microseconds = 0;
    std::uint64_t nanoseconds = 0;
    std::uint64_t picoseconds = 0;
};

inline constexpr std::uint64_t unix_epoch_in_ticks = 116444736000000000;
inline constexpr std::uint64_t ticks_per_second = 10000000;
inline constexpr std::uint64_t ntp_epoch_in_ticks = 94354848000000000;

class time {
  public:
    time();  // now
    time(std::uint64_t value, type_time kind);

    std::int64_t unix_seconds = 0;
    std::uint64_t filetime = 0;
    struct {
        std::uint32_t low = 0;
        std::uint32_t high = 0;
    } filetime_copy;
    std::uint16_t dos_date = 0;
    std::uint16_t dos_time = 0;
    std::tm local_tm{};
    _windows_systemtime system_time;
    bool valid = false;
    bool tm_failed = false;
};

std::ostream& operator<<(std::ostream& out, const time& value);

}  // namespace ql
