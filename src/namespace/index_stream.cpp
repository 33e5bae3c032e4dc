#include "namespace/index_stream.h"

#include "namespace/index_block.h"

#include <algorithm>
#include <span>

namespace quarry {

namespace {

// An entry with the shortest name takes this many bytes of the source, so a directory that shows more
// children than the source has room for is none.
constexpr std::uint64_t smallest_entry_with_name = 84;

// Bytes that are read at once, or one cluster if that is more.
constexpr std::uint64_t buffer_size = 256 * 1024;

// How blocks lie in clusters: several clusters make a block, or a cluster holds several blocks. Where neither
// size is a multiple of the other, whole clusters make a block (its rest stays zero), and only the whole
// blocks of a cluster are looked at (its rest is not).
struct block_layout {
    explicit block_layout(const CNtfs& ntfs)
        : cluster_size(static_cast<std::uint64_t>(ntfs.m_cluster_size)),
          clusters_per_block(cluster_size < index_block_size ? ntfs.clusters_per_block() : 1),
          blocks_per_cluster(cluster_size < index_block_size ? 1 : ntfs.blocks_per_cluster()) {}

    std::uint64_t cluster_size;
    std::uint64_t clusters_per_block;
    std::uint64_t blocks_per_cluster;
};

// Takes clusters in stream order and makes blocks of them.
class block_assembler {
  public:
    // `blocks` has its final size and is all zeros; its first byte is that of the first cluster given.
    block_assembler(const block_layout& layout, std::uint32_t bytes_per_sector,
                    std::vector<std::uint8_t>& blocks)
        : m_layout(layout), m_bytes_per_sector(bytes_per_sector), m_blocks(blocks) {
        const std::uint64_t count = blocks.size() / index_block_size;
        m_end =
            (count + layout.blocks_per_cluster - 1) / layout.blocks_per_cluster * layout.clusters_per_block;
    }

    [[nodiscard]] bool done() const { return m_cluster >= m_end; }
    [[nodiscard]] std::uint64_t clusters_left() const { return m_end - m_cluster; }

    // Clusters that hold nothing: their place stays zero.
    void skip(std::uint64_t clusters) {
        m_cluster += std::min(clusters, clusters_left());
        m_read_in_a_row = 0;
    }

    // The bytes of the next cluster; only while not done.
    void put(std::span<const std::uint8_t> cluster) {
        const std::uint64_t place = m_cluster % m_layout.clusters_per_block;
        const std::uint64_t block = m_cluster / m_layout.clusters_per_block * m_layout.blocks_per_cluster;
        const std::uint64_t at = block * index_block_size + place * m_layout.cluster_size;
        const std::uint64_t whole = std::min(cluster.size(), m_layout.blocks_per_cluster * index_block_size);
        std::copy_n(cluster.begin(), std::min<std::uint64_t>(whole, m_blocks.size() - at),
                    m_blocks.begin() + static_cast<std::ptrdiff_t>(at));
        ++m_cluster;
        m_read_in_a_row = place == 0 ? 1 : m_read_in_a_row + 1;
        // A block of which a cluster is missing keeps its sector ends as they are on disk.
        if (m_read_in_a_row == m_layout.clusters_per_block) {
            restore(block);
            m_read_in_a_row = 0;
        }
    }

  private:
    void restore(std::uint64_t first_block) {
        for (std::uint64_t i = 0; i < m_layout.blocks_per_cluster; ++i) {
            const std::uint64_t at = (first_block + i) * index_block_size;
            if (at >= m_blocks.size()) {
                break;
            }
            const auto block = std::span(m_blocks).subspan(static_cast<std::size_t>(at), index_block_size);
            if (index_block(byte_view(block)).is_indx()) {
                restore_sector_ends(block, m_bytes_per_sector,
                                    sector_end_limit(index_block_size, m_bytes_per_sector));
            }
        }
    }

    block_layout m_layout;
    std::uint32_t m_bytes_per_sector;
    std::vector<std::uint8_t>& m_blocks;
    std::uint64_t m_end = 0;
    std::uint64_t m_cluster = 0;
    std::uint64_t m_read_in_a_row = 0;
};

// Reads one stored run from its LCN on, as many clusters at once as fit the buffer. A cluster that cannot be
// read gives up what is left of the run.
void read_run(CNtfs& ntfs, block_assembler& assembler, std::uint64_t lcn, std::uint64_t clusters,
              std::span<std::uint8_t> buffer) {
    const auto cluster_size = static_cast<std::size_t>(ntfs.m_cluster_size);
    // Ends with the run or with the blocks, whichever comes first.
    while (clusters != 0 && !assembler.done()) {
        const std::uint64_t wanted =
            std::min({clusters, assembler.clusters_left(), std::uint64_t{buffer.size() / cluster_size}});
        const std::uint64_t got = ntfs.read_leading_clusters(lcn, wanted, buffer.data());
        for (std::size_t i = 0; i < got; ++i) {
            assembler.put(buffer.subspan(i * cluster_size, cluster_size));
        }
        if (got < wanted) {
            assembler.skip(clusters - got);
            break;
        }
        lcn += wanted;
        clusters -= wanted;
    }
}

// The run that holds a cluster of the stream, counted without sparse runs, and the cluster's place in that
// run.
[[nodiscard]] bool find_stored_cluster(const cluster_run_list& runs, std::uint64_t cluster,
                                       std::size_t& index, std::uint64_t& place) {
    for (index = 0; index < runs.size(); ++index) {
        if (runs[index].sparse) {
            continue;
        }
        if (cluster < runs[index].length) {
            place = cluster;
            return true;
        }
        cluster -= runs[index].length;
    }
    return false;
}

// As many bytes of blocks as the source can hold at all.
[[nodiscard]] std::uint64_t most_blocks(const CNtfs& ntfs) {
    return (ntfs.source_size() + static_cast<std::uint64_t>(ntfs.m_cluster_size)) / index_block_size + 1;
}

}  // namespace

bool read_index_blocks(CNtfs& ntfs, std::vector<std::uint8_t>& blocks, std::uint32_t& count,
                       const cluster_run_list& runs, std::uint64_t first_block) {
    blocks.clear();
    const std::uint64_t wanted = count;
    count = 0;
    const block_layout layout(ntfs);
    const std::uint64_t bytes = run_bytes(runs, layout.cluster_size, true);
    if (bytes == 0) {
        return false;
    }
    const std::uint64_t total =
        bytes / layout.cluster_size / layout.clusters_per_block * layout.blocks_per_cluster;
    if (total == 0) {
        return true;
    }
    std::size_t index = 0;
    std::uint64_t place = 0;
    const std::uint64_t first_cluster = first_block / layout.blocks_per_cluster * layout.clusters_per_block;
    if (first_block >= total || !find_stored_cluster(runs, first_cluster, index, place)) {
        return false;
    }
    const std::uint64_t ahead =
        first_block % layout.blocks_per_cluster;  // blocks of the first cluster not wanted
    const std::uint64_t shown = std::min({wanted, total - first_block, most_blocks(ntfs)});
    blocks.resize(static_cast<std::size_t>((ahead + shown) * index_block_size));
    block_assembler assembler(layout, ntfs.get_bytes_per_sector(), blocks);
    std::vector<std::uint8_t> buffer(static_cast<std::size_t>(
        std::max(buffer_size / layout.cluster_size, std::uint64_t{1}) * layout.cluster_size));
    // Ends with the list or with the blocks, whichever comes first.
    for (; index < runs.size() && !assembler.done(); ++index, place = 0) {
        const std::uint64_t length = runs[index].length - place;
        if (runs[index].sparse) {
            assembler.skip(length);
        } else {
            read_run(ntfs, assembler, runs[index].lcn + place, length, buffer);
        }
    }
    blocks.erase(blocks.begin(), blocks.begin() + static_cast<std::ptrdiff_t>(ahead * index_block_size));
    count = static_cast<std::uint32_t>(shown);
    return true;
}

bool parse_index_allocation(_inode_collection& collection, CNtfs* ntfs, const attribute& allocation,
                            bool keep_going) {
    if (ntfs == nullptr || allocation.is_null() || allocation.initialized_size() == 0) {
        return false;
    }
    data_run_list pairs;
    cluster_run_list runs;
    if (!decode_runs(allocation.bytes(), pairs) || !to_cluster_runs(pairs, runs)) {
        return false;
    }
    std::vector<std::uint8_t> blocks;
    std::uint32_t count = all_index_blocks;
    if (!read_index_blocks(*ntfs, blocks, count, runs, 0)) {
        return false;
    }
    const std::uint64_t most_children = ntfs->source_size() / smallest_entry_with_name;
    // Ends with the blocks; an index whose entries overlap must not show more than the source can hold.
    for (std::uint64_t at = 0; at < blocks.size() && collection.held() <= most_children;
         at += index_block_size) {
        const index_block block(byte_view(blocks).clipped(at, index_block_size));
        if (block.is_indx()) {
            static_cast<void>(parse_index_block(collection, block, keep_going));
        }
    }
    return true;
}

}  // namespace quarry
