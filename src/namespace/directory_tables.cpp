#include "namespace/directory_tables.h"

#include "foundation/ql_string.h"
#include "namespace/directory_index.h"
#include "namespace/file_names.h"
#include "volume/record_read_ahead.h"

#include <span>
#include <string>
#include <vector>

namespace quarry {

namespace {

// What a name and a directory cost in the cache beside the name's own bytes. On the source, each of them
// takes more.
constexpr std::uint64_t cost_of_name = 64;
constexpr std::uint64_t cost_of_directory = 256;

dir_cache_entry& add_to_cache(CNtfs& ntfs, std::uint64_t entry, std::uint64_t parent, bool deleted) {
    dir_cache_entry fresh;
    fresh.m_entry = entry;
    fresh.m_parents.insert(parent);
    fresh.m_deleted = deleted;
    return ntfs.m_path_cache.try_emplace(entry, std::move(fresh)).first->second;
}

// Reads the names of the children of one directory.
class name_filler {
  public:
    name_filler(CNtfs& ntfs, dir_cache_entry& directory, status_log& log)
        : m_ntfs(ntfs),
          m_directory(directory),
          m_log(log),
          m_reader(ntfs),
          m_listed_reads(ntfs, ntfs.m_path_cache_cost),
          m_record_reads(ntfs, ntfs.m_path_cache_record_cost),
          m_record(ntfs.get_mft_record_size()) {}

    void fill() {
        const std::uint64_t may_cost = m_listed_reads.bytes_left;
        const std::span children(m_directory.m_children.begin(), m_directory.m_children.end());
        // Ends with the children, or when their names cost more than the source can hold, or their records
        // more than all reads may.
        for (std::size_t i = 0;
             i < children.size() && m_cost <= m_ntfs.source_size() && m_record_reads.bytes_left != 0; ++i) {
            // The root directory lists itself.
            if (children[i] != m_directory.m_entry) {
                add_child(children.subspan(i));
            }
        }
        m_ntfs.m_path_cache_cost += may_cost - m_listed_reads.bytes_left;
        m_directory.m_child_names.assign(std::move(m_child_names));
    }

  private:
    // The first of those children that are still to come.
    void add_child(std::span<const std::uint64_t> children) {
        const std::uint64_t child = children.front();
        std::uint64_t length = 0;
        m_record_reads.take(m_record.size());
        m_ntfs.m_path_cache_record_cost += m_record.size();
        if (!m_reader.read(children, m_record, length)) {
            m_log.log("err: readFR: inode 0x%llx", static_cast<unsigned long long>(child));
            return;
        }
        if (length < m_record.size()) {
            m_log.log("err: paramsFR: inode 0x%llx", static_cast<unsigned long long>(child));
            return;
        }
        if (!get_file_names(m_names, m_ntfs, child, m_record, false, any_parent, m_listed_reads)) {
            m_log.log("err: namelookup: inode 0x%llx", static_cast<unsigned long long>(child));
            return;
        }
        // Deliberate: one would expect only the names that the child has in this directory. All its long
        // names count, so a path may end in the name that a hard link has elsewhere.
        for (const file_name& each : m_names) {
            std::string text = narrow(each.name);
            lower_narrow(text);
            m_cost += text.size() + cost_of_name;
            m_child_names.emplace_back(std::move(text), child);
        }
        const file_record header(m_record);
        if (header.is_directory()) {
            add_to_cache(m_ntfs, child, m_directory.m_entry, !header.in_use());
            m_cost += cost_of_directory;
        }
    }

    CNtfs& m_ntfs;
    dir_cache_entry& m_directory;
    status_log& m_log;
    record_read_ahead m_reader;
    // For all children of all directories together.
    read_budget m_listed_reads;
    read_budget m_record_reads;
    std::vector<std::uint8_t> m_record;
    file_name_list m_names;
    std::vector<child_name_table::named_child> m_child_names;
    std::uint64_t m_cost = 0;
};

// The directory's entry in the cache, with the numbers of its children; null if a directory that was not in
// the cache has none.
[[nodiscard]] dir_cache_entry* directory_with_children(CNtfs& ntfs, std::uint64_t directory,
                                                       status_log& log) {
    const auto known = ntfs.m_path_cache.find(directory);
    if (known != ntfs.m_path_cache.end() && !known->second.m_children.empty()) {
        return &known->second;
    }
    log.log("info: get children nodes");
    _inode_collection children;
    const bool indexed = get_directory_children(ntfs, directory, children, false);
    if (known == ntfs.m_path_cache.end() && (!indexed || children.empty())) {
        log.log("info: none found");
        return nullptr;
    }
    dir_cache_entry& entry =
        known != ntfs.m_path_cache.end() ? known->second : add_to_cache(ntfs, directory, directory, false);
    entry.m_children = std::move(children);
    log.log("info: # children [%d]", static_cast<int>(entry.m_children.size()));
    return &entry;
}

}  // namespace

const dir_cache_entry* directory_tables(CNtfs& ntfs, std::uint64_t directory, status_log& log) {
    dir_cache_entry* const entry = directory_with_children(ntfs, directory, log);
    if (entry == nullptr) {
        return nullptr;
    }
    if (!entry->m_child_names.empty()) {
        log.log("info: cache lookup");
        return entry;
    }
    log.log("info: get children names");
    name_filler(ntfs, *entry, log).fill();
    if (entry->m_child_names.empty()) {
        log.log("err: no child names");
        return nullptr;
    }
    return entry;
}

}  // namespace quarry
