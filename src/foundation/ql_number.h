// Numbers as users type them: decimal, 0x, x and o forms, each routine with its own limits.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quarry {

bool parse_u32(std::uint32_t& out, std::string_view text);
bool parse_u64(std::uint64_t& out, std::string_view text);
// Trims and lowers `text` in place. On false `out` keeps its value.
bool parse_i64(std::int64_t& out, std::string& text);
bool parse_int(std::int32_t& out, std::string_view text);

}  // namespace quarry
