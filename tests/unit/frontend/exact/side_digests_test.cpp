#include "frontend/exact/side_digests.h"

#include <algorithm>
#include <chrono>
#include <numeric>
#include <string>
#include <thread>

#include <gtest/gtest.h>

namespace quarry::test {

using exact::side_digests;

namespace {

using bytes = std::vector<std::uint8_t>;

bytes pattern(std::size_t size) {
    bytes made(size);
    for (std::size_t i = 0; i < size; ++i) {
        made[i] = static_cast<std::uint8_t>(i * 131 + (i >> 8));
    }
    return made;
}

// Takes bytes down, as a digest would take them in.
struct taker {
    bytes taken;
    std::chrono::microseconds pause{0};

    side_digests::update update() {
        return [this](std::span<const std::uint8_t> part) {
            std::this_thread::sleep_for(pause);
            taken.insert(taken.end(), part.begin(), part.end());
        };
    }
};

}  // namespace

TEST(side_digests, each_takes_all_bytes_in_their_order) {
    const bytes content = pattern(std::size_t{10} << 20);
    for (const unsigned workers : {1u, 2u, 3u, 64u}) {
        worker_pool pool(workers);
        taker fast;
        taker slow;
        slow.pause = std::chrono::microseconds(200);
        side_digests digests(pool.for_bytes(content.size()));
        digests.add(fast.update());
        digests.add(slow.update());
        // Pieces of every kind: of one byte, just below and above a block, of several blocks.
        std::size_t done = 0;
        bytes piece;
        for (std::size_t turn = 0; done < content.size(); ++turn) {
            constexpr std::array<std::size_t, 5> sizes = {1, side_digests::block_bytes - 1,
                                                          side_digests::block_bytes + 1,
                                                          3 * side_digests::block_bytes, 4096};
            const std::size_t size = std::min(sizes.at(turn % sizes.size()), content.size() - done);
            piece.assign(content.begin() + static_cast<std::ptrdiff_t>(done),
                         content.begin() + static_cast<std::ptrdiff_t>(done + size));
            digests.take(piece);
            // What the caller does with its bytes afterwards is its own business.
            std::fill(piece.begin(), piece.end(), std::uint8_t{0xEE});
            done += size;
        }
        digests.finish();
        EXPECT_TRUE(fast.taken == content) << workers;
        EXPECT_TRUE(slow.taken == content) << workers;
    }
}

TEST(side_digests, take_bytes_that_last_where_they_are) {
    const bytes content = pattern(side_digests::block_bytes);
    worker_pool pool(2);
    const std::uint8_t* seen = nullptr;
    side_digests digests(pool.for_bytes(worker_pool::least_bytes));
    digests.add([&seen](std::span<const std::uint8_t> part) { seen = part.data(); });
    digests.take_lasting(content);
    digests.finish();
    EXPECT_EQ(seen, content.data());
    digests.take(content);
    digests.finish();
    EXPECT_NE(seen, content.data());
}

TEST(side_digests, more_bytes_may_come_after_a_finish) {
    worker_pool pool(2);
    taker all;
    side_digests digests(pool.for_bytes(worker_pool::least_bytes));
    digests.add(all.update());
    digests.finish();
    digests.take(bytes{1, 2});
    digests.finish();
    digests.take(bytes{3});
    digests.finish();
    EXPECT_EQ(all.taken, (bytes{1, 2, 3}));
}

TEST(side_digests, are_none_where_none_is_added) {
    worker_pool pool(2);
    side_digests digests(pool.for_bytes(worker_pool::least_bytes));
    EXPECT_TRUE(digests.empty());
    digests.take(bytes{1});
    digests.finish();
}

// The blocks are the memory that a copy takes for its digests.
TEST(side_digests, are_never_further_behind_than_their_blocks_hold) {
    worker_pool pool(2);
    std::atomic<std::size_t> taken = 0;
    side_digests digests(pool.for_bytes(worker_pool::least_bytes));
    digests.add([&taken](std::span<const std::uint8_t> part) {
        std::this_thread::sleep_for(std::chrono::microseconds(300));
        taken += part.size();
    });
    const bytes block(side_digests::block_bytes);
    std::size_t given = 0;
    std::size_t furthest = 0;
    for (int i = 0; i < 100; ++i) {
        digests.take(block);
        given += block.size();
        furthest = std::max(furthest, given - taken);
    }
    digests.finish();
    EXPECT_EQ(taken, given);
    EXPECT_LE(furthest, side_digests::most_blocks * side_digests::block_bytes);
}

TEST(side_digests, may_end_with_bytes_that_no_digest_has_taken) {
    worker_pool pool(2);
    std::atomic<int> blocks = 0;
    {
        side_digests digests(pool.for_bytes(worker_pool::least_bytes));
        digests.add([&blocks](std::span<const std::uint8_t>) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            ++blocks;
        });
        for (int i = 0; i < 10; ++i) {
            digests.take(bytes(side_digests::block_bytes));
        }
    }
    const int when_it_ended = blocks;
    EXPECT_LT(when_it_ended, 10);
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    EXPECT_EQ(blocks, when_it_ended);
}

}  // namespace quarry::test
