// What path lookups have learned of directories, kept for the life of a volume.
#pragma once

#include "volume/inode_collection.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace quarry {

// The lowered names of a directory's children, each with one child's entry number. A table is made whole and
// then only searched, so it is a list in the order of the names.
class child_name_table {
  public:
    using named_child = std::pair<std::string, std::uint64_t>;

    // Takes the place of what was there. Deliberate: one would expect names that differ in case alone to lead
    // to different children. Of children with the same lowered name the one with the lowest number has it.
    void assign(std::vector<named_child> names);
    // The child that has a name; nothing if none has.
    [[nodiscard]] std::optional<std::uint64_t> find(const std::string& name) const;
    [[nodiscard]] bool empty() const { return m_names.empty(); }
    // In the order of the names.
    [[nodiscard]] const std::vector<named_child>& names() const { return m_names; }

  private:
    std::vector<named_child> m_names;
};

struct dir_cache_entry {
    std::uint64_t m_entry = 0;
    // The directory through which this one was first reached.
    std::set<std::uint64_t> m_parents;
    bool m_is_dir = true;
    // The record's in-use bit was clear.
    bool m_deleted = false;
    // Empty until the directory is entered.
    _inode_collection m_children;
    child_name_table m_child_names;
};
using path_cache = std::map<std::uint64_t, dir_cache_entry>;

}  // namespace quarry
