// Directory indexes: the value of $INDEX_ROOT and the blocks of $INDEX_ALLOCATION.
#pragma once

#include "support/attribute_values.h"
#include "support/byte_writer.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::test {

inline constexpr std::size_t index_block_size = 4096;

struct index_entry {
    std::uint64_t file_reference = 0;
    bytes key = {};
    std::uint16_t flags = 0;  // 1 has a sub-node, 2 last entry
    std::optional<std::uint64_t> sub_node = {};
    // In a view index ($SII, $SDH, $O ...): what the key leads to, after the key. Its place and length then
    // replace the file reference.
    bytes view_data = {};
    // Numbers over the finished entry: its length is at 8, the key's at 10, the flags at 12.
    std::vector<forced_number> forced = {};
    [[nodiscard]] bytes build() const;
};

[[nodiscard]] index_entry name_entry(std::uint64_t file_reference, const file_name& name);
[[nodiscard]] index_entry end_entry();

// A node: header and entries, the end entry appended unless the list has one. `first_entry` is the offset of
// the first entry from the node header; `allocated` the bytes that the node may grow to, 0 for "as large as
// it is".
[[nodiscard]] bytes build_index_node(const std::vector<index_entry>& entries, std::size_t first_entry = 16,
                                     std::size_t allocated = 0, bool has_sub_nodes = false);

// The value of an $INDEX_ROOT for names. Its node header is at 16.
[[nodiscard]] bytes build_index_root(const std::vector<index_entry>& entries, bool has_blocks = false,
                                     std::uint32_t block_size = index_block_size,
                                     std::uint32_t cluster_size = 4096);

// The value of an $INDEX_ROOT of a view index, which indexes no attribute.
[[nodiscard]] bytes build_view_index_root(std::uint32_t collation_rule,
                                          const std::vector<index_entry>& entries,
                                          std::uint32_t cluster_size = 4096);

class index_block_builder {
  public:
    // `stride`: distance in bytes of the protected sector ends.
    explicit index_block_builder(std::size_t size = index_block_size, std::size_t stride = 512);
    index_block_builder& signature(std::string_view four_characters);
    index_block_builder& vcn(std::uint64_t value);
    index_block_builder& add(index_entry entry);
    // Over the block before the fixups are applied: the node header is at 24, the first entry's offset from
    // it there, the total size of the entries at 28.
    index_block_builder& force(std::size_t offset, unsigned width, std::uint64_t value);
    index_block_builder& force_on_disk(std::size_t offset, unsigned width, std::uint64_t value);
    [[nodiscard]] std::size_t first_entry_position() const;
    [[nodiscard]] bytes build() const;
    [[nodiscard]] bytes build_restored() const;

  private:
    [[nodiscard]] std::uint16_t array_count() const;
    [[nodiscard]] bytes build_unprotected() const;

    std::size_t m_size;
    std::size_t m_stride;
    std::string m_signature = "INDX";
    std::uint64_t m_vcn = 0;
    std::vector<index_entry> m_entries;
    std::vector<forced_number> m_forced;
    std::vector<forced_number> m_forced_on_disk;
};

}  // namespace quarry::test
