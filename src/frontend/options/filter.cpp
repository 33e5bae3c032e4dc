#include "frontend/options/filter.h"

#include "foundation/ql_number.h"
#include "foundation/ql_portable_dir.h"
#include "foundation/ql_string.h"
#include "foundation/ql_text.h"
#include "foundation/uni_fileio.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <linux/magic.h>
#include <optional>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <vector>

namespace quarry {

namespace {

constexpr wchar_t star = L'*';

// Their files are made by the kernel: proc, sysfs, debugfs, tracefs, configfs.
constexpr std::array<std::uint32_t, 5> kernel_file_systems = {PROC_SUPER_MAGIC, SYSFS_MAGIC, DEBUGFS_MAGIC,
                                                              TRACEFS_MAGIC, 0x62656570};

// What the stars at the ends of a pattern said.
struct stars {
    bool lead = false;
    bool trail = false;
};

// Deliberate: a star inside of a pattern is removed; it does not match any text. The user sees "*a*b*" find
// names with "ab" in them.
stars take_stars(std::wstring& pattern) {
    const stars found = {pattern.starts_with(star), pattern.ends_with(star)};
    std::erase(pattern, star);
    return found;
}

// Parts the stream pattern off an alternative. `first` is the first alternative of the filter.
void take_stream(filter_entry& entry, filter_entry& first) {
    const std::size_t colon = entry.name.find(L':');
    if (colon == std::wstring::npos) {
        return;
    }
    entry.has_stream = true;
    entry.stream = entry.name.substr(colon + 1);
    entry.name.resize(colon);
    if (entry.stream == L"*") {
        // Deliberate: "any stream" is a mark of the whole filter, kept in its first alternative, not of the
        // alternative that said it. The user sees any stream match for all of them.
        first.any_stream = true;
        return;
    }
    const stars found = take_stars(entry.stream);
    entry.stream_lead_star = found.lead;
    entry.stream_trail_star = found.trail;
}

void take_name(filter_entry& entry) {
    if (entry.name == L"*") {
        entry.any_name = true;
        return;
    }
    const stars found = take_stars(entry.name);
    entry.name_lead_star = found.lead;
    entry.name_trail_star = found.trail;
    entry.anchored = entry.name.starts_with(L'/');
}

std::optional<unsigned> hex_digit(char character) {
    if (character >= '0' && character <= '9') {
        return static_cast<unsigned>(character - '0');
    }
    const char lowered = static_cast<char>(character | 0x20);
    if (lowered >= 'a' && lowered <= 'f') {
        return static_cast<unsigned>(lowered - 'a') + 10;
    }
    return std::nullopt;
}

// Nothing unless all of the text is pairs of digits.
std::vector<std::uint8_t> bytes_from_hex(std::string_view text) {
    std::vector<std::uint8_t> bytes;
    if (text.size() % 2 != 0) {
        return {};
    }
    for (std::size_t at = 0; at < text.size(); at += 2) {
        const auto high = hex_digit(text[at]);
        const auto low = hex_digit(text[at + 1]);
        if (!high || !low) {
            return {};
        }
        bytes.push_back(static_cast<std::uint8_t>(*high * 16 + *low));
    }
    return bytes;
}

// True if the first place of a directory pattern is one of whole names, or at least ends like one.
bool holds_directory(const std::wstring& directory, const std::wstring& pattern) {
    const std::size_t at = directory.find(pattern);
    if (at == std::wstring::npos) {
        return false;
    }
    const std::size_t end = at + pattern.size();
    return end == directory.size() || directory[end] == L'/' || directory[end] == L'\0';
}

bool lies_below(std::wstring directory, const std::wstring& pattern) {
    if (directory.find(pattern) == std::wstring::npos) {
        replace_char(directory, L'\\', L'/', false);
    }
    return holds_directory(directory, pattern);
}

bool name_fits(const filter_entry& entry, const std::wstring& name) {
    if (entry.name_lead_star && entry.name_trail_star) {
        return name.find(entry.name) != std::wstring::npos;
    }
    if (entry.name_lead_star) {
        // Deliberate: the first place of the ending decides, so "*.txt" does not find "a.txt.txt".
        const std::size_t at = name.find(entry.name);
        return at != std::wstring::npos && at + entry.name.size() == name.size();
    }
    if (entry.name_trail_star) {
        return name.starts_with(entry.name);
    }
    return !entry.name.empty() && name == entry.name;
}

// True for what can be opened without an effect on anything else. A line of a list may name a device or a
// FIFO, which act when they are opened, and files of the kernel, some of which act when they are read.
bool is_ordinary_file(const std::wstring& path) {
    const std::string name = narrow(path);
    struct ::stat status {};
    struct ::statfs file_system {};
    if (::stat(name.c_str(), &status) != 0 || !S_ISREG(status.st_mode) ||
        ::statfs(name.c_str(), &file_system) != 0) {
        return false;
    }
    const auto type = static_cast<std::uint32_t>(file_system.f_type);
    return std::find(kernel_file_systems.begin(), kernel_file_systems.end(), type) ==
           kernel_file_systems.end();
}

// Deliberate: the bytes of the host's file at that path are compared, not those of the file on the volume.
// The user sees the host's file decide.
bool signature_fits(const filter_entry& entry, const std::wstring& path, bool& open_failed) {
    if (entry.signature.empty() || entry.name_lead_star || entry.name_trail_star) {
        return false;
    }
    uni::fileio file;
    if (!is_ordinary_file(path) || !file.open(path, false, true, false)) {
        open_failed = true;
        return false;
    }
    const std::uint64_t length = entry.signature.size();
    const std::uint64_t size = file.size();
    std::vector<std::uint8_t> bytes;
    return size >= length && entry.sig_offset <= size - length &&
           file.read_at(bytes, length, entry.sig_offset) && bytes == entry.signature;
}

// Deliberate: the times of the host's file of that name are meant, not those of the file on the volume. The
// user sees a line dropped whose path the host does not have, or whose file was changed at the very start of
// 1970: a time of zero counts as unknown.
bool in_range(const time_range& range, const std::wstring& path, uni::fileio_stats& stats) {
    if (stats.m_modified == 0 && stats.m_created == 0 &&
        (!stats.fill_from_host(path) || stats.m_modified == 0)) {
        return false;
    }
    return range.holds(stats);
}

}  // namespace

bool make_filter(filter_list& out, std::string_view text) {
    out.clear();
    std::wstring lowered = widen(text);
    lower_wide(lowered);
    replace_char(lowered, L',', L'|', false);
    std::vector<std::wstring> alternatives;
    split(alternatives, lowered, L'|');
    for (const std::wstring& alternative : alternatives) {
        filter_entry entry;
        entry.text = alternative;
        entry.name = alternative;
        if (alternative == L"*") {
            entry.any_name = true;
            out.assign(1, entry);
            return true;
        }
        out.push_back(entry);
        take_stream(out.back(), out.front());
        take_name(out.back());
    }
    return !out.empty();
}

filter_entry make_signature_filter(std::string_view value) {
    filter_entry entry;
    entry.text = widen(value);
    const std::size_t bar = value.find_first_of("|,");
    entry.signature = bytes_from_hex(value.substr(0, bar));
    if (bar != std::string_view::npos) {
        parse_u64(entry.sig_offset, value.substr(bar + 1));
    }
    return entry;
}

bool filter_match(const time_range* range, bool& open_failed, const std::wstring& path,
                  const filter_list& list, uni::fileio_stats* stats) {
    open_failed = false;
    if (path.empty()) {
        return false;
    }
    if (range != nullptr && stats != nullptr && range->is_on() && !in_range(*range, path, *stats)) {
        return false;
    }
    if (list.empty() || (list.size() == 1 && list.front().any_name)) {
        return true;
    }
    std::wstring directory;
    std::wstring name;
    if (!split_path(directory, name, path)) {
        return false;
    }
    lower_wide(directory);
    lower_wide(name);
    for (const filter_entry& entry : list) {
        if ((entry.anchored && lies_below(directory, entry.name)) || entry.any_name ||
            name_fits(entry, name) || signature_fits(entry, path, open_failed)) {
            return true;
        }
    }
    return false;
}

}  // namespace quarry
