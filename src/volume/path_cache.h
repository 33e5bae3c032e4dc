// What path lookups have learned of directories, kept for the life of a volume.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace quarry {

// The children of a directory: MFT entry numbers, unique and ascending.
using _inode_collection = std::set<std::uint64_t>;

struct dir_cache_entry {
    std::uint64_t m_entry = 0;
    std::set<std::uint64_t> m_parents;
    bool m_is_dir = true;
    bool m_deleted = false;
    _inode_collection m_children;
    // Lowered child name to child entry number.
    std::map<std::string, std::uint64_t> m_child_names;
};
using path_cache = std::map<std::uint64_t, dir_cache_entry>;

}  // namespace quarry
