#include "namespace/path_segments.h"

#include "foundation/ql_string.h"
#include "foundation/ql_text.h"

namespace quarry {

namespace {

// Shorter paths with the "\\.\" prefix hold no snapshot id, and no backslash before this index ends one.
constexpr std::size_t snapshot_id_length = 47;

[[nodiscard]] bool begins_with(const std::wstring& text, const std::wstring& start) {
    return text.compare(0, start.size(), start) == 0;
}

[[nodiscard]] std::wstring lowered(std::wstring text) {
    lower_wide(text);
    return text;
}

void keep_from_backslash(std::wstring& path, std::size_t index) {
    const std::size_t backslash = path.find(L'\\', index);
    if (backslash != std::wstring::npos) {
        path.erase(0, backslash);
    }
}

}  // namespace

void strip_snapshot_prefix(std::wstring& path) {
    if (begins_with(path, LR"(\\?\)")) {
        const std::wstring device = lowered(LR"(\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy)");
        if (begins_with(lowered(path), device)) {
            keep_from_backslash(path, device.size());
        }
    } else if (begins_with(path, LR"(\\.\)")) {
        const std::wstring id = L"snapid_";
        if (path.size() > snapshot_id_length && lowered(path).compare(4, id.size(), id) == 0) {
            keep_from_backslash(path, snapshot_id_length);
        }
    }
}

path_segments split_volume_path(const std::wstring& path) {
    const wchar_t separator = path.find(L'/') != std::wstring::npos ? L'/' : L'\\';
    path_segments result;
    split(result.names, path, separator);
    result.rooted = !path.empty() && path.front() == separator;
    return result;
}

std::size_t first_walked_segment(const std::vector<std::wstring>& names) {
    // Deliberate: a first segment with a colon as its second character is passed over whatever else it holds;
    // the letter is compared with nothing. The user sees "c:file" name no file.
    return !names.empty() && names[0].size() >= 2 && names[0][1] == L':' ? 1 : 0;
}

std::string lowered_file_name(const std::wstring& segment) {
    std::wstring name = segment.substr(0, segment.find(L':'));
    trim(name);
    lower_wide(name);
    return narrow(name);
}

std::wstring canonical_text(const path_segments& segments) {
    std::wstring text = segments.rooted ? L"\\" : L"";
    for (std::size_t i = 0; i < segments.names.size(); ++i) {
        text += (i == 0 ? L"" : L"\\") + segments.names[i];
    }
    return text;
}

std::vector<std::wstring> segments_after_link(const std::vector<std::wstring>& names, std::size_t link,
                                              const std::wstring& target) {
    std::wstring text = target;
    for (std::size_t i = link + 1; i < names.size(); ++i) {
        text += L'\\' + names[i];
    }
    std::vector<std::wstring> result;
    split(result, text, L'\\');
    return result;
}

}  // namespace quarry
