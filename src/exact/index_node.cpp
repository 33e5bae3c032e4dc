#include "exact/index_node.h"

#include "exact/name_text.h"
#include "volume/attribute_values.h"
#include "volume/index_layout.h"

#include <algorithm>

namespace quarry::exact {

namespace {

constexpr std::uint32_t node_header_size = 16;
constexpr std::uint32_t smallest_entry = 16;
// The entry of a name of one unit. A gap of this size can hide a name.
constexpr std::uint32_t smallest_name_entry = 88;

constexpr std::uint64_t rounded_to_eight(std::uint64_t bytes) {
    return (bytes + 7) / 8 * 8;
}

class node_reader {
  public:
    node_reader(byte_view block, std::uint64_t offset, bool fills_block, const upcase& letters,
                const block_place& place)
        : m_bytes(block.from(offset)),
          m_offset(offset),
          m_fills_block(fills_block),
          m_first_possible(fills_block ? after_update_sequence(block, offset) : node_header_size),
          m_header(m_bytes),
          m_letters(letters),
          m_place(place) {}

    result<index_node> read() {
        if (auto sound = check_header(); !sound) {
            return passed_on(sound);
        }
        index_node node;
        std::uint64_t offset = m_header.first_entry_offset();
        // Ends at the last entry, or where an entry would leave the used bytes: each has 16 bytes at least.
        while (true) {
            auto entry = read_entry(offset);
            if (!entry) {
                node.damage.push_back(std::move(entry.error()));
                return node;
            }
            if (entry->key && m_rises && m_previous &&
                std::is_gteq(collate(m_letters, *m_previous, entry->key->name))) {
                m_rises = false;
                node.damage.push_back(
                    broken(failure_code::index_order, offset, "keys do not rise at " + hex(offset)).value());
            }
            const bool last = !entry->key;
            if (!last) {
                m_previous = entry->key->name;
            }
            node.entries.push_back(std::move(*entry));
            offset += m_length;
            if (last) {
                // Names after an entry that became the last one would be gone without a word.
                if (offset != m_header.total_size()) {
                    node.damage.push_back(broken(0, "the node uses " + std::to_string(m_header.total_size()) +
                                                        " bytes, its last entry ends at " + hex(offset))
                                              .value());
                }
                return node;
            }
        }
    }

  private:
    tl::unexpected<failure> broken(failure_code code, std::uint64_t offset, std::string why) const {
        return fail(code, m_place.where, std::move(why), m_place.source_byte(m_offset + offset));
    }
    tl::unexpected<failure> broken(std::uint64_t offset, const std::string& why) const {
        return broken(failure_code::index, offset, why);
    }
    tl::unexpected<failure> broken_entry(std::uint64_t offset, const std::string& rule) const {
        return broken(offset, "entry at " + hex(offset) + ": " + rule);
    }

    // Where entries can begin in a block, from its node's header on.
    static std::uint64_t after_update_sequence(byte_view block, std::uint64_t node) {
        const std::uint64_t end = block.u16_or_zero(4) + std::uint64_t{2} * block.u16_or_zero(6);
        return std::max(rounded_to_eight(end), node + node_header_size) - node;
    }

    result<void> check_header() const {
        const std::uint32_t first = m_header.first_entry_offset();
        const std::uint32_t used = m_header.total_size();
        const std::uint32_t allocated = m_header.allocated_size();
        if (!m_bytes.holds(0, node_header_size)) {
            return broken(0, "the node header is cut");
        }
        // Names ahead of a first entry that came later would be gone without a word.
        if (first < m_first_possible || first >= m_first_possible + smallest_name_entry) {
            return broken(0, "the first entry of the node is at " + hex(first));
        }
        if (used <= first || used > allocated) {
            return broken(
                0, "the node uses " + std::to_string(used) + " of " + std::to_string(allocated) + " bytes");
        }
        if (m_fills_block ? allocated != m_bytes.size() : allocated > m_bytes.size()) {
            return broken(0, "the node has " + std::to_string(allocated) + " bytes, its place " +
                                 std::to_string(m_bytes.size()));
        }
        return {};
    }

    // Sets m_length to the entry's.
    result<index_node_entry> read_entry(std::uint64_t offset) {
        const std::uint64_t used = m_header.total_size();
        if (used - offset < smallest_entry) {
            return broken_entry(offset, "the node ends without a last entry");
        }
        const index_entry on_disk(m_bytes.clipped(offset, used - offset));
        m_length = on_disk.length();
        const bool has_child = (on_disk.flags() & index_entry_has_sub_node) != 0;
        const std::uint32_t overhead = smallest_entry + (has_child ? 8 : 0);
        if (m_length < overhead || m_length % 8 != 0 || m_length > used - offset) {
            return broken_entry(offset, "has a length of " + std::to_string(m_length));
        }
        if (has_child && !m_header.has_children()) {
            return broken_entry(offset, "has a child in a node without children");
        }
        // Names below it would be gone without a word.
        if (!has_child && m_header.has_children()) {
            return broken_entry(offset, "has no child in a node with children");
        }
        index_node_entry entry;
        entry.source_byte = m_place.source_byte(m_offset + offset);
        if (has_child) {
            entry.child = m_bytes.u64_or_zero(offset + m_length - 8);
        }
        const bool last = (on_disk.flags() & index_entry_last) != 0;
        const file_name_value key(on_disk.key().clipped(0, on_disk.key_length()));
        const std::uint32_t name_bytes = 2u * key.name_length_in_units();
        const std::uint32_t key_bytes = file_name_value::size_without_name + name_bytes;
        if (!last && (on_disk.key_length() > m_length - overhead || on_disk.key_length() < key_bytes ||
                      name_bytes == 0)) {
            return broken_entry(offset, "has a key of " + std::to_string(on_disk.key_length()) +
                                            " bytes with a name of " +
                                            std::to_string(key.name_length_in_units()) + " units");
        }
        // An entry that is longer than its name needs would cover the next one.
        if (m_length != overhead + (last ? 0 : rounded_to_eight(key_bytes))) {
            return broken_entry(offset, last ? "is the last, with a length of " + std::to_string(m_length)
                                             : "has a length of " + std::to_string(m_length) +
                                                   ", and a name of " +
                                                   std::to_string(key.name_length_in_units()) + " units");
        }
        if (last) {
            return entry;
        }
        entry.key = index_key{reference::from(on_disk.file_reference()), reference::from(key.parent()),
                              units_of_bytes(key.name_bytes()), key.name_space()};
        return entry;
    }

    byte_view m_bytes;       // from the node's header on
    std::uint64_t m_offset;  // of the node in its block
    bool m_fills_block;
    std::uint64_t m_first_possible;  // offset of the first entry that leaves no gap
    node_header m_header;
    const upcase& m_letters;
    const block_place& m_place;
    std::optional<std::u16string> m_previous;
    bool m_rises = true;
    std::uint32_t m_length = 0;
};

}  // namespace

std::strong_ordering collate(const upcase& letters, std::u16string_view a, std::u16string_view b) {
    const auto upper = letters.compare(a, b);
    return upper != std::strong_ordering::equal ? upper : a.compare(b) <=> 0;
}

result<index_node> read_index_node(byte_view block, std::uint64_t offset, bool fills_block,
                                   const upcase& letters, const block_place& place) {
    return read_damaged_index_node(block, offset, fills_block, letters, place).and_then(expect_sound);
}

result<index_node> read_damaged_index_node(byte_view block, std::uint64_t offset, bool fills_block,
                                           const upcase& letters, const block_place& place) {
    return node_reader(block, offset, fills_block, letters, place).read();
}

result<index_node> expect_sound(index_node node) {
    return node.damage.empty() ? result<index_node>(std::move(node))
                               : tl::make_unexpected(std::move(node.damage.front()));
}

}  // namespace quarry::exact
