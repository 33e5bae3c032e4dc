#include "volume/run_cursor.h"

#include <random>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

cluster_run run_at(std::uint64_t vcn, std::uint64_t lcn, std::uint32_t length) {
    return {.lcn = lcn, .vcn = vcn, .sparse = false, .length = length};
}

cluster_run hole_at(std::uint64_t vcn, std::uint32_t length) {
    return {.lcn = 0, .vcn = vcn, .sparse = true, .length = length};
}

TEST(run_cursor, reports_where_a_cluster_lies_and_how_far_that_holds) {
    const cluster_run_list runs{run_at(0, 100, 8), hole_at(8, 16), run_at(24, 50, 4)};
    run_cursor cursor(runs);
    run_cursor::stretch at;
    ASSERT_TRUE(cursor.find(3, at));
    EXPECT_EQ(at.lcn, 103u);
    EXPECT_EQ(at.length_in_clusters, 5u);
    EXPECT_FALSE(at.sparse);
    ASSERT_TRUE(cursor.find(8, at));
    EXPECT_EQ(at.lcn, 0u);
    EXPECT_EQ(at.length_in_clusters, 16u);
    EXPECT_TRUE(at.sparse);
    ASSERT_TRUE(cursor.find(27, at));
    EXPECT_EQ(at.lcn, 53u);
    EXPECT_EQ(at.length_in_clusters, 1u);
    EXPECT_FALSE(cursor.find(28, at));
    EXPECT_EQ(at.lcn, 53u) << "left as it was";
}

TEST(run_cursor, goes_back_as_well) {
    const cluster_run_list runs{run_at(0, 100, 8), run_at(8, 200, 8), run_at(16, 300, 8)};
    run_cursor cursor(runs);
    run_cursor::stretch at;
    ASSERT_TRUE(cursor.find(20, at));
    ASSERT_TRUE(cursor.find(2, at));
    EXPECT_EQ(at.lcn, 102u);
    EXPECT_FALSE(cursor.find(24, at));
    ASSERT_TRUE(cursor.find(9, at));
    EXPECT_EQ(at.lcn, 201u);
}

TEST(run_cursor, finds_nothing_in_an_empty_list) {
    const cluster_run_list runs;
    run_cursor cursor(runs);
    run_cursor::stretch at;
    EXPECT_FALSE(cursor.find(0, at));
    EXPECT_FALSE(cursor.find(~std::uint64_t{0}, at));
}

TEST(run_cursor, answers_for_one_cluster_at_a_time_where_runs_overlap) {
    const cluster_run_list runs{run_at(10, 500, 2), run_at(8, 100, 8)};
    run_cursor cursor(runs);
    run_cursor::stretch at;
    ASSERT_TRUE(cursor.find(9, at));
    EXPECT_EQ(at.lcn, 101u);
    EXPECT_EQ(at.length_in_clusters, 1u);
    ASSERT_TRUE(cursor.find(10, at));
    EXPECT_EQ(at.lcn, 500u) << "the first run of the list that covers it";
}

TEST(run_cursor, takes_a_run_that_wraps_around_the_largest_vcn_as_find_run_does) {
    const cluster_run_list runs{run_at(~std::uint64_t{0} - 1, 100, 8), run_at(0, 300, 4)};
    run_cursor cursor(runs);
    run_cursor::stretch at;
    for (const std::uint64_t vcn :
         {~std::uint64_t{0}, ~std::uint64_t{0} - 1, std::uint64_t{2}, std::uint64_t{5}}) {
        std::size_t index = 0;
        std::uint64_t lcn = 0;
        ASSERT_EQ(cursor.find(vcn, at), find_run(runs, vcn, index, lcn)) << vcn;
    }
    ASSERT_TRUE(cursor.find(2, at));
    EXPECT_EQ(at.lcn, 302u);
}

// Any list, any order of questions: where find_run has an answer the cursor has the same, and over the whole
// length that it gives.
TEST(run_cursor, answers_as_find_run_does_on_every_list) {
    std::mt19937 random(3);
    for (int round = 0; round < 3000; ++round) {
        cluster_run_list runs;
        std::uint64_t next = random() % 5;
        const bool in_order = random() % 3 != 0;
        for (std::uint_fast32_t i = random() % 12; i > 0; --i) {
            const auto length = static_cast<std::uint32_t>(random() % 5);
            const std::uint64_t vcn = in_order ? next + random() % 2 * (random() % 3) : random() % 30;
            const bool sparse = random() % 3 == 0;
            runs.push_back(
                {.lcn = sparse ? 0 : random() % 100, .vcn = vcn, .sparse = sparse, .length = length});
            next = vcn + length;
        }
        run_cursor cursor(runs);
        for (int question = 0; question < 40; ++question) {
            const std::uint64_t vcn =
                random() % 2 == 0 ? static_cast<std::uint64_t>(question) : random() % 45;
            std::size_t index = 0;
            std::uint64_t lcn = 0;
            run_cursor::stretch at;
            const bool found = find_run(runs, vcn, index, lcn);
            ASSERT_EQ(cursor.find(vcn, at), found);
            if (!found) {
                continue;
            }
            EXPECT_EQ(at.sparse, runs[index].sparse);
            for (std::uint64_t i = 0; i < at.length_in_clusters; ++i) {
                std::size_t other = 0;
                std::uint64_t other_lcn = 0;
                ASSERT_TRUE(find_run(runs, vcn + i, other, other_lcn));
                ASSERT_EQ(other_lcn, at.sparse ? 0 : at.lcn + i);
                ASSERT_EQ(runs[other].sparse, at.sparse);
            }
        }
    }
}

// A search from the front for each cluster would take a day here.
TEST(run_cursor, walks_a_million_runs_whose_numbers_wrap_in_one_pass) {
    // The first run is at the last VCN but one, so that the third has VCN 0. Searching the list from its
    // front for each cluster would take 5 * 10^11 steps.
    constexpr std::uint64_t first = ~std::uint64_t{0} - 1;
    cluster_run_list runs;
    for (std::uint64_t i = 0; i < 1000000; ++i) {
        runs.push_back(run_at(first + i, 2 * i, 1));
    }
    run_cursor cursor(runs);
    run_cursor::stretch at;
    for (std::uint64_t vcn = 0; vcn < 999998; ++vcn) {
        ASSERT_TRUE(cursor.find(vcn, at));
        ASSERT_EQ(at.lcn, 2 * (vcn + 2));
        ASSERT_EQ(at.length_in_clusters, 1u);
    }
    EXPECT_FALSE(cursor.find(999998, at));
    EXPECT_TRUE(cursor.find(first, at));
    EXPECT_EQ(at.lcn, 0u);
    EXPECT_TRUE(cursor.find(first + 1, at));
    EXPECT_EQ(at.lcn, 2u);
}

TEST(run_cursor, walks_a_million_runs_in_one_pass) {
    cluster_run_list runs;
    for (std::uint64_t i = 0; i < 1000000; ++i) {
        runs.push_back(run_at(i * 2, 3000000 - i, 2));
    }
    run_cursor cursor(runs);
    run_cursor::stretch at;
    std::uint64_t sum = 0;
    for (std::uint64_t vcn = 0; vcn < 2000000; ++vcn) {
        ASSERT_TRUE(cursor.find(vcn, at));
        sum += at.lcn;
    }
    // Twice 3,000,000 - i over all runs, and one more in each second cluster.
    EXPECT_EQ(sum, 2 * (std::uint64_t{3000000} * 1000000 - std::uint64_t{999999} * 1000000 / 2) + 1000000);
}

}  // namespace
}  // namespace quarry::test
