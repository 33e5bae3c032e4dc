#include "disk/vmdk_descriptor.h"

#include "foundation/ql_string.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace quarry {

namespace {

// The text up to its first zero byte.
std::string terminated_text_of(byte_view bytes) {
    const auto end = std::find(bytes.span().begin(), bytes.span().end(), std::uint8_t{0});
    return {bytes.span().begin(), end};
}

}  // namespace

void vmdk_descriptor::parse(byte_view text) {
    const std::string whole = terminated_text_of(text);
    std::size_t room = most_kept_descriptor_bytes;
    // Each turn takes a line off.
    for (std::string_view rest = whole; !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        if (!line.empty()) {
            keep(line, room);
            take_value(line);
        }
    }
}

void vmdk_descriptor::keep(std::string_view line, std::size_t& room) {
    if (m_descriptor_lines.size() == most_descriptor_lines || line.size() > room) {
        return;
    }
    room -= line.size();
    std::wstring wide;
    // Bad UTF-8 ends the line early and loses nothing else.
    static_cast<void>(utf8_to_wide(wide, line));
    m_descriptor_lines.push_back(std::move(wide));
}

void vmdk_descriptor::take_value(std::string_view line) {
    const struct {
        std::string_view m_key;
        std::string& m_value;
    } known[] = {
        {"cid=", m_cid},
        {"parentcid=", m_parent_cid},
        {"encoding=", m_encoding},
        {"parentfilenamehint=", m_parent_hint},
    };
    constexpr std::size_t longest_key = 19;
    std::string lowered(line.substr(0, longest_key));
    lower_narrow(lowered);
    for (const auto& [key, value] : known) {
        if (lowered.starts_with(key)) {
            value = line.substr(key.size());
        }
    }
}

}  // namespace quarry
