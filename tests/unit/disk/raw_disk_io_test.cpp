#include "disk/raw_disk_io.h"

#include "support/byte_writer.h"
#include "support/device_files.h"
#include "support/disk_builder.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

constexpr std::uint8_t untouched = 0xEE;

// What a read gave, in a buffer that was full of 0xEE.
struct answer {
    bool result = false;
    std::uint64_t length = 0;
    bytes content;
};

answer read(RAW_DISK_IO& disk, std::uint64_t length, std::uint64_t offset) {
    answer given;
    given.content.assign(length, untouched);
    given.length = length;
    given.result = disk.read(given.content.data(), given.length, offset);
    return given;
}

RAW_DISK_IO open_image(const std::filesystem::path& path) {
    return RAW_DISK_IO(path.wstring(), false, raw_kind_path);
}

RAW_DISK_IO open_drive(int number) {
    return RAW_DISK_IO(number, false, false, raw_kind_drive);
}

// Puts a descriptor whose reads all fail in place of the one that is open.
void break_descriptor(RAW_DISK_IO& disk, const std::filesystem::path& directory) {
    const int failing = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_NE(failing, -1);
    ASSERT_EQ(::dup2(failing, disk.m_fd), disk.m_fd);
    ::close(failing);
}

TEST(raw_disk_io_path, reads_bytes_at_an_offset) {
    const temp_dir dir;
    write_file(dir / "image", to_bytes("0123456789"));
    RAW_DISK_IO disk = open_image(dir / "image");
    EXPECT_TRUE(disk.is_ok());
    EXPECT_EQ(disk.size(), 10u);
    EXPECT_EQ(disk.bytes_per_sector(), 512u);
    EXPECT_EQ(disk.m_kind, 0u);
    EXPECT_EQ(disk.m_drive_number, -1);
    EXPECT_EQ(disk.m_path, (dir / "image").wstring());
    EXPECT_EQ(disk.m_path_utf8, (dir / "image").string());
    const answer given = read(disk, 4, 3);
    EXPECT_TRUE(given.result);
    EXPECT_EQ(given.length, 4u);
    EXPECT_EQ(given.content, to_bytes("3456"));
}

TEST(raw_disk_io_path, a_read_across_the_end_is_cut_there_and_has_zeros_after) {
    const temp_dir dir;
    write_file(dir / "image", to_bytes("0123456789"));
    RAW_DISK_IO disk = open_image(dir / "image");
    const answer given = read(disk, 5, 9);
    EXPECT_TRUE(given.result);
    EXPECT_EQ(given.length, 1u);
    EXPECT_EQ(given.content, (bytes{'9', 0, 0, 0, 0}));
}

TEST(raw_disk_io_path, a_read_that_begins_at_the_end_or_after_it_fails) {
    const temp_dir dir;
    write_file(dir / "image", to_bytes("0123456789"));
    RAW_DISK_IO disk = open_image(dir / "image");
    EXPECT_TRUE(read(disk, 1, 9).result);
    EXPECT_FALSE(read(disk, 1, 10).result);
    EXPECT_FALSE(read(disk, 1, 11).result);
    EXPECT_FALSE(read(disk, 1, 0xFFFFFFFFFFFFFFFF).result);
}

TEST(raw_disk_io_path, a_read_of_nothing_or_to_nowhere_fails) {
    const temp_dir dir;
    write_file(dir / "image", to_bytes("0123456789"));
    RAW_DISK_IO disk = open_image(dir / "image");
    std::uint8_t byte = 0;
    std::uint64_t length = 0;
    EXPECT_FALSE(disk.read(&byte, length, 0));
    length = 1;
    EXPECT_FALSE(disk.read(nullptr, length, 0));
    EXPECT_TRUE(disk.read(&byte, length, 0));
}

TEST(raw_disk_io_path, images_of_no_bytes_and_of_odd_lengths_have_just_the_bytes_they_have) {
    const temp_dir dir;
    for (const std::size_t size : {0u, 1u, 511u, 513u}) {
        const bytes content = pattern(size);
        write_file(dir / "image", content);
        RAW_DISK_IO disk = open_image(dir / "image");
        EXPECT_TRUE(disk.is_ok());
        EXPECT_EQ(disk.size(), size);
        const answer given = read(disk, 1024, 0);
        EXPECT_EQ(given.result, size != 0);
        if (given.result) {
            EXPECT_EQ(given.length, size);
            EXPECT_EQ(given.content, concat({content, bytes(1024 - size)}));
        }
    }
}

TEST(raw_disk_io_path, a_path_that_cannot_be_opened_counts_as_an_empty_source) {
    const temp_dir dir;
    RAW_DISK_IO disk = open_image(dir / "missing");
    EXPECT_TRUE(disk.is_ok());
    EXPECT_EQ(disk.m_fd, -1);
    EXPECT_EQ(disk.m_kind, 0u);
    EXPECT_EQ(disk.size(), 0u);
    EXPECT_EQ(disk.bytes_per_sector(), 0u);
    EXPECT_FALSE(read(disk, 1, 0).result);
}

TEST(raw_disk_io_path, an_empty_path_leaves_the_object_unusable) {
    RAW_DISK_IO disk(std::wstring(), false, 0);
    EXPECT_FALSE(disk.is_ok());
    EXPECT_EQ(disk.m_kind, 8u);
    EXPECT_EQ(disk.m_origin_sectors, -1);
    EXPECT_EQ(disk.size(), 0u);
    EXPECT_FALSE(read(disk, 1, 0).result);
}

TEST(raw_disk_io_path, only_the_requested_kinds_0_to_3_open_a_path_and_all_become_kind_0) {
    const temp_dir dir;
    write_file(dir / "image", to_bytes("0123456789"));
    for (const std::uint32_t kind : {0u, 1u, 2u, 3u}) {
        RAW_DISK_IO disk((dir / "image").wstring(), false, kind);
        EXPECT_TRUE(disk.is_ok()) << kind;
        EXPECT_EQ(disk.m_kind, 0u) << kind;
        EXPECT_EQ(read(disk, 20, 0).length, 10u) << kind;
    }
    for (const std::uint32_t kind : {4u, 5u, 8u, 0xFFFFFFFFu}) {
        RAW_DISK_IO disk((dir / "image").wstring(), false, kind);
        EXPECT_FALSE(disk.is_ok()) << kind;
        EXPECT_EQ(disk.m_kind, 8u) << kind;
        EXPECT_EQ(disk.m_fd, -1) << kind;
    }
}

TEST(raw_disk_io_path, a_source_is_opened_for_reading_unless_writing_is_asked_for) {
    const temp_dir dir;
    write_file(dir / "image", to_bytes("0123456789"));
    const RAW_DISK_IO reader((dir / "image").wstring(), false, 0);
    EXPECT_FALSE(reader.m_writable);
    EXPECT_EQ(::fcntl(reader.m_fd, F_GETFL) & O_ACCMODE, O_RDONLY);
    const RAW_DISK_IO writer((dir / "image").wstring(), true, 0);
    EXPECT_TRUE(writer.m_writable);
    EXPECT_EQ(::fcntl(writer.m_fd, F_GETFL) & O_ACCMODE, O_RDWR);
}

TEST(raw_disk_io_path, a_name_beyond_ascii_reaches_the_system_as_utf_8) {
    const temp_dir dir;
    write_file(dir / "\xC3\xA4\xE2\x82\xAC", to_bytes("ab"));
    RAW_DISK_IO disk(dir.path().wstring() + L"/\u00E4\u20AC", false, 0);
    EXPECT_EQ(disk.size(), 2u);
}

TEST(raw_disk_io_path, a_letter_with_a_colon_is_the_name_of_a_file_like_any_other) {
    const temp_dir dir;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(dir.path());
    RAW_DISK_IO missing(L"c:", false, 0);
    EXPECT_EQ(missing.m_fd, -1);
    write_file(dir / "c:", to_bytes("abc"));
    RAW_DISK_IO present(L"c:", false, 0);
    std::filesystem::current_path(before);
    EXPECT_EQ(present.size(), 3u);
    EXPECT_EQ(read(present, 3, 0).content, to_bytes("abc"));
}

TEST(raw_disk_io_path, a_fifo_neither_blocks_nor_counts) {
    const temp_dir dir;
    ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
    RAW_DISK_IO disk = open_image(dir / "fifo");
    EXPECT_TRUE(disk.is_ok());
    EXPECT_EQ(disk.m_fd, -1);
    EXPECT_EQ(disk.size(), 0u);
}

TEST(raw_disk_io_path, a_directory_and_a_device_without_an_end_give_nothing) {
    const temp_dir dir;
    RAW_DISK_IO directory = open_image(dir.path());
    EXPECT_TRUE(directory.is_ok());
    EXPECT_FALSE(read(directory, 512, 0).result);
    RAW_DISK_IO zeros = open_image("/dev/zero");
    EXPECT_EQ(zeros.size(), 0u);
    EXPECT_FALSE(read(zeros, 512, 0).result);
}

// /proc/self/mem answers a seek to its end with an error.
TEST(raw_disk_io_path, a_source_that_does_not_know_its_end_has_no_bytes) {
    RAW_DISK_IO disk = open_image("/proc/self/mem");
    EXPECT_TRUE(disk.is_ok());
    EXPECT_NE(disk.m_fd, -1);
    EXPECT_EQ(disk.size(), 0u);
    EXPECT_FALSE(read(disk, 512, 0).result);
}

TEST(raw_disk_io_path, a_file_that_has_shrunk_reads_as_zeros_where_it_was) {
    const temp_dir dir;
    write_file(dir / "image", pattern(4096));
    RAW_DISK_IO disk = open_image(dir / "image");
    std::filesystem::resize_file(dir / "image", 1000);
    const answer given = read(disk, 4096, 0);
    EXPECT_TRUE(given.result);
    EXPECT_EQ(given.length, 4096u);
    bytes expected = pattern(4096);
    expected.resize(1000);
    expected.resize(4096);
    EXPECT_EQ(given.content, expected);
    EXPECT_EQ(read(disk, 100, 3000).content, bytes(100));
}

TEST(raw_disk_io_path, an_error_of_the_system_fails_the_read) {
    const temp_dir dir;
    write_file(dir / "image", pattern(4096));
    RAW_DISK_IO disk = open_image(dir / "image");
    break_descriptor(disk, dir.path());
    EXPECT_FALSE(read(disk, 512, 0).result);
}

TEST(raw_disk_io_path, offsets_beyond_4_gib_are_read_where_they_are) {
    const temp_dir dir;
    constexpr std::uint64_t five_gib = 0x140000000;
    disk_builder(five_gib / 512).put(0x110000000 / 512, to_bytes("here")).write_to(dir / "image");
    RAW_DISK_IO disk = open_image(dir / "image");
    EXPECT_EQ(disk.size(), five_gib);
    EXPECT_EQ(read(disk, 6, 0x110000000).content, (bytes{'h', 'e', 'r', 'e', 0, 0}));
    EXPECT_EQ(read(disk, 4, 0x10000000).content, bytes(4));
    EXPECT_EQ(read(disk, 16, five_gib - 1).length, 1u);
}

TEST(raw_disk_io_path, the_end_of_the_object_closes_the_descriptor) {
    const temp_dir dir;
    write_file(dir / "image", to_bytes("0123456789"));
    std::optional<RAW_DISK_IO> disk(std::in_place, (dir / "image").wstring(), false, 0u);
    const int descriptor = disk->m_fd;
    EXPECT_NE(::fcntl(descriptor, F_GETFD), -1);
    disk.reset();
    EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);
}

TEST(raw_disk_io_drive, drives_0_to_19_are_sda_to_sdt) {
    const device_files devices;
    write_file(devices.drive(0), to_bytes("first"));
    write_file(devices.drive(19), to_bytes("the last"));
    const RAW_DISK_IO first = open_drive(0);
    EXPECT_TRUE(first.is_ok());
    EXPECT_EQ(first.size(), 5u);
    EXPECT_EQ(first.m_drive_number, 0);
    EXPECT_EQ(first.m_kind, 3u);
    EXPECT_EQ(first.bytes_per_sector(), 512u);
    EXPECT_EQ(first.m_path_utf8, devices.drive(0).string());
    const RAW_DISK_IO last = open_drive(19);
    EXPECT_EQ(last.size(), 8u);
    EXPECT_EQ(last.m_path_utf8.substr(last.m_path_utf8.size() - 4), "/sdt");
}

TEST(raw_disk_io_drive, a_drive_is_opened_for_reading_unless_writing_is_asked_for) {
    const device_files devices;
    write_file(devices.drive(0), bytes(1024));
    const RAW_DISK_IO reader(0, false, false, raw_kind_drive);
    EXPECT_FALSE(reader.m_writable);
    EXPECT_EQ(::fcntl(reader.m_fd, F_GETFL) & O_ACCMODE, O_RDONLY);
    const RAW_DISK_IO writer(0, true, false, raw_kind_drive);
    EXPECT_TRUE(writer.m_writable);
    EXPECT_EQ(::fcntl(writer.m_fd, F_GETFL) & O_ACCMODE, O_RDWR);
}

TEST(raw_disk_io_drive, a_drive_that_cannot_be_opened_is_reported_with_its_error) {
    const device_files devices;
    ::testing::internal::CaptureStderr();
    const RAW_DISK_IO disk = open_drive(2);
    const std::string words = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(words, "prob opening " + devices.drive(2).string() + ", error 2\n");  // ENOENT
    EXPECT_FALSE(disk.is_ok());
    EXPECT_EQ(disk.m_drive_number, -1);
    EXPECT_EQ(disk.size(), 0u);
}

TEST(raw_disk_io_drive, numbers_from_20_on_have_no_device_and_are_refused_without_a_word) {
    const device_files devices;
    ::testing::internal::CaptureStderr();
    for (int number = 20; number <= 24; ++number) {
        write_file(devices.drive(number), to_bytes("there"));
        const RAW_DISK_IO disk = open_drive(number);
        EXPECT_FALSE(disk.is_ok()) << number;
        EXPECT_EQ(disk.m_fd, -1) << number;
        EXPECT_EQ(disk.m_kind, 3u) << number;
    }
    for (const int number : {25, 0x7FFFFFFF, -1, -0x7FFFFFFF - 1}) {
        const RAW_DISK_IO disk = open_drive(number);
        EXPECT_FALSE(disk.is_ok()) << number;
        EXPECT_EQ(disk.m_fd, -1) << number;
        EXPECT_EQ(disk.m_kind, 8u) << "no open is tried for " << number;
    }
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST(raw_disk_io_drive, a_drive_that_does_not_know_its_end_is_refused_without_a_message) {
    const device_files devices;
    std::filesystem::create_symlink("/proc/self/mem", devices.drive(0));
    ::testing::internal::CaptureStderr();
    const RAW_DISK_IO disk = open_drive(0);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_FALSE(disk.is_ok());
}

TEST(raw_disk_io_drive, kinds_other_than_3_open_nothing) {
    const device_files devices;
    write_file(devices.drive(0), pattern(1024));
    RAW_DISK_IO usable(0, false, false, 1);
    EXPECT_TRUE(usable.is_ok());
    EXPECT_EQ(usable.m_kind, 1u);
    EXPECT_EQ(usable.m_fd, -1);
    EXPECT_EQ(usable.size(), 0u);
    EXPECT_FALSE(read(usable, 512, 0).result);
    const RAW_DISK_IO kind_5(0, false, false, 5);
    EXPECT_FALSE(kind_5.is_ok());
    EXPECT_EQ(kind_5.m_kind, 5u);
    const RAW_DISK_IO suppressed(0, false, true, 3);
    EXPECT_FALSE(suppressed.is_ok());
    EXPECT_EQ(suppressed.m_kind, 3u);
    EXPECT_EQ(suppressed.m_fd, -1);
}

TEST(raw_disk_io_drive, a_request_inside_of_two_sectors_gives_its_bytes_only) {
    const device_files devices;
    const bytes content = pattern(2048);
    write_file(devices.drive(0), content);
    RAW_DISK_IO disk = open_drive(0);
    const answer given = read(disk, 100, 510);
    EXPECT_TRUE(given.result);
    EXPECT_EQ(given.length, 100u);
    EXPECT_EQ(given.content, bytes(content.begin() + 510, content.begin() + 610));
}

TEST(raw_disk_io_drive, requests_of_every_length_and_start_give_the_bytes_of_the_drive) {
    const device_files devices;
    const bytes content = pattern(4096);
    write_file(devices.drive(0), content);
    RAW_DISK_IO disk = open_drive(0);
    for (const std::size_t start : {0u, 1u, 511u, 512u, 513u, 1024u}) {
        for (const std::size_t length : {1u, 2u, 511u, 512u, 513u, 1023u, 1024u, 2048u}) {
            const auto first = content.begin() + static_cast<std::ptrdiff_t>(start);
            EXPECT_EQ(read(disk, length, start).content,
                      bytes(first, first + static_cast<std::ptrdiff_t>(length)))
                << length << " bytes at " << start;
        }
    }
}

TEST(raw_disk_io_drive, a_read_across_the_end_keeps_its_length_and_has_zeros_after) {
    const device_files devices;
    write_file(devices.drive(0), bytes(1024, 0x11));
    RAW_DISK_IO disk = open_drive(0);
    const answer in_part = read(disk, 700, 1000);
    EXPECT_TRUE(in_part.result);
    EXPECT_EQ(in_part.length, 700u);
    EXPECT_EQ(in_part.content, concat({bytes(24, 0x11), bytes(676)}));
    const answer whole_sectors = read(disk, 1024, 512);
    EXPECT_TRUE(whole_sectors.result);
    EXPECT_EQ(whole_sectors.length, 1024u);
    EXPECT_EQ(whole_sectors.content, concat({bytes(512, 0x11), bytes(512)}));
    EXPECT_FALSE(read(disk, 1, 1024).result);
}

TEST(raw_disk_io_drive, an_error_of_a_drive_reads_as_zeros_so_that_one_bad_sector_does_not_end_the_work) {
    const device_files devices;
    write_file(devices.drive(0), bytes(1024, 0x11));
    RAW_DISK_IO disk = open_drive(0);
    break_descriptor(disk, devices.drive(0).parent_path());
    const answer whole_sectors = read(disk, 512, 0);
    EXPECT_TRUE(whole_sectors.result);
    EXPECT_EQ(whole_sectors.content, bytes(512));
    const answer in_part = read(disk, 100, 10);
    EXPECT_TRUE(in_part.result);
    EXPECT_EQ(in_part.content, bytes(100));
}

TEST(raw_disk_io_drive, a_drive_that_has_nothing_to_give_fails_the_read) {
    const device_files devices;
    write_file(devices.drive(0), bytes(1024, 0x11));
    RAW_DISK_IO disk = open_drive(0);
    std::filesystem::resize_file(devices.drive(0), 0);
    EXPECT_FALSE(read(disk, 512, 0).result);
    EXPECT_FALSE(read(disk, 100, 10).result);
}

TEST(raw_disk_io_drive, a_locked_drive_is_not_read) {
    const device_files devices;
    write_file(devices.drive(0), bytes(1024, 0x11));
    RAW_DISK_IO disk = open_drive(0);
    EXPECT_TRUE(read(disk, 512, 0).result);
    disk.m_locked = true;
    EXPECT_FALSE(read(disk, 512, 0).result);
}

TEST(raw_disk_io_drive, offsets_beyond_4_gib_are_read_where_they_are) {
    const device_files devices;
    constexpr std::uint64_t five_gib = 0x140000000;
    disk_builder(five_gib / 512).put(0x110000000 / 512, to_bytes("here")).write_to(devices.drive(3));
    RAW_DISK_IO disk = open_drive(3);
    EXPECT_EQ(disk.size(), five_gib);
    EXPECT_EQ(read(disk, 4, 0x110000000).content, to_bytes("here"));
    EXPECT_EQ(read(disk, 3, 0x110000001).content, to_bytes("ere"));
}

TEST(raw_disk_io_origin, the_upper_four_bits_of_each_word_of_the_origin_are_dropped) {
    RAW_DISK_IO disk(std::wstring(), false, 0);
    EXPECT_EQ(disk.origin(), 0u);
    disk.set_origin(0, 0x00100000, 0);
    EXPECT_EQ(disk.m_origin_sectors, 0);
    EXPECT_EQ(disk.origin(), 0x00100000u);
    disk.set_origin(0, 0x12345678, 0x9ABCDEF0);
    EXPECT_EQ(disk.origin(), 0x0ABCDEF002345678u);
    disk.set_origin(0, 0xFFFFFFFF, 0xFFFFFFFF);
    EXPECT_EQ(disk.origin(), 0x0FFFFFFF0FFFFFFFu);
}

TEST(raw_disk_io_origin, only_a_virtual_disk_reports_a_volume_of_its_own) {
    const temp_dir dir;
    disk_builder(4096).table(0, {{0x07, 2048, 1000}}).write_to(dir / "image");
    EXPECT_EQ(open_image(dir / "image").virtual_disk_offset(), 0u);
}

}  // namespace
}  // namespace quarry::test
