#include "exact/index_walk.h"

#include <compare>
#include <utility>

namespace quarry::exact {

namespace {

constexpr std::size_t deepest_tree = 32;
// A node of 64 KiB may have hundreds of children.
constexpr std::size_t most_announced = 64;

failure broken(const std::string& where, std::string why) {
    return {failure_code::index, where, std::move(why), std::nullopt};
}

}  // namespace

result<index_walk> index_walk::begin(exact_volume& volume, attribute_set directory, index_budget& budget,
                                     const damage_teller& damage, notices& told, std::size_t most_pages) {
    index_walk walk(volume, directory.base().self(), budget, most_pages);
    if (auto held = walk.hold(std::move(directory), told); !held) {
        return passed_on(held);
    }
    walk.enter(std::nullopt, damage, told);
    return walk;
}

result<void> index_walk::hold(attribute_set directory, notices& told) {
    auto index = directory_index::open(*m_volume, directory, told);
    if (!index) {
        return passed_on(index);
    }
    // The index keeps views into the records, which do not move with their set.
    m_held = held_directory{std::move(directory), std::move(*index)};
    return {};
}

result<index_node> index_walk::read(std::optional<std::uint64_t> block, notices& told) const {
    return block ? m_held->index.damaged_block(*block, told) : m_held->index.damaged_root();
}

// One level down, if there is a node. A node that cannot be read is reported and passed over.
void index_walk::enter(std::optional<std::uint64_t> block, const damage_teller& damage, notices& told) {
    if (block) {
        const std::string where = where::index_block(*block, m_directory.entry);
        if (m_levels.size() == deepest_tree) {
            damage(broken(where, "the index is deeper than 32 nodes"));
            return;
        }
        switch (m_met.add(*block)) {
            case number_set::answer::added:
                break;
            case number_set::answer::known:
                damage(broken(where, "the block is met twice on the way"));
                return;
            case number_set::answer::full:
                damage({failure_code::memory, where, "the index has too many blocks", std::nullopt});
                return;
        }
        if (!m_budget->take_block(m_held->index.block_size(), where)) {
            m_levels.clear();
            return;
        }
    }
    auto node = read(block, told);
    if (!node) {
        damage(node.error());
        return;
    }
    for (const failure& each : node->damage) {
        damage(each);
    }
    announce_children(*node);
    m_levels.push_back({block, std::move(*node), 0, false});
    m_node_has_changed = true;
}

// The blocks to which the walk goes from a node. The first one is read at once.
void index_walk::announce_children(const index_node& node) const {
    std::size_t children = 0;
    for (const index_node_entry& each : node.entries) {
        if (each.child && ++children > 1 && children <= most_announced) {
            m_held->index.announce_block(*each.child);
        }
    }
}

const index_key* index_walk::next(const damage_teller& damage, notices& told) {
    // Each turn goes past an entry, enters a block that was not met before, or leaves one.
    while (!m_levels.empty()) {
        level& top = m_levels.back();
        if (top.position == top.node.entries.size()) {
            m_levels.pop_back();
            m_node_has_changed = true;
            continue;
        }
        const index_node_entry& entry = top.node.entries[top.position];
        if (entry.child && !top.child_is_done) {
            top.child_is_done = true;
            enter(entry.child, damage, told);
            continue;
        }
        ++top.position;
        top.child_is_done = false;
        if (entry.key) {
            compare_with_last(top, entry, damage);
            return &*entry.key;
        }
    }
    return nullptr;
}

// Within a node the order was tested when it was read. This is about keys on both sides of a border.
void index_walk::compare_with_last(const level& of, const index_node_entry& entry,
                                   const damage_teller& damage) {
    const std::u16string& name = entry.key->name;
    if (m_node_has_changed && !m_last.empty() &&
        std::is_gteq(collate(m_held->index.letters(), m_last, name))) {
        damage({failure_code::index_order,
                of.block ? where::index_block(*of.block, m_directory.entry)
                         : where::index_root(m_directory.entry),
                "keys do not fit between those of the node above", entry.source_byte});
    }
    m_node_has_changed = false;
    m_last = name;
}

void index_walk::for_each_at_hand(const std::function<void(const index_key&)>& take) const {
    if (m_levels.empty() || m_levels.back().position == 0) {
        return;
    }
    const level& top = m_levels.back();
    for (std::size_t i = top.position - 1; i < top.node.entries.size(); ++i) {
        const index_node_entry& entry = top.node.entries[i];
        if (!entry.key || (entry.child && i >= top.position)) {
            return;
        }
        take(*entry.key);
    }
}

void index_walk::rest() {
    // The records of the directory, and the blocks on the way down to the next name.
    m_cost_of_waking = m_held->attributes.records() * std::uint64_t{m_volume->shape().record_size} +
                       m_levels.size() * std::uint64_t{m_held->index.block_size()};
    m_held.reset();
    for (level& each : m_levels) {
        each.node = {};
    }
}

result<void> index_walk::wake(notices& told) {
    if (!m_budget->take_again(m_cost_of_waking, where::record(m_directory.entry))) {
        m_levels.clear();
        return tl::make_unexpected(*m_budget->spent());
    }
    auto held = m_volume->table()
                    .read_in_use(m_directory, told)
                    .and_then([&](record found) {
                        return attribute_set::of(m_volume->table(), std::move(found), told);
                    })
                    .and_then([&](attribute_set directory) { return hold(std::move(directory), told); });
    for (auto each = m_levels.begin(); held && each != m_levels.end(); ++each) {
        auto node = read(each->block, told);
        if (!node || node->entries.size() < each->position) {
            held = node ? fail(failure_code::index, where::index_root(m_directory.entry),
                               "is no longer what it was")
                        : result<void>(passed_on(node));
            break;
        }
        each->node = std::move(*node);
    }
    if (!held) {
        m_levels.clear();
    }
    return held;
}

}  // namespace quarry::exact
