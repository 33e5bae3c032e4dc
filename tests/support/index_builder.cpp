#include "support/index_builder.h"

#include <algorithm>
#include <stdexcept>

namespace quarry::test {

namespace {

constexpr std::size_t array_offset = 40;
constexpr std::size_t node_offset = 24;
constexpr std::uint16_t update_number = 0x0202;

bytes root_value(std::uint32_t indexed_type, std::uint32_t collation_rule,
                 const std::vector<index_entry>& entries, bool has_blocks, std::uint32_t block_size,
                 std::uint32_t cluster_size) {
    byte_writer out(16);
    out.u32(0, indexed_type).u32(4, collation_rule).u32(8, block_size);
    // Where a cluster is larger than a block the field counts units of 512 bytes.
    out.u8(12, block_size >= cluster_size ? block_size / cluster_size : block_size / 512);
    out.raw(16, build_index_node(entries, 16, 0, has_blocks));
    return out.take();
}

}  // namespace

bytes index_entry::build() const {
    byte_writer out(16);
    out.u64(0, file_reference).u16(10, key.size());
    out.u16(12, flags | (sub_node ? 1u : 0u));
    out.raw(16, key);
    if (!view_data.empty()) {
        out.u16(0, out.size()).u16(2, view_data.size()).u32(4, 0);
        out.raw(out.size(), view_data);
    }
    out.pad_to_multiple(8);
    if (sub_node) {
        out.u64(out.size(), *sub_node);
    }
    out.u16(8, out.size());
    bytes result = out.take();
    apply(result, forced);
    return result;
}

index_entry name_entry(std::uint64_t file_reference, const file_name& name) {
    return {.file_reference = file_reference, .key = name.build()};
}

index_entry end_entry() {
    return {.flags = 2};
}

bytes build_index_node(const std::vector<index_entry>& entries, std::size_t first_entry,
                       std::size_t allocated, bool has_sub_nodes) {
    byte_writer out(first_entry);
    bool ended = false;
    for (const index_entry& entry : entries) {
        out.raw(out.size(), entry.build());
        ended = ended || (entry.flags & 2) != 0;
    }
    if (!ended) {
        out.raw(out.size(), end_entry().build());
    }
    out.u32(0, first_entry).u32(4, out.size());
    out.u32(8, allocated == 0 ? out.size() : allocated).u32(12, has_sub_nodes ? 1 : 0);
    return out.take();
}

bytes build_index_root(const std::vector<index_entry>& entries, bool has_blocks, std::uint32_t block_size,
                       std::uint32_t cluster_size) {
    return root_value(0x30, 1, entries, has_blocks, block_size, cluster_size);
}

bytes build_view_index_root(std::uint32_t collation_rule, const std::vector<index_entry>& entries,
                            std::uint32_t cluster_size) {
    return root_value(0, collation_rule, entries, false, index_block_size, cluster_size);
}

index_block_builder::index_block_builder(std::size_t size, std::size_t stride)
    : m_size(size), m_stride(stride) {}

index_block_builder& index_block_builder::signature(std::string_view four_characters) {
    m_signature = four_characters;
    return *this;
}

index_block_builder& index_block_builder::vcn(std::uint64_t value) {
    m_vcn = value;
    return *this;
}

index_block_builder& index_block_builder::add(index_entry entry) {
    m_entries.push_back(std::move(entry));
    return *this;
}

index_block_builder& index_block_builder::force(std::size_t offset, unsigned width, std::uint64_t value) {
    m_forced.push_back({offset, width, value});
    return *this;
}

index_block_builder& index_block_builder::force_on_disk(std::size_t offset, unsigned width,
                                                        std::uint64_t value) {
    m_forced_on_disk.push_back({offset, width, value});
    return *this;
}

std::uint16_t index_block_builder::array_count() const {
    return static_cast<std::uint16_t>(m_stride == 0 ? 1 : m_size / m_stride + 1);
}

std::size_t index_block_builder::first_entry_position() const {
    return (array_offset + std::size_t{2} * array_count() + 7) / 8 * 8;
}

bytes index_block_builder::build_unprotected() const {
    byte_writer out(node_offset);
    out.text(0, m_signature).u16(4, array_offset).u16(6, array_count()).u64(16, m_vcn);
    const bool inner = std::any_of(m_entries.begin(), m_entries.end(),
                                   [](const auto& entry) { return entry.sub_node.has_value(); });
    out.raw(node_offset,
            build_index_node(m_entries, first_entry_position() - node_offset, m_size - node_offset, inner));
    if (out.size() > m_size) {
        throw std::length_error("the entries do not fit the index block");
    }
    bytes block = out.take();
    block.resize(m_size);
    apply(block, m_forced);
    return block;
}

bytes index_block_builder::build() const {
    bytes block = build_unprotected();
    protect_sector_ends(block, array_offset, array_count(), update_number, m_stride);
    apply(block, m_forced_on_disk);
    return block;
}

bytes index_block_builder::build_restored() const {
    bytes block = build_unprotected();
    bytes on_disk = block;
    protect_sector_ends(on_disk, array_offset, array_count(), update_number, m_stride);
    for (std::size_t i = array_offset; i < array_offset + std::size_t{2} * array_count() && i < block.size();
         ++i) {
        block[i] = on_disk[i];
    }
    return block;
}

}  // namespace quarry::test
