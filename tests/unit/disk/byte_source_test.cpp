#include "disk/byte_source.h"

#include "support/memory_source.h"

#include <cerrno>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

bytes read_all(byte_source& source, std::size_t length, std::uint64_t offset) {
    bytes buffer(length, 0xEE);
    static_cast<void>(read_with_zeros(source, buffer, offset));
    return buffer;
}

TEST(read_with_zeros, gives_the_bytes_of_the_source) {
    memory_source source(to_bytes("0123456789"));
    EXPECT_EQ(read_all(source, 4, 3), to_bytes("3456"));
    EXPECT_EQ(source.reads(), 1u);
}

TEST(read_with_zeros, gives_zeros_after_the_end_of_the_source) {
    memory_source source(to_bytes("0123456789"));
    EXPECT_EQ(read_all(source, 4, 8), (bytes{'8', '9', 0, 0}));
    EXPECT_EQ(read_all(source, 2, 10), (bytes{0, 0}));
    EXPECT_EQ(read_all(source, 2, 0xFFFFFFFFFFFFFFFF), (bytes{0, 0}));
}

TEST(read_with_zeros, after_an_error_of_unknown_reach_all_the_rest_is_zeros) {
    memory_source source(to_bytes("0123456789"));
    source.unreadable(4, 2);
    EXPECT_EQ(read_all(source, 8, 1), (bytes{'1', '2', '3', 0, 0, 0, 0, 0}));
    EXPECT_EQ(source.reads(), 1u);
}

TEST(read_with_zeros, after_a_loss_of_known_reach_the_source_is_read_on) {
    memory_source source(to_bytes("0123456789"));
    source.unreadable(2, 2).unreadable(5, 1).with_known_losses();
    EXPECT_EQ(read_all(source, 7, 1), (bytes{'1', 0, 0, '4', 0, '6', '7'}));
    EXPECT_EQ(read_all(source, 3, 1), (bytes{'1', 0, 0})) << "the loss ends with the buffer";
    EXPECT_EQ(read_all(source, 2, 3), (bytes{0, '4'}));
}

TEST(read_with_zeros, says_what_came_before_the_first_loss) {
    memory_source source(to_bytes("0123456789"));
    source.unreadable(4, 2).with_known_losses();
    bytes buffer(8);
    const read_outcome outcome = read_with_zeros(source, buffer, 1);
    EXPECT_EQ(outcome.bytes, 3u);
    EXPECT_EQ(outcome.error, EIO);
    const read_outcome whole = read_with_zeros(source, buffer, 0);
    EXPECT_EQ(whole.bytes, 4u);
    const read_outcome nothing = read_with_zeros(source, buffer, 4);
    EXPECT_EQ(nothing.bytes, 0u);
    EXPECT_EQ(nothing.error, EIO);
}

}  // namespace
}  // namespace quarry::test
