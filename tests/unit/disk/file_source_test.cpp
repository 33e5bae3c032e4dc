#include "disk/file_source.h"

#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry::test {

namespace {

int error_of(const std::filesystem::path& path) {
    int error = 0;
    return file_source::open(path.string(), error) ? 0 : error;
}

std::unique_ptr<file_source> opened(const std::filesystem::path& path) {
    int error = 0;
    return file_source::open(path.string(), error);
}

}  // namespace

TEST(file_source, takes_announcements_of_any_place_and_gives_from_memory_what_a_read_gives) {
    const temp_dir dir;
    write_file(dir / "image", to_bytes("0123456789"));
    const auto source = opened(dir / "image");
    ASSERT_TRUE(source);
    source->announce(3, 4);
    source->announce(9, 0xFFFFFFFFFFFFFFFF);
    source->announce(10, 1);
    source->announce(0xFFFFFFFFFFFFFFFF, 0xFFFFFFFFFFFFFFFF);
    bytes buffer(4);
    // Not every file system says what is in memory.
    if (source->read_from_memory(buffer, 3)) {
        EXPECT_EQ(buffer, to_bytes("3456"));
    }
    EXPECT_FALSE(source->read_from_memory(buffer, 7));
    EXPECT_FALSE(source->read_from_memory(buffer, 0xFFFFFFFFFFFFFFFF));
    EXPECT_EQ(source->read(buffer, 3).bytes, 4u);
}

TEST(file_source, reads_bytes_at_any_place) {
    const temp_dir dir;
    write_file(dir / "image", to_bytes("0123456789"));
    const auto source = opened(dir / "image");
    ASSERT_TRUE(source);
    EXPECT_EQ(source->size(), 10u);
    EXPECT_EQ(source->sector_size(), 512u);
    bytes buffer(4);
    const read_outcome read = source->read(buffer, 3);
    EXPECT_EQ(read.bytes, 4u);
    EXPECT_EQ(read.error, 0);
    EXPECT_EQ(buffer, to_bytes("3456"));
}

TEST(file_source, reports_where_it_ends) {
    const temp_dir dir;
    write_file(dir / "image", to_bytes("0123456789"));
    const auto source = opened(dir / "image");
    bytes buffer(4);
    EXPECT_EQ(source->read(buffer, 8).bytes, 2u);
    EXPECT_EQ(source->read(buffer, 8).error, 0);
    for (const std::uint64_t offset : {std::uint64_t{10}, std::uint64_t{11}, ~std::uint64_t{0}}) {
        EXPECT_EQ(source->read(buffer, offset).bytes, 0u);
        EXPECT_EQ(source->read(buffer, offset).error, 0);
    }
}

TEST(file_source, reports_that_a_file_became_shorter) {
    const temp_dir dir;
    write_file(dir / "image", bytes(10000));
    const auto source = opened(dir / "image");
    EXPECT_FALSE(source->has_changed());
    std::filesystem::resize_file(dir / "image", 6000);
    bytes buffer(10000);
    EXPECT_EQ(source->read(buffer, 0).bytes, 6000u);
    EXPECT_EQ(source->read(buffer, 0).error, 0);
    EXPECT_TRUE(source->has_changed());
}

TEST(file_source, reports_that_a_file_was_written) {
    const temp_dir dir;
    write_file(dir / "image", bytes(100));
    const auto source = opened(dir / "image");
    const auto time = std::filesystem::last_write_time(dir / "image");
    std::filesystem::last_write_time(dir / "image", time + std::chrono::nanoseconds(100));
    EXPECT_TRUE(source->has_changed());
    std::filesystem::last_write_time(dir / "image", time);
    EXPECT_FALSE(source->has_changed());
}

TEST(file_source, has_content_where_blocks_are_allocated) {
    const temp_dir dir;
    write_file(dir / "image", bytes(1, 7));
    std::filesystem::resize_file(dir / "image", std::uintmax_t{1} << 30);
    const auto source = opened(dir / "image");
    EXPECT_EQ(source->size(), std::uint64_t{1} << 30);
    EXPECT_LT(source->content_size(), std::uint64_t{1} << 20);
}

TEST(file_source, is_a_regular_file_or_a_block_device) {
    const temp_dir dir;
    EXPECT_EQ(error_of(dir / "nothing"), ENOENT);
    EXPECT_EQ(error_of(dir / ""), EISDIR);
    ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(error_of(dir / "fifo"), ESPIPE);
    EXPECT_EQ(error_of("/dev/null"), ENOTBLK);
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = (dir / "s").string();
    ASSERT_LT(path.size(), sizeof address.sun_path);
    path.copy(address.sun_path, path.size());
    ASSERT_EQ(::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(error_of(dir / "s"), ENXIO);
    ::close(descriptor);
}

}  // namespace quarry::test
