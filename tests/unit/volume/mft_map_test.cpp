#include "volume/mft_map.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

data_run stored(std::uint64_t lcn, std::uint32_t clusters) {
    data_run run;
    run.lcn = lcn;
    run.num_clusters = clusters;
    return run;
}

TEST(mft_map, knows_no_entry_without_runs) {
    EXPECT_EQ(mft_map().find(0), std::nullopt);
    EXPECT_EQ(mft_map(1024, 4096).find(0), std::nullopt);
    EXPECT_EQ(mft_map(1024, 4096).position(0), 0U);
}

// Four entries of 1,024 bytes fit into a cluster.
TEST(mft_map, finds_the_cluster_and_the_byte_of_an_entry) {
    mft_map map(1024, 4096);
    map.extend({stored(100, 2), stored(50, 1)});
    ASSERT_TRUE(map.find(5));
    EXPECT_EQ(map.find(5)->lcn, 101U);
    EXPECT_EQ(map.find(5)->byte_offset, 1024U);
    EXPECT_EQ(map.position(5), 101U * 4096 + 1024);
    EXPECT_EQ(map.position(7), 101U * 4096 + 3072);
    EXPECT_EQ(map.position(8), 50U * 4096);
    EXPECT_EQ(map.position(11), 50U * 4096 + 3072);
    EXPECT_EQ(map.find(12), std::nullopt);
    EXPECT_EQ(map.position(12), 0U);
}

TEST(mft_map, finds_entries_that_are_longer_than_a_cluster) {
    mft_map map(4096, 1024);
    map.extend({stored(10, 4), stored(30, 8)});
    EXPECT_EQ(map.position(0), 10U * 1024);
    EXPECT_EQ(map.position(1), 30U * 1024);
    EXPECT_EQ(map.position(2), 34U * 1024);
    EXPECT_EQ(map.find(3), std::nullopt);
}

TEST(mft_map, can_be_asked_while_it_grows) {
    mft_map map(1024, 4096);
    data_run_list runs = {stored(100, 1)};
    map.extend(runs);
    EXPECT_EQ(map.position(3), 100U * 4096 + 3072);
    EXPECT_EQ(map.find(4), std::nullopt);
    runs.push_back(stored(7, 1));
    map.extend(runs);
    EXPECT_EQ(map.position(4), 7U * 4096);
    EXPECT_EQ(map.position(3), 100U * 4096 + 3072) << "what was known stays";
}

TEST(mft_map, a_shorter_list_takes_the_place_of_what_was_known) {
    mft_map map(1024, 4096);
    map.extend({stored(100, 1), stored(200, 1)});
    map.extend({stored(9, 2)});
    EXPECT_EQ(map.position(5), 10U * 4096 + 1024);
    map.clear();
    EXPECT_EQ(map.find(0), std::nullopt);
    map.extend({stored(5, 1)});
    EXPECT_EQ(map.position(0), 5U * 4096);
}

TEST(mft_map, an_entry_in_a_sparse_run_has_no_place_and_those_after_it_have_theirs) {
    mft_map map(1024, 4096);
    map.extend({stored(100, 1), stored(sparse_lcn, 2), stored(200, 1)});
    EXPECT_EQ(map.position(3), 100U * 4096 + 3072);
    EXPECT_EQ(map.find(4), std::nullopt);
    EXPECT_EQ(map.find(11), std::nullopt);
    EXPECT_EQ(map.position(12), 200U * 4096);
}

TEST(mft_map, a_run_without_clusters_holds_no_entry) {
    mft_map map(1024, 4096);
    map.extend({stored(100, 0), stored(200, 1), stored(300, 0)});
    EXPECT_EQ(map.position(0), 200U * 4096);
    EXPECT_EQ(map.find(4), std::nullopt);
}

TEST(mft_map, places_that_63_bits_cannot_hold_are_none) {
    mft_map map(1024, 4096);
    map.extend({stored(~std::uint64_t{0} - 1, 3), stored(std::uint64_t{1} << 51, 1)});
    ASSERT_TRUE(map.find(0));
    EXPECT_EQ(map.position(0), 0U);
    EXPECT_EQ(map.find(8), std::nullopt) << "the number of its cluster would need 65 bits";
    EXPECT_EQ(map.position(12), 0U) << "a position of 2^63";
    EXPECT_EQ(map.find(std::uint64_t{1} << 53), std::nullopt);
    EXPECT_EQ(map.find(~std::uint64_t{0}), std::nullopt);
}

}  // namespace
}  // namespace quarry::test
