#include "foundation/ql_number.h"

#include "foundation/byte_view.h"
#include "foundation/ql_string.h"
#include "foundation/ql_text.h"

#include <algorithm>
#include <cstdlib>
#include <locale>
#include <optional>
#include <sstream>

namespace quarry {

namespace {

bool begins_like_decimal(std::string_view text) {
    return !text.empty() && ((text[0] >= '0' && text[0] <= '9') || text[0] == '-' || text[0] == '+');
}

// The low 32 bits of the number that the text from an index on begins with. What does not fit 64 bits is the
// nearest number that does.
std::uint32_t low_bits_unsigned(const std::string& text, std::size_t index, int base) {
    return low_32_bits(std::strtoull(text.c_str() + index, nullptr, base));
}

std::uint32_t low_bits_signed(const std::string& text, std::size_t index, int base) {
    return low_32_bits(static_cast<std::uint64_t>(std::strtoll(text.c_str() + index, nullptr, base)));
}

// A number in trimmed and lowered text, as its low 32 bits. `prefixed` reads the digits after an "x" or "o".
std::optional<std::int32_t> signed_32_bits(const std::string& text, decltype(low_bits_signed)& prefixed) {
    std::uint32_t bits = 0;
    if (const std::size_t x = text.find('x'); x != std::string::npos) {
        bits = prefixed(text, x + 1, 16);
    } else if (const std::size_t o = text.find('o'); o != std::string::npos) {
        bits = prefixed(text, o + 1, 8);
    } else if (begins_like_decimal(text)) {
        bits = low_bits_signed(text, 0, 10);
    } else {
        return std::nullopt;
    }
    return static_cast<std::int32_t>(bits);
}

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

bool is_letter_x(char c) {
    return c == 'x' || c == 'X';
}

using stream_base = std::ios_base& (*)(std::ios_base&);

std::uint64_t extract(std::string_view digits, stream_base base) {
    std::istringstream stream{std::string(digits)};
    stream.imbue(std::locale::classic());
    std::uint64_t value = 0;
    stream >> base >> value;
    return value;
}

// How many characters come before the hexadecimal digits; 0 if the token is not hexadecimal.
//
// Deliberate: only the second character of a two-character prefix is looked at, not "0x" as a whole. The user
// sees "9x10" taken for hexadecimal 10.
std::size_t hexadecimal_prefix(std::string_view token) {
    if (token.size() <= 2) {
        return 0;
    }
    if (is_letter_x(token[1])) {
        return 2;
    }
    return is_letter_x(token[0]) ? 1 : 0;
}

}  // namespace

// Deliberate: the trimmed text decides on the form, but the digits are read at the same index of the text as
// typed, not of the trimmed text. The user sees " 0x10" taken for 0. An "x" in second place comes before all
// else: 'x' in single quotes is 0, not its code.
bool parse_u32(std::uint32_t& out, std::string_view text) {
    out = 0;
    const std::string typed(text);
    std::string form(text);
    trim(form);
    lower_narrow(form);
    // `form` is never longer than `typed`, so an index into it is good for both.
    if (form.size() >= 2 && form[1] == 'x') {
        out = low_bits_unsigned(typed, 2, 16);
    } else if (!form.empty() && form[0] == 'x') {
        out = low_bits_unsigned(typed, 1, 16);
    } else if (!form.empty() && form[0] == 'o') {
        out = low_bits_unsigned(typed, 1, 8);
    } else if (begins_like_decimal(typed)) {
        out = low_bits_unsigned(typed, 0, 10);
    } else if (form.size() == 3 && typed[0] == '\'' && typed[2] == '\'') {
        out = static_cast<std::uint8_t>(typed[1]);
    } else {
        return false;
    }
    return true;
}

bool parse_u64(std::uint64_t& out, std::string_view text) {
    constexpr std::size_t longest_text = 30;
    constexpr std::size_t most_hexadecimal_digits = 16;
    constexpr std::size_t longest_octal = 23;
    constexpr std::size_t longest_decimal = 20;

    out = 0;
    const std::string_view token(std::find_if_not(text.begin(), text.end(), is_blank), text.end());
    if (text.size() > longest_text || token.empty() || std::any_of(token.begin(), token.end(), is_blank)) {
        return false;
    }
    if (const std::size_t prefix = hexadecimal_prefix(token); prefix != 0) {
        const std::string_view digits = token.substr(prefix);
        if (digits.size() > most_hexadecimal_digits) {
            return false;
        }
        out = extract(digits, std::hex);
        return true;
    }
    if (token[0] == 'o' || token[0] == 'O') {
        if (token.size() > longest_octal) {
            return false;
        }
        out = extract(token.substr(1), std::oct);
        return true;
    }
    if (token.size() > longest_decimal) {
        return false;
    }
    out = extract(token, std::dec);
    return true;
}

// Deliberate: the low 32 bits of the number are taken and sign-extended, not all 64. The user sees 0x80000000
// taken for a negative number and 0x100100000 for 0x100000.
bool parse_i64(std::int64_t& out, std::string& text) {
    trim(text);
    lower_narrow(text);
    const std::optional<std::int32_t> value = signed_32_bits(text, low_bits_signed);
    if (value) {
        out = *value;
    }
    return value.has_value();
}

bool parse_int(std::int32_t& out, std::string_view text) {
    std::string form(text);
    trim(form);
    lower_narrow(form);
    const std::optional<std::int32_t> value = signed_32_bits(form, low_bits_unsigned);
    out = value.value_or(0);
    return value.has_value();
}

}  // namespace quarry
