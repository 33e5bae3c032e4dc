#include "foundation/ql_portable_dir.h"

#include "foundation/assertion.h"
#include "foundation/ql_string.h"
#include "foundation/ql_text.h"
#include "foundation/ql_time.h"
#include "foundation/uni_streams.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace quarry {

namespace {

constexpr char backslash = '\\';
constexpr std::size_t current_directory_buffer_bytes = 512;

bool has_drive_letter(std::string_view path) {
    return path.size() >= 2 && path[1] == ':';
}

// One routine for both forms of text.
//
// Deliberate: the last "\" parts the path even if a "/" comes after it, not the last separator of either
// kind. The user sees `a\b/c` as the directory "a" and the name "b/c".
//
// Deliberate: a leading separator parts nothing; it is not the root directory. The user sees `/c` as the
// directory "." and the name "/c".
//
// Deliberate: a name of ".." goes to the directory and leaves ".", and after "/" it takes two slashes along;
// it does not stay. The user sees `a/..` as the directory "a//.." and the name ".".
template <typename Char>
bool split_at_separator(std::basic_string<Char>& directory, std::basic_string<Char>& name,
                        std::basic_string_view<Char> path) {
    using view = std::basic_string_view<Char>;
    constexpr std::array<Char, 2> dots = {'.', '.'};
    directory.clear();
    name.clear();
    if (path.empty()) {
        return false;
    }
    std::size_t separator = path.rfind(static_cast<Char>('\\'));
    const bool at_backslash = separator != view::npos;
    if (!at_backslash) {
        separator = path.rfind(static_cast<Char>('/'));
    }
    if (separator == view::npos || separator == 0) {
        directory.assign(1, static_cast<Char>('.'));
        name = path;
        return true;
    }
    directory = path.substr(0, separator);
    name = path.substr(separator + 1);
    if (name == view(dots.data(), dots.size())) {
        name.assign(1, static_cast<Char>('.'));
        directory.append(at_backslash ? 1 : 2, path[separator]).append(dots.data(), dots.size());
    }
    return true;
}

// The path without the quotes that a user put around it, and without blanks at its ends.
std::string without_quotes(std::string_view path) {
    std::string text(path);
    replace_char(text, '"', ' ', false);
    if (std::count(text.begin(), text.end(), '\'') == 2) {
        replace_char(text, '\'', ' ', false);
    }
    trim(text);
    return text;
}

char separator_of(std::string_view path, char default_separator) {
    for (const char separator : {'/', backslash}) {
        if (path.find(separator) != std::string_view::npos) {
            return separator;
        }
    }
    return default_separator;
}

// What a relative path adds to the current directory; empty optional for a path with a drive letter, which is
// not relative.
std::optional<std::string> tail_of_relative(std::string path, char separator) {
    const bool begins_with_dot = path[0] == '.';
    const bool second_decides = path.size() >= 2 && (path[1] == '.' || path[1] == ':');
    const std::string here = std::string(".") + separator;
    if (!begins_with_dot && !second_decides) {
        path.insert(0, here);
    }
    std::string directory;
    std::string name;
    if (!split_path_narrow(directory, name, path) || directory == ".") {
        return name;
    }
    if (has_drive_letter(directory)) {
        return std::nullopt;
    }
    return directory.starts_with(here) ? path.substr(here.size()) : path;
}

// `tail`, which begins with a separator, after `directory`. Each leading ".." takes the last level off the
// directory; a ".." after another name is left to the system, which knows where links lead.
std::string resolve_upwards(std::string directory, const std::string& tail, char separator) {
    std::size_t kept_from = 0;
    for (std::size_t begin = 0; begin != std::string::npos;) {
        const std::size_t end = tail.find(separator, begin + 1);
        const std::string segment = tail.substr(begin + 1, end == std::string::npos ? end : end - begin - 1);
        if (segment == "..") {
            const std::size_t last_level = directory.rfind(separator);
            directory.erase(last_level == std::string::npos ? 0 : last_level);
            kept_from = end;
        } else if (!segment.empty() && segment != ".") {
            break;
        }
        begin = end;
    }
    return kept_from == std::string::npos ? directory : directory + tail.substr(kept_from);
}

void collapse_doubled(std::string& text, char separator) {
    const auto both_separators = [separator](char left, char right) {
        return left == separator && right == separator;
    };
    text.erase(std::unique(text.begin(), text.end(), both_separators), text.end());
}

// A path as the system is asked for it: no double quotes, and "/" for "\" after a leading `\\?\` or `\\.\`.
std::string path_for_system(const std::string& path) {
    std::string text = path;
    remove_char(text, '"');
    const std::string kept =
        text.starts_with(R"(\\?\)") || text.starts_with(R"(\\.\)") ? text.substr(0, 4) : "";
    text.erase(0, kept.size());
    replace_char(text, backslash, '/', false);
    return kept + text;
}

bool is_directory(const std::string& path) {
    struct ::stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool make_directory(const std::string& path) {
    constexpr ::mode_t all_rights_before_umask = 0777;
    return ::mkdir(path.c_str(), all_rights_before_umask) == 0 || is_directory(path);
}

std::string path_of_file(const std::string& path) {
    return path.size() <= 2 || has_drive_letter(path) ? path : canonical_path(std::string_view(path), '/');
}

std::uint64_t filetime_of(std::int64_t unix_seconds) {
    return static_cast<std::uint64_t>(unix_seconds) * ql::ticks_per_second + ql::unix_epoch_in_ticks;
}

}  // namespace

bool split_path(std::wstring& directory, std::wstring& name, std::wstring_view path) {
    return split_at_separator(directory, name, path);
}

bool split_path_narrow(std::string& directory, std::string& name, std::string_view path) {
    return split_at_separator(directory, name, path);
}

std::string canonical_path(std::string_view path, char default_separator) {
    std::string text = without_quotes(path);
    if (text.empty()) {
        return text;
    }
    const char separator = separator_of(text, default_separator);
    if (text.front() == separator) {
        // Deliberate: a path that begins with its separator keeps its doubled separators and its ".."; it is
        // not simplified as a relative one is. The user sees the path as typed.
        return text;
    }
    if (const std::optional<std::string> tail = tail_of_relative(text, separator)) {
        const std::string directory = current_directory();
        if (directory.empty()) {
            return {};
        }
        text = resolve_upwards(directory, separator + *tail, separator);
    }
    collapse_doubled(text, separator);
    // Deliberate: a path with a drive letter gets a leading "/" if "/" separates it; it does not stay as it
    // does with "\". The user sees `C:/sub` taken for "/C:/sub".
    if (text.empty() || (separator == '/' && text.front() != '/')) {
        text.insert(0, 1, separator);
    }
    return text;
}

std::wstring canonical_path(std::wstring_view path, wchar_t default_separator) {
    return widen(canonical_path(std::string_view(narrow(path)), static_cast<char>(default_separator)));
}

std::string shadow_prefix(bool lower_case, bool with_root_prefix) {
    std::string text = with_root_prefix ? R"(\\?\GLOBALROOT)" : "";
    text += R"(\Device\HarddiskVolumeShadowCopy)";
    if (lower_case) {
        lower_narrow(text);
    }
    return text;
}

bool make_directories(const std::string& path) {
    const std::string text = path_for_system(path);
    for (std::size_t end = text.find('/', 1); end != std::string::npos; end = text.find('/', end + 1)) {
        const std::string level = text.substr(0, end);
        if (level.back() != ':' && !make_directory(level)) {
            return false;
        }
    }
    return text.ends_with('/') || make_directory(text);
}

bool create_file(const std::string& path, const void* bytes, std::size_t length) {
    const std::string text = path_for_system(path);
    const std::size_t separator = text.rfind('/');
    const bool in_root_or_here = separator == std::string::npos || separator == 0;
    if ((bytes == nullptr && length != 0) ||
        (!in_root_or_here && !make_directories(text.substr(0, separator)))) {
        return false;
    }
    uni::ofstream file(widen(text), std::ios::binary | std::ios::trunc);
    file.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(length));
    file.close();
    return file.good();
}

bool delete_file(const std::string& path) {
    return std::remove(path_of_file(path).c_str()) == 0;
}

bool rename_file(const std::string& old_path, const std::string& new_path, bool canonicalise) {
    if (canonicalise) {
        return std::rename(path_of_file(old_path).c_str(), path_of_file(new_path).c_str()) == 0;
    }
    return std::rename(old_path.c_str(), new_path.c_str()) == 0;
}

bool file_times(std::uint64_t& modified, std::uint64_t& created, const std::string& path) {
    modified = 0;
    created = 0;
    struct ::statx status {};
    if (::statx(AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS | STATX_BTIME, &status) != 0) {
        return false;
    }
    const bool birth_is_known = (status.stx_mask & STATX_BTIME) != 0;
    modified = filetime_of(status.stx_mtime.tv_sec);
    created = filetime_of(birth_is_known ? status.stx_btime.tv_sec : status.stx_ctime.tv_sec);
    return true;
}

bool file_size(std::uint64_t& size_in_bytes, const std::string& path) {
    struct ::stat status {};
    const bool known = ::stat(path.c_str(), &status) == 0;
    size_in_bytes = known ? static_cast<std::uint64_t>(status.st_size) : 0;
    return known;
}

bool executable_path(std::string& out) {
    std::array<char, 4096> buffer{};
    const ::ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
    out.assign(buffer.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    return length > 0;
}

std::string current_directory() {
    std::array<char, current_directory_buffer_bytes> buffer{};
    return ::getcwd(buffer.data(), buffer.size()) != nullptr ? std::string(buffer.data()) : std::string();
}

bool same_file(const std::string& left, const std::string& right) {
    struct ::stat first {};
    struct ::stat second {};
    return ::stat(left.c_str(), &first) == 0 && ::stat(right.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

}  // namespace quarry

namespace qlportdir {

namespace {

struct directory_closer {
    void operator()(::DIR* directory) const { ::closedir(directory); }
};

// A path of `expand_wildcards` and where the search for its next wildcard begins. It begins after the names
// that were put in, so a directory that is called "*" is not taken for one.
struct wildcard_path {
    std::string m_path;
    std::size_t m_search_from = 0;
};

}  // namespace

bool _DIR_NODE::is_dir() const {
    quarry::require(m_using_st_mode_flags, "m_using_st_mode_flags", "ql_portable_dir");
    return S_ISDIR(m_mode);
}

bool list_directory(_DIR_NODE_STL& out, const std::string& directory_with_separator, std::int32_t depth,
                    bool directories_only, bool forward_slash) {
    std::string asked = directory_with_separator;
    if (!forward_slash) {
        quarry::replace_char(asked, '\\', '/', false);
    }
    const std::unique_ptr<::DIR, directory_closer> directory(::opendir(asked.c_str()));
    if (!directory) {
        return false;
    }
    _DIR_NODE_STL found;
    while (const ::dirent* entry = ::readdir(directory.get())) {
        _DIR_NODE node;
        node.m_name = entry->d_name;
        struct ::stat status {};
        if (node.m_name == "." || node.m_name == ".." ||
            ::lstat((asked + node.m_name).c_str(), &status) != 0) {
            continue;
        }
        node.m_mode = status.st_mode;
        node.m_using_st_mode_flags = true;
        node.m_path = directory_with_separator + node.m_name;
        node.m_depth = depth;
        if (node.is_dir()) {
            node.m_path += forward_slash ? '/' : '\\';
            node.m_depth = depth + 1;
        } else if (directories_only) {
            continue;
        }
        found.push_back(std::move(node));
    }
    std::sort(found.begin(), found.end(),
              [](const _DIR_NODE& left, const _DIR_NODE& right) { return left.m_name < right.m_name; });
    out.insert(out.end(), found.begin(), found.end());
    return true;
}

void expand_wildcards(std::vector<std::string>& paths, bool forward_slash) {
    const std::string wildcard = forward_slash ? "/*/" : R"(\*\)";
    std::vector<wildcard_path> work;
    work.reserve(paths.size());
    for (const std::string& path : paths) {
        work.push_back({path});
    }
    // Ends because each round puts a directory that exists in place of a wildcard, and paths are only so
    // deep.
    for (std::size_t i = 0; i < work.size();) {
        const std::size_t found = work[i].m_path.find(wildcard, work[i].m_search_from);
        _DIR_NODE_STL nodes;
        const std::string head = work[i].m_path.substr(0, found == std::string::npos ? 0 : found + 1);
        if (head.empty() || !list_directory(nodes, head, 0, true, forward_slash) || nodes.empty()) {
            ++i;
            continue;
        }
        const std::string tail = work[i].m_path.substr(found + wildcard.size());
        work[i] = {nodes[0].m_path + tail, nodes[0].m_path.size() - 1};
        for (std::size_t other = 1; other < nodes.size(); ++other) {
            work.push_back({nodes[other].m_path + tail, nodes[other].m_path.size() - 1});
        }
    }
    paths.clear();
    for (wildcard_path& path : work) {
        paths.push_back(std::move(path.m_path));
    }
}

}  // namespace qlportdir
