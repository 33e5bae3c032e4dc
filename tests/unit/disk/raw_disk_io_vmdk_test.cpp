#include "disk/raw_disk_io.h"
#include "disk/vmdk_disk.h"
#include "disk/volume_detection.h"
#include "support/disk_builder.h"
#include "support/temp_dir.h"
#include "support/vmdk_builder.h"
#include "support/volume_builder.h"

#include <sstream>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

class virtual_disk_io : public ::testing::Test {
  protected:
    std::wstring write(const std::string& name, const vmdk_builder& file) {
        file.write(m_dir / name);
        return (m_dir / name).wstring();
    }

    // A base of 64 grains with a snapshot that has twice as many.
    std::vector<std::wstring> grown_chain() {
        vmdk_builder base;
        base.put(63, pattern(4096, 1));
        vmdk_builder snapshot;
        snapshot.cid = "c0000001";
        snapshot.parent_cid = "c0000000";
        snapshot.grains = 128;
        snapshot.put(64, pattern(4096, 2));
        return {write("snapshot", snapshot), write("base", base)};
    }

    temp_dir m_dir;
};

TEST_F(virtual_disk_io, a_chain_is_a_source_of_the_bases_name_and_size) {
    RAW_DISK_IO disk(grown_chain(), false, false);
    ASSERT_TRUE(disk.is_ok());
    EXPECT_EQ(disk.m_kind, raw_kind_virtual_disk);
    EXPECT_EQ(disk.m_path_utf8, (m_dir / "base").string());
    EXPECT_EQ(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(disk.m_fd)), m_dir / "base");
    EXPECT_EQ(disk.size(), 64u * 4096u) << "a snapshot that grew the disk is cut to the size of the base";
    EXPECT_EQ(disk.bytes_per_sector(), 512u);
    EXPECT_FALSE(disk.m_writable);
}

TEST_F(virtual_disk_io, counts_for_what_its_files_hold_and_32_mebibytes_whatever_size_it_claims) {
    constexpr std::uint64_t allowance = 32 * 1024 * 1024;
    EXPECT_EQ(RAW_DISK_IO(grown_chain(), false, false).content_size(), 64u * 4096u) << "it is no larger";
    const std::uint64_t most_sectors = 0xFFFFFFFFFFFFFFFF / 512;
    for (const std::uint64_t sectors : {std::uint64_t{0x100000}, std::uint64_t{1} << 40, most_sectors}) {
        vmdk_builder base;
        base.force(vmdk_builder::at_capacity, 8, sectors);
        vmdk_builder snapshot;
        snapshot.cid = "c0000001";
        snapshot.parent_cid = "c0000000";
        snapshot.put(0, pattern(4096, 1));
        RAW_DISK_IO disk({write("base", base), write("snapshot", snapshot)}, false, false);
        EXPECT_EQ(disk.size(), sectors * 512);
        EXPECT_EQ(disk.content_size(), base.build().size() + snapshot.build().size() + allowance);
    }
    EXPECT_EQ(RAW_DISK_IO(std::vector<std::wstring>{}, false, false).content_size(), 0u);
}

TEST_F(virtual_disk_io, reads_go_to_the_chain) {
    RAW_DISK_IO disk(grown_chain(), false, false);
    bytes buffer(8192, 0xEE);
    std::uint64_t length = 4096;
    EXPECT_TRUE(disk.read(buffer.data(), length, 63 * 4096));
    EXPECT_EQ(length, 4096u);
    buffer.resize(4096);
    EXPECT_EQ(buffer, pattern(4096, 1));
    EXPECT_TRUE(disk.read(buffer.data(), length, 0));
    EXPECT_EQ(buffer, bytes(4096));
}

TEST_F(virtual_disk_io, a_read_over_the_end_is_not_cut_and_one_from_the_end_on_fails) {
    RAW_DISK_IO disk(grown_chain(), false, false);
    bytes buffer(8192, 0xEE);
    std::uint64_t length = 8192;
    EXPECT_TRUE(disk.read(buffer.data(), length, 63 * 4096));
    EXPECT_EQ(length, 8192u);
    EXPECT_EQ(buffer, concat({pattern(4096, 1), pattern(4096, 2)}));
    EXPECT_FALSE(disk.read(buffer.data(), length, 64 * 4096));
    length = 0;
    EXPECT_FALSE(disk.read(buffer.data(), length, 0));
    length = 1;
    EXPECT_FALSE(disk.read(nullptr, length, 0));
}

TEST_F(virtual_disk_io, a_joined_read_stays_inside_of_the_disk) {
    RAW_DISK_IO disk(grown_chain(), false, false);
    bytes buffer(8192, 0xEE);
    EXPECT_TRUE(disk.read_whole(buffer.data(), 8192, 62 * 4096));
    EXPECT_EQ(buffer, concat({bytes(4096), pattern(4096, 1)}));
    EXPECT_FALSE(disk.read_whole(buffer.data(), 8192, 63 * 4096));
    EXPECT_FALSE(disk.read_whole(buffer.data(), 0, 0));
}

TEST_F(virtual_disk_io, a_joined_read_that_a_file_cannot_serve_is_left_to_the_small_reads) {
    RAW_DISK_IO disk(grown_chain(), false, false);
    std::filesystem::resize_file(m_dir / "base", 2048);
    bytes buffer(4096, 0xEE);
    EXPECT_FALSE(disk.read_whole(buffer.data(), 4096, 63 * 4096));
    std::uint64_t length = 4096;
    EXPECT_TRUE(disk.read(buffer.data(), length, 63 * 4096));
    EXPECT_EQ(buffer, bytes(4096));
}

TEST_F(virtual_disk_io, files_that_make_no_chain_leave_the_object_unusable) {
    const std::vector<std::wstring> chain = grown_chain();
    for (const std::vector<std::wstring>& list :
         {std::vector<std::wstring>{}, {chain[0]}, {chain[1], (m_dir / "absent").wstring()}}) {
        RAW_DISK_IO disk(list, false, false);
        EXPECT_FALSE(disk.is_ok());
        EXPECT_EQ(disk.m_kind, raw_kind_virtual_disk);
        EXPECT_EQ(disk.size(), 0u);
        EXPECT_EQ(disk.virtual_disk_offset(), 0u);
        std::uint8_t byte = 0;
        std::uint64_t length = 1;
        EXPECT_FALSE(disk.read(&byte, length, 0));
        EXPECT_FALSE(disk.read_whole(&byte, 1, 0));
    }
}

TEST_F(virtual_disk_io, a_check_only_opens_nothing_and_keeps_the_write_flag) {
    RAW_DISK_IO disk(grown_chain(), true, true);
    EXPECT_FALSE(disk.is_ok());
    EXPECT_EQ(disk.m_fd, -1);
    EXPECT_EQ(disk.m_bytes, nullptr);
    EXPECT_TRUE(disk.m_writable);
    EXPECT_EQ(disk.m_kind, raw_kind_virtual_disk);
}

// A virtual disk of 64 MiB with a table in its first sector and what else is put.
vmdk_builder disk_with(const std::vector<table_slot>& slots) {
    vmdk_builder file;
    file.grains = 16384;
    file.entries_per_table = 512;
    file.put(0, disk_builder(1).table(0, slots).image());
    return file;
}

TEST_F(virtual_disk_io, the_offset_of_the_first_partition_is_reported_ntfs_or_not) {
    RAW_DISK_IO disk(std::vector<std::wstring>{write("disk", disk_with({{0x0C, 2048, 100}, {7, 4096, 100}}))},
                     false, false);
    EXPECT_EQ(disk.virtual_disk_offset(), 2048u * 512u);
}

TEST_F(virtual_disk_io, of_several_ntfs_volumes_on_a_virtual_disk_the_last_is_named) {
    const std::wstring path = write("disk", disk_with({{7, 2048, 100}, {7, 4096, 100}, {0x0C, 8192, 100}}));
    std::ostringstream words;
    std::uint64_t offset = 0;
    bool found = false;
    EXPECT_FALSE(locate_in_vmdk(words, {path}, offset, found, false));
    EXPECT_TRUE(found);
    EXPECT_EQ(offset, 4096u * 512u);
    offset = 2048 * 512;
    EXPECT_TRUE(locate_in_vmdk(words, {path}, offset, found, false));
    EXPECT_EQ(offset, 2048u * 512u);
}

TEST_F(virtual_disk_io, no_files_at_all_are_false_without_a_word) {
    std::ostringstream words;
    std::uint64_t offset = 0;
    bool found = true;
    EXPECT_FALSE(locate_in_vmdk(words, {}, offset, found, false));
    EXPECT_FALSE(found);
    EXPECT_EQ(words.str(), "");
}

}  // namespace
}  // namespace quarry::test
