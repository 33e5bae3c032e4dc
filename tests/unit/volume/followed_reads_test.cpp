#include "volume/followed_reads.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

// How many reads of a length are made.
std::uint64_t reads_of(std::uint64_t bytes) {
    followed_reads reads;
    std::uint64_t made = 0;
    while (reads.may_go_on()) {
        reads.count(bytes);
        ++made;
    }
    return made;
}

TEST(followed_reads, end_with_64_mib) {
    EXPECT_EQ(reads_of(1024), 65536u);
    EXPECT_EQ(reads_of(4096), 16384u);
}

TEST(followed_reads, are_4096_however_long_records_are) {
    EXPECT_EQ(reads_of(16384), 4096u);
    EXPECT_EQ(reads_of(512 * 1024), 4096u);
}

TEST(followed_reads, end_with_32_mib_of_attributes) {
    followed_reads reads;
    reads.count_attribute((32 << 20) - 1);
    EXPECT_TRUE(reads.may_go_on());
    reads.count_attribute(1);
    EXPECT_FALSE(reads.may_go_on());
}

}  // namespace
}  // namespace quarry::test
