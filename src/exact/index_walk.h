// All names of one directory, in the order of its index, one after another.
//
// The walk goes down to the leftmost leaf and from there on in order; of each level of the tree it holds one
// node, so a directory of a million names needs no more memory than the depth of its tree.
//
//     held:    root        [ d | k | q ]        next: the child left of "k" was walked, now "k" itself
//              '- child           [ l | m | o ]
//
// Damage does not end it. A block that cannot be read is reported and passed over with the names in it and
// below; of a node with a broken entry the entries before it are taken; keys out of order are reported and
// taken. No block is read twice, so a tree that leads back into itself ends.
//
// A walk that has to wait for a long time, because a directory below its own is listed, can rest: it keeps
// its place and gives up what it holds.
#pragma once

#include "exact/attribute_set.h"
#include "exact/exact_volume.h"
#include "exact/failure.h"
#include "exact/index_budget.h"
#include "exact/index_lookup.h"
#include "exact/index_node.h"
#include "exact/number_set.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quarry::exact {

class index_walk {
  public:
    using damage_teller = std::function<void(const failure&)>;

    // Begins before the first name. Fails as directory_index::open does. `volume` and `budget` must outlive
    // the walk; once the budget is spent the walk has no further names. Of its blocks it notes as many as
    // `most_pages` of a number_set have room for.
    [[nodiscard]] static result<index_walk> begin(exact_volume& volume, attribute_set directory,
                                                  index_budget& budget, const damage_teller& damage,
                                                  notices& told,
                                                  std::size_t most_pages = number_set::default_pages);

    // The next key, short names included; null after the last one. It is good until the walk is used again.
    [[nodiscard]] const index_key* next(const damage_teller& damage, notices& told);
    // Calls `take` for the key that next() gave and those that follow it in its node, up to the next child.
    void for_each_at_hand(const std::function<void(const index_key&)>& take) const;

    // Pages of the set of its blocks.
    [[nodiscard]] std::size_t met_pages() const { return m_met.pages(); }

    // Gives up the directory and the nodes. Afterwards only wake() may be called, which reads them again and
    // fails as begin() does, and with index if that would leave the budget; damage was reported when it was
    // first seen.
    void rest();
    [[nodiscard]] result<void> wake(notices& told);
    [[nodiscard]] bool rests() const { return !m_held; }

    // The directory; not while the walk rests.
    [[nodiscard]] const attribute_set& directory() const { return m_held->attributes; }

  private:
    struct level {
        std::optional<std::uint64_t> block;  // VCN; nothing for the root
        index_node node;
        std::size_t position = 0;    // of the entry that is next
        bool child_is_done = false;  // the child of that entry was walked
    };
    struct held_directory {
        attribute_set attributes;
        directory_index index;
    };

    index_walk(exact_volume& volume, reference directory, index_budget& budget, std::size_t most_pages)
        : m_volume(&volume), m_directory(directory), m_budget(&budget), m_met(most_pages) {}
    [[nodiscard]] result<void> hold(attribute_set directory, notices& told);
    [[nodiscard]] result<index_node> read(std::optional<std::uint64_t> block, notices& told) const;
    void enter(std::optional<std::uint64_t> block, const damage_teller& damage, notices& told);
    void announce_children(const index_node& node) const;
    void compare_with_last(const level& of, const index_node_entry& entry, const damage_teller& damage);

    exact_volume* m_volume;
    reference m_directory;
    index_budget* m_budget;
    std::uint64_t m_cost_of_waking = 0;  // bytes
    std::optional<held_directory> m_held;
    std::vector<level> m_levels;  // the root first
    number_set m_met;             // blocks, by VCN
    std::u16string m_last;        // the name of the last key
    bool m_node_has_changed = false;
};

}  // namespace quarry::exact
