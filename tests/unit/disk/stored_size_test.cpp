#include "disk/stored_size.h"

#include "disk/raw_disk_io.h"
#include "support/requirements.h"
#include "support/sparse_file.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

constexpr std::uint64_t mebibyte = 1ULL << 20;
constexpr std::uint64_t tebibyte = 1ULL << 40;

TEST(stored_bytes, are_those_that_are_allocated) {
    EXPECT_EQ(stored_bytes_of(tebibyte, 4 * mebibyte, false), 4 * mebibyte);
    EXPECT_EQ(stored_bytes_of(tebibyte, tebibyte, false), tebibyte);
    EXPECT_EQ(stored_bytes_of(1000, 4096, false), 1000u) << "the last block reaches over the end";
}

TEST(stored_bytes, count_eight_times_and_64_mebibytes_at_least_where_they_may_be_compressed) {
    EXPECT_EQ(stored_bytes_of(tebibyte, 4 * mebibyte, true), 64 * mebibyte);
    EXPECT_EQ(stored_bytes_of(tebibyte, 100 * mebibyte, true), 800 * mebibyte);
    EXPECT_EQ(stored_bytes_of(tebibyte, tebibyte / 8 + 1, true), tebibyte);
    EXPECT_EQ(stored_bytes_of(10 * mebibyte, 512, true), 10 * mebibyte);
}

TEST(stored_bytes, are_all_bytes_where_nothing_is_said_to_be_allocated) {
    EXPECT_EQ(stored_bytes_of(tebibyte, 0, true), tebibyte);
    EXPECT_EQ(stored_bytes_of(0, 0, false), 0u);
}

class stored_size : public testing::Test {
  protected:
    void SetUp() override {
        QUARRY_NEEDS(keeps_holes(m_dir.path(), tebibyte), "the file system keeps no holes of a tebibyte");
        write_sparse_file(m_dir / "sparse", {{mebibyte, bytes(8192, 1)}, {3 * mebibyte, bytes(4096, 2)}},
                          tebibyte);
    }
    temp_dir m_dir;
};

TEST_F(stored_size, of_a_file_with_holes_is_little) {
    const RAW_DISK_IO disk((m_dir / "sparse").wstring(), false, 0);
    EXPECT_EQ(disk.size(), tebibyte);
    EXPECT_GE(disk.content_size(), 32 * mebibyte + 12288);
    EXPECT_LE(disk.content_size(), (32 + 64) * mebibyte);
}

TEST_F(stored_size, of_a_file_without_holes_is_its_size) {
    write_file(m_dir / "whole", bytes(50'000, 7));
    EXPECT_EQ(RAW_DISK_IO((m_dir / "whole").wstring(), false, 0).content_size(), 50'000u);
}

TEST_F(stored_size, has_its_data_in_stretches) {
    const int descriptor = ::open((m_dir / "sparse").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_NE(descriptor, -1);
    for (const std::uint64_t position : {std::uint64_t{0}, mebibyte - 1}) {
        const auto found = next_data(descriptor, position);
        ASSERT_TRUE(found);
        EXPECT_EQ(found->begin, mebibyte);
        EXPECT_EQ(found->end, mebibyte + 8192);
    }
    const auto within = next_data(descriptor, mebibyte + 4096);
    ASSERT_TRUE(within);
    EXPECT_EQ(within->begin, mebibyte + 4096);
    EXPECT_EQ(within->end, mebibyte + 8192);
    const auto last = next_data(descriptor, mebibyte + 8192);
    ASSERT_TRUE(last);
    EXPECT_EQ(last->begin, 3 * mebibyte);
    EXPECT_FALSE(next_data(descriptor, 3 * mebibyte + 4096));
    ::close(descriptor);
}

TEST(next_data, is_all_that_follows_where_nobody_can_tell) {
    const auto found = next_data(-1, 700);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->begin, 700u);
    EXPECT_EQ(found->end, ~std::uint64_t{0});
    EXPECT_EQ(next_data(-1, ~std::uint64_t{0} - 5)->begin, ~std::uint64_t{0} - 5);
}

}  // namespace
}  // namespace quarry::test
