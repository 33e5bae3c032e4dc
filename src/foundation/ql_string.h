// Text forms and the conversions between them.
//
// Text has two forms in memory and one on disk. Narrow text is UTF-8 in a std::string: what users type, what
// is printed, and what the operating system takes as a file name. Wide text is a std::wstring with one code
// point per element: paths and names while they are worked on and compared. Names on disk are UTF-16LE bytes
// whose length is stored in the structure around them. NTFS stores whatever a program handed to it, so such a
// name need not be good UTF-16: surrogates may lack their other half. A damaged name still has to be shown
// and compared, hence the fall-back of `read_utf16_wide`, which never loses one.
//
// The conversions are the system's own. No locale takes part in them or in the folding of case, so a run
// gives the same text on every host.
#pragma once

#include "foundation/byte_view.h"

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace quarry {

static_assert(sizeof(wchar_t) == 4, "wide text holds one code point per element");

// Passed as a byte length: text that ends at its first zero unit, of unknown length.
inline constexpr std::int64_t terminated_text = -1;

// The most units that are looked at in a text of unknown length.
inline constexpr std::size_t terminated_text_limit_in_units = 500;

// UTF-16LE bytes as narrow text. An odd last byte is left out. False for fewer than two bytes, with `out`
// untouched, and for a high surrogate without its low one, with what came before it in `out`.
[[nodiscard]] bool utf16_to_utf8(std::string& out, byte_view units);

// UTF-8 as wide text. False for empty text, and for a byte sequence that is cut or is none of UTF-8's, with
// what came before it in `out`. Overlong forms and surrogates are taken by their value.
[[nodiscard]] bool utf8_to_wide(std::wstring& out, std::string_view text);

// Wide text as UTF-8, up to the first element above 0x10FFFF. The answer is false whatever happens; `narrow`
// is the form for callers.
bool wide_to_utf8(std::string& out, std::wstring_view text);

// The two conversions by value. `widen` gives empty text, never a part, for text that is not UTF-8.
[[nodiscard]] std::wstring widen(std::string_view text);
[[nodiscard]] std::string narrow(std::wstring_view text);

// Units that are numbers already, by the rules of `read_utf16_wide`. True only if `out` is not empty.
[[nodiscard]] bool utf16_units_to_wide(std::wstring& out, const std::vector<std::uint16_t>& units);

// A name as it is on disk. `length_in_bytes` is the length from the structure around the name, or
// `terminated_text`; never more than `units` holds is read. The name ends at its first zero unit. A name with
// a lone high surrogate becomes one element for each unit. Returns the number of bytes that were taken,
// without a zero unit at the end: 0 exactly when `out` is empty.
std::size_t read_utf16_wide(std::wstring& out, byte_view units, std::int64_t length_in_bytes);

// The same with narrow text. With `count_terminator`, two bytes more are counted where `length_in_bytes` has
// room for them after a name that is not empty.
std::size_t read_utf16_narrow(std::string& out, byte_view units, std::int64_t length_in_bytes,
                              bool count_terminator);

// A list, element by element. False for an empty list, with `out` empty.
[[nodiscard]] bool widen_all(std::vector<std::wstring>& out, const std::vector<std::string>& texts);
[[nodiscard]] bool narrow_all(std::vector<std::string>& out, const std::vector<std::wstring>& texts);

// One element for each byte, sign-extended, without a look at UTF-8.
[[nodiscard]] std::wstring widen_bytes(std::string_view text);

// Case, in place. Only the letters A to Z fold, on names too: `Ä` and `ä` stay different.
void lower_wide(std::wstring& text);
void lower_narrow(std::string& text);
void upper_narrow(std::string& text);

// The order of two C texts as strcmp and strcasecmp give it. Null comes before any text and equals null.
[[nodiscard]] int compare_text(const char* left, const char* right, bool ignore_case);

// False at once for texts of different length. Otherwise both are lowered, stay so, and are compared.
[[nodiscard]] bool equal_ignore_case(std::string& left, std::string& right);
[[nodiscard]] bool equal_ignore_case(std::wstring& left, std::wstring& right);

// A GUID of 16 bytes in its usual lower-case form: a 32-bit and two 16-bit little-endian numbers, then eight
// bytes in stored order. False, with `out` empty, if the view holds fewer than 16 bytes.
[[nodiscard]] bool format_guid(std::string& out, byte_view guid);

// The same text between "{ " and " }".
[[nodiscard]] std::string guid_in_braces(byte_view guid);

// A GUID that a stream prints in that form.
struct guid_record {
    byte_view m_bytes;
};
std::ostream& operator<<(std::ostream& out, guid_record guid);

}  // namespace quarry
