#include "exact/index_lookup.h"

#include "exact/fixups.h"
#include "exact/name_text.h"
#include "volume/attribute_values.h"
#include "volume/index_layout.h"

#include <algorithm>
#include <bit>
#include <set>
#include <utility>

namespace quarry::exact {

namespace {

constexpr std::u16string_view index_of_names = u"$I30";
constexpr std::uint32_t collation_of_names = 1;
constexpr std::uint64_t root_header_size = 16;
constexpr std::uint32_t smallest_block = 512;
constexpr std::uint32_t largest_block_size = 65536;
constexpr std::uint32_t small_vcn_unit = 512;
constexpr unsigned deepest_tree = 32;

// The descent from the root to all keys that are equal to a name under $UpCase.
class descent {
  public:
    descent(const directory_index& index, std::u16string_view name, notices& told)
        : m_index(index), m_name(name), m_told(told) {}

    [[nodiscard]] result<void> run() {
        const auto root = m_index.root();
        return root ? search(*root, {}, 1) : result<void>(tl::make_unexpected(root.error()));
    }
    [[nodiscard]] std::vector<index_key>& found() { return m_found; }

  private:
    // The keys between which all keys of a node lie; null where there is no bound.
    struct bounds {
        const index_key* above = nullptr;
        const index_key* below = nullptr;
    };

    [[nodiscard]] result<void> search(const index_node& node, bounds limits, unsigned depth) {
        const index_key* previous = limits.above;
        for (const index_node_entry& entry : node.entries) {
            const auto order = entry.key ? m_index.letters().compare(entry.key->name, m_name)
                                         : std::strong_ordering::greater;
            if (order != std::strong_ordering::less) {
                const bounds of_child{previous, entry.key ? &*entry.key : limits.below};
                if (auto searched = search_child(entry, of_child, depth); !searched) {
                    return searched;
                }
            }
            if (order == std::strong_ordering::equal) {
                m_found.push_back(*entry.key);
            }
            if (order == std::strong_ordering::greater) {
                return {};
            }
            previous = &*entry.key;
        }
        return {};
    }

    [[nodiscard]] result<void> search_child(const index_node_entry& entry, bounds limits, unsigned depth) {
        if (!entry.child) {
            return {};
        }
        const auto broken = [&](failure_code code, std::string why,
                                std::optional<std::uint64_t> source_byte = std::nullopt) {
            return fail(code, where::index_block(*entry.child, m_index.entry()), std::move(why), source_byte);
        };
        if (depth == deepest_tree) {
            return broken(failure_code::index, "the index is deeper than 32 nodes");
        }
        if (!m_visited.insert(*entry.child).second) {
            return broken(failure_code::index, "the block is met twice on the way");
        }
        const auto node = m_index.block(*entry.child, m_told);
        if (!node) {
            return passed_on(node);
        }
        if (const index_node_entry* const outside = outside_of(*node, limits)) {
            return broken(failure_code::index_order, "keys do not fit between those of the node above",
                          outside->source_byte);
        }
        return search(*node, limits, depth + 1);
    }

    // An entry whose key does not lie between the limits; null if there is none. The keys of a node rise.
    [[nodiscard]] const index_node_entry* outside_of(const index_node& node, bounds limits) const {
        if (node.entries.size() == 1) {
            return nullptr;
        }
        const index_node_entry& first = node.entries.front();
        const index_node_entry& last = node.entries[node.entries.size() - 2];
        const upcase& letters = m_index.letters();
        if (limits.above != nullptr && std::is_gteq(collate(letters, limits.above->name, first.key->name))) {
            return &first;
        }
        if (limits.below != nullptr && std::is_gteq(collate(letters, last.key->name, limits.below->name))) {
            return &last;
        }
        return nullptr;
    }

    const directory_index& m_index;
    std::u16string_view m_name;
    notices& m_told;
    std::set<std::uint64_t> m_visited;
    std::vector<index_key> m_found;
};

std::string listed(const std::vector<index_key>& keys) {
    std::string text;
    for (const index_key& key : keys) {
        text += (text.empty() ? "" : ", ") + shown_name(key.name);
    }
    return text;
}

}  // namespace

result<directory_index> directory_index::open(exact_volume& volume, const attribute_set& directory,
                                              notices& told) {
    directory_index index;
    index.m_volume = &volume;
    index.m_entry = directory.base().entry();
    if (!directory.base().is_directory()) {
        return fail(failure_code::not_directory, where::record(index.m_entry), "is no directory");
    }
    const auto& letters = volume.upper_case(told);
    if (!letters) {
        return passed_on(letters);
    }
    index.m_letters = &*letters;
    const auto standard = directory.only_value(attr_standard_information);
    if (!standard) {
        return passed_on(standard);
    }
    if (*standard) {
        index.m_case_sensitive = standard_information_value(**standard).is_case_sensitive_directory();
    }
    if (auto sound = index.read_root(directory); !sound) {
        return passed_on(sound);
    }
    if (auto sound = index.find_blocks(directory); !sound) {
        return passed_on(sound);
    }
    return index;
}

result<void> directory_index::read_root(const attribute_set& directory) {
    const auto broken = [&](std::string why) {
        return fail(failure_code::index, where::index_root(m_entry), std::move(why),
                    m_root_place.source_byte(0));
    };
    const std::vector<piece> roots = directory.pieces(attr_index_root, index_of_names);
    if (roots.size() != 1 || roots.front().bytes.non_resident()) {
        return broken(std::to_string(roots.size()) + (roots.size() == 1 ? " attribute" : " attributes") +
                      " $INDEX_ROOT \"$I30\", not one that is resident");
    }
    const piece& only = roots.front();
    m_root = only.bytes.value();
    m_root_place.where = where::index_root(m_entry);
    if (const auto byte = only.holder->source_byte(m_root)) {
        m_root_place.pieces = {{0, *byte}};
    }
    const index_root root(m_root);
    if (m_root.size() < root_header_size || root.indexed_type() != attr_file_name ||
        root.collation_rule() != collation_of_names) {
        return broken("the index is not one of names");
    }
    m_block_size = root.block_size();
    if (m_block_size < smallest_block || m_block_size > largest_block_size ||
        !std::has_single_bit(m_block_size)) {
        return broken("index blocks of " + std::to_string(m_block_size) + " bytes");
    }
    const std::uint32_t cluster_size = m_volume->shape().cluster_size;
    m_vcn_unit = cluster_size <= m_block_size ? cluster_size : small_vcn_unit;
    return {};
}

result<void> directory_index::find_blocks(const attribute_set& directory) {
    if (directory.pieces(attr_index_allocation, index_of_names).empty()) {
        return {};
    }
    auto blocks = directory.stored(m_volume->shape(), attr_index_allocation, index_of_names);
    if (!blocks) {
        return passed_on(blocks);
    }
    auto bitmap = directory.stored(m_volume->shape(), attr_bitmap, index_of_names);
    if (!bitmap) {
        return passed_on(bitmap);
    }
    m_blocks = std::move(*blocks);
    m_bitmap = std::move(*bitmap);
    return {};
}

result<index_node> directory_index::root() const {
    return damaged_root().and_then(expect_sound);
}

result<index_node> directory_index::block(std::uint64_t vcn, notices& told) const {
    return damaged_block(vcn, told).and_then(expect_sound);
}

result<index_node> directory_index::damaged_root() const {
    return read_damaged_index_node(m_root, root_header_size, false, *m_letters, m_root_place);
}

result<index_node> directory_index::damaged_block(std::uint64_t vcn, notices& told) const {
    const std::string place_text = where::index_block(vcn, m_entry);
    const auto broken = [&](std::string why, std::optional<std::uint64_t> source_byte = std::nullopt) {
        return fail(failure_code::index, place_text, std::move(why), source_byte);
    };
    const std::uint64_t blocks_end = m_blocks ? m_blocks->size() : 0;
    if (vcn > blocks_end / m_vcn_unit || blocks_end - vcn * m_vcn_unit < m_block_size) {
        return broken("lies outside of the " + std::to_string(blocks_end) + " bytes of $INDEX_ALLOCATION");
    }
    const std::uint64_t offset = vcn * m_vcn_unit;
    if (offset % m_block_size != 0) {
        return broken("does not begin at a block of " + std::to_string(m_block_size) + " bytes");
    }
    std::vector<std::uint8_t> bytes(m_block_size);
    if (auto read = m_blocks->read(m_volume->bytes(), bytes, offset); !read) {
        return passed_on(read);
    }
    const block_place place = m_blocks->place_of(m_volume->bytes(), offset, m_block_size, place_text);
    const index_block head{byte_view(bytes)};
    if (auto begins = expect_signature(bytes, "INDX", place); !begins) {
        return passed_on(begins);
    }
    if (auto restored = restore_fixups(bytes, place); !restored) {
        return passed_on(restored);
    }
    if (head.vcn() != vcn) {
        return broken("says that it is block " + std::to_string(head.vcn()), place.source_byte(16));
    }
    const auto in_use = is_in_use(offset / m_block_size);
    if (!in_use) {
        return passed_on(in_use);
    }
    if (!*in_use) {
        told.warn("stale-block", place_text, "the directory's $BITMAP calls the block free");
    }
    return read_damaged_index_node(bytes, index_block::node_offset, true, *m_letters, place);
}

void directory_index::announce_block(std::uint64_t vcn) const {
    // What lies outside is refused when it is read.
    if (m_blocks && vcn < m_blocks->size() / m_vcn_unit) {
        m_blocks->announce(m_volume->bytes(), vcn * m_vcn_unit, m_block_size);
    }
}

result<bool> directory_index::is_in_use(std::uint64_t block_number) const {
    if (block_number / 8 >= m_bitmap->size()) {
        return false;
    }
    std::vector<std::uint8_t> bits(1);
    if (auto read = m_bitmap->read(m_volume->bytes(), bits, block_number / 8); !read) {
        return passed_on(read);
    }
    return ((bits.front() >> (block_number % 8)) & 1) != 0;
}

namespace {

// A shell would take such a name for a pattern. "?" on its own is where the path of a deleted file is lost.
bool looks_like_a_pattern(std::u16string_view name) {
    return name.size() > 1 ? name.find_first_of(u"*?") != std::u16string_view::npos : name == u"*";
}

// What may be wrong with a name that is not there; empty if nothing can be seen.
std::string_view hint_of(std::u16string_view name) {
    if (name.starts_with(u'"')) {
        return "; a path has no quotes around it";
    }
    return looks_like_a_pattern(name) ? "; patterns are not read, choose lines of -list with grep" : "";
}

}  // namespace

result<index_key> look_up(const directory_index& index, std::u16string_view name, std::string_view shown,
                          notices& told) {
    descent way(index, name, told);
    if (auto searched = way.run(); !searched) {
        return passed_on(searched);
    }
    const std::vector<index_key>& found = way.found();
    const auto same =
        std::find_if(found.begin(), found.end(), [&](const index_key& key) { return key.name == name; });
    if (same != found.end()) {
        return *same;
    }
    if (found.empty()) {
        return fail(failure_code::name, where::path(shown), "no such name" + std::string(hint_of(name)));
    }
    if (index.case_sensitive()) {
        return fail(
            failure_code::name, where::path(shown),
            "no such name in a case-sensitive directory; names that differ in case: " + listed(found));
    }
    const bool one_file = std::all_of(found.begin(), found.end(),
                                      [&](const index_key& key) { return key.file == found.front().file; });
    if (!one_file) {
        return fail(failure_code::ambiguous, where::path(shown),
                    "several names differ only in case: " + listed(found));
    }
    return found.front();
}

}  // namespace quarry::exact
