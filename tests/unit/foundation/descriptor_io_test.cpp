#include "foundation/descriptor_io.h"

#include <array>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

TEST(uninterrupted, repeats_a_call_until_no_signal_interrupts_it) {
    int calls = 0;
    const int answer = uninterrupted([&] {
        errno = EINTR;
        return ++calls < 4 ? -1 : 7;
    });
    EXPECT_EQ(answer, 7);
    EXPECT_EQ(calls, 4);
}

TEST(uninterrupted, does_not_repeat_what_failed_for_another_reason) {
    int calls = 0;
    const int answer = uninterrupted([&] {
        errno = EIO;
        ++calls;
        return -1;
    });
    EXPECT_EQ(answer, -1);
    EXPECT_EQ(calls, 1);
}

TEST(write_whole, writes_all_bytes_and_nothing_for_none) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    EXPECT_EQ(write_whole(ends[1], "abc", 0), 0);
    EXPECT_EQ(write_whole(ends[1], "abc", 3), 0);
    std::array<char, 8> got{};
    EXPECT_EQ(::read(ends[0], got.data(), got.size()), 3);
    EXPECT_EQ(std::string(got.data()), "abc");
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST(write_whole, gives_the_error_of_the_call_that_failed) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    // The end that is read from takes no bytes.
    EXPECT_EQ(write_whole(ends[0], "abc", 3), EBADF);
    ::close(ends[0]);
    ::close(ends[1]);
}

}  // namespace
}  // namespace quarry::test
