#include "frontend/copy/stream_choice.h"

#include "foundation/ql_string.h"
#include "foundation/ql_text.h"
#include "volume/attribute.h"

#include <vector>

namespace quarry {

namespace {

constexpr std::string_view wof_stream_name = "WofCompressedData";
// Added to the mask of the file statistics for each set of four times.
constexpr std::uint32_t times_in_mask = 4;

bool names_match(std::string left, std::string right) {
    return equal_ignore_case(left, right);
}

void take_times(uni::fileio_stats& stats, const attr_item& item) {
    stats.m_modified = item.modified;
    stats.m_created = item.created;
    stats.m_accessed = item.accessed;
    stats.m_mft_changed = item.mft_changed;
    stats.m_time_kind = ql::type_time::filetime;
    stats.m_mask += times_in_mask;
}

}  // namespace

std::string requested_stream_name(const std::wstring& path) {
    const wchar_t separator = path.find(L'/') != std::wstring::npos ? L'/' : L'\\';
    std::vector<std::wstring> components;
    if (!split(components, path, separator) || components.empty()) {
        return {};
    }
    const std::wstring& last = components.back();
    const std::size_t colon = last.find(L':');
    return colon == std::wstring::npos ? std::string() : narrow(last.substr(colon + 1));
}

stream_choice choose_stream(const attr_item_list& items, const std::string& stream_name,
                            uni::fileio_stats& stats) {
    stream_choice choice;
    // Deliberate: of several that match the last one is taken, not the first. The user sees the content of
    // the last.
    for (std::size_t index = 0; index < items.size(); ++index) {
        const attr_item& item = items[index];
        if (item.type == attr_standard_information) {
            choice.mod_time = item.modified;
            take_times(stats, item);
        } else if (item.type == attr_index_allocation || (item.type == attr_data && !stream_name.empty())) {
            if (!item.name.empty() && names_match(item.name, stream_name)) {
                choice.chosen = index;
            }
        } else if (item.type == attr_data && item.name.empty()) {
            choice.chosen = index;
        } else if (item.type == attr_data && item.name == wof_stream_name) {
            choice.wof = index;
        }
    }
    return choice;
}

}  // namespace quarry
