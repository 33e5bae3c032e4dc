// The $I30 index of a directory: its nodes, and the walk over the entries of one node.
//
// NTFS keeps the names of a directory in a B-tree. The root node is the value of $INDEX_ROOT; further nodes
// are blocks of 4,096 bytes in the stream of $INDEX_ALLOCATION. Each node is a node header followed by
// entries, and each entry names one child by its file reference, with the child's $FILE_NAME as key. The last
// entry of a node has no child. This reader does not follow the tree: it takes every entry of every node, so
// the order of nodes and the sub-node pointers do not matter, and a damaged pointer hides nothing.
//
// A reader must know that a block may be stale (freed by the file system, its entries still there) and that
// the sequence number of an entry is not compared with the child's record.
#pragma once

#include "foundation/byte_view.h"
#include "volume/path_cache.h"

#include <cstdint>

namespace quarry {

// Bytes of an index block. The sizes that the root and the boot sector name are not consulted.
inline constexpr std::uint32_t index_block_size = 4096;

// One entry of a node, from its first byte to the end of the bytes that hold the node.
class index_entry {
  public:
    index_entry() = default;
    explicit index_entry(byte_view bytes) : m_bytes(bytes) {}
    [[nodiscard]] byte_view bytes() const { return m_bytes; }

    // The whole 64-bit reference to the child: 48-bit entry number, 16-bit sequence number.
    [[nodiscard]] std::uint64_t file_reference() const { return m_bytes.u64_or_zero(0); }
    [[nodiscard]] std::uint64_t entry_number() const { return m_bytes.u48_or_zero(0); }
    [[nodiscard]] std::uint16_t sequence_number() const { return m_bytes.u16_or_zero(6); }
    // In a view index, which has data in place of a reference: the offset of the data.
    [[nodiscard]] std::uint16_t data_offset() const { return m_bytes.u16_or_zero(0); }
    [[nodiscard]] std::uint16_t length() const { return m_bytes.u16_or_zero(8); }
    [[nodiscard]] std::uint16_t key_length() const { return m_bytes.u16_or_zero(10); }
    [[nodiscard]] std::uint16_t flags() const { return m_bytes.u16_or_zero(12); }
    [[nodiscard]] byte_view key() const { return m_bytes.from(16); }
    [[nodiscard]] index_entry next() const { return index_entry(m_bytes.from(length())); }

  private:
    byte_view m_bytes;
};

inline constexpr std::uint16_t index_entry_last = 2;
inline constexpr std::uint16_t index_entry_last_with_sub_node = 3;

// The header of a node; offsets in it count from its own first byte.
class node_header {
  public:
    node_header() = default;
    explicit node_header(byte_view bytes) : m_bytes(bytes) {}
    [[nodiscard]] std::uint32_t first_entry_offset() const { return m_bytes.u32_or_zero(0); }
    // Bytes of the entries with this header.
    [[nodiscard]] std::uint32_t total_size() const { return m_bytes.u32_or_zero(4); }
    [[nodiscard]] index_entry first_entry() const { return index_entry(m_bytes.from(first_entry_offset())); }

  private:
    byte_view m_bytes;
};

// The value of $INDEX_ROOT.
class index_root {
  public:
    explicit index_root(byte_view bytes) : m_bytes(bytes) {}
    [[nodiscard]] std::uint32_t indexed_type() const { return m_bytes.u32_or_zero(0); }
    [[nodiscard]] std::uint32_t block_size() const { return m_bytes.u32_or_zero(8); }
    [[nodiscard]] node_header node() const { return node_header(m_bytes.from(16)); }

  private:
    byte_view m_bytes;
};

// An index block. It begins like a file record: signature "INDX", place and count of the update sequence
// array.
class index_block {
  public:
    static constexpr std::uint64_t node_offset = 24;

    explicit index_block(byte_view bytes) : m_bytes(bytes) {}
    [[nodiscard]] byte_view bytes() const { return m_bytes; }
    [[nodiscard]] bool is_null() const { return m_bytes.empty(); }
    [[nodiscard]] bool is_indx() const { return m_bytes.text_at(0, "INDX"); }
    [[nodiscard]] node_header node() const { return node_header(m_bytes.from(node_offset)); }

  private:
    byte_view m_bytes;
};

// Adds the children that a node names to the collection. False, with nothing added, if the node's total size
// is 0 or above 4,096 bytes. A damaged entry ends the walk, and what was found before it stands. With
// `keep_going` the walk goes on behind the last entry, into the slack of the node.
[[nodiscard]] bool parse_index_node(_inode_collection& collection, const node_header& header,
                                    bool keep_going);

// The same for the value of an $INDEX_ROOT, which must index $FILE_NAME and name a block size other than 0.
[[nodiscard]] bool parse_index_root(_inode_collection& collection, const index_root& root);

// The same for an index block whose sector ends have been put back. The signature is the caller's to test.
// False for a null block.
[[nodiscard]] bool parse_index_block(_inode_collection& collection, const index_block& block,
                                     bool keep_going);

}  // namespace quarry
