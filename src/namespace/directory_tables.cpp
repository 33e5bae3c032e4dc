#include "namespace/directory_tables.h"

#include "foundation/ql_string.h"
#include "namespace/directory_index.h"
#include "namespace/file_names.h"
#include "volume/limits.h"
#include "volume/record_read_ahead.h"

#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace quarry {

namespace {

void tell_fault(status_log& log, std::uint64_t child, child_fault fault) {
    const auto number = static_cast<unsigned long long>(child);
    switch (fault) {
        case child_fault::unreadable:
            log.log("err: readFR: inode 0x%llx", number);
            break;
        case child_fault::cut:
            log.log("err: paramsFR: inode 0x%llx", number);
            break;
        case child_fault::nameless:
            log.log("err: namelookup: inode 0x%llx", number);
            break;
    }
}

// Reads the names of the children of one directory.
class name_filler {
  public:
    name_filler(CNtfs& ntfs, std::uint64_t directory, directory_content& content, lookup_reads& reads,
                status_log& log)
        : m_ntfs(ntfs),
          m_directory(directory),
          m_content(content),
          m_reads(reads),
          m_log(log),
          m_reader(ntfs.records()),
          m_record(ntfs.get_mft_record_size()),
          m_source_bytes(ntfs.source_size() + 1) {}

    void fill() {
        const std::span children(m_content.m_children.begin(), m_content.m_children.end());
        // Ends with the children, or when their names cost more than the source or the memory can hold, or
        // their records more than all reads may.
        for (std::size_t i = 0;
             i < children.size() && !m_source_bytes.spent() && !m_memory.spent() && !m_reads.records.spent();
             ++i) {
            // The root directory lists itself.
            if (children[i] != m_directory) {
                add_child(children.subspan(i));
            }
        }
        m_content.m_child_names.put_in_order();
        if (!m_content.m_child_names.empty()) {
            m_content.m_faults = {};
        }
    }

  private:
    // The first of those children that are still to come.
    void add_child(std::span<const std::uint64_t> children) {
        const std::uint64_t child = children.front();
        std::uint64_t length = 0;
        m_reads.records.take(std::max<std::uint64_t>(m_record.size(), limits::smallest_read));
        if (!m_reader.read(children, m_record, length)) {
            note_fault(child, child_fault::unreadable);
            return;
        }
        if (length < m_record.size()) {
            note_fault(child, child_fault::cut);
            return;
        }
        if (!get_file_names(m_names, m_ntfs, child, m_record, false, any_parent, m_reads.listed)) {
            note_fault(child, child_fault::nameless);
            return;
        }
        // Deliberate: all long names of the child count, not only those that it has in this directory. A path
        // may end in the name that a hard link has elsewhere.
        for (const file_name& each : m_names) {
            std::string text = narrow(each.name);
            lower_narrow(text);
            m_source_bytes.take(text.size() + limits::source_bytes_of_name);
            m_memory.take(child_name_table::memory_of_name(text.size()));
            m_content.m_child_names.add(text, child);
        }
        const file_record header(m_record);
        if (header.is_directory()) {
            m_ntfs.m_path_cache.remember(child, m_directory, !header.in_use());
            m_source_bytes.take(limits::source_bytes_of_directory);
        }
    }

    // Faults are wanted again only where they are all that there is.
    void note_fault(std::uint64_t child, child_fault fault) {
        tell_fault(m_log, child, fault);
        if (m_content.m_child_names.empty()) {
            m_content.m_faults.emplace_back(child, fault);
            m_memory.take(sizeof(m_content.m_faults.front()));
        }
    }

    CNtfs& m_ntfs;
    std::uint64_t m_directory;
    directory_content& m_content;
    lookup_reads& m_reads;
    status_log& m_log;
    record_read_ahead m_reader;
    std::vector<std::uint8_t> m_record;
    file_name_list m_names;
    budget m_source_bytes;
    budget m_memory{limits::name_memory};
};

// Reads a directory from its index on; null if a directory that the cache does not know has no children.
// Otherwise the cache has it afterwards.
[[nodiscard]] const directory_content* read_directory(CNtfs& ntfs, std::uint64_t directory,
                                                      lookup_reads& reads, status_log& log) {
    log.log("info: get children nodes");
    auto content = std::make_unique<directory_content>();
    const bool indexed = get_directory_children(ntfs, directory, content->m_children, false, reads.indexes);
    if (ntfs.m_path_cache.find(directory) == nullptr && (!indexed || content->m_children.empty())) {
        log.log("info: none found");
        ntfs.m_path_cache.add_without_children(directory);
        return nullptr;
    }
    log.log("info: # children [%d]", static_cast<int>(content->m_children.size()));
    log.log("info: get children names");
    // A directory that lists itself is one already.
    dir_cache_entry& entry = ntfs.m_path_cache.add(directory, directory, false);
    name_filler(ntfs, directory, *content, reads, log).fill();
    if (content->m_child_names.empty()) {
        log.log("err: no child names");
    }
    ntfs.m_path_cache.keep(entry, std::move(content));
    return entry.m_content.get();
}

// The lines of a directory that was looked into before.
void tell_again(const directory_content& content, status_log& log) {
    if (!content.m_child_names.empty()) {
        log.log("info: cache lookup");
        return;
    }
    if (content.m_children.empty()) {
        log.log("info: get children nodes");
        log.log("info: # children [%d]", 0);
    }
    log.log("info: get children names");
    for (const auto& [child, fault] : content.m_faults) {
        tell_fault(log, child, fault);
    }
    log.log("err: no child names");
}

[[nodiscard]] const directory_content* content_of(CNtfs& ntfs, std::uint64_t directory, lookup_reads& reads,
                                                  status_log& log) {
    const dir_cache_entry* const known = ntfs.m_path_cache.find(directory);
    if (known == nullptr && ntfs.m_path_cache.is_without_children(directory)) {
        log.log("info: get children nodes");
        log.log("info: none found");
        return nullptr;
    }
    if (known == nullptr || !known->m_entered) {
        return read_directory(ntfs, directory, reads, log);
    }
    const directory_content* content = known->m_content.get();
    if (content == nullptr) {
        content = read_directory(ntfs, directory, reads, no_log());
    }
    tell_again(*content, log);
    return content;
}

}  // namespace

const child_name_table* child_names_of(CNtfs& ntfs, std::uint64_t directory, lookup_reads& reads,
                                       status_log& log) {
    const directory_content* const content = content_of(ntfs, directory, reads, log);
    return content == nullptr || content->m_child_names.empty() ? nullptr : &content->m_child_names;
}

}  // namespace quarry
