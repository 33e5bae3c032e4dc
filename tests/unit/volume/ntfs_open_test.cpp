#include "volume/ntfs_open.h"

#include "support/device_files.h"
#include "support/disk_builder.h"
#include "support/temp_dir.h"
#include "support/vmdk_builder.h"
#include "support/volume_builder.h"

#include <filesystem>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

// Makes a directory the current one for as long as it lives.
class current_directory {
  public:
    explicit current_directory(const std::filesystem::path& path)
        : m_before(std::filesystem::current_path()) {
        std::filesystem::current_path(path);
    }
    current_directory(const current_directory&) = delete;
    current_directory& operator=(const current_directory&) = delete;
    ~current_directory() { std::filesystem::current_path(m_before); }

  private:
    std::filesystem::path m_before;
};

// An object that a factory has to take away first.
std::unique_ptr<CNtfs> something() {
    return std::make_unique<CNtfs>();
}

bool load_nothing(CNtfs& /*volume*/) {
    return false;
}

TEST(open_by_image, an_image_opens_at_its_offset) {
    const temp_dir dir;
    write_file(dir / "image", volume_builder().image_at(512));
    std::unique_ptr<CNtfs> volume = something();
    ASSERT_TRUE(open_by_image((dir / "image").wstring(), 512, volume, false, load_nothing));
    EXPECT_TRUE(volume->is_valid());
    EXPECT_EQ(volume->m_source_type, 33);
    EXPECT_EQ(volume->m_volume_offset, 512u);
    EXPECT_EQ(volume->m_load_security, &load_nothing);
    EXPECT_EQ(volume->m_disk->m_kind, raw_kind_path);
    EXPECT_FALSE(volume->m_disk->m_writable);
    EXPECT_FALSE(open_by_image((dir / "image").wstring(), 0, volume, false, nullptr));
    EXPECT_EQ(volume, nullptr);
}

TEST(open_by_image, the_out_pointer_is_null_after_every_failure) {
    const temp_dir dir;
    write_file(dir / "none", bytes(100000, 0x55));
    write_file(dir / "empty", {});
    std::unique_ptr<CNtfs> volume = something();
    EXPECT_FALSE(open_by_image(L"", 0, volume, false, nullptr));
    EXPECT_EQ(volume, nullptr);
    for (const char* name : {"none", "empty", "missing", "."}) {
        volume = something();
        EXPECT_FALSE(open_by_image((dir / name).wstring(), 0, volume, false, nullptr)) << name;
        EXPECT_EQ(volume, nullptr);
    }
}

TEST(open_by_image, the_form_of_the_path_gives_the_source_type) {
    struct row {
        const wchar_t* path;
        const char* file;
        std::uint8_t type;
    };
    // A letter form is opened as its letter and a colon, and its type stored as that of a path.
    const row rows[] = {
        {L"c:", "c:", 33},       {L"c:\\", "c:", 33},   {L"\\\\.\\x", "\\\\.\\x", 35},
        {L"\\x", "\\x", 33},     {L"c:x", "c:x", 33},   {L"c:/", nullptr, 0},
        {L"cc:\\", "cc:\\", 33}, {L"\\\\", "\\\\", 35}, {L"::", "::", 33},
    };
    const bytes image = volume_builder().image();
    for (const row& each : rows) {
        const temp_dir dir;
        const current_directory here(dir.path());
        if (each.file != nullptr) {
            write_file(dir / each.file, image);
        }
        std::unique_ptr<CNtfs> volume;
        ASSERT_EQ(open_by_image(each.path, 0, volume, false, nullptr), each.file != nullptr)
            << std::filesystem::path(each.path);
        if (volume != nullptr) {
            EXPECT_EQ(volume->m_source_type, each.type) << each.file;
            EXPECT_EQ(volume->m_disk->m_path_utf8, each.file);
        }
    }
}

TEST(open_by_partition, the_volume_begins_where_the_device_does) {
    const temp_dir dir;
    write_file(dir / "partition", volume_builder().image());
    std::unique_ptr<CNtfs> volume = something();
    ASSERT_TRUE(open_by_partition((dir / "partition").wstring(), volume, false, 33, load_nothing));
    EXPECT_EQ(volume->m_volume_offset, 0u);
    EXPECT_EQ(volume->m_source_type, 33);
    EXPECT_EQ(volume->m_load_security, &load_nothing);
    ASSERT_TRUE(open_by_partition((dir / "partition").wstring(), volume, false, 35, nullptr));
    EXPECT_EQ(volume->m_source_type, 35);
}

TEST(open_by_partition, of_a_path_of_type_32_the_first_character_and_a_colon_are_opened) {
    const temp_dir dir;
    const current_directory here(dir.path());
    write_file(dir / "c:", volume_builder().image());
    for (const wchar_t* path : {L"c:", L"c:\\", L"c", L"c:whatever"}) {
        std::unique_ptr<CNtfs> volume;
        EXPECT_TRUE(open_by_partition(path, volume, false, 32, nullptr));
        EXPECT_FALSE(open_by_partition(L"d:", volume, false, 32, nullptr));
        EXPECT_EQ(volume, nullptr);
    }
}

TEST(open_by_partition, an_empty_path_and_a_type_that_opens_no_path_are_refused) {
    const temp_dir dir;
    write_file(dir / "partition", volume_builder().image());
    for (const std::uint8_t type : {std::uint8_t{32}, std::uint8_t{33}, std::uint8_t{35}}) {
        std::unique_ptr<CNtfs> volume = something();
        EXPECT_FALSE(open_by_partition(L"", volume, false, type, nullptr));
        EXPECT_EQ(volume, nullptr);
    }
    for (const std::uint8_t type :
         {std::uint8_t{0}, std::uint8_t{31}, std::uint8_t{36}, std::uint8_t{37}, std::uint8_t{255}}) {
        std::unique_ptr<CNtfs> volume = something();
        EXPECT_FALSE(open_by_partition((dir / "partition").wstring(), volume, false, type, nullptr));
        EXPECT_EQ(volume, nullptr);
    }
}

TEST(open_by_drive, a_drive_opens_by_its_number) {
    const device_files devices;
    write_file(devices.drive(1), volume_builder().image_at(1536));
    std::unique_ptr<CNtfs> volume = something();
    ASSERT_TRUE(open_by_drive(1, 1536, volume, false, load_nothing));
    EXPECT_EQ(volume->m_source_type, 34);
    EXPECT_EQ(volume->m_volume_offset, 1536u);
    EXPECT_EQ(volume->m_disk->m_kind, raw_kind_drive);
    EXPECT_EQ(volume->m_disk->m_drive_number, 1);
    EXPECT_EQ(volume->m_load_security, &load_nothing);
    EXPECT_FALSE(open_by_drive(1, 1535, volume, false, nullptr)) << "no boot sector there";
    EXPECT_EQ(volume, nullptr);
}

TEST(open_by_drive, a_number_without_a_drive_fails) {
    const device_files devices;
    for (const std::int32_t number : {-1, 20, 24, 25, 1000}) {
        std::unique_ptr<CNtfs> volume = something();
        EXPECT_FALSE(open_by_drive(number, 0, volume, false, nullptr)) << number;
        EXPECT_EQ(volume, nullptr);
    }
}

TEST(open_by_vmdk, an_empty_list_and_files_that_are_none_are_refused) {
    const temp_dir dir;
    write_file(dir / "plain", volume_builder().image());
    std::unique_ptr<CNtfs> volume = something();
    EXPECT_FALSE(open_by_vmdk({}, 0, volume, false, nullptr));
    EXPECT_EQ(volume, nullptr);
    volume = something();
    EXPECT_FALSE(open_by_vmdk({(dir / "plain").wstring()}, 0, volume, false, nullptr));
    EXPECT_EQ(volume, nullptr);
}

// A virtual disk of one file with these bytes.
std::vector<std::wstring> virtual_disk(const temp_dir& dir, const bytes& content) {
    vmdk_builder file;
    file.put_all(0, content);
    file.write(dir / "disk.vmdk");
    return {(dir / "disk.vmdk").wstring()};
}

bytes disk_with_a_volume_at_sector_63() {
    return disk_builder(512).table(0, {{0x07, 63, 300}}).put(63, volume_builder().image()).image();
}

TEST(open_by_vmdk, without_an_offset_the_first_volume_of_the_disk_is_taken) {
    const temp_dir dir;
    const std::vector<std::wstring> files = virtual_disk(dir, disk_with_a_volume_at_sector_63());
    for (const std::int64_t offset : {std::int64_t{0}, std::int64_t{-1}, std::int64_t{-32256}}) {
        std::unique_ptr<CNtfs> volume = something();
        ASSERT_TRUE(open_by_vmdk(files, offset, volume, false, load_nothing));
        EXPECT_EQ(volume->m_volume_offset, 63u * 512);
        EXPECT_EQ(volume->disk_origin(), 63u * 512);
        EXPECT_EQ(volume->m_disk->m_origin_sectors, 0);
        EXPECT_EQ(volume->m_source_type, 0);
        EXPECT_EQ(volume->m_disk->m_kind, raw_kind_virtual_disk);
        EXPECT_EQ(volume->m_load_security, &load_nothing);
        EXPECT_FALSE(volume->m_bitmap_runs.empty()) << "entry 6 was read through the virtual disk";
    }
}

TEST(open_by_vmdk, an_offset_above_zero_is_taken_as_it_is) {
    const temp_dir dir;
    const std::vector<std::wstring> files = virtual_disk(dir, disk_with_a_volume_at_sector_63());
    std::unique_ptr<CNtfs> volume;
    EXPECT_TRUE(open_by_vmdk(files, 63 * 512, volume, false, nullptr));
    EXPECT_EQ(volume->m_volume_offset, 63u * 512);
    EXPECT_EQ(volume->disk_origin(), 63u * 512);
    EXPECT_EQ(volume->m_disk->m_origin_sectors, 0);
    EXPECT_FALSE(open_by_vmdk(files, 64 * 512, volume, false, nullptr));
    EXPECT_EQ(volume, nullptr);
}

TEST(open_by_vmdk, a_disk_that_reports_no_volume_is_one) {
    const temp_dir dir;
    const std::vector<std::wstring> files = virtual_disk(dir, volume_builder().image());
    std::unique_ptr<CNtfs> volume;
    EXPECT_TRUE(open_by_vmdk(files, 0, volume, false, nullptr));
    EXPECT_EQ(volume->m_volume_offset, 0u);
    EXPECT_EQ(volume->disk_origin(), 0u);
}

constexpr std::uint64_t partition_offset = 0x100000;

class open_virtual_disk : public ::testing::Test {
  protected:
    // A disk with a FAT partition at sector 1000 and an NTFS volume at 0x100000.
    static bytes disk_image() {
        bytes image = volume_builder().image_at(partition_offset);
        const bytes table =
            disk_builder(1).table(0, {{0x0C, 1000, 100}, {7, partition_offset / 512, 100}}).image();
        std::copy(table.begin(), table.end(), image.begin());
        return image;
    }

    // Deals the grains of a disk out to a base and a snapshot in turn; the base keeps the first.
    std::vector<std::wstring> write(const bytes& image) {
        vmdk_builder base;
        base.entries_per_table = 512;
        base.grains = (image.size() + 4095) / 4096;
        vmdk_builder snapshot = base;
        snapshot.cid = "c0000001";
        snapshot.parent_cid = "c0000000";
        for (std::size_t grain = 0; grain < base.grains; ++grain) {
            const auto begin = image.begin() + static_cast<std::ptrdiff_t>(grain * 4096);
            const auto length = std::min<std::ptrdiff_t>(4096, image.end() - begin);
            (grain % 2 == 0 ? base : snapshot).put(grain, bytes(begin, begin + length));
        }
        base.write(m_dir / "base");
        snapshot.write(m_dir / "snapshot");
        return {(m_dir / "snapshot").wstring(), (m_dir / "base").wstring()};
    }

    temp_dir m_dir;
    std::unique_ptr<CNtfs> m_volume;
};

TEST_F(open_virtual_disk, a_bare_volume_that_lies_in_two_files_opens_at_the_start_of_the_disk) {
    ASSERT_TRUE(open_by_vmdk(write(volume_builder().image()), 0, m_volume, false, nullptr));
    EXPECT_TRUE(m_volume->is_valid());
    EXPECT_EQ(m_volume->m_volume_offset, 0u);
    EXPECT_EQ(m_volume->m_source_type, 0);
    EXPECT_EQ(m_volume->m_disk->m_kind, raw_kind_virtual_disk);
}

TEST_F(open_virtual_disk, without_an_offset_the_first_partition_is_tried_ntfs_or_not) {
    const std::vector<std::wstring> files = write(disk_image());
    EXPECT_FALSE(open_by_vmdk(files, 0, m_volume, false, nullptr)) << "the first partition is FAT";
    EXPECT_EQ(m_volume, nullptr);
    bytes image = disk_image();
    const bytes table = disk_builder(1).table(0, {{7, partition_offset / 512, 100}}).image();
    std::copy(table.begin(), table.end(), image.begin());
    for (const std::int64_t offset : {0, -1}) {
        ASSERT_TRUE(open_by_vmdk(write(image), offset, m_volume, false, nullptr)) << offset;
        EXPECT_EQ(m_volume->m_volume_offset, partition_offset);
    }
}

TEST_F(open_virtual_disk, files_that_are_no_whole_chain_fail) {
    const std::vector<std::wstring> files = write(volume_builder().image());
    EXPECT_FALSE(open_by_vmdk({files[0]}, 0, m_volume, false, nullptr));
    EXPECT_EQ(m_volume, nullptr);
}

TEST(open_source, a_refused_type_becomes_255) {
    CNtfs volume;
    for (const std::uint8_t type : {std::uint8_t{0}, std::uint8_t{31}, std::uint8_t{37}, std::uint8_t{255}}) {
        EXPECT_FALSE(volume.open_source(type, L"x", 0, 0, false));
        EXPECT_EQ(volume.m_source_type, 255);
        EXPECT_EQ(volume.m_disk, nullptr);
    }
}

TEST(open_source, type_36_is_accepted_and_opens_nothing) {
    CNtfs volume;
    EXPECT_FALSE(volume.open_source(36, L"/", 0, 0, false));
    EXPECT_EQ(volume.m_source_type, 36);
    EXPECT_EQ(volume.m_disk, nullptr);
}

TEST(open_source, a_path_that_cannot_be_opened_is_a_source_without_bytes) {
    const temp_dir dir;
    CNtfs volume;
    EXPECT_TRUE(volume.open_source(33, (dir / "missing").wstring(), 0, 0, false));
    EXPECT_EQ(volume.source_size(), 0u);
    std::int64_t position = 0;
    EXPECT_FALSE(volume.validate(position));
    EXPECT_FALSE(volume.open_source(33, L"", 0, 0, false));
    EXPECT_FALSE(volume.open_source(35, L"", 0, 0, false));
    EXPECT_EQ(volume.m_disk, nullptr);
}

TEST(open_source, type_32_is_stored_as_33) {
    const temp_dir dir;
    write_file(dir / "image", bytes(1));
    CNtfs volume;
    EXPECT_TRUE(volume.open_source(32, (dir / "image").wstring(), 0, 7, false));
    EXPECT_EQ(volume.m_source_type, 33);
    EXPECT_EQ(volume.m_volume_offset, 7u);
}

TEST(open_source, opening_clears_what_the_object_held) {
    const temp_dir dir;
    write_file(dir / "image", volume_builder().image());
    CNtfs volume;
    std::int64_t position = 0;
    ASSERT_TRUE(volume.open_source(33, (dir / "image").wstring(), 0, 0, false));
    ASSERT_TRUE(volume.validate(position));
    volume.m_sd_cache[1].owner = "x";
    volume.m_path_cache.add(5, 5, false);
    ASSERT_TRUE(volume.open_source(33, (dir / "image").wstring(), 0, 0, false));
    EXPECT_FALSE(volume.m_Validated);
    EXPECT_EQ(volume.m_cluster_size, 0);
    EXPECT_EQ(volume.m_mft_record_size, 0u);
    EXPECT_EQ(volume.get_bytes_per_sector(), 0u);
    EXPECT_TRUE(volume.m_mft_record.empty());
    EXPECT_TRUE(volume.m_mft_info.data_runs.empty());
    EXPECT_TRUE(volume.m_bitmap_runs.empty());
    EXPECT_TRUE(volume.m_sd_cache.empty());
    EXPECT_TRUE(volume.m_path_cache.directories().empty());
    EXPECT_EQ(volume.entry_position(5), 0u);
}

TEST(open_source, a_new_object_is_cleared) {
    const CNtfs volume;
    EXPECT_EQ(volume.m_disk, nullptr);
    EXPECT_EQ(volume.m_source_type, 0);
    EXPECT_FALSE(volume.m_Validated);
    EXPECT_EQ(volume.m_num_entries, 0u);
    EXPECT_EQ(volume.m_total_clusters, 0);
    EXPECT_EQ(volume.m_mft_file_pos, 0);
    EXPECT_EQ(volume.m_volume_offset, 0u);
    EXPECT_EQ(volume.m_load_security, nullptr);
}

}  // namespace
}  // namespace quarry::test
