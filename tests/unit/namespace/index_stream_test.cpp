#include "namespace/index_stream.h"

#include "support/opened_volume.h"

#include <filesystem>
#include <numeric>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using numbers = std::vector<std::uint64_t>;

struct read_blocks {
    bool result;
    std::uint32_t count;
    bytes blocks;
};

read_blocks read(CNtfs& ntfs, const cluster_run_list& list, std::uint64_t first = 0,
                 std::uint32_t count = all_index_blocks) {
    read_blocks found{false, count, bytes(3, 0xEE)};
    found.result = read_index_blocks(ntfs, found.blocks, found.count, list, first);
    return found;
}

cluster_run stored(std::uint64_t lcn, std::uint32_t length) {
    return {.lcn = lcn, .length = length};
}
cluster_run sparse(std::uint32_t length) {
    return {.sparse = true, .length = length};
}

// A block with one child. All of its bytes differ from zero, but for those of its head.
index_block_builder block_of(std::uint64_t child) {
    return index_block_builder().add({.file_reference = reference(child, 1), .key = bytes(80, 0x77)});
}

bytes zeros() {
    return bytes(4096);
}

class IndexStream : public ::testing::TestWithParam<std::uint32_t> {
  protected:
    // 512-byte sectors, clusters of the parameter's size, blocks of the children 100, 101, ... from LCN 200
    // on.
    IndexStream()
        : m_volume({.sectors_per_cluster = GetParam() / 512, .mft_entries = 32, .total_clusters = 400}) {
        bytes all;
        for (std::uint64_t i = 0; i < 8; ++i) {
            all = concat({all, block_of(100 + i).build()});
        }
        m_volume.write_clusters(200, all);
    }
    [[nodiscard]] std::uint32_t clusters_of_blocks(std::uint32_t blocks) const {
        return blocks * 4096 / GetParam();
    }
    [[nodiscard]] static bytes restored(std::uint64_t first, std::uint64_t count) {
        bytes all;
        for (std::uint64_t i = first; i < first + count; ++i) {
            all = concat({all, block_of(100 + i).build_restored()});
        }
        return all;
    }
    volume_builder m_volume;
};

TEST_P(IndexStream, GivesAllBlocksWithTheirSectorEndsPutBack) {
    opened_volume opened(m_volume);
    const read_blocks found = read(opened.ntfs(), {stored(200, clusters_of_blocks(8))});
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.count, 8u);
    EXPECT_EQ(found.blocks, restored(0, 8));
}

TEST_P(IndexStream, GivesTheBlocksOfSeveralRunsInTheOrderOfTheRuns) {
    opened_volume opened(m_volume);
    const std::uint32_t half = clusters_of_blocks(4);
    const read_blocks found = read(opened.ntfs(), {stored(200 + half, half), stored(200, half)});
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.blocks, concat({restored(4, 4), restored(0, 4)}));
}

TEST_P(IndexStream, GivesAsManyBlocksAsAreWanted) {
    opened_volume opened(m_volume);
    for (std::uint32_t first = 0; first < 8; ++first) {
        for (std::uint32_t count = 1; count <= 9; ++count) {
            const read_blocks found = read(opened.ntfs(), {stored(200, clusters_of_blocks(8))}, first, count);
            const std::uint32_t expected = std::min(count, 8 - first);
            EXPECT_TRUE(found.result);
            EXPECT_EQ(found.count, expected);
            EXPECT_EQ(found.blocks, restored(first, expected)) << first << " " << count;
        }
    }
}

TEST_P(IndexStream, BeginsInTheRunThatHoldsTheFirstBlock) {
    opened_volume opened(m_volume);
    const std::uint32_t quarter = clusters_of_blocks(2);
    const cluster_run_list list = {stored(200, quarter), stored(200 + quarter, quarter), sparse(quarter),
                                   stored(200 + 2 * quarter, 2 * quarter)};
    EXPECT_EQ(read(opened.ntfs(), list, 2, 2).blocks, restored(2, 2));
    // Sparse runs do not count on the way to the first block.
    EXPECT_EQ(read(opened.ntfs(), list, 4, 3).blocks, restored(4, 3));
}

TEST_P(IndexStream, FailsForAFirstBlockAtOrBeyondTheEnd) {
    opened_volume opened(m_volume);
    for (const std::uint64_t first : {8ull, 9ull, 0xFFFFFFFFull, 0xFFFFFFFFFFFFFFFFull}) {
        const read_blocks found = read(opened.ntfs(), {stored(200, clusters_of_blocks(8))}, first);
        EXPECT_FALSE(found.result);
        EXPECT_EQ(found.count, 0u);
        EXPECT_TRUE(found.blocks.empty());
    }
}

TEST_P(IndexStream, FailsWithoutStoredRuns) {
    opened_volume opened(m_volume);
    EXPECT_FALSE(read(opened.ntfs(), {}).result);
    EXPECT_FALSE(read(opened.ntfs(), {sparse(8)}).result);
    EXPECT_FALSE(read(opened.ntfs(), {stored(200, 0)}).result);
    EXPECT_TRUE(read(opened.ntfs(), {}).blocks.empty());
}

TEST_P(IndexStream, LeavesSparseRunsOutOfItsSizeButNotOutOfItsPositions) {
    opened_volume opened(m_volume);
    const std::uint32_t two = clusters_of_blocks(2);
    const read_blocks found =
        read(opened.ntfs(), {stored(200, two), sparse(clusters_of_blocks(1)), stored(200 + two, two)});
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.count, 4u);
    // Four blocks are stored. The sparse one takes the third place, so the last stored one has none.
    EXPECT_EQ(found.blocks, concat({restored(0, 2), zeros(), restored(2, 1)}));
}

TEST_P(IndexStream, BeginsBehindSparseRunsAtItsFront) {
    opened_volume opened(m_volume);
    const std::uint32_t two = clusters_of_blocks(2);
    EXPECT_EQ(read(opened.ntfs(), {sparse(two), stored(200, two)}).blocks, restored(0, 2));
}

TEST_P(IndexStream, AFailedReadGivesUpTheRestOfItsRunAndGoesOnWithTheNext) {
    bytes image = m_volume.image();
    // What of the volume is behind cluster 200 + two blocks is missing, so that a run over it fails in the
    // middle.
    image.resize(200u * GetParam() + 2 * 4096);
    opened_volume opened(image);
    const std::uint32_t two = clusters_of_blocks(2);
    const read_blocks found = read(opened.ntfs(), {stored(200, 2 * two), stored(200, two)});
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.count, 6u);
    EXPECT_EQ(found.blocks, concat({restored(0, 2), zeros(), zeros(), restored(0, 2)}));
}

TEST_P(IndexStream, IsTrueWhenNothingCanBeRead) {
    opened_volume opened(m_volume);
    const read_blocks found = read(opened.ntfs(), {stored(0x7FFFFFFFFFFF, clusters_of_blocks(2))});
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.blocks, concat({zeros(), zeros()}));
}

TEST_P(IndexStream, NeverHoldsMoreThanTheSource) {
    opened_volume opened(m_volume);
    const read_blocks found = read(opened.ntfs(), {stored(200, 0xFFFFFFFF), stored(200, 0xFFFFFFFF),
                                                   sparse(0xFFFFFFFF), stored(200, 0xFFFFFFFF)});
    EXPECT_TRUE(found.result);
    EXPECT_LE(found.blocks.size(), opened->source_size() + GetParam() + 4096);
    EXPECT_GE(found.blocks.size(), opened->source_size());
    EXPECT_EQ(found.blocks.size(), found.count * std::size_t{4096});
}

INSTANTIATE_TEST_SUITE_P(ClusterSizes, IndexStream, ::testing::Values(512u, 1024u, 2048u, 4096u),
                         [](const auto& shape) { return "Of" + std::to_string(shape.param); });

}  // namespace
}  // namespace quarry::test
