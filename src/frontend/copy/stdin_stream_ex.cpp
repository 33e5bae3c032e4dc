#include "frontend/copy/stdin_stream_ex.h"

#include "foundation/ql_portable_dir.h"
#include "foundation/ql_string.h"
#include "frontend/options/filter.h"

namespace qlportdir {

namespace {

constexpr std::size_t shortest_prefixed_path = 5;
constexpr std::size_t device_prefix_length = 4;
constexpr std::size_t longest_dropped_path = 46;

}  // namespace

void clean_found_path(std::wstring& path) {
    if (path.size() < shortest_prefixed_path || !path.starts_with(L"\\\\")) {
        return;
    }
    if (path.size() <= longest_dropped_path) {
        path.clear();
        return;
    }
    std::wstring lowered = path;
    quarry::lower_wide(lowered);
    if (lowered.compare(device_prefix_length, 6, L"global") != 0) {
        path.erase(0, device_prefix_length);
    }
}

void stdin_stream_ex::reset() {
    m_dirs.clear();
    m_files.clear();
    m_max_depth = 1;
    m_filter.clear();
    m_enumerating = false;
    m_range = nullptr;
}

bool stdin_stream_ex::open_stdin(bool check) {
    reset();
    return uni::stdin_stream::open_stdin(check);
}

bool stdin_stream_ex::open_enum(const std::wstring& dir, std::int32_t max_depth,
                                const quarry::filter_list& filter) {
    if (dir.empty()) {
        return false;
    }
    reset();
    m_max_depth = max_depth;
    m_filter = filter;
    m_dirs.emplace_back(dir, 0);
    m_enumerating = true;
    m_open = true;
    return true;
}

void stdin_stream_ex::find_files() {
    // Ends because links to directories count as files, so the walk goes down a tree.
    while (m_files.empty() && !m_dirs.empty()) {
        const auto [directory, depth] = m_dirs.front();
        m_dirs.pop_front();
        if (depth > m_max_depth) {
            continue;
        }
        std::string path = quarry::narrow(directory);
        if (!path.ends_with('/')) {
            path += '/';
        }
        _DIR_NODE_STL nodes;
        if (!list_directory(nodes, path, depth, false, true)) {
            continue;
        }
        for (const _DIR_NODE& node : nodes) {
            std::wstring found = quarry::widen(node.m_path);
            bool open_failed = false;
            if (found.empty()) {
                // A name that is no UTF-8 is none that a volume could have. Without this look a directory of
                // such a name would be listed as the root of the host.
                continue;
            }
            if (node.is_dir()) {
                m_dirs.emplace_back(found, depth + 1);
            } else if (quarry::filter_match(m_range, open_failed, found, m_filter, nullptr)) {
                clean_found_path(found);
                m_files.push_back(found);
            }
        }
    }
}

bool stdin_stream_ex::getline(std::string& out, bool trim) {
    if (!m_enumerating) {
        return uni::stdin_stream::getline(out, trim);
    }
    out.clear();
    find_files();
    if (m_files.empty()) {
        return false;
    }
    out = quarry::narrow(m_files.front());
    m_files.pop_front();
    return true;
}

bool stdin_stream_ex::getline(std::wstring& out, bool trim) {
    std::string line;
    const bool found = getline(line, trim);
    out = quarry::widen(line);
    return found;
}

}  // namespace qlportdir
