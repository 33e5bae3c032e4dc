// A name looked up in a directory, by the way that the index itself offers.
//
// From the root node down, each node is searched for the place of the name; only nodes on the way are read.
// Names that differ only in case are neighbours in the order of the index, so all of them are found at once:
//
//     looking for "b":      [ a | B | b | c ]        equal are "B" and "b", and whatever is in the child
//                            ^   ^   ^   ^           left of "B", left of "b", and left of "c"
//
// A damaged block on the way fails the lookup. One beside the way is not seen.
#pragma once

#include "exact/attribute_set.h"
#include "exact/exact_volume.h"
#include "exact/failure.h"
#include "exact/index_node.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace quarry::exact {

// The nodes of one directory.
class directory_index {
  public:
    // Fails with not-directory, and with index if the root of the index or its streams are not sound.
    // `volume` and `directory` must outlive the object.
    [[nodiscard]] static result<directory_index> open(exact_volume& volume, const attribute_set& directory,
                                                      notices& told);

    [[nodiscard]] result<index_node> root() const;
    // The node in the block at a VCN, as child pointers name it. Warns (stale-block) if the directory's own
    // bitmap says that the block is not in use. Fails with index or torn, and if it cannot be read.
    [[nodiscard]] result<index_node> block(std::uint64_t vcn, notices& told) const;
    // The same, of damaged nodes as much as can be read.
    [[nodiscard]] result<index_node> damaged_root() const;
    [[nodiscard]] result<index_node> damaged_block(std::uint64_t vcn, notices& told) const;

    // Says that the block at a VCN will be read soon.
    void announce_block(std::uint64_t vcn) const;

    [[nodiscard]] std::uint64_t entry() const { return m_entry; }
    // Bytes of an index block.
    [[nodiscard]] std::uint32_t block_size() const { return m_block_size; }
    [[nodiscard]] const upcase& letters() const { return *m_letters; }
    // Names that differ only in case are different names here.
    [[nodiscard]] bool case_sensitive() const { return m_case_sensitive; }

  private:
    directory_index() = default;
    [[nodiscard]] result<void> read_root(const attribute_set& directory);
    [[nodiscard]] result<void> find_blocks(const attribute_set& directory);
    [[nodiscard]] result<bool> is_in_use(std::uint64_t block_number) const;

    exact_volume* m_volume = nullptr;
    const upcase* m_letters = nullptr;
    std::uint64_t m_entry = 0;
    bool m_case_sensitive = false;
    byte_view m_root;  // the value of $INDEX_ROOT
    block_place m_root_place;
    std::uint32_t m_block_size = 0;  // bytes
    std::uint32_t m_vcn_unit = 0;    // bytes in one step of a child pointer
    std::optional<stored_stream> m_blocks;
    std::optional<stored_stream> m_bitmap;
};

// The key that a name means: the one with the same units, or else the one that is equal under $UpCase, if it
// leads to one file. `shown` is the whole path of the name for failures: name if there is none, ambiguous if
// there are several that lead to different files.
[[nodiscard]] result<index_key> look_up(const directory_index& index, std::u16string_view name,
                                        std::string_view shown, notices& told);

}  // namespace quarry::exact
