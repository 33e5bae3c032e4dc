#include "frontend/output/output_guard.h"

#include "foundation/ql_portable_dir.h"

#include <algorithm>
#include <functional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace quarry {

namespace {

bool share_storage(const storage_set& left, const storage_set& right) {
    return std::any_of(left.begin(), left.end(),
                       [&right](const storage_id& id) { return right.contains(id); });
}

// The absolute form of a path, as far as there is one.
std::uint64_t key_of_path(const std::string& path) {
    const std::string absolute = canonical_path(std::string_view(path), '/');
    return std::hash<std::string>()(absolute.empty() ? path : absolute);
}

std::uint64_t key_of_file(const storage_id& id) {
    // An odd factor spreads the few device numbers over all bits.
    constexpr std::uint64_t spread = 0x9E3779B97F4A7C15;
    return static_cast<std::uint64_t>(id.device) * spread ^ static_cast<std::uint64_t>(id.inode);
}

bool is_copy_or_report(output_kind kind) {
    return kind == output_kind::copy || kind == output_kind::report;
}

}  // namespace

output_guard::output_guard() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        struct ::stat status {};
        if (::fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
            m_protected.insert({false, status.st_dev, status.st_ino});
        }
    }
}

void output_guard::add_source(const std::string& path) {
    const std::size_t before = m_sources.size();
    const found_file found = look_up(path);
    add_storage(m_sources, found);
    if (S_ISREG(found.mode)) {
        m_source_likenesses.insert(found.likeness);
    }
    if (m_sources.size() != before) {
        m_known_file_systems.clear();
    }
}

void output_guard::add_sources(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        add_source(path);
    }
}

void output_guard::protect_log(const std::string& path) {
    if (const found_file found = look_up(path); found.exists) {
        m_log = found.id;
    }
}

void output_guard::protect_file(const std::string& path) {
    if (const found_file found = look_up(path); found.exists) {
        m_protected.insert(found.id);
    }
}

output_verdict output_guard::look_at(const std::string& path, output_kind kind) const {
    const found_file found = look_up(path);
    if (found.exists) {
        storage_set storage;
        add_storage(storage, found);
        const bool is_like_a_source = S_ISREG(found.mode) && m_source_likenesses.contains(found.likeness);
        if (is_like_a_source || share_storage(storage, m_sources)) {
            return output_verdict::source;
        }
        const bool is_other_log = found.id == m_log && kind != output_kind::log;
        const bool must_stay = m_keeps_existing && is_copy_or_report(kind);
        // Deliberate: no block device takes an output, not even one that nobody reads. Who wants a copy on a
        // device moves it there: the user sees that the file cannot be created.
        if (S_ISBLK(found.mode) || is_other_log || must_stay || m_protected.contains(found.id)) {
            return output_verdict::taken;
        }
    }
    if ((!found.exists || S_ISREG(found.mode)) && lies_on_source(found.file_system)) {
        return output_verdict::source;
    }
    return has_other_kind(path, found, kind) ? output_verdict::taken : output_verdict::free;
}

// The answer is kept, since a list of paths writes to few file systems.
bool output_guard::lies_on_source(const file_system_id& file_system) const {
    // A file system is not made of files that are in it. That spares most runs to ask what it is made of.
    const auto is_in_it = [&file_system](const storage_id& id) {
        return !id.is_device && id.device == file_system.device;
    };
    if (std::all_of(m_sources.begin(), m_sources.end(), is_in_it)) {
        return false;
    }
    const auto known = m_known_file_systems.find(file_system);
    if (known != m_known_file_systems.end()) {
        return known->second;
    }
    storage_set storage;
    add_storage_of_file_system(storage, file_system);
    const bool lies = share_storage(storage, m_sources);
    m_known_file_systems.emplace(file_system, lies);
    return lies;
}

bool output_guard::is_on_source(const std::string& directory) const {
    return lies_on_source(look_up(directory).file_system);
}

bool output_guard::has_other_kind(const std::string& path, const found_file& found, output_kind kind) const {
    if (!m_tells_kinds || !is_copy_or_report(kind)) {
        return false;
    }
    const auto by_path = m_kind_of_path.find(key_of_path(path));
    if (by_path != m_kind_of_path.end() && by_path->second != kind) {
        return true;
    }
    const auto by_file = found.exists ? m_kind_of_file.find(key_of_file(found.id)) : m_kind_of_file.end();
    return by_file != m_kind_of_file.end() && by_file->second != kind;
}

void output_guard::note(const std::string& path, output_kind kind) {
    if (!m_tells_kinds || !is_copy_or_report(kind)) {
        return;
    }
    const found_file found = look_up(path);
    if (found.exists && S_ISREG(found.mode)) {
        m_kind_of_path[key_of_path(path)] = kind;
        // The number of a file that is gone may have been given to this one.
        m_kind_of_file[key_of_file(found.id)] = kind;
    }
}

void output_guard::forget(const std::string& path) {
    if (m_tells_kinds) {
        m_kind_of_path.erase(key_of_path(path));
    }
}

}  // namespace quarry
