#include "exact/volume_path.h"

#include "exact/name_text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <optional>

namespace quarry::exact {

namespace {

// A character of the typed text: a unit, and whether an escape took its meaning as a separator away.
struct typed_unit {
    char16_t unit;
    bool escaped;

    [[nodiscard]] bool is(char16_t other) const { return unit == other && !escaped; }
};
using typed_text = std::vector<typed_unit>;

tl::unexpected<failure> no_path(std::string_view text, std::string why) {
    return fail(failure_code::name, where::path(shown_typed(text)), std::move(why));
}

std::optional<char16_t> unit_of_digits(std::u16string_view digits) {
    std::uint32_t value = 0;
    for (const char16_t digit : digits) {
        if (digit >= u'0' && digit <= u'9') {
            value = value * 16 + (digit - u'0');
        } else if (const char16_t small = digit | 0x20; small >= u'a' && small <= u'f') {
            value = value * 16 + 10 + (small - u'a');
        } else {
            return std::nullopt;
        }
    }
    return digits.size() == 4 ? std::optional(static_cast<char16_t>(value)) : std::nullopt;
}

result<typed_text> read_canonical(std::string_view text, std::u16string_view units) {
    typed_text out;
    for (std::size_t i = 0; i < units.size(); ++i) {
        if (units[i] != u'\\') {
            out.push_back({units[i], false});
            continue;
        }
        const char16_t kind = i + 1 < units.size() ? units[i + 1] : u'\0';
        if (kind == u'\\' || kind == u':') {
            out.push_back({kind, true});
            i += 1;
        } else if (kind == u'u') {
            const auto unit = unit_of_digits(units.substr(i + 2, 4));
            if (!unit) {
                return no_path(text, "\\u is followed by four hexadecimal digits");
            }
            out.push_back({*unit, true});
            i += 5;
        } else {
            return no_path(
                text, "after a backslash comes \\, : or uXXXX; write \\\\ for a backslash, / between names");
        }
    }
    return out;
}

std::u16string plain(typed_text::const_iterator from, typed_text::const_iterator to) {
    std::u16string out;
    std::transform(from, to, std::back_inserter(out), [](const typed_unit& typed) { return typed.unit; });
    return out;
}

std::optional<std::uint32_t> type_of(std::u16string_view name) {
    constexpr auto types = std::to_array<std::uint32_t>(
        {attr_standard_information, attr_attribute_list, attr_file_name, attr_object_id,
         attr_security_descriptor, attr_volume_name, attr_volume_information, attr_data, attr_index_root,
         attr_index_allocation, attr_bitmap, attr_reparse_point, attr_ea_information, attr_ea,
         attr_property_set, attr_logged_utility_stream});
    const auto same = [](char16_t a, char b) {
        return a < 0x80 && std::toupper(static_cast<int>(a)) == static_cast<int>(b);
    };
    for (const std::uint32_t type : types) {
        const std::string known = type_name(type);
        if (std::equal(name.begin(), name.end(), known.begin(), known.end(), same)) {
            return type;
        }
    }
    return std::nullopt;
}

bool is_letter(char16_t unit) {
    const char16_t small = unit | 0x20;
    return small >= u'a' && small <= u'z';
}

// What follows the first colon: "stream" or "stream:$TYPE".
result<stream_name> read_stream(std::string_view text, typed_text::const_iterator from,
                                typed_text::const_iterator to) {
    const auto is_colon = [](const typed_unit& typed) { return typed.is(u':'); };
    const auto colon = std::find_if(from, to, is_colon);
    stream_name out;
    out.name = plain(from, colon);
    if (colon == to) {
        if (!out.name.empty()) {
            return out;
        }
        const bool is_drive = text.size() == 2 && is_letter(static_cast<unsigned char>(text.front()));
        return no_path(
            text, is_drive ? "the stream has no name; the root of a drive is / or " + std::string(text) + "\\"
                           : "the stream has no name; ::$DATA is the unnamed one");
    }
    if (std::find_if(colon + 1, to, is_colon) != to) {
        return no_path(text, "a name, a stream and a type have two colons between them at most");
    }
    const std::u16string name = plain(colon + 1, to);
    const auto type = type_of(name);
    if (!type) {
        return no_path(text, "\"" + shown_name(name) + "\" is no attribute type");
    }
    out.type = *type;
    return out;
}

}  // namespace

result<volume_path> parse_volume_path(std::string_view text) {
    const auto units = units_of_utf8(text);
    if (!units) {
        return no_path(text, "is not UTF-8");
    }
    const bool canonical = units->find(u'/') != std::u16string::npos;
    const char16_t separator = canonical ? u'/' : u'\\';
    typed_text typed;
    if (canonical) {
        auto read = read_canonical(text, *units);
        if (!read) {
            return tl::make_unexpected(read.error());
        }
        typed = std::move(*read);
    } else {
        std::transform(units->begin(), units->end(), std::back_inserter(typed), [](char16_t unit) {
            return typed_unit{unit, false};
        });
    }

    volume_path path;
    auto at = typed.cbegin();
    if (typed.size() >= 3 && is_letter(at->unit) && typed[1].is(u':') && typed[2].is(separator)) {
        path.prefix = {static_cast<char>(at->unit), ':'};
        at += 2;
    }
    if (at != typed.cend() && at->is(separator)) {
        ++at;
        if (at == typed.cend()) {
            return path;
        }
    }
    while (true) {
        const auto end =
            std::find_if(at, typed.cend(), [&](const typed_unit& unit) { return unit.is(separator); });
        auto name_end = end;
        if (end == typed.cend()) {
            name_end = std::find_if(at, end, [](const typed_unit& unit) { return unit.is(u':'); });
            if (name_end != end) {
                auto stream = read_stream(text, name_end + 1, end);
                if (!stream) {
                    return tl::make_unexpected(stream.error());
                }
                path.stream = std::move(*stream);
            }
        }
        std::u16string name = plain(at, name_end);
        const bool root_stream = name.empty() && path.names.empty() && name_end != end;
        if (at == typed.cend() && !path.names.empty()) {
            return no_path(text, "has an empty name; leave the separator at its end out");
        }
        if (name == u"." || name == u".." || (name.empty() && !root_stream)) {
            if (!name.empty()) {
                return no_path(text, "has a name \"" + shown_name(name) + "\"");
            }
            return no_path(text, canonical || end == typed.cend()
                                     ? "has an empty name"
                                     : "has an empty name; with \\ between names nothing is escaped");
        }
        if (!root_stream) {
            path.names.push_back(std::move(name));
        }
        if (end == typed.cend()) {
            return path;
        }
        at = end + 1;
    }
}

result<stream_name> parse_stream_name(std::string_view text) {
    const auto units = units_of_utf8(text);
    if (!units) {
        return no_path(text, "is not UTF-8");
    }
    auto typed = read_canonical(text, *units);
    if (!typed) {
        return tl::make_unexpected(typed.error());
    }
    if (typed->empty() || !typed->front().is(u':')) {
        return no_path(text, "a stream begins with \":\"");
    }
    return read_stream(text, typed->cbegin() + 1, typed->cend());
}

std::string_view without_last_separator(std::string_view text) {
    const char separator = text.find('/') == std::string_view::npos ? '\\' : '/';
    const bool is_root = text.size() == 1 || (text.size() == 3 && text[1] == ':');
    if (text.ends_with(separator) && !is_root) {
        text.remove_suffix(1);
    }
    return text;
}

std::string shown_path(const std::vector<std::u16string>& names) {
    std::string text;
    for (const std::u16string& name : names) {
        text += "/" + shown_name(name);
    }
    return text.empty() ? "/" : text;
}

std::string shown_path(const volume_path& path) {
    std::string text = shown_path(path.names);
    if (!path.stream.name.empty() || path.stream.type != attr_data) {
        text += ":" + shown_name(path.stream.name);
    }
    if (path.stream.type != attr_data) {
        text += ":" + type_name(path.stream.type);
    }
    return text;
}

}  // namespace quarry::exact
