#include "exact/ordered_windows.h"

#include <chrono>
#include <string>
#include <thread>

#include <gtest/gtest.h>

namespace quarry::test {

using exact::failure_code;
using exact::ordered_windows;
using exact::result;

namespace {

constexpr std::uint64_t much = worker_pool::least_bytes;

// What became of the windows of a test.
struct ledger {
    std::vector<int> handed_on;
    int made = 0;
    int filled = 0;  // and not handed on yet
    int most_filled = 0;
    int refused_at = -1;  // the receiver takes no more
};

// A window with one number in it. Even ones take longer than odd ones.
struct numbered_window {
    ledger* book;
    int number = -1;
    int broken_from = 1000;
    std::string decoded = {};

    void decode() {
        if (number % 2 == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        decoded = std::to_string(number);
    }
    result<void> hand_on() {
        EXPECT_EQ(decoded, std::to_string(number));
        --book->filled;
        if (number >= broken_from) {
            return exact::fail(failure_code::wof, decoded, "is broken");
        }
        if (number == book->refused_at) {
            return exact::fail(failure_code::write, decoded, "is refused");
        }
        book->handed_on.push_back(number);
        decoded.clear();
        return {};
    }
};

std::vector<int> numbers_to(int end) {
    std::vector<int> numbers;
    for (int number = 0; number < end; ++number) {
        numbers.push_back(number);
    }
    return numbers;
}

// Sends so many windows through; then reading fails if `end` is a failure.
std::string send(unsigned workers, ledger& book, int windows, int broken_from = 1000,
                 bool cannot_be_read = false) {
    worker_pool pool(workers);
    ordered_windows<numbered_window> line(pool.for_bytes(much), [&book] {
        ++book.made;
        return numbered_window{&book};
    });
    const auto text = [](const result<void>& ended) { return ended ? std::string() : ended.error().text(); };
    for (int number = 0; number < windows; ++number) {
        numbered_window& window = line.current();
        window.number = number;
        window.broken_from = broken_from;
        book.most_filled = std::max(book.most_filled, ++book.filled);
        if (const auto begun = line.begin_current(); !begun) {
            return text(begun);
        }
    }
    return cannot_be_read
               ? text(line.finish_with({failure_code::source_read, "source", "cannot be read", std::nullopt}))
               : text(line.finish());
}

}  // namespace

TEST(ordered_windows, are_handed_on_in_their_order_however_long_each_takes) {
    for (const unsigned workers : {1u, 2u, 4u, 64u}) {
        ledger book;
        EXPECT_EQ(send(workers, book, 150), "") << workers;
        EXPECT_EQ(book.handed_on, numbers_to(150)) << workers;
        EXPECT_EQ(book.filled, 0);
    }
}

TEST(ordered_windows, are_one_without_workers_and_two_more_than_there_are_workers_with_them) {
    for (const unsigned workers : {1u, 2u, 4u}) {
        ledger book;
        EXPECT_EQ(send(workers, book, 50), "");
        const int most = workers == 1 ? 1 : static_cast<int>(workers) + 2;
        EXPECT_EQ(book.made, most);
        EXPECT_EQ(book.most_filled, most);
    }
}

TEST(ordered_windows, are_made_only_as_they_are_needed) {
    ledger book;
    EXPECT_EQ(send(64, book, 3), "");
    EXPECT_EQ(book.made, 3);
    ledger none;
    EXPECT_EQ(send(64, none, 0), "");
    EXPECT_EQ(none.made, 0);
}

TEST(ordered_windows, the_first_that_is_broken_ends_the_stream_at_its_place) {
    for (const unsigned workers : {1u, 2u, 4u, 64u}) {
        for (const int broken : {0, 1, 6, 7, 39}) {
            ledger book;
            EXPECT_EQ(send(workers, book, 40, broken), std::to_string(broken) + ": is broken") << workers;
            EXPECT_EQ(book.handed_on, numbers_to(broken)) << workers;
        }
    }
}

TEST(ordered_windows, a_receiver_that_takes_no_more_ends_the_stream_at_its_place) {
    for (const unsigned workers : {1u, 2u, 64u}) {
        ledger book;
        book.refused_at = 5;
        EXPECT_EQ(send(workers, book, 40, 6), "5: is refused") << workers;
        EXPECT_EQ(book.handed_on, numbers_to(5)) << workers;
    }
}

TEST(ordered_windows, what_cannot_be_read_counts_after_all_that_could) {
    for (const unsigned workers : {1u, 2u, 4u, 64u}) {
        ledger book;
        EXPECT_EQ(send(workers, book, 3, 1000, true), "source: cannot be read") << workers;
        EXPECT_EQ(book.handed_on, numbers_to(3)) << workers;
        ledger broken;
        EXPECT_EQ(send(workers, broken, 3, 2, true), "2: is broken") << workers;
        EXPECT_EQ(broken.handed_on, numbers_to(2)) << workers;
    }
}

}  // namespace quarry::test
