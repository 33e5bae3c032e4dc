#include "foundation/ql_string.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <optional>
#include <span>
#include <strings.h>

namespace quarry {

namespace {

constexpr std::uint32_t highest_code_point = 0x10FFFF;

bool is_high_surrogate(std::uint32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool is_low_surrogate(std::uint32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// Takes one code point from units[index] on and moves the index past it. Empty for a high surrogate without
// its low one.
//
// Deliberate: a lone low surrogate is a code point of its own, not a failure like a lone high one. The user
// sees a name with a lone low surrogate converted cleanly; only one with a lone high surrogate is read unit
// by unit.
std::optional<std::uint32_t> next_code_point(std::span<const std::uint16_t> units, std::size_t& index) {
    const std::uint32_t unit = units[index++];
    if (!is_high_surrogate(unit)) {
        return unit;
    }
    if (index == units.size() || !is_low_surrogate(units[index])) {
        return std::nullopt;
    }
    const std::uint32_t low = units[index++];
    return (unit << 10) + low - 0x35FDC00u;
}

// Six bits of a code point as a byte that continues a UTF-8 sequence.
char continuation(std::uint32_t bits) {
    return static_cast<char>(0x80 | (bits & 0x3F));
}

void append_utf8(std::string& out, std::uint32_t code_point) {
    if (code_point < 0x80) {
        out += static_cast<char>(code_point);
    } else if (code_point < 0x800) {
        out += static_cast<char>(0xC0 | (code_point >> 6));
        out += continuation(code_point);
    } else if (code_point < 0x10000) {
        out += static_cast<char>(0xE0 | (code_point >> 12));
        out += continuation(code_point >> 6);
        out += continuation(code_point);
    } else {
        out += static_cast<char>(0xF0 | (code_point >> 18));
        out += continuation(code_point >> 12);
        out += continuation(code_point >> 6);
        out += continuation(code_point);
    }
}

// The first byte of a UTF-8 sequence: the bits it gives to the code point, and how many bytes continue it.
struct lead_byte {
    std::uint32_t m_bits;
    std::size_t m_continuations;
};

std::optional<lead_byte> read_lead_byte(std::uint8_t byte) {
    if (byte < 0x80) {
        return lead_byte{byte, 0};
    }
    if ((byte & 0xE0) == 0xC0) {
        return lead_byte{byte & 0x1Fu, 1};
    }
    if ((byte & 0xF0) == 0xE0) {
        return lead_byte{byte & 0x0Fu, 2};
    }
    if ((byte & 0xF8) == 0xF0) {
        return lead_byte{byte & 0x07u, 3};
    }
    return std::nullopt;
}

std::vector<std::uint16_t> units_of(byte_view bytes, std::size_t limit_in_units) {
    std::vector<std::uint16_t> units;
    const std::size_t count = std::min(bytes.size() / 2, limit_in_units);
    units.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        units.push_back(bytes.u16_or_zero(2 * i));
    }
    return units;
}

// Units up to the first zero as wide text; one element for each unit where they are not good UTF-16. Going
// straight to code points gives what the way over UTF-8 would, since that takes surrogates by their value.
// Returns the number of units before the zero.
std::size_t decode_name(std::wstring& out, std::span<const std::uint16_t> units) {
    const auto end = std::find(units.begin(), units.end(), std::uint16_t{0});
    const std::span<const std::uint16_t> name(units.begin(), end);
    out.clear();
    out.reserve(name.size());
    for (std::size_t i = 0; i < name.size();) {
        const std::optional<std::uint32_t> code_point = next_code_point(name, i);
        if (!code_point) {
            out.assign(name.begin(), name.end());
            break;
        }
        out += static_cast<wchar_t>(*code_point);
    }
    return name.size();
}

template <typename Char>
constexpr Char lower_letter(Char c) {
    return c >= Char{'A'} && c <= Char{'Z'} ? static_cast<Char>(c + ('a' - 'A')) : c;
}

constexpr char upper_letter(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

}  // namespace

bool utf16_to_utf8(std::string& out, byte_view units) {
    if (units.size() < 2) {
        return false;
    }
    const std::vector<std::uint16_t> numbers = units_of(units, units.size());
    out.clear();
    out.reserve(units.size() / 2 + 256);
    for (std::size_t i = 0; i < numbers.size();) {
        const std::optional<std::uint32_t> code_point = next_code_point(numbers, i);
        if (!code_point) {
            return false;
        }
        append_utf8(out, *code_point);
    }
    return true;
}

bool utf8_to_wide(std::wstring& out, std::string_view text) {
    out.clear();
    if (text.empty()) {
        return false;
    }
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const std::optional<lead_byte> lead = read_lead_byte(static_cast<std::uint8_t>(text[i++]));
        if (!lead || text.size() - i < lead->m_continuations) {
            return false;
        }
        std::uint32_t code_point = lead->m_bits;
        for (std::size_t end = i + lead->m_continuations; i < end; ++i) {
            const auto byte = static_cast<std::uint8_t>(text[i]);
            if ((byte & 0xC0) != 0x80) {
                return false;
            }
            code_point = (code_point << 6) | (byte & 0x3Fu);
        }
        out += static_cast<wchar_t>(code_point);
    }
    return true;
}

// Deliberate: the answer is false even when all went well, not true. Only the text in `out` shows how far the
// conversion came: it stops without a report at an element above 0x10FFFF. The user sees a text that ends
// there.
bool wide_to_utf8(std::string& out, std::wstring_view text) {
    out.clear();
    out.reserve(text.size());
    for (const wchar_t element : text) {
        const std::uint32_t code_point = std::char_traits<wchar_t>::to_int_type(element);
        if (code_point > highest_code_point) {
            break;
        }
        append_utf8(out, code_point);
    }
    return false;
}

std::wstring widen(std::string_view text) {
    std::wstring wide;
    return utf8_to_wide(wide, text) ? wide : std::wstring();
}

std::string narrow(std::wstring_view text) {
    std::string out;
    wide_to_utf8(out, text);
    return out;
}

bool utf16_units_to_wide(std::wstring& out, const std::vector<std::uint16_t>& units) {
    return decode_name(out, units) != 0;
}

std::size_t read_utf16_wide(std::wstring& out, byte_view units, std::int64_t length_in_bytes) {
    out.clear();
    std::size_t limit = 0;
    if (length_in_bytes == terminated_text) {
        limit = terminated_text_limit_in_units;
    } else if (length_in_bytes > 0) {
        limit = static_cast<std::size_t>(length_in_bytes) / 2;
    }
    return 2 * decode_name(out, units_of(units, limit));
}

std::size_t read_utf16_narrow(std::string& out, byte_view units, std::int64_t length_in_bytes,
                              bool count_terminator) {
    std::wstring wide;
    const std::size_t count = read_utf16_wide(wide, units, length_in_bytes);
    out = narrow(wide);
    const bool terminator_fits = count != 0 && static_cast<std::int64_t>(count) + 2 <= length_in_bytes;
    return count_terminator && terminator_fits ? count + 2 : count;
}

bool widen_all(std::vector<std::wstring>& out, const std::vector<std::string>& texts) {
    out.clear();
    for (const std::string& text : texts) {
        out.push_back(widen(text));
    }
    return !texts.empty();
}

bool narrow_all(std::vector<std::string>& out, const std::vector<std::wstring>& texts) {
    out.clear();
    for (const std::wstring& text : texts) {
        out.push_back(narrow(text));
    }
    return !texts.empty();
}

std::wstring widen_bytes(std::string_view text) {
    std::wstring out;
    out.reserve(text.size());
    for (const char byte : text) {
        out += static_cast<wchar_t>(static_cast<signed char>(byte));
    }
    return out;
}

void lower_wide(std::wstring& text) {
    std::transform(text.begin(), text.end(), text.begin(), lower_letter<wchar_t>);
}

void lower_narrow(std::string& text) {
    std::transform(text.begin(), text.end(), text.begin(), lower_letter<char>);
}

void upper_narrow(std::string& text) {
    std::transform(text.begin(), text.end(), text.begin(), upper_letter);
}

int compare_text(const char* left, const char* right, bool ignore_case) {
    if (left == nullptr || right == nullptr) {
        return static_cast<int>(left != nullptr) - static_cast<int>(right != nullptr);
    }
    return ignore_case ? ::strcasecmp(left, right) : std::strcmp(left, right);
}

bool equal_ignore_case(std::string& left, std::string& right) {
    if (left.size() != right.size()) {
        return false;
    }
    lower_narrow(left);
    lower_narrow(right);
    return left == right;
}

bool equal_ignore_case(std::wstring& left, std::wstring& right) {
    if (left.size() != right.size()) {
        return false;
    }
    lower_wide(left);
    lower_wide(right);
    return left == right;
}

bool format_guid(std::string& out, byte_view guid) {
    out.clear();
    if (!guid.holds(0, 16)) {
        return false;
    }
    constexpr std::size_t text_length = 36;
    std::array<char, text_length + 1> text{};
    std::snprintf(text.data(), text.size(), "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                  guid.u32_or_zero(0), guid.u16_or_zero(4), guid.u16_or_zero(6), guid.u8_or_zero(8),
                  guid.u8_or_zero(9), guid.u8_or_zero(10), guid.u8_or_zero(11), guid.u8_or_zero(12),
                  guid.u8_or_zero(13), guid.u8_or_zero(14), guid.u8_or_zero(15));
    out = text.data();
    return true;
}

std::string guid_in_braces(byte_view guid) {
    std::string text;
    return format_guid(text, guid) ? "{ " + text + " }" : "{  }";
}

std::ostream& operator<<(std::ostream& out, guid_record guid) {
    return out << guid_in_braces(guid.m_bytes);
}

}  // namespace quarry
