// The layout of an index, as named views: the root, the nodes, the entries.
//
// NTFS keeps the names of a directory in a B-tree. The root node is the value of $INDEX_ROOT; further nodes
// are blocks in the stream of $INDEX_ALLOCATION. Each node is a node header followed by entries. The views
// test nothing; their readers decide what they accept.
#pragma once

#include "foundation/byte_view.h"

#include <cstdint>

namespace quarry {

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

// Flags of an entry: the place of a node below it follows its key; it is the last of its node and has no key.
inline constexpr std::uint16_t index_entry_has_sub_node = 1;
inline constexpr std::uint16_t index_entry_last = 2;
inline constexpr std::uint16_t index_entry_last_with_sub_node = index_entry_last | index_entry_has_sub_node;

// Bytes of an index block in the default mode, which does not ask the root or the boot sector.
inline constexpr std::uint32_t index_block_size = 4096;

// The header of a node; offsets in it count from its own first byte.
class node_header {
  public:
    node_header() = default;
    explicit node_header(byte_view bytes) : m_bytes(bytes) {}
    [[nodiscard]] std::uint32_t first_entry_offset() const { return m_bytes.u32_or_zero(0); }
    // Bytes of the entries with this header.
    [[nodiscard]] std::uint32_t total_size() const { return m_bytes.u32_or_zero(4); }
    // Bytes that the node may grow to, with this header.
    [[nodiscard]] std::uint32_t allocated_size() const { return m_bytes.u32_or_zero(8); }
    [[nodiscard]] bool has_children() const { return (m_bytes.u8_or_zero(12) & 1) != 0; }
    [[nodiscard]] index_entry first_entry() const { return index_entry(m_bytes.from(first_entry_offset())); }

  private:
    byte_view m_bytes;
};

// The value of $INDEX_ROOT.
class index_root {
  public:
    explicit index_root(byte_view bytes) : m_bytes(bytes) {}
    [[nodiscard]] std::uint32_t indexed_type() const { return m_bytes.u32_or_zero(0); }
    // How keys are sorted: 1 for names.
    [[nodiscard]] std::uint32_t collation_rule() const { return m_bytes.u32_or_zero(4); }
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
    // The block's own place in the stream, in the unit of child pointers.
    [[nodiscard]] std::uint64_t vcn() const { return m_bytes.u64_or_zero(16); }
    [[nodiscard]] node_header node() const { return node_header(m_bytes.from(node_offset)); }

  private:
    byte_view m_bytes;
};

}  // namespace quarry
