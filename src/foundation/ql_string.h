// Text forms and the conversions between them.
//
// Narrow text is UTF-8 in a std::string, wide text is one code point per element in a std::wstring, names on
// disk are UTF-16LE bytes. The conversions are the system's own; no locale takes part in them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/byte_view.h"

namespace quarry {

static_assert(sizeof(wchar_t) == 4, "wide text holds one code point per element");

// Passed as a byte length: text that ends at its first zero unit, of unknown length.
inline constexpr std::int64_t terminated_text = -1;

[[nodiscard]] bool utf16_to_utf8(std::string& out, byte_view units);
[[nodiscard]] bool utf8_to_wide(std::wstring& out, std::string_view text);
// Always answers false; see the source. Callers use `narrow`.
bool wide_to_utf8(std::string& out, std::wstring_view text);
[[nodiscard]] std::wstring widen(std::string_view text);
[[nodiscard]] std::string narrow(std::wstring_view text);
[[nodiscard]] bool utf16_units_to_wide(std::wstring& out, const std::vector<std::uint16_t>& units);
std::size_t read_utf16_wide(std::wstring& out, byte_view units, std::int64_t length_in_bytes);
std::size_t read_utf16_narrow(std::string& out, byte_view units, std::int64_t length_in_bytes, bool count_terminator);
[[nodiscard]] bool widen_all(std::vector<std::wstring>& out, const std::vector<std::string>& texts);
[[nodiscard]] bool narrow_all(std::vector<std::string>& out, const std::vector<std::wstring>& texts);
[[nodiscard]] std::wstring widen_bytes(std::string_view text);

void lower_wide(std::wstring& text);
void lower_narrow(std::string& text);
void upper_narrow(std::string& text);
[[nodiscard]] int compare_text(const char* left, const char* right, bool ignore_case);
[[nodiscard]] bool equal_ignore_case(std::string& left, std::string& right);
[[nodiscard]] bool equal_ignore_case(std::wstring& left, std::wstring& right);

// A GUID of 16 bytes in its usual lower-case text form, and the same between "{ " and " }".
[[nodiscard]] bool format_guid(std::string& out, byte_view guid);
[[nodiscard]] std::string guid_in_braces(byte_view guid);

}  // namespace quarry
