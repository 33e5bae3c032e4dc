#include "namespace/path_resolution.h"

#include "foundation/ql_string.h"
#include "namespace/directory_tables.h"
#include "namespace/path_segments.h"
#include "namespace/reparse_link.h"
#include "volume/limits.h"
#include "volume/well_known.h"

#include <optional>
#include <vector>

namespace quarry {

namespace {

constexpr std::uint64_t no_directory = ~std::uint64_t{0};
// Links followed in one lookup. A link that leads to itself would never end.
constexpr unsigned most_restarts = 64;

path_cache& cache_of(CNtfs& ntfs) {
    if (!ntfs.m_path_cache.has_limits()) {
        ntfs.m_path_cache.set_limits(ntfs.m_cache_memory.left(), limits::lookup_bytes(ntfs.source_size()));
    }
    return ntfs.m_path_cache;
}

// One walk from the root directory down.
class path_walk {
  public:
    path_walk(CNtfs& ntfs, path_segments& path, status_log& log)
        : m_ntfs(ntfs),
          m_path(path),
          m_log(log),
          m_reads(cache_of(ntfs)),
          m_record(ntfs.get_mft_record_size()) {}

    [[nodiscard]] bool run(bool follow_links) {
        unsigned restarts = 0;
        std::size_t index = first_walked_segment(m_path.names);
        // Ends with the segments; a link puts new ones in their place, at most `most_restarts` times.
        while (index < m_path.names.size()) {
            const std::string name = lowered_file_name(m_path.names[index]);
            m_log.log("seg: %s", name.c_str());
            if (!find_child(name)) {
                return false;
            }
            std::wstring target;
            if (follow_links && read_link(target)) {
                if (++restarts > most_restarts) {
                    return false;
                }
                // Deliberate: a link to the root itself does not lead there. With no segment left to walk
                // the entry stays the link's own.
                m_path.names = segments_after_link(m_path.names, index, target);
                m_parent = root_directory;
                index = first_walked_segment(m_path.names);
                m_log.log("info: restart segments [link]");
                m_previous = 0;
                continue;
            }
            m_log.log("info: inode found for seg: %s : 0x%llx", name.c_str(),
                      static_cast<unsigned long long>(m_entry));
            m_previous = m_parent;
            m_parent = m_entry;
            ++index;
        }
        return true;
    }

    [[nodiscard]] std::uint64_t entry() const { return m_entry; }
    // The directory that holds the entry which was found last.
    [[nodiscard]] std::uint64_t parent() const { return m_previous; }

  private:
    [[nodiscard]] bool find_child(const std::string& name) {
        const child_name_table* const names = child_names_of(m_ntfs, m_parent, m_reads, m_log);
        if (names == nullptr) {
            return false;
        }
        const std::optional<std::uint64_t> child = names->find(name);
        if (!child) {
            m_log.log("err: no child nodes");
            return false;
        }
        m_entry = *child;
        return true;
    }

    [[nodiscard]] bool read_link(std::wstring& target) {
        std::uint64_t position = 0;
        std::uint64_t length = 0;
        return m_ntfs.read_record(m_entry, std::span(m_record), position, length) &&
               length >= m_record.size() && link_target(target, m_record, m_ntfs.get_mft_record_size());
    }

    CNtfs& m_ntfs;
    path_segments& m_path;
    status_log& m_log;
    lookup_reads m_reads;
    std::vector<std::uint8_t> m_record;
    std::uint64_t m_entry = root_directory;
    std::uint64_t m_parent = root_directory;
    std::uint64_t m_previous = root_directory;
};

}  // namespace

bool resolve_path(std::uint64_t& entry, std::uint64_t& parent_entry, std::wstring& canonical_path,
                  CNtfs* ntfs, std::wstring& path, bool follow_links, status_log& log) {
    entry = 0;
    parent_entry = no_directory;
    canonical_path.clear();
    if (ntfs == nullptr || path.empty()) {
        return false;
    }
    strip_snapshot_prefix(path);
    log.log("anal: %s", narrow(path).c_str());
    path_segments segments = split_volume_path(path);
    if (segments.rooted) {
        log.log("root dir");
    }
    if (segments.names.empty()) {
        // A path without segments has nothing but separators, so it is rooted.
        log.log("path empty");
        entry = root_directory;
        canonical_path = canonical_text(segments);
        return true;
    }
    path_walk walk(*ntfs, segments, log);
    const bool found = walk.run(follow_links);
    entry = walk.entry();
    parent_entry = walk.parent();
    if (!found) {
        log.log("inode not found for %s", narrow(path).c_str());
        return false;
    }
    canonical_path = canonical_text(segments);
    return true;
}

}  // namespace quarry
