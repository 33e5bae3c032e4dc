#include "namespace/index_stream.h"

#include "namespace/index_block.h"
#include "volume/limits.h"

#include <algorithm>
#include <array>
#include <functional>
#include <span>

namespace quarry {

namespace {

// Bytes that are read at once, or one cluster if that is more.
constexpr std::uint64_t buffer_size = std::uint64_t{256} * 1024;

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

// Is given each block of which anything was read, in stream order: its place, from 0 for the first block of
// the first cluster that is looked at, and its bytes, fixups restored.
using block_visitor = std::function<void(std::uint64_t place, std::span<std::uint8_t> block)>;

// Takes clusters in stream order and makes blocks of them.
class block_assembler {
  public:
    // Makes at most `count` blocks.
    block_assembler(const CNtfs& ntfs, const block_layout& layout, std::uint64_t count,
                    const block_visitor& visit)
        : m_layout(layout), m_bytes_per_sector(ntfs.get_bytes_per_sector()), m_count(count), m_visit(visit) {
        m_end =
            (count + layout.blocks_per_cluster - 1) / layout.blocks_per_cluster * layout.clusters_per_block;
    }

    [[nodiscard]] bool done() const { return m_cluster >= m_end; }
    [[nodiscard]] std::uint64_t clusters_left() const { return m_end - m_cluster; }

    // The bytes of the next cluster, which may be changed; only while not done.
    void put(std::span<std::uint8_t> cluster) {
        // One cluster may make a block and still be shorter than it.
        if (m_layout.cluster_size < index_block_size) {
            put_part_of_block(cluster);
        } else {
            put_blocks(cluster);
        }
    }

    // Clusters that hold nothing.
    void skip(std::uint64_t clusters) {
        const std::uint64_t place = m_cluster % m_layout.clusters_per_block;
        if (clusters >= m_layout.clusters_per_block - place) {
            finish();
        }
        m_cluster += std::min(clusters, clusters_left());
    }

    // After the last cluster: what there is of a block that was begun.
    void finish() {
        if (m_read_of_block != 0) {
            show(m_cluster / m_layout.clusters_per_block, m_block,
                 m_read_of_block == m_layout.clusters_per_block);
            m_block.fill(0);
            m_read_of_block = 0;
        }
    }

  private:
    void put_blocks(std::span<std::uint8_t> cluster) {
        const std::uint64_t first = m_cluster * m_layout.blocks_per_cluster;
        for (std::uint64_t i = 0; i < m_layout.blocks_per_cluster && first + i < m_count; ++i) {
            show(first + i, cluster.subspan(static_cast<std::size_t>(i * index_block_size), index_block_size),
                 true);
        }
        ++m_cluster;
    }

    void put_part_of_block(std::span<const std::uint8_t> cluster) {
        const std::uint64_t place = m_cluster % m_layout.clusters_per_block;
        std::copy(cluster.begin(), cluster.end(),
                  m_block.begin() + static_cast<std::ptrdiff_t>(place * m_layout.cluster_size));
        ++m_read_of_block;
        if (place + 1 == m_layout.clusters_per_block) {
            finish();
        }
        ++m_cluster;
    }

    // A block of which a cluster is missing keeps its sector ends as they are on disk.
    void show(std::uint64_t place, std::span<std::uint8_t> block, bool complete) const {
        if (complete && index_block(byte_view(block)).is_indx()) {
            restore_sector_ends(block, m_bytes_per_sector,
                                sector_end_limit(index_block_size, m_bytes_per_sector));
        }
        m_visit(place, block);
    }

    block_layout m_layout;
    std::uint32_t m_bytes_per_sector;
    std::uint64_t m_count;
    const block_visitor& m_visit;
    std::uint64_t m_end = 0;
    std::uint64_t m_cluster = 0;
    // Where several clusters make a block: the present one, and how many of its clusters were read.
    std::array<std::uint8_t, index_block_size> m_block{};
    std::uint64_t m_read_of_block = 0;
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
        const std::uint64_t got = ntfs.clusters().read_leading_clusters(lcn, wanted, buffer.data());
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

// As many blocks as the source can hold at all.
[[nodiscard]] std::uint64_t most_blocks(const CNtfs& ntfs) {
    return (ntfs.source_size() + static_cast<std::uint64_t>(ntfs.m_cluster_size)) / index_block_size + 1;
}

// The part of a stream that is looked at.
struct block_range {
    std::uint64_t in_front = 0;  // blocks in the first cluster ahead of the first that is wanted
    std::uint64_t count = 0;     // blocks that are wanted
    std::size_t run = 0;         // the run that holds the first cluster ...
    std::uint64_t place = 0;     // ... and the cluster's place in it
};

// Cuts what is wanted to what there is. False if no run is stored, or the first block lies at or beyond the
// end.
[[nodiscard]] bool find_range(block_range& range, const CNtfs& ntfs, const cluster_run_list& runs,
                              std::uint64_t first_block, std::uint64_t wanted) {
    const block_layout layout(ntfs);
    // Deliberate: sparse runs do not count for the size of the stream, though they do for the places in it.
    // After a hole the last blocks, as many as the hole has room for, are not looked at: the user does not
    // find the names in them.
    const std::uint64_t bytes = run_bytes(runs, layout.cluster_size, true);
    if (bytes == 0) {
        return false;
    }
    const std::uint64_t total =
        bytes / layout.cluster_size / layout.clusters_per_block * layout.blocks_per_cluster;
    if (total == 0) {
        return true;
    }
    const std::uint64_t first_cluster = first_block / layout.blocks_per_cluster * layout.clusters_per_block;
    if (first_block >= total || !find_stored_cluster(runs, first_cluster, range.run, range.place)) {
        return false;
    }
    range.in_front = first_block % layout.blocks_per_cluster;
    range.count = std::min({wanted, total - first_block, most_blocks(ntfs)});
    return true;
}

void visit_blocks(CNtfs& ntfs, const cluster_run_list& runs, const block_range& range,
                  const block_visitor& visit) {
    const block_layout layout(ntfs);
    block_assembler assembler(ntfs, layout, range.in_front + range.count, visit);
    // Most indexes are shorter than a buffer.
    const std::uint64_t clusters = std::min(buffer_size / layout.cluster_size, assembler.clusters_left());
    std::vector<std::uint8_t> buffer(
        static_cast<std::size_t>(std::max(clusters, std::uint64_t{1}) * layout.cluster_size));
    std::uint64_t place = range.place;
    // Ends with the list or with the blocks, whichever comes first.
    for (std::size_t index = range.run; index < runs.size() && !assembler.done(); ++index, place = 0) {
        const std::uint64_t length = runs[index].length - place;
        if (runs[index].sparse) {
            assembler.skip(length);
        } else {
            read_run(ntfs, assembler, runs[index].lcn + place, length, buffer);
        }
    }
    assembler.finish();
}

}  // namespace

bool read_index_blocks(CNtfs& ntfs, std::vector<std::uint8_t>& blocks, std::uint32_t& count,
                       const cluster_run_list& runs, std::uint64_t first_block) {
    blocks.clear();
    block_range range;
    const bool found = find_range(range, ntfs, runs, first_block, count);
    count = static_cast<std::uint32_t>(found ? range.count : 0);
    if (count == 0) {
        return found;
    }
    blocks.resize(static_cast<std::size_t>(range.count * index_block_size));
    visit_blocks(ntfs, runs, range, [&](std::uint64_t place, std::span<std::uint8_t> block) {
        if (place >= range.in_front) {
            const std::uint64_t at = (place - range.in_front) * index_block_size;
            std::copy(block.begin(), block.end(), blocks.begin() + static_cast<std::ptrdiff_t>(at));
        }
    });
    return true;
}

bool parse_index_allocation(_inode_collection& collection, CNtfs* ntfs, const attribute& allocation,
                            bool keep_going, budget& reads) {
    if (ntfs == nullptr || allocation.is_null() || allocation.initialized_size() == 0) {
        return false;
    }
    data_run_list pairs;
    cluster_run_list runs;
    block_range range;
    if (!decode_runs(allocation.bytes(), pairs) || !to_cluster_runs(pairs, runs) ||
        !find_range(range, *ntfs, runs, 0, all_index_blocks)) {
        return false;
    }
    range.count = reads.take(range.count * index_block_size) / index_block_size;
    // An index whose entries overlap must not show more children than the source can hold.
    const std::uint64_t most_children = limits::children_of_directory(ntfs->source_size());
    // Deliberate: the index's $BITMAP, which says which blocks are live, is not looked at. A freed block
    // gives the children that it held, and the user can still find a deleted file.
    visit_blocks(*ntfs, runs, range, [&](std::uint64_t /*place*/, std::span<std::uint8_t> bytes) {
        const index_block block{byte_view(bytes)};
        if (block.is_indx() && collection.held() <= most_children) {
            // A block that is refused is passed over.
            static_cast<void>(parse_index_block(collection, block, keep_going));
        }
    });
    return true;
}

}  // namespace quarry
