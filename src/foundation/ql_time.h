// Time values: FILETIME ticks with their calendar fields.
//
// NTFS stamps its records with FILETIMEs: unsigned 64-bit counts of 100 ns since 1601-01-01 00:00:00 UTC.
// `time` is such a value together with all that a report can want of it. The calendar is the proleptic
// Gregorian one, in UTC, counted by the system's own arithmetic.
//
// Not every value can be shown. `valid` is clear for 0, for values with the top bit set, for the first second
// of 1970, for years before 1900 and for years past 3000; such a time prints as nothing.
#pragma once

#include <cstdint>
#include <ctime>

namespace ql {

// The kind of a raw 64-bit value. One bit each, so that kinds can be joined in a mask.
enum class type_time : std::uint32_t {
    filetime = 1,   // ticks of 100 ns since 1601-01-01
    unix_time = 8,  // seconds since 1970-01-01
};
// "filetime", "unix time", or empty for another value.
[[nodiscard]] const char* name_of(type_time kind);

// Calendar fields, UTC.
struct _windows_systemtime {
    std::uint16_t wYear = 0;
    std::uint16_t wMonth = 0;      // 1 to 12
    std::uint16_t wDayOfWeek = 0;  // 0 is Sunday
    std::uint16_t wDay = 0;        // 1 to 31
    std::uint16_t wHour = 0;
    std::uint16_t wMinute = 0;
    std::uint16_t wSecond = 0;
    std::uint16_t wMilliseconds = 0;
    // The whole fraction of the second in each unit: six, nine and twelve digits.
    std::uint64_t microseconds = 0;
    std::uint64_t nanoseconds = 0;
    std::uint64_t picoseconds = 0;
};

inline constexpr std::uint64_t unix_epoch_in_ticks = 116444736000000000;  // 1970-01-01 as a FILETIME
inline constexpr std::uint64_t ticks_per_second = 10000000;
inline constexpr std::uint64_t ntp_epoch_in_ticks = 94354848000000000;  // 1900-01-01 as a FILETIME

class time {
  public:
    // Now, by the system's clock.
    time();
    // From a raw value. Seconds since 1970 are read as a signed number; zero and negative ones are not valid
    // and leave only `filetime`.
    time(std::uint64_t value, type_time kind);

    std::int64_t unix_seconds = 0;  // meaningless, and huge, for times before 1970
    std::uint64_t filetime = 0;
    struct {
        std::uint32_t low = 0;
        std::uint32_t high = 0;
    } filetime_copy;
    // The packed form of MS-DOS; zero outside of the years 1980 to 2037.
    std::uint16_t dos_date = 0;
    std::uint16_t dos_time = 0;
    std::tm local_tm{};  // local time by the rule in force now, not at that time; zeros if `tm_failed`
    _windows_systemtime system_time;
    bool valid = false;
    bool tm_failed = false;

  private:
    void set_filetime(std::uint64_t ticks);
    void set_dos_fields();
    void set_local_tm();
};

}  // namespace ql
