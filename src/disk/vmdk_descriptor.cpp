#include "disk/vmdk_descriptor.h"

#include "foundation/ql_string.h"
#include "foundation/ql_text.h"

#include <algorithm>
#include <string_view>

namespace quarry {

namespace {

std::string terminated_text_of(byte_view bytes) {
    std::string text(bytes.span().begin(), bytes.span().end());
    text.resize(std::min(text.find('\0'), text.size()));
    return text;
}

}  // namespace

void vmdk_descriptor::parse(byte_view text) {
    const struct {
        std::string_view m_key;
        std::string& m_value;
    } known[] = {
        {"cid=", m_cid},
        {"parentcid=", m_parent_cid},
        {"encoding=", m_encoding},
        {"parentfilenamehint=", m_parent_hint},
    };
    std::vector<std::string> lines;
    split(lines, terminated_text_of(text), '\n');
    for (const std::string& line : lines) {
        std::wstring wide;
        // Bad UTF-8 ends the line early and loses nothing else.
        static_cast<void>(utf8_to_wide(wide, line));
        m_descriptor_lines.push_back(std::move(wide));
        std::string lowered = line;
        lower_narrow(lowered);
        for (const auto& [key, value] : known) {
            if (lowered.starts_with(key)) {
                value = line.substr(key.size());
            }
        }
    }
}

}  // namespace quarry
