#include "exact/name_text.h"

#include <array>
#include <cstdio>

namespace quarry::exact {

namespace {

constexpr bool is_high_surrogate(std::uint32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool is_low_surrogate(std::uint32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// Characters that act instead of being seen: C0, DEL, C1, those that end a line or turn the direction of
// writing, and those that have no width, with which two names look like one.
constexpr bool acts(std::uint32_t unit) {
    return unit < 0x20 || (unit >= 0x7F && unit <= 0x9F) || unit == 0x061C ||
           (unit >= 0x200B && unit <= 0x200F) || (unit >= 0x2028 && unit <= 0x202E) ||
           (unit >= 0x2066 && unit <= 0x2069) || unit == 0xFEFF;
}

void append_utf8(std::string& out, std::uint32_t point) {
    const auto tail = [&](unsigned shift) {
        out.push_back(static_cast<char>(0x80 | ((point >> shift) & 0x3F)));
    };
    if (point < 0x80) {
        out.push_back(static_cast<char>(point));
    } else if (point < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (point >> 6)));
        tail(0);
    } else if (point < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (point >> 12)));
        tail(6);
        tail(0);
    } else {
        out.push_back(static_cast<char>(0xF0 | (point >> 18)));
        tail(12);
        tail(6);
        tail(0);
    }
}

// One code point of UTF-8 from the front of the text, which is shortened by it; nothing if the text does not
// begin with a valid one.
std::optional<std::uint32_t> take_point(std::string_view& text) {
    const auto lead = static_cast<std::uint8_t>(text.front());
    const std::size_t length = lead < 0x80                   ? 1
                               : lead >= 0xC2 && lead < 0xE0 ? 2
                               : lead >= 0xE0 && lead < 0xF0 ? 3
                               : lead >= 0xF0 && lead < 0xF5 ? 4
                                                             : 0;
    if (length == 0 || text.size() < length) {
        return std::nullopt;
    }
    std::uint32_t point = length == 1 ? lead : lead & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = static_cast<std::uint8_t>(text[i]);
        if ((next & 0xC0) != 0x80) {
            return std::nullopt;
        }
        point = (point << 6) | (next & 0x3Fu);
    }
    constexpr std::array<std::uint32_t, 5> smallest{0, 0, 0x80, 0x800, 0x10000};
    if (point < smallest[length] || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) {
        return std::nullopt;
    }
    text.remove_prefix(length);
    return point;
}

void append_escape(std::string& out, std::uint32_t unit) {
    std::array<char, 8> text{};
    const int length =
        std::snprintf(text.data(), text.size(), "\\u%04X", static_cast<unsigned>(unit & 0xFFFF));
    out.append(text.data(), static_cast<std::size_t>(length));
}

}  // namespace

std::optional<std::u16string> units_of_utf8(std::string_view text) {
    std::u16string units;
    units.reserve(text.size());
    while (!text.empty()) {
        const auto point = take_point(text);
        if (!point) {
            return std::nullopt;
        }
        if (*point < 0x10000) {
            units.push_back(static_cast<char16_t>(*point));
        } else {
            const std::uint32_t above = *point - 0x10000;
            units.push_back(static_cast<char16_t>(0xD800 + (above >> 10)));
            units.push_back(static_cast<char16_t>(0xDC00 + (above & 0x3FF)));
        }
    }
    return units;
}

std::u16string units_of_bytes(byte_view bytes) {
    std::u16string units(bytes.size() / 2, u'\0');
    for (std::size_t i = 0; i < units.size(); ++i) {
        units[i] = static_cast<char16_t>(bytes.u16_or_zero(std::uint64_t{2} * i));
    }
    return units;
}

std::string shown_name(std::u16string_view units) {
    std::string text;
    text.reserve(units.size());
    for (std::size_t i = 0; i < units.size(); ++i) {
        const std::uint32_t unit = units[i];
        if (is_high_surrogate(unit) && i + 1 < units.size() && is_low_surrogate(units[i + 1])) {
            append_utf8(text, 0x10000 + ((unit - 0xD800) << 10) + (units[i + 1] - 0xDC00u));
            ++i;
        } else if (unit == u'\\' || unit == u':') {
            text.push_back('\\');
            text.push_back(static_cast<char>(unit));
        } else if (unit == u'/' || acts(unit) || is_high_surrogate(unit) || is_low_surrogate(unit)) {
            append_escape(text, unit);
        } else {
            append_utf8(text, unit);
        }
    }
    return text;
}

std::string shown_typed(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const char first = text.front();
        const auto point = take_point(text);
        if (!point) {
            std::array<char, 8> escape{};
            const int length =
                std::snprintf(escape.data(), escape.size(), "\\x%02X", static_cast<unsigned>(first & 0xFF));
            shown.append(escape.data(), static_cast<std::size_t>(length));
            text.remove_prefix(1);
        } else if (acts(*point)) {
            append_escape(shown, *point);
        } else {
            append_utf8(shown, *point);
        }
    }
    return shown;
}

}  // namespace quarry::exact
