#include "volume/joined_runs.h"

#include "support/run_program.h"

#include <ctime>
#include <random>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

cluster_run run_at(std::uint64_t vcn, std::uint64_t lcn, std::uint32_t length) {
    return {.lcn = lcn, .vcn = vcn, .sparse = false, .length = length};
}

TEST(joined_runs, puts_the_runs_of_the_next_piece_after_the_others) {
    joined_runs joined({run_at(0, 100, 16)});
    joined.join({run_at(16, 300, 16), run_at(32, 500, 8)});
    joined.join({run_at(40, 700, 1)});
    EXPECT_EQ(joined.list(), (cluster_run_list{run_at(0, 100, 16), run_at(16, 300, 16), run_at(32, 500, 8),
                                               run_at(40, 700, 1)}));
}

TEST(joined_runs, does_not_change_the_first_piece_until_another_one_comes) {
    joined_runs joined({run_at(100, 5, 16)});
    EXPECT_EQ(joined.list(), (cluster_run_list{run_at(100, 5, 16)}));
    joined.join({});
    EXPECT_EQ(joined.list(), (cluster_run_list{run_at(0, 5, 16)}));
}

TEST(joined_runs, closes_the_gap_ahead_of_a_piece) {
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

TEST(joined_runs, holds_the_list_that_merging_one_by_one_makes) {
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

// Pieces whose runs go between those of a list that is long by then, with empty runs and VCNs that repeat.
TEST(joined_runs, holds_the_list_that_merging_one_by_one_makes_where_pieces_lie_between_each_other) {
    std::mt19937 random(7);
    for (int round = 0; round < 12; ++round) {
        const bool with_empty_runs = round % 3 != 0;
        cluster_run_list plain;
        std::uint64_t end = 0;
        for (int i = 0; i < 300; ++i) {
            const auto length = static_cast<std::uint32_t>(with_empty_runs && random() % 50 == 0 ? 0 : 4);
            plain.push_back(run_at(end, random() % 1000, length));
            end += 4 + random() % 2;
        }
        joined_runs joined(plain);
        for (int pieces = 0; pieces < 300; ++pieces) {
            cluster_run_list piece;
            for (unsigned i = random() % 8; i > 0; --i) {
                const bool is_empty = with_empty_runs && random() % 6 == 0;
                const std::uint64_t vcn =
                    random() % 20 == 0 ? ~std::uint64_t{0} - random() % 3 : random() % (end + 9);
                piece.push_back(run_at(vcn, random() % 1000,
                                       static_cast<std::uint32_t>(is_empty ? 0 : 1 + random() % 9)));
            }
            merge_runs(piece, plain);
            joined.join(piece);
            ASSERT_EQ(joined.size(), plain.size()) << round << " " << pieces;
            ASSERT_EQ(joined.list(), plain) << round << " " << pieces;
            end = plain.back().vcn + plain.back().length;
        }
        EXPECT_EQ(joined.take(), plain);
    }
}

// Nothing but empty runs at one VCN: each merge leaves only the first.
TEST(joined_runs, drops_what_follows_an_empty_run_at_the_next_merge) {
    cluster_run_list plain;
    for (std::uint64_t i = 0; i < 400; ++i) {
        plain.push_back(run_at(i, i, i % 2 == 0 ? 0 : 1));
    }
    joined_runs joined(plain);
    for (int merges = 0; merges < 12; ++merges) {
        merge_runs({run_at(3, 7, 0), run_at(1, 8, 2)}, plain);
        joined.join({run_at(3, 7, 0), run_at(1, 8, 2)});
        ASSERT_EQ(joined.list(), plain) << merges;
    }
    EXPECT_LT(plain.size(), 8u);
}

// Each piece lies in the middle of what is there. A walk over the whole list for each took minutes.
TEST(joined_runs, joins_thousands_of_pieces_that_lie_between_each_other_in_little_time) {
    constexpr std::uint64_t pieces = 60000;
    const std::clock_t start = std::clock();
    joined_runs joined({run_at(0, 1, 1)});
    for (std::uint64_t i = 1; i < pieces; ++i) {
        // Three runs: one at the end, one in the middle, one near the front.
        const std::uint64_t end = 3 * i - 2;
        joined.join({run_at(end, 3 * i, 2), run_at(end / 2 | 1, 3 * i + 1, 1)});
    }
    const auto processor_seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    EXPECT_GT(joined.size(), pieces);
    EXPECT_LT(processor_seconds, 10.0 * time_allowance());
}

}  // namespace
}  // namespace quarry::test
