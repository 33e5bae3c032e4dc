// What path lookups have learned of directories, kept for the life of a volume.
//
// A run with a list looks up many paths, most of them through the same directories. The names of a
// directory's children are read once, from a record for each child, and then searched. That a directory has
// no children, or none with a name, is remembered as well, with all that there is to say of it in the log.
//
// All tables together are paid out of the memory that the volume has for its caches. When it is spent, the
// tables of all other directories give way to those of the one that is looked into. They are read again when
// they are needed, and the log has the same lines as if they had stayed. Directories that were only met, as
// children of another one, are remembered as long as there is memory for their entries.
#pragma once

#include "foundation/budget.h"
#include "volume/inode_collection.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quarry {

// The lowered names of a directory's children, each with one child's entry number. A table is filled once and
// then only searched, so it is a list in the order of the names; the texts lie in blocks beside it.
class child_name_table {
  public:
    using named_child = std::pair<std::string, std::uint64_t>;

    // Enters a name of a child. A name is cut after 65,535 bytes, which no name on disk has.
    void add(std::string_view name, std::uint64_t child);
    // After the last name, and before the first search. Deliberate: of children with the same lowered name
    // the one with the lowest number has it, not each its own. The user gets that child for both.
    void put_in_order();
    // The child that has a name; nothing if none has.
    [[nodiscard]] std::optional<std::uint64_t> find(std::string_view name) const;
    [[nodiscard]] bool empty() const { return m_places.empty(); }
    // In the order of the names.
    [[nodiscard]] std::vector<named_child> names() const;
    // Bytes of memory.
    [[nodiscard]] std::uint64_t memory() const;
    // Bytes of memory that a name with so long a text takes.
    [[nodiscard]] static constexpr std::uint64_t memory_of_name(std::size_t length) {
        return sizeof(place) + length;
    }

  private:
    struct place {
        std::uint64_t child = 0;
        std::uint32_t block = 0;
        std::uint16_t begin = 0;
        std::uint16_t length = 0;
    };

    [[nodiscard]] std::string_view text_of(const place& at) const {
        return {m_blocks[at.block].get() + at.begin, at.length};
    }

    std::vector<place> m_places;
    std::vector<std::unique_ptr<char[]>> m_blocks;
    std::size_t m_left_of_last_block = 0;
    std::size_t m_last_block_bytes = 0;
    std::uint64_t m_block_memory = 0;
};

// Why a child has no name in the table.
enum class child_fault : std::uint8_t { unreadable, cut, nameless };

// What was read of a directory.
struct directory_content {
    // In ascending order of the numbers.
    _inode_collection m_children;
    child_name_table m_child_names;
    // Of a directory whose children have no names at all, in the order in which they were met.
    std::vector<std::pair<std::uint64_t, child_fault>> m_faults;

    [[nodiscard]] std::uint64_t memory() const;
};

struct dir_cache_entry {
    // Reserved: these four are kept and not looked at.
    std::uint64_t m_entry = 0;
    // The directory through which this one was first reached.
    std::uint64_t m_parent = 0;
    bool m_is_dir = true;
    // The in-use bit of its record was clear.
    bool m_deleted = false;
    // Its content was read before, even if it is no longer kept.
    bool m_entered = false;
    // Null until the directory is looked into. Null again once the cache gave its memory to another one.
    std::unique_ptr<const directory_content> m_content;
};

class path_cache {
  public:
    // Bytes that reads for lookups may still cost in this run, by kind.
    struct read_budgets {
        explicit read_budgets(std::uint64_t amount) : listed(amount), records(amount), indexes(amount) {}
        budget listed;   // attribute lists and the records that they name
        budget records;  // of children
        budget indexes;
    };

    // Says what the cache may hold, in bytes, and what filling it may read. Without this, and after clear(),
    // nothing limits it.
    void set_limits(std::uint64_t memory, std::uint64_t read_bytes);
    [[nodiscard]] bool has_limits() const { return m_has_limits; }
    [[nodiscard]] read_budgets& reads() { return m_reads; }

    // The entry of a directory; null if the cache has none.
    [[nodiscard]] dir_cache_entry* find(std::uint64_t directory);
    // Adds a directory that is to be looked into; one that is known stays as it is.
    dir_cache_entry& add(std::uint64_t directory, std::uint64_t parent, bool deleted);
    // Adds a directory that was met in another one. If there is no memory left for it, what was read of
    // directories gives way; if there is still none it is not added, and is later read like one that was
    // never met.
    void remember(std::uint64_t directory, std::uint64_t parent, bool deleted);
    // Keeps what was read of a directory, at the expense of other directories if need be. Entries of others
    // may be gone afterwards.
    void keep(dir_cache_entry& directory, std::unique_ptr<const directory_content> content);

    // Remembers that something other than a known directory has no children.
    void add_without_children(std::uint64_t entry);
    [[nodiscard]] bool is_without_children(std::uint64_t entry) const {
        return m_without_children.count(entry) != 0;
    }

    // By entry number.
    [[nodiscard]] const std::map<std::uint64_t, dir_cache_entry>& directories() const {
        return m_directories;
    }
    // Bytes of memory that the cache counts as taken.
    [[nodiscard]] std::uint64_t memory() const { return m_memory_taken; }
    void clear() { *this = path_cache(); }

  private:
    void pay(std::uint64_t amount);
    void count_anew();
    void drop_contents();
    void make_room(std::uint64_t wanted, const dir_cache_entry& for_whom);

    std::map<std::uint64_t, dir_cache_entry> m_directories;
    std::set<std::uint64_t> m_without_children;
    bool m_has_limits = false;
    read_budgets m_reads{budget::unlimited};
    std::uint64_t m_memory_limit = budget::unlimited;
    budget m_memory{budget::unlimited};
    std::uint64_t m_memory_taken = 0;
    // The part of it that what was read of directories takes.
    std::uint64_t m_content_memory = 0;
};

}  // namespace quarry
