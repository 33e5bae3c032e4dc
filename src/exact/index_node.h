// One verified node of a directory's index.
//
// A directory is a B-tree of $FILE_NAME keys. Its root node lies in $INDEX_ROOT, every other in a block of
// $INDEX_ALLOCATION. A node is a header and a row of entries whose keys rise; each entry names one file. An
// entry may have a child: the node of all names that sort between the key before it and its own. The last
// entry has no key, and its child holds what sorts after all keys.
//
//     node header        entry              entry              last entry
//     +----+----+----+---+-----+-----+-----+-----+-----+-----+------+-----+
//     |first|used|all.|fl| ref | key |child| ref | key |child| (no) |child|
//     +----+----+----+---+-----+-----+-----+-----+-----+-----+------+-----+
//                          |           |
//                          the file    VCN of a block, in the last 8 bytes
//
// Every rule of a node is tested once, here, before anybody sees an entry. A lookup takes sound nodes only. A
// listing takes what can be read of a damaged one, and says what cannot.
#pragma once

#include "exact/block_place.h"
#include "exact/failure.h"
#include "exact/record.h"
#include "exact/upcase.h"
#include "foundation/byte_view.h"

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::exact {

struct index_key {
    reference file;    // what the entry names
    reference parent;  // the directory, as the key has it
    std::u16string name;
    std::uint8_t name_space = 0;  // 0 POSIX, 1 Win32, 2 DOS, 3 Win32 and DOS
};

struct index_node_entry {
    std::optional<index_key> key;        // none in the last entry
    std::optional<std::uint64_t> child;  // VCN of its child
    std::optional<std::uint64_t> source_byte;
};

struct index_node {
    std::vector<index_node_entry> entries;  // at least one in a sound node; only the last has no key
    // What is wrong: the first key that does not rise, the entry after which nothing can be read.
    std::vector<failure> damage;
};

// The order of an index: by upper-case units, then by length, then by the first units that differ as they
// are. Only equal names are equal.
[[nodiscard]] std::strong_ordering collate(const upcase& letters, std::u16string_view a,
                                           std::u16string_view b);

// Reads the node whose header is at byte `offset` of `block`, the value of an $INDEX_ROOT or an index block,
// and which may reach to its end. `fills_block` is set for an index block, whose node has the whole rest of
// it and begins after the update sequence array. Fails with `index` for a broken rule and with `index-order`
// where a key does not rise.
[[nodiscard]] result<index_node> read_index_node(byte_view block, std::uint64_t offset, bool fills_block,
                                                 const upcase& letters, const block_place& place);

// The same node as far as it can be read, with its damage. Fails with `index` for a broken header only.
[[nodiscard]] result<index_node> read_damaged_index_node(byte_view block, std::uint64_t offset,
                                                         bool fills_block, const upcase& letters,
                                                         const block_place& place);
// The node if there is no damage to it; fails with the first damage.
[[nodiscard]] result<index_node> expect_sound(index_node node);

}  // namespace quarry::exact
