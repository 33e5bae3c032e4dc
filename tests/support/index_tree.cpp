#include "support/index_tree.h"

namespace quarry::test {

namespace {

// What the entries of the top node may take of a file record.
constexpr std::size_t root_room = 300;
// Room for the end entry with a sub-node.
constexpr std::size_t end_room = 24;

std::uint64_t sub_node_of_block(std::size_t block, std::size_t cluster_size) {
    // Sub-nodes are counted in clusters, or in units of 512 bytes where a cluster is larger than a block.
    return block * (index_block_size / (cluster_size > index_block_size ? 512 : cluster_size));
}

std::size_t size_of(const std::vector<index_entry>& entries) {
    std::size_t total = 0;
    for (const index_entry& entry : entries) {
        total += entry.build().size();
    }
    return total;
}

// One level of the tree: full blocks, and the entries between them, which go up.
class level_writer {
  public:
    level_writer(index_tree& tree, std::size_t cluster_size, std::size_t stride)
        : m_tree(tree), m_cluster_size(cluster_size), m_stride(stride), m_block(index_block_size, stride) {
        begin_block();
    }

    std::vector<index_entry> write(const std::vector<index_entry>& entries) {
        std::vector<index_entry> above;
        for (const index_entry& entry : entries) {
            if ((entry.flags & 2) != 0) {
                above.push_back({.flags = 2, .sub_node = finish_block(entry.sub_node)});
                return above;
            }
            const std::size_t size = entry.build().size();
            if (m_used + size + end_room > index_block_size) {
                index_entry separator = entry;
                separator.sub_node = finish_block(entry.sub_node);
                above.push_back(std::move(separator));
                begin_block();
            } else {
                m_used += size;
                m_block.add(entry);
            }
        }
        above.push_back({.flags = 2, .sub_node = finish_block({})});
        return above;
    }

  private:
    void begin_block() {
        m_block = index_block_builder(index_block_size, m_stride);
        m_block.vcn(sub_node_of_block(m_tree.live_blocks, m_cluster_size));
        m_used = m_block.first_entry_position();
    }

    std::uint64_t finish_block(std::optional<std::uint64_t> sub_node_of_end) {
        m_block.add({.flags = 2, .sub_node = sub_node_of_end});
        const bytes block = m_block.build();
        m_tree.blocks.insert(m_tree.blocks.end(), block.begin(), block.end());
        return sub_node_of_block(m_tree.live_blocks++, m_cluster_size);
    }

    index_tree& m_tree;
    std::size_t m_cluster_size;
    std::size_t m_stride;
    index_block_builder m_block;
    std::size_t m_used = 0;
};

}  // namespace

index_tree build_index_tree(std::vector<index_entry> entries, std::size_t cluster_size, std::size_t stride) {
    index_tree tree;
    do {
        entries = level_writer(tree, cluster_size, stride).write(entries);
    } while (size_of(entries) > root_room);
    tree.root = std::move(entries);
    return tree;
}

}  // namespace quarry::test
