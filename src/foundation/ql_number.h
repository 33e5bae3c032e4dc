// Numbers as users type them: decimal, and with a prefix hexadecimal ("0x10", "x10") or octal ("o17").
//
// Each routine serves its own options and has limits of its own. They share one habit that users meet: where
// the form is recognised but no digits follow ("0x", "12abc"), the number is what could be read, down to 0,
// and the answer is true. None of them skips a sign: "-5" is minus five, wrapped where the result has no
// sign.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quarry {

// "0x10" and "9x10" (any first character), "x10", "o17", decimal with an optional sign, and a character
// between single quotes by its code. A number above 32 bits is cut to its low 32. False, with 0, for anything
// else. Blanks around the text are left out of the decision on its form only: the digits are read at the same
// index of the text as given.
bool parse_u32(std::uint32_t& out, std::string_view text);

// At most 30 characters; leading blanks are skipped, one after the first other character is an error. "0x10",
// "9x10" and "x10" with at most 16 hexadecimal digits, in texts of three characters and more; "o17" with at
// most 23 characters; decimal with at most 20. False, with 0, beyond these limits; text without readable
// digits gives 0 and true.
bool parse_u64(std::uint64_t& out, std::string_view text);

// Trims and lowers `text` in place. Digits after the first "x" are hexadecimal, else after the first "o"
// octal, else the text must begin with a digit or a sign. On false `out` keeps its value. The result is a
// 32-bit number, sign-extended; see the source.
bool parse_i64(std::int64_t& out, std::string& text);

// The same forms as `parse_i64`, read from a copy, as a 32-bit number. On false `out` is 0.
bool parse_int(std::int32_t& out, std::string_view text);

}  // namespace quarry
