#include "namespace/index_stream.h"

#include "support/opened_volume.h"
#include "support/vmdk_builder.h"

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

class index_stream_test : public ::testing::TestWithParam<std::uint32_t> {
  protected:
    // 512-byte sectors, clusters of the parameter's size, blocks of the children 100, 101, ... from LCN 200
    // on.
    index_stream_test()
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

TEST_P(index_stream_test, gives_all_blocks_with_their_sector_ends_put_back) {
    opened_volume opened(m_volume);
    const read_blocks found = read(opened.ntfs(), {stored(200, clusters_of_blocks(8))});
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.count, 8u);
    EXPECT_EQ(found.blocks, restored(0, 8));
}

TEST_P(index_stream_test, gives_the_blocks_of_several_runs_in_the_order_of_the_runs) {
    opened_volume opened(m_volume);
    const std::uint32_t half = clusters_of_blocks(4);
    const read_blocks found = read(opened.ntfs(), {stored(200 + half, half), stored(200, half)});
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.blocks, concat({restored(4, 4), restored(0, 4)}));
}

TEST_P(index_stream_test, gives_as_many_blocks_as_are_wanted) {
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

TEST_P(index_stream_test, begins_in_the_run_that_holds_the_first_block) {
    opened_volume opened(m_volume);
    const std::uint32_t quarter = clusters_of_blocks(2);
    const cluster_run_list list = {stored(200, quarter), stored(200 + quarter, quarter), sparse(quarter),
                                   stored(200 + 2 * quarter, 2 * quarter)};
    EXPECT_EQ(read(opened.ntfs(), list, 2, 2).blocks, restored(2, 2));
    // Sparse runs do not count on the way to the first block.
    EXPECT_EQ(read(opened.ntfs(), list, 4, 3).blocks, restored(4, 3));
}

TEST_P(index_stream_test, fails_for_a_first_block_at_or_beyond_the_end) {
    opened_volume opened(m_volume);
    for (const std::uint64_t first : {8ull, 9ull, 0xFFFFFFFFull, 0xFFFFFFFFFFFFFFFFull}) {
        const read_blocks found = read(opened.ntfs(), {stored(200, clusters_of_blocks(8))}, first);
        EXPECT_FALSE(found.result);
        EXPECT_EQ(found.count, 0u);
        EXPECT_TRUE(found.blocks.empty());
    }
}

TEST_P(index_stream_test, fails_without_stored_runs) {
    opened_volume opened(m_volume);
    EXPECT_FALSE(read(opened.ntfs(), {}).result);
    EXPECT_FALSE(read(opened.ntfs(), {sparse(8)}).result);
    EXPECT_FALSE(read(opened.ntfs(), {stored(200, 0)}).result);
    EXPECT_TRUE(read(opened.ntfs(), {}).blocks.empty());
}

TEST_P(index_stream_test, leaves_sparse_runs_out_of_its_size_but_not_out_of_its_positions) {
    opened_volume opened(m_volume);
    const std::uint32_t two = clusters_of_blocks(2);
    const read_blocks found =
        read(opened.ntfs(), {stored(200, two), sparse(clusters_of_blocks(1)), stored(200 + two, two)});
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.count, 4u);
    // Four blocks are stored. The sparse one takes the third place, so the last stored one has none.
    EXPECT_EQ(found.blocks, concat({restored(0, 2), zeros(), restored(2, 1)}));
}

TEST_P(index_stream_test, begins_after_sparse_runs_at_its_front) {
    opened_volume opened(m_volume);
    const std::uint32_t two = clusters_of_blocks(2);
    EXPECT_EQ(read(opened.ntfs(), {sparse(two), stored(200, two)}).blocks, restored(0, 2));
}

TEST_P(index_stream_test, a_failed_read_gives_up_the_rest_of_its_run_and_goes_on_with_the_next) {
    bytes image = m_volume.image();
    // The volume is cut off after cluster 200 + two blocks, so that a run over that place fails in the
    // middle.
    image.resize(200u * GetParam() + 2 * 4096);
    opened_volume opened(image);
    const std::uint32_t two = clusters_of_blocks(2);
    const read_blocks found = read(opened.ntfs(), {stored(200, 2 * two), stored(200, two)});
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.count, 6u);
    EXPECT_EQ(found.blocks, concat({restored(0, 2), zeros(), zeros(), restored(0, 2)}));
}

TEST_P(index_stream_test, is_true_when_nothing_can_be_read) {
    opened_volume opened(m_volume);
    const read_blocks found = read(opened.ntfs(), {stored(0x7FFFFFFFFFFF, clusters_of_blocks(2))});
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.blocks, concat({zeros(), zeros()}));
}

TEST_P(index_stream_test, never_holds_more_than_the_source) {
    opened_volume opened(m_volume);
    const read_blocks found = read(opened.ntfs(), {stored(200, 0xFFFFFFFF), stored(200, 0xFFFFFFFF),
                                                   sparse(0xFFFFFFFF), stored(200, 0xFFFFFFFF)});
    EXPECT_TRUE(found.result);
    EXPECT_LE(found.blocks.size(), opened->source_size() + GetParam() + 4096);
    EXPECT_GE(found.blocks.size(), opened->source_size());
    EXPECT_EQ(found.blocks.size(), found.count * std::size_t{4096});
}

// What a virtual disk claims to hold costs nothing.
TEST(index_stream_on_virtual_disk, never_holds_more_than_the_files_whatever_size_the_disk_claims) {
    const bytes image = volume_builder({.mft_entries = 32, .total_clusters = 200}).image();
    vmdk_builder disk;
    disk.entries_per_table = 512;
    disk.grains = 512;
    disk.put_all(0, image).force(vmdk_builder::at_capacity, 8, std::uint64_t{1} << 54);
    const temp_dir dir;
    disk.write(dir / "disk");
    std::unique_ptr<CNtfs> volume;
    ASSERT_TRUE(open_by_vmdk({(dir / "disk").wstring()}, 0, volume, false, nullptr));
    EXPECT_EQ(volume->get_disk()->size(), std::uint64_t{1} << 63);
    const read_blocks found = read(*volume, {stored(100, 0xFFFFFFFF), stored(100, 0xFFFFFFFF)});
    EXPECT_TRUE(found.result);
    EXPECT_LE(found.blocks.size(), image.size() + 0x100000 + 32 * 0x100000);
    EXPECT_GE(found.blocks.size(), image.size());
}

// Clusters that are larger than a block, or that no number of blocks or of which no number fills.

read_blocks read_in_clusters_of(std::uint32_t sectors, const bytes& content, std::uint64_t first = 0,
                                std::uint32_t count = all_index_blocks) {
    volume_builder volume({.sectors_per_cluster = sectors, .mft_entries = 32, .total_clusters = 200});
    volume.write_clusters(100, content);
    opened_volume opened(volume);
    const auto clusters = static_cast<std::uint32_t>(content.size() / (sectors * 512));
    return read(opened.ntfs(), {stored(100, clusters)}, first, count);
}

TEST(index_stream_in_large_clusters, gives_each_block_of_a_cluster) {
    bytes content;
    bytes expected;
    for (std::uint64_t i = 0; i < 6; ++i) {
        content = concat({content, block_of(100 + i).build()});
        expected = concat({expected, block_of(100 + i).build_restored()});
    }
    EXPECT_EQ(read_in_clusters_of(16, content).blocks, expected);
    const auto part = [&](std::ptrdiff_t first, std::ptrdiff_t count) {
        return bytes(expected.begin() + first * 4096, expected.begin() + (first + count) * 4096);
    };
    for (std::uint32_t first = 0; first < 6; ++first) {
        for (std::uint32_t count = 1; first + count <= 6; ++count) {
            const read_blocks found = read_in_clusters_of(16, content, first, count);
            EXPECT_TRUE(found.result);
            EXPECT_EQ(found.count, count);
            EXPECT_EQ(found.blocks, part(first, count)) << first << " " << count;
        }
    }
}

TEST(index_stream_in_odd_clusters, looks_at_the_whole_blocks_of_a_cluster_larger_than_a_block) {
    // Clusters of 10,240 bytes hold two blocks each; what is after them is not looked at.
    const bytes rest = index_block_builder().add({.file_reference = 99}).build();
    const bytes half(rest.begin(), rest.begin() + 2048);
    const bytes content = concat({block_of(100).build(), block_of(101).build(), half, block_of(102).build(),
                                  block_of(103).build(), half});
    const read_blocks found = read_in_clusters_of(20, content);
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.count, 4u);
    EXPECT_EQ(found.blocks, concat({block_of(100).build_restored(), block_of(101).build_restored(),
                                    block_of(102).build_restored(), block_of(103).build_restored()}));
}

TEST(index_stream_in_odd_clusters, fills_a_block_with_the_whole_clusters_that_fit_it) {
    // Two clusters of 1,536 bytes make a block, of which the last 1,024 bytes stay zero.
    bytes first = block_of(100).build();
    bytes second = block_of(101).build();
    first.resize(3072);
    second.resize(3072);
    const read_blocks found = read_in_clusters_of(3, concat({first, second}));
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.count, 2u);
    const auto cut = [](std::uint64_t child) {
        bytes block = block_of(child).build_restored();
        std::fill(block.begin() + 3072, block.end(), std::uint8_t{0});
        // The ends of the seventh and eighth sector come from the array all the same; they are zero here.
        return block;
    };
    EXPECT_EQ(found.blocks, concat({cut(100), cut(101)}));
}

// One cluster makes a block, and is shorter than it.
TEST(index_stream_in_odd_clusters, fills_a_block_with_one_cluster_that_is_shorter_and_zeros) {
    struct shape {
        std::uint32_t bytes_per_sector;
        std::uint32_t sectors;
    };
    for (const shape& at : {shape{512, 5},
                            {512, 6},
                            {512, 7},
                            {2049, 1},
                            {1025, 2},
                            {683, 3},
                            {16, 255},
                            {4095, 1},
                            {1, 255},
                            {9, 255}}) {
        const std::size_t cluster = std::size_t{at.bytes_per_sector} * at.sectors;
        const std::size_t per_block = std::max<std::size_t>(4096 / cluster, 1);
        const std::size_t kept = per_block * cluster;
        volume_builder volume({.bytes_per_sector = at.bytes_per_sector,
                               .sectors_per_cluster = at.sectors,
                               .mft_entries = 32,
                               .stride = 4096,
                               .total_clusters = 400});
        // Blocks without protected sector ends, so that nothing is to be restored.
        bytes content;
        bytes expected;
        for (std::uint64_t i = 0; i < 3; ++i) {
            bytes block = index_block_builder(4096, 4096)
                              .add({.file_reference = reference(100 + i, 1), .key = bytes(80, 0x77)})
                              .force_on_disk(6, 2, 1)
                              .build();
            std::fill(block.begin() + 2000, block.end(), static_cast<std::uint8_t>(0x31 + i));
            block.resize(kept);
            content = concat({content, block});
            block.resize(4096);
            expected = concat({expected, block});
        }
        volume.write_clusters(300, content);
        opened_volume opened(volume);
        const auto clusters = static_cast<std::uint32_t>(3 * per_block);
        const read_blocks found = read(opened.ntfs(), {stored(300, clusters)});
        EXPECT_TRUE(found.result);
        EXPECT_EQ(found.count, 3u) << cluster;
        EXPECT_EQ(found.blocks, expected) << cluster;
        EXPECT_EQ(read(opened.ntfs(), {stored(300, clusters)}, 1, 1).blocks,
                  bytes(expected.begin() + 4096, expected.begin() + 8192))
            << cluster;
        _inode_collection children;
        const bytes allocation = attribute_builder::non_resident(0xA0, {{300, clusters}}).build();
        budget reads(budget::unlimited);
        EXPECT_TRUE(
            parse_index_allocation(children, &opened.ntfs(), attribute(byte_view(allocation)), false, reads));
        EXPECT_EQ(numbers(children.begin(), children.end()), (numbers{100, 101, 102})) << cluster;
    }
}

TEST(index_stream_in_odd_clusters, restores_the_sector_ends_of_a_block_in_one_shorter_cluster) {
    // 3,072 bytes of a block: six sectors. The seventh and eighth sector end come from the array all the
    // same.
    bytes block = block_of(100).build();
    block.resize(3072);
    const read_blocks found = read_in_clusters_of(6, block);
    ASSERT_TRUE(found.result);
    ASSERT_EQ(found.count, 1u);
    bytes expected = block_of(100).build_restored();
    std::fill(expected.begin() + 3072, expected.end(), std::uint8_t{0});
    EXPECT_EQ(found.blocks, expected);
}

TEST(index_stream_blocks, leaves_a_block_of_which_a_cluster_is_missing_unrestored) {
    volume_builder volume({.sectors_per_cluster = 2, .mft_entries = 32, .total_clusters = 300});
    const bytes block = block_of(100).build();
    volume.write_clusters(200, block);
    opened_volume opened(volume);
    // The third of its four clusters is sparse. Two stored blocks make room for the second half of it.
    const read_blocks found =
        read(opened.ntfs(), {stored(200, 2), sparse(1), stored(203, 1), stored(200, 4)});
    ASSERT_TRUE(found.result);
    ASSERT_EQ(found.count, 1u);
    bytes expected = block;
    std::fill(expected.begin() + 2048, expected.begin() + 3072, std::uint8_t{0});
    EXPECT_EQ(found.blocks, expected);
}

TEST(index_stream_blocks, restores_only_what_begins_with_indx) {
    volume_builder volume({.mft_entries = 32, .total_clusters = 300});
    const bytes baad = index_block_builder().signature("BAAD").add({.file_reference = 7}).build();
    volume.write_clusters(200, baad);
    opened_volume opened(volume);
    EXPECT_EQ(read(opened.ntfs(), {stored(200, 1)}).blocks, baad);
}

TEST(index_stream_blocks, survives_an_array_outside_of_its_block) {
    for (const std::uint64_t offset : {4090ull, 4094ull, 4095ull, 65535ull}) {
        volume_builder volume({.mft_entries = 32, .total_clusters = 300});
        volume.write_clusters(200,
                              block_of(100).force_on_disk(4, 2, offset).force_on_disk(6, 2, 65535).build());
        opened_volume opened(volume);
        const read_blocks found = read(opened.ntfs(), {stored(200, 1)});
        EXPECT_TRUE(found.result);
        EXPECT_EQ(found.blocks.size(), 4096u);
    }
}

TEST(index_stream_blocks, of_an_attribute_needs_volume_attribute_and_initialized_bytes) {
    volume_builder volume({.mft_entries = 32, .total_clusters = 300});
    volume.write_clusters(200, block_of(100).build());
    opened_volume opened(volume);
    const bytes good = attribute_builder::non_resident(0xA0, runs({{200, 1}})).build();
    _inode_collection found;
    budget reads(budget::unlimited);
    EXPECT_FALSE(parse_index_allocation(found, nullptr, attribute(byte_view(good)), false, reads));
    EXPECT_FALSE(parse_index_allocation(found, &opened.ntfs(), attribute(), false, reads));
    const bytes empty = attribute_builder::non_resident(0xA0, runs({{200, 1}})).initialized(0).build();
    EXPECT_FALSE(parse_index_allocation(found, &opened.ntfs(), attribute(byte_view(empty)), false, reads));
    const bytes without_length = attribute_builder::non_resident(0xA0, runs({{200, 1}})).length(0).build();
    EXPECT_FALSE(
        parse_index_allocation(found, &opened.ntfs(), attribute(byte_view(without_length)), false, reads));
    EXPECT_EQ(found.size(), 0u);
    EXPECT_TRUE(parse_index_allocation(found, &opened.ntfs(), attribute(byte_view(good)), false, reads));
    EXPECT_EQ(found.size(), 1u);
}

TEST(index_stream_blocks, are_read_as_far_as_the_budget_goes) {
    volume_builder volume({.mft_entries = 32, .total_clusters = 300});
    for (std::uint64_t i = 0; i < 4; ++i) {
        volume.write_clusters(200 + i, block_of(100 + i).build());
    }
    opened_volume opened(volume);
    const bytes four = attribute_builder::non_resident(0xA0, runs({{200, 4}})).build();
    budget reads(7 * 4096 - 1);
    for (const std::size_t expected : {4u, 2u, 0u}) {
        _inode_collection found;
        EXPECT_TRUE(parse_index_allocation(found, &opened.ntfs(), attribute(byte_view(four)), false, reads));
        EXPECT_EQ(found.size(), expected);
    }
    EXPECT_TRUE(reads.spent());
}

// The plain way: one cluster after the other, each with a read of its own, each to its place.
bytes read_plainly(CNtfs& ntfs, const cluster_run_list& list) {
    const std::uint64_t cluster = static_cast<std::uint64_t>(ntfs.m_cluster_size);
    std::uint64_t stored_clusters = 0;
    for (const cluster_run& run : list) {
        stored_clusters += run.sparse ? 0 : run.length;
    }
    bytes blocks(stored_clusters * cluster / 4096 * 4096);
    std::vector<bool> is_read(blocks.size() / 512);
    std::uint64_t at = 0;
    bool begun = false;
    for (const cluster_run& run : list) {
        begun = begun || (!run.sparse && run.length != 0);
        if (!begun) {
            continue;
        }
        bool failed = run.sparse;
        for (std::uint64_t i = 0; i < run.length && at < blocks.size(); ++i, at += cluster) {
            bytes one(cluster);
            std::uint64_t length = cluster;
            failed = failed || !ntfs.read_clusters(run.lcn + i, one.data(), length);
            for (std::uint64_t k = 0; !failed && k < cluster && at + k < blocks.size(); ++k) {
                blocks[at + k] = one[k];
                is_read[(at + k) / 512] = true;
            }
        }
    }
    for (std::size_t block = 0; block < blocks.size(); block += 4096) {
        bool whole = true;
        for (std::size_t sector = 0; sector < 8; ++sector) {
            whole = whole && is_read[block / 512 + sector];
        }
        if (whole && to_bytes("INDX") == bytes(blocks.begin() + static_cast<std::ptrdiff_t>(block),
                                               blocks.begin() + static_cast<std::ptrdiff_t>(block + 4))) {
            restore_sector_ends(std::span(blocks).subspan(block, 4096), 512, 9);
        }
    }
    return blocks;
}

TEST_P(index_stream_test, on_random_runs_and_damaged_sources_is_what_plain_reads_give) {
    bytes image = m_volume.image();
    std::mt19937 random(GetParam());
    // The source ends in the middle of a cluster of the blocks' area, or holds it whole.
    for (const std::size_t cut :
         std::vector<std::size_t>{0, 200u * GetParam() + 5 * 4096, 200u * GetParam() + 3 * 4096 + 100}) {
        if (cut != 0) {
            image.resize(std::min(image.size(), cut));
        }
        opened_volume opened(image);
        for (int round = 0; round < 100; ++round) {
            cluster_run_list list;
            for (std::uint32_t i = 0; i <= random() % 6; ++i) {
                const auto length = static_cast<std::uint32_t>(random() % (clusters_of_blocks(6) + 1));
                const std::uint64_t lcn =
                    random() % 20 == 0 ? 0x7FFFFFFFFFFFFFFF : 195 + random() % clusters_of_blocks(10);
                list.push_back(random() % 4 == 0 ? sparse(length) : stored(lcn, length));
            }
            const bytes expected = read_plainly(opened.ntfs(), list);
            EXPECT_EQ(read(opened.ntfs(), list).blocks, expected) << round;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(cluster_sizes, index_stream_test, ::testing::Values(512u, 1024u, 2048u, 4096u),
                         [](const auto& shape) { return "Of" + std::to_string(shape.param); });

}  // namespace
}  // namespace quarry::test
