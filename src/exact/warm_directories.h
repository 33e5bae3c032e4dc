// Directories that walks have passed, kept for the walks after them.
//
// The paths of a list mostly lie near each other. What a walk has read and verified on the way to a directory
// is kept, so that the next one goes through it without reading anything:
//
//     /Users/anna/a.txt      root, "Users", "anna"  are read and kept     "a.txt" is looked up
//     /Users/anna/b.txt      root, "Users", "anna"  are known             "b.txt" is looked up
//
// Only plain directories are kept, none that is a link, and what was warned of on the way is warned of again.
// The last name of a path is always read anew. However long the list is, so many directories are kept and no
// more, and none whose attributes are spread over many records.
#pragma once

#include "exact/attribute_set.h"
#include "exact/failure.h"
#include "exact/index_lookup.h"
#include "exact/index_node.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>

namespace quarry::exact {

// A directory that a walk has reached. Its index refers to its attributes, so it stays where it is.
struct reached_directory {
    explicit reached_directory(attribute_set found) : attributes(std::move(found)) {}
    reached_directory(const reached_directory&) = delete;
    reached_directory& operator=(const reached_directory&) = delete;

    attribute_set attributes;
    std::optional<directory_index> index;  // opened when a name is first looked up in it
};

// A name that a walk has passed.
struct passed_name {
    index_key key;        // by which it was found
    std::u16string name;  // the long one, if that is a short one
};

class warm_directories {
  public:
    static constexpr std::size_t most_kept = 64;
    static constexpr std::size_t most_attributes = 16;

    // A name in a directory that leads to another directory.
    struct step {
        passed_name passed;
        std::shared_ptr<reached_directory> directory;
        notices told;  // on the way
    };

    struct root_directory {
        std::shared_ptr<reached_directory> directory;
        notices told;
    };

    // The root; null if it is not known.
    [[nodiscard]] const root_directory* root() const { return m_root ? &*m_root : nullptr; }
    void keep_root(root_directory read);
    // The step from a directory by a name as somebody typed it; null if it is not known.
    [[nodiscard]] const step* find(reference from, const std::u16string& name);
    // Keeps a step, in place of the one that was not used for longest if there are too many.
    void keep(reference from, const std::u16string& name, step taken);

  private:
    using place = std::tuple<std::uint64_t, std::uint16_t, std::u16string>;
    struct kept_step {
        step taken;
        std::uint64_t last_use = 0;
    };

    std::optional<root_directory> m_root;
    std::map<place, kept_step> m_kept;
    std::uint64_t m_uses = 0;
};

}  // namespace quarry::exact
