#include "volume/joined_runs.h"

#include <random>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

cluster_run run_at(std::uint64_t vcn, std::uint64_t lcn, std::uint32_t length) {
    return {.lcn = lcn, .vcn = vcn, .sparse = false, .length = length};
}

TEST(JoinedRuns, PutsTheRunsOfTheNextPieceBehindTheOthers) {
    joined_runs joined({run_at(0, 100, 16)});
    joined.join({run_at(16, 300, 16), run_at(32, 500, 8)});
    joined.join({run_at(40, 700, 1)});
    EXPECT_EQ(joined.list(), (cluster_run_list{run_at(0, 100, 16), run_at(16, 300, 16), run_at(32, 500, 8),
                                               run_at(40, 700, 1)}));
}

TEST(JoinedRuns, LeavesTheFirstPieceAloneUntilAnotherOneComes) {
    joined_runs joined({run_at(100, 5, 16)});
    EXPECT_EQ(joined.list(), (cluster_run_list{run_at(100, 5, 16)}));
    joined.join({});
    EXPECT_EQ(joined.list(), (cluster_run_list{run_at(0, 5, 16)}));
}

TEST(JoinedRuns, ClosesTheGapAheadOfAPiece) {
    joined_runs joined({run_at(0, 5, 16)});
    joined.join({run_at(100, 50, 2), run_at(200, 60, 2)});
    EXPECT_EQ(joined.list(), (cluster_run_list{run_at(0, 5, 16), run_at(16, 50, 2), run_at(18, 60, 2)}));
}

// A list of 0 to 3 runs, in order more often than not, now and then with an empty run or a VCN that repeats.
cluster_run_list random_piece(std::mt19937& random, std::uint64_t& next) {
    cluster_run_list piece;
    const unsigned count = random() % 4;
    for (unsigned i = 0; i < count; ++i) {
        const auto length = static_cast<std::uint32_t>(random() % 10 == 0 ? 0 : 1 + random() % 5);
        if (random() % 8 == 0) {
            next = random() % 40;
        } else if (random() % 8 == 0) {
            next += random() % 5;
        }
        piece.push_back({.lcn = random() % 1000, .vcn = next, .sparse = random() % 4 == 0, .length = length});
        next += length;
    }
    return piece;
}

TEST(JoinedRuns, HoldsTheListThatMergingOneByOneMakes) {
    std::mt19937 random(5);
    for (int round = 0; round < 20000; ++round) {
        std::uint64_t next = random() % 3 == 0 ? random() % 30 : 0;
        cluster_run_list plain = random_piece(random, next);
        joined_runs joined(plain);
        for (int pieces = 0; pieces < 6; ++pieces) {
            const cluster_run_list piece = random_piece(random, next);
            merge_runs(piece, plain);
            joined.join(piece);
            ASSERT_EQ(joined.list(), plain) << round;
        }
        EXPECT_EQ(joined.take(), plain);
    }
}

}  // namespace
}  // namespace quarry::test
