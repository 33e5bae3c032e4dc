#include "foundation/visible_text.h"

#include <cstddef>

namespace quarry {

namespace {

// A character that is shown by its number, and how many bytes it has in the text; a length of 0 for any
// other.
struct acting_character {
    unsigned code_point = 0;
    std::size_t length = 0;
};

constexpr bool is_bidirectional_control(unsigned code_point) {
    return code_point == 0x061C || code_point == 0x200E || code_point == 0x200F ||
           (code_point >= 0x202A && code_point <= 0x202E) || (code_point >= 0x2066 && code_point <= 0x2069);
}

// The character at the start of text that is not empty. Those looked for have one to three bytes in UTF-8.
acting_character acting_character_at(std::string_view text) {
    const auto byte = [text](std::size_t index) {
        return index < text.size() ? static_cast<unsigned char>(text[index]) : 0u;
    };
    const unsigned first = byte(0);
    if (first < 0x20 || first == 0x7F) {
        return {first, 1};
    }
    if (first < 0xC2) {
        return {};
    }
    if (first == 0xC2 || first == 0xD8) {
        const unsigned code_point = (first & 0x1F) << 6 | (byte(1) & 0x3F);
        const bool acts =
            (byte(1) & 0xC0) == 0x80 && (code_point < 0xA0 || is_bidirectional_control(code_point));
        return acts ? acting_character{code_point, 2} : acting_character{};
    }
    if (first == 0xE2) {
        const unsigned code_point = 0x2000 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F);
        const bool whole = (byte(1) & 0xC0) == 0x80 && (byte(2) & 0xC0) == 0x80;
        return whole && is_bidirectional_control(code_point) ? acting_character{code_point, 3}
                                                             : acting_character{};
    }
    return {};
}

void append_number(std::string& out, unsigned code_point) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    out += "\\u";
    for (const unsigned shift : {12u, 8u, 4u, 0u}) {
        out += digits[(code_point >> shift) & 0xF];
    }
}

}  // namespace

std::string visible_text(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const acting_character character = acting_character_at(text);
        if (character.length == 0) {
            out += text.front();
            text.remove_prefix(1);
        } else {
            append_number(out, character.code_point);
            text.remove_prefix(character.length);
        }
    }
    return out;
}

}  // namespace quarry
