// Times as text that people and programs read alike (RFC 3339), always in UTC.
//
//     2026-11-20T18:22:41.1234567Z      a FILETIME: seven decimals, for it counts 100 ns since 1601
//     2026-11-20T18:22:41Z              seconds since 1970
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace quarry {

// The first FILETIME that RFC 3339 cannot write: the year 10000, which has five digits.
inline constexpr std::uint64_t first_filetime_of_year_10000 = 2650467744000000000;

// The text of a FILETIME. Nothing for one of the year 10000 or later.
[[nodiscard]] std::optional<std::string> rfc3339_of_filetime(std::uint64_t filetime);

// The text of seconds since 1970, without decimals. Nothing for a time before 1601 or after the year 9999.
[[nodiscard]] std::optional<std::string> rfc3339_of_seconds(std::int64_t seconds);

}  // namespace quarry
