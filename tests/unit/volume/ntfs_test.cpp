#include "volume/ntfs.h"

#include "support/opened_volume.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

constexpr std::size_t cluster = 4096;

TEST(entry_position, an_entry_is_found_through_the_runs_of_mft) {
    volume_builder builder({.mft_runs = {{4, 4}, {100, 4}, {50, 8}}});
    opened_volume volume(builder);
    for (const std::uint64_t entry : {0u, 1u, 15u, 16u, 31u, 32u, 63u}) {
        EXPECT_EQ(volume->entry_position(entry), builder.record_position(entry)) << entry;
    }
    std::uint64_t lcn = 0;
    std::uint32_t offset = 0;
    EXPECT_TRUE(volume->get_lcn_for_inode(17, lcn, offset));
    EXPECT_EQ(lcn, 100u);
    EXPECT_EQ(offset, 1024u);
}

TEST(entry_position, an_entry_beyond_the_last_run_is_not_found) {
    opened_volume volume{volume_builder()};
    for (const std::uint64_t entry : {std::uint64_t{64}, std::uint64_t{1} << 47, std::uint64_t{1} << 54,
                                      std::uint64_t{1} << 60, ~std::uint64_t{0}}) {
        std::uint64_t lcn = 77;
        std::uint32_t offset = 77;
        EXPECT_FALSE(volume->get_lcn_for_inode(entry, lcn, offset)) << entry;
        EXPECT_EQ(lcn, 0u);
        EXPECT_EQ(offset, 0u);
        EXPECT_EQ(volume->entry_position(entry), 0u);
    }
}

TEST(entry_position, a_record_larger_than_a_cluster_begins_in_its_own) {
    volume_builder builder({.sectors_per_cluster = 1, .mft_runs = {{40, 3}, {90, 125}}});
    opened_volume volume(builder);
    // Record 1 has the clusters 2 and 3 of $MFT, the second of which is elsewhere.
    EXPECT_EQ(volume->entry_position(1), 42u * 512);
    EXPECT_EQ(volume->entry_position(2), 91u * 512);
}

// A volume whose $MFT has these runs for the entries after the first 16.
std::uint64_t position_of_entry_16(const char* pairs) {
    volume_builder builder;
    record_builder mft = builder.new_record(0);
    bytes all = from_hex("11 04 04");
    const bytes more = from_hex(pairs);
    all.insert(all.end(), more.begin(), more.end());
    mft.add(attribute_builder::with_pairs(0x80, all).real(65536));
    builder.replace_record(0, mft.build());
    opened_volume volume(builder);
    return volume->entry_position(16);
}

TEST(entry_position, a_sparse_run_holds_no_entry_but_counts) {
    EXPECT_EQ(position_of_entry_16("11 04 04 00"), 8u * cluster);
    EXPECT_EQ(position_of_entry_16("01 04 11 04 04 00"), 0u);
    EXPECT_EQ(position_of_entry_16("01 04 01 04 00"), 0u);
}

TEST(entry_position, the_first_entry_in_a_sparse_run_has_no_lcn) {
    volume_builder builder;
    builder.replace_record(0, builder.new_record(0)
                                  .add(attribute_builder::with_pairs(0x80, from_hex("11 04 04 01 04 00")))
                                  .build());
    opened_volume volume(builder);
    for (const std::uint64_t entry : {16u, 20u}) {
        std::uint64_t lcn = 77;
        std::uint32_t offset = 77;
        EXPECT_FALSE(volume->get_lcn_for_inode(entry, lcn, offset));
        EXPECT_EQ(lcn, 0u);
    }
}

TEST(entry_position, an_empty_run_holds_no_entry) {
    EXPECT_EQ(position_of_entry_16("11 00 04 11 04 04 00"), 12u * cluster);
}

TEST(entry_position, an_lcn_that_no_position_can_hold_is_not_found) {
    EXPECT_EQ(position_of_entry_16("81 04 00 00 00 00 00 00 08 00 00"), 0u) << "2^51 clusters of 2^12 bytes";
    EXPECT_EQ(position_of_entry_16("81 04 00 00 00 00 00 00 10 00 00"), 0u)
        << "2^64 bytes would be byte 0 again";
    EXPECT_EQ(position_of_entry_16("81 04 FB FF FF FF FF FF FF FF 00"), 0u) << "an LCN of -1";
}

TEST(entry_position, an_lcn_that_wraps_inside_of_a_run_is_not_found) {
    volume_builder builder;
    // Four clusters at 4, then 16 from LCN -2 on, the third of which would be cluster 0.
    builder.replace_record(0, builder.new_record(0)
                                  .add(attribute_builder::with_pairs(0x80, from_hex("11 04 04 11 10 FA 00")))
                                  .build());
    opened_volume volume(builder);
    for (const std::uint64_t entry : {16u, 20u, 24u, 28u, 32u}) {
        std::uint64_t lcn = 77;
        std::uint32_t offset = 77;
        EXPECT_EQ(volume->get_lcn_for_inode(entry, lcn, offset), entry < 24) << entry;
        EXPECT_EQ(volume->entry_position(entry), 0u) << entry;
    }
}

TEST(entry_position, an_object_that_is_not_valid_knows_no_entry) {
    CNtfs volume;
    EXPECT_EQ(volume.entry_position(0), 0u);
    std::uint64_t lcn = 1;
    std::uint32_t offset = 1;
    EXPECT_FALSE(volume.get_lcn_for_inode(0, lcn, offset));
    opened_volume opened{volume_builder()};
    ASSERT_NE(opened->entry_position(5), 0u);
    opened->m_Validated = false;
    EXPECT_EQ(opened->entry_position(5), 0u) << "whatever it holds";
    EXPECT_EQ(opened->get_num_entries(), 0u);
}

TEST(index_blocks, blocks_and_clusters_fit_into_each_other) {
    struct row {
        std::int32_t cluster_size;
        std::uint32_t clusters_per_block;
        std::uint32_t blocks_per_cluster;
    };
    for (const row& each : {row{512, 8, 0},
                            {1024, 4, 0},
                            {2048, 2, 0},
                            {4096, 1, 1},
                            {4095, 1, 0},
                            {8192, 1, 2},
                            {65536, 1, 16},
                            {16711425, 1, 4079},
                            {3, 1365, 0},
                            {0, 1, 0}}) {
        CNtfs volume;
        volume.m_cluster_size = each.cluster_size;
        EXPECT_EQ(volume.clusters_per_block(), each.clusters_per_block) << each.cluster_size;
        EXPECT_EQ(volume.blocks_per_cluster(), each.blocks_per_cluster) << each.cluster_size;
    }
}

TEST(source, a_disk_that_cannot_be_used_is_none) {
    opened_volume volume{volume_builder()};
    ASSERT_NE(volume->get_disk(), nullptr);
    volume->m_disk->m_ok = false;
    EXPECT_EQ(volume->get_disk(), nullptr);
    EXPECT_EQ(volume->source_size(), 0u);
    EXPECT_TRUE(volume->is_valid()) << "what was learned stays";
    bytes buffer(cluster);
    std::uint64_t length = cluster;
    std::uint64_t position = 0;
    EXPECT_FALSE(volume->read_clusters(4, buffer.data(), length));
    EXPECT_FALSE(volume->read_cluster_alloc(4, buffer, length, position));
    EXPECT_FALSE(volume->read_record(5, buffer, position, length));
    EXPECT_FALSE(volume->read_record(0, buffer, position, length));
    volume->m_disk->set_origin(0, 512, 0);
    EXPECT_EQ(volume->disk_origin(), 0u);
    volume->m_disk->m_ok = true;
    EXPECT_EQ(volume->disk_origin(), 512u);
}

}  // namespace
}  // namespace quarry::test
