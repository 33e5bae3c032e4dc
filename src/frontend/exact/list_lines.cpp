#include "frontend/exact/list_lines.h"

#include "exact/name_text.h"
#include "exact/volume_path.h"
#include "foundation/descriptor_io.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <unistd.h>
#include <utility>
#include <vector>

namespace quarry::exact {

namespace {

constexpr const char* where_list = "list";
constexpr std::string_view utf8_mark = "\xEF\xBB\xBF";
constexpr std::string_view utf16_little_endian_mark = "\xFF\xFE";
constexpr std::string_view utf16_big_endian_mark = "\xFE\xFF";
constexpr std::size_t read_bytes = 65536;

result<copy_object> no_line(std::string_view text, std::string why) {
    return fail(failure_code::name, "\"" + shown_typed(text) + "\"", std::move(why));
}

bool all_of(std::string_view digits, std::string_view known) {
    return !digits.empty() && digits.find_first_not_of(known) == std::string_view::npos;
}

bool looks_like_a_number(std::string_view text) {
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    return hexadecimal ? all_of(text.substr(2), "0123456789abcdefABCDEF") : all_of(text, "0123456789");
}

// "N" or "N-SEQ", whatever the numbers are: no name is meant then.
bool looks_like_an_entry(std::string_view text) {
    const std::size_t dash = text.find('-');
    return looks_like_a_number(text.substr(0, dash)) &&
           (dash == std::string_view::npos || looks_like_a_number(text.substr(dash + 1)));
}

result<copy_object> parse_entry_line(std::string_view text, std::string_view entry) {
    auto object = parse_entry(entry);
    if (!object) {
        return no_line(text, "is no entry; say N or N-SEQUENCE");
    }
    object->stream = text.substr(entry.size());
    if (!object->stream.empty()) {
        if (auto stream = parse_stream_name(object->stream); !stream) {
            return passed_on(stream);
        }
    }
    return *object;
}

std::vector<std::string_view> fields_of(std::string_view text) {
    std::vector<std::string_view> fields;
    while (true) {
        const std::size_t tab = text.find('\t');
        fields.push_back(text.substr(0, tab));
        if (tab == std::string_view::npos) {
            return fields;
        }
        text.remove_prefix(tab + 1);
    }
}

result<copy_object> parse_listing_line(std::string_view text) {
    const std::vector<std::string_view> fields = fields_of(text);
    auto object = fields.back().starts_with('/') ? parse_entry(fields.front()) : std::nullopt;
    if (!object || !object->sequence) {
        return no_line(text, "has tabs and is no line of a listing");
    }
    auto path = parse_volume_path(fields.back());
    if (!path) {
        return passed_on(path);
    }
    object->listed = std::move(path->names);
    // What follows the "/" of the root.
    object->stream = shown_path({{}, path->stream, {}}).substr(1);
    return *object;
}

}  // namespace

std::string where_line(std::uint64_t number) {
    return "list, line " + std::to_string(number);
}

result<copy_object> parse_list_line(std::string_view text) {
    if (!units_of_utf8(text)) {
        return no_line(text, "is not UTF-8");
    }
    if (text.find('\t') != std::string_view::npos) {
        return parse_listing_line(text);
    }
    const std::string_view head = text.substr(0, text.find(':'));
    if (looks_like_an_entry(head)) {
        return parse_entry_line(text, head);
    }
    return parse_volume_path(text).map(
        [&](const volume_path&) { return copy_object(object_by_path{std::string(text)}); });
}

list_lines::list_lines(reader read) : m_read(std::move(read)) {}

result<void> list_lines::begin() {
    while (!m_at_end && m_buffer.size() < utf8_mark.size()) {
        if (auto filled = fill(); !filled) {
            return filled;
        }
    }
    const std::string_view beginning = m_buffer;
    if (beginning.starts_with(utf16_little_endian_mark) || beginning.starts_with(utf16_big_endian_mark)) {
        return fail(failure_code::name, where_list, "is UTF-16; it must be UTF-8");
    }
    m_at = beginning.starts_with(utf8_mark) ? utf8_mark.size() : 0;
    return {};
}

// Appends what one call brings. What was given out goes first.
result<void> list_lines::fill() {
    m_buffer.erase(0, std::exchange(m_at, 0));
    std::array<char, read_bytes> bytes{};
    const std::ptrdiff_t count = m_read(bytes);
    if (count < 0) {
        return fail(failure_code::source_read, where_list,
                    std::string("cannot be read: ") + std::strerror(errno));
    }
    m_buffer.append(bytes.data(), static_cast<std::size_t>(count));
    m_at_end = count == 0;
    return {};
}

// One line without its end, empty or not; nothing at the end of the list.
result<std::optional<list_lines::line>> list_lines::take_line() {
    std::string text;
    // Ends at a line feed, or when nothing more comes. Of a line that is too long the rest is dropped as it
    // comes; the byte beyond the longest may be the CR of the line's end.
    while (true) {
        const std::size_t end = m_buffer.find('\n', m_at);
        const bool ends_here = end != std::string::npos;
        const std::size_t count = (ends_here ? end : m_buffer.size()) - m_at;
        text.append(m_buffer, m_at, std::min(count, longest_list_line + 2 - text.size()));
        m_at += count + (ends_here ? 1 : 0);
        if (!ends_here && !m_at_end) {
            if (auto filled = fill(); !filled) {
                return passed_on(filled);
            }
            continue;
        }
        if (!ends_here && text.empty()) {
            return std::nullopt;
        }
        if (ends_here && text.ends_with('\r')) {
            text.pop_back();
        }
        const bool too_long = text.size() > longest_list_line;
        return line{++m_number, std::move(text), too_long};
    }
}

result<std::optional<list_lines::line>> list_lines::next() {
    while (true) {
        auto taken = take_line();
        if (!taken || !*taken || !(*taken)->text.empty()) {
            return taken;
        }
    }
}

std::vector<list_lines::line> list_lines::at_hand(std::uint64_t after, std::uint64_t last) const {
    std::vector<line> lines;
    std::size_t at = m_at;
    // Ends with the last line that has come whole.
    for (std::uint64_t number = m_number + 1; number <= last; ++number) {
        const std::size_t end = m_buffer.find('\n', at);
        if (end == std::string::npos) {
            break;
        }
        std::string_view text = std::string_view(m_buffer).substr(at, end - at);
        at = end + 1;
        if (text.ends_with('\r')) {
            text.remove_suffix(1);
        }
        if (number > after && !text.empty() && text.size() <= longest_list_line) {
            lines.push_back({number, std::string(text), false});
        }
    }
    return lines;
}

std::ptrdiff_t read_standard_input(std::span<char> buffer) {
    return uninterrupted([&] { return ::read(STDIN_FILENO, buffer.data(), buffer.size()); });
}

}  // namespace quarry::exact
