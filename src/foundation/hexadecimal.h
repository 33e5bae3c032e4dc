// Numbers as hexadecimal text, in the one form that reports, messages and keys use.
#pragma once

#include <cstdint>
#include <string>

namespace quarry {

// Lower-case digits, at least `digits` of them (at most 16), with leading zeros and without "0x".
[[nodiscard]] std::string hex(std::uint64_t value, unsigned digits);

}  // namespace quarry
