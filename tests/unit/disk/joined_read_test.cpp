#include "disk/drive_source.h"
#include "disk/raw_disk_io.h"
#include "support/byte_writer.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <array>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

class joined_read : public ::testing::Test {
  protected:
    void SetUp() override { write_file(m_path, pattern(4096, 7)); }

    temp_dir m_dir;
    std::filesystem::path m_path = m_dir.path() / "image";
    bytes m_buffer = bytes(8192, 0xEE);
};

TEST_F(joined_read, gives_every_byte_of_a_range_inside_the_source) {
    RAW_DISK_IO disk(m_path.wstring(), false, 0);
    ASSERT_TRUE(disk.read_whole(m_buffer.data(), 3000, 1096));
    const bytes all = pattern(4096, 7);
    EXPECT_EQ(bytes(m_buffer.begin(), m_buffer.begin() + 3000), bytes(all.begin() + 1096, all.end()));
    EXPECT_EQ(m_buffer[3000], 0xEE);
}

TEST_F(joined_read, refuses_a_range_that_reaches_past_the_end) {
    RAW_DISK_IO disk(m_path.wstring(), false, 0);
    EXPECT_FALSE(disk.read_whole(m_buffer.data(), 3001, 1096));
    EXPECT_FALSE(disk.read_whole(m_buffer.data(), 1, 4096));
    EXPECT_FALSE(disk.read_whole(m_buffer.data(), 4097, 0));
    EXPECT_FALSE(disk.read_whole(m_buffer.data(), ~std::uint64_t{0}, 1));
    EXPECT_TRUE(disk.read_whole(m_buffer.data(), 1, 4095));
}

TEST_F(joined_read, refuses_what_the_source_no_longer_holds) {
    RAW_DISK_IO disk(m_path.wstring(), false, 0);
    std::filesystem::resize_file(m_path, 2000);
    EXPECT_FALSE(disk.read_whole(m_buffer.data(), 2001, 0));
    EXPECT_TRUE(disk.read_whole(m_buffer.data(), 2000, 0));
    std::uint64_t length = 2001;
    EXPECT_TRUE(disk.read(m_buffer.data(), length, 0)) << "a small read takes zeros for what is gone";
}

TEST_F(joined_read, refuses_a_null_buffer_a_length_of_zero_and_an_unusable_source) {
    RAW_DISK_IO disk(m_path.wstring(), false, 0);
    EXPECT_FALSE(disk.read_whole(nullptr, 16, 0));
    EXPECT_FALSE(disk.read_whole(m_buffer.data(), 0, 0));
    RAW_DISK_IO missing((m_dir.path() / "none").wstring(), false, 0);
    EXPECT_FALSE(missing.read_whole(m_buffer.data(), 16, 0));
    RAW_DISK_IO refused(m_path.wstring(), false, 5);
    EXPECT_FALSE(refused.read_whole(m_buffer.data(), 16, 0));
}

TEST_F(joined_read, takes_only_whole_sectors_of_a_drive) {
    const std::string devices = device_directory();
    device_directory() = m_dir.path().string();
    write_file(m_dir.path() / "sdb", pattern(4096, 7));
    RAW_DISK_IO drive(1, false, false, 3);
    device_directory() = devices;
    EXPECT_TRUE(drive.read_whole(m_buffer.data(), 1024, 512));
    EXPECT_FALSE(drive.read_whole(m_buffer.data(), 1024, 100));
    EXPECT_FALSE(drive.read_whole(m_buffer.data(), 1000, 512));
    drive.m_locked = true;
    EXPECT_FALSE(drive.read_whole(m_buffer.data(), 1024, 512));
}

}  // namespace
}  // namespace quarry::test
