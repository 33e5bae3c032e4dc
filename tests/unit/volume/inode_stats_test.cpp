#include "volume/inode_stats.h"

#include <map>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

INODE_STATS stats_with_runs(const std::vector<std::uint32_t>& lengths) {
    INODE_STATS stats;
    for (const std::uint32_t length : lengths) {
        stats.data_runs.emplace_back().num_clusters = length;
    }
    return stats;
}

std::vector<std::uint64_t> vcns(const INODE_STATS& stats) {
    std::vector<std::uint64_t> result;
    for (const data_run& run : stats.data_runs) {
        result.push_back(run.vcn);
    }
    return result;
}

using vcn_map = std::map<std::uint64_t, std::uint32_t>;

TEST(number_runs, each_run_follows_the_one_before) {
    INODE_STATS stats = stats_with_runs({8, 1, 16});
    number_runs(stats);
    EXPECT_EQ(vcns(stats), (std::vector<std::uint64_t>{0, 8, 9}));
    EXPECT_EQ(stats.vcn_index, (vcn_map{{0, 0}, {8, 1}, {9, 2}}));
}

TEST(number_runs, a_second_call_continues_the_first) {
    INODE_STATS stats = stats_with_runs({8, 1});
    number_runs(stats);
    stats.data_runs[0].vcn = 77;  // untouched by what follows
    stats.data_runs.emplace_back().num_clusters = 5;
    stats.data_runs.emplace_back().num_clusters = 6;
    number_runs(stats);
    EXPECT_EQ(vcns(stats), (std::vector<std::uint64_t>{77, 8, 9, 14}));
    EXPECT_EQ(stats.vcn_index, (vcn_map{{0, 0}, {8, 1}, {9, 2}, {14, 3}}));
}

TEST(number_runs, an_index_of_more_runs_than_there_are_is_begun_anew) {
    INODE_STATS stats = stats_with_runs({4, 4});
    stats.vcn_index = {{0, 0}, {100, 1}, {200, 2}};
    number_runs(stats);
    EXPECT_EQ(stats.vcn_index, (vcn_map{{0, 0}, {4, 1}}));
    EXPECT_EQ(vcns(stats), (std::vector<std::uint64_t>{0, 4}));
    stats.vcn_index = {{0, 0}, {100, 1}, {200, 1}};
    number_runs(stats);
    EXPECT_EQ(stats.vcn_index, (vcn_map{{0, 0}, {4, 1}}))
        << "also if all of it points to runs that there are";
}

TEST(number_runs, an_index_that_points_after_the_runs_is_begun_anew) {
    INODE_STATS stats = stats_with_runs({4, 4});
    stats.vcn_index = {{100, 9}};
    number_runs(stats);
    EXPECT_EQ(stats.vcn_index, (vcn_map{{0, 0}, {4, 1}}));
}

TEST(number_runs, no_runs_leave_an_empty_index) {
    INODE_STATS stats;
    number_runs(stats);
    EXPECT_TRUE(stats.vcn_index.empty());
}

}  // namespace
}  // namespace quarry::test
