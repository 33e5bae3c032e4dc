#include "disk/volume_detection.h"

#include "support/byte_writer.h"
#include "support/device_files.h"
#include "support/disk_builder.h"
#include "support/file_opens.h"
#include "support/temp_dir.h"
#include "support/vmdk_builder.h"
#include "support/volume_builder.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct located {
    bool result = false;
    bool found = false;
    std::uint64_t offset = 0;
    std::string words;
};

class volume_detection_test : public ::testing::Test {
  protected:
    located locate(std::uint64_t offset, bool ignore_image_size = false) {
        located answer;
        answer.offset = offset;
        answer.found = true;  // something that has to go
        std::ostringstream stream;
        answer.result =
            locate_in_image(stream, m_image.wstring(), answer.offset, answer.found, ignore_image_size);
        answer.words = stream.str();
        return answer;
    }
    located locate(const disk_builder& disk, std::uint64_t offset, bool ignore_image_size = false) {
        disk.write_to(m_image);
        return locate(offset, ignore_image_size);
    }
    std::vector<std::uint64_t> offsets_of(const disk_builder& disk) {
        disk.write_to(m_image);
        std::vector<std::uint64_t> offsets = {1, 2, 3};
        const bool result = ntfs_offsets_in_image(m_image.wstring(), offsets);
        EXPECT_EQ(result, !offsets.empty());
        return offsets;
    }

    temp_dir m_dir;
    std::filesystem::path m_image = m_dir / "image";
};

// One NTFS partition of 1,000 sectors at sector 2048.
disk_builder one_partition() {
    disk_builder disk(4096);
    disk.table(0, {{0x07, 2048, 1000}}).put(2048, ntfs_boot_sector(999));
    return disk;
}

// FAT at 0x10000, NTFS at 0x100000, Linux at 0x180000, NTFS at 0x200000; the last ends with the disk.
disk_builder four_partitions() {
    disk_builder disk(5096);
    disk.table(0, {{0x0C, 128, 1000}, {0x07, 2048, 1000}, {0x83, 3072, 1000}, {0x07, 4096, 1000}});
    return disk;
}

const char* const table_of_four =
    "\n"
    "volume offset [ 0x10000 ] : fat32\n"
    "volume offset [ 0x100000 ] : ntfs or exfat\n"
    "volume offset [ 0x180000 ] : linux\n"
    "volume offset [ 0x200000 ] : ntfs or exfat\n"
    "\n";

TEST_F(volume_detection_test, a_bare_volume_needs_no_offset) {
    disk_builder disk(1000);
    disk.put(0, ntfs_boot_sector(999));
    const located answer = locate(disk, 0);
    EXPECT_TRUE(answer.result);
    EXPECT_TRUE(answer.found);
    EXPECT_EQ(answer.offset, 0u);
    EXPECT_EQ(answer.words, "");
}

TEST_F(volume_detection_test, the_image_that_was_looked_at_is_the_one_that_is_read) {
    volume_builder().write_to(m_image);
    const std::uint64_t size = std::filesystem::file_size(m_image);
    source image = source::of_image(m_image.wstring(), 0);
    std::ostringstream stream;
    bool found = false;
    ASSERT_TRUE(locate_volume(stream, image, found, false)) << stream.str();
    std::ofstream(m_dir / "other") << "another file";
    std::filesystem::rename(m_dir / "other", m_image);
    const source copied = image;
    const auto opened = copied.open();
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(opened->size(), size);
    EXPECT_EQ(opened->m_path, m_image.wstring());
    std::filesystem::remove(m_image);
    EXPECT_EQ(copied.open(true)->size(), 0U) << "for writing it is opened anew";
}

TEST_F(volume_detection_test, an_image_that_cannot_be_opened_is_tried_again_when_it_is_read) {
    source image = source::of_image(m_image.wstring(), 0);
    std::ostringstream stream;
    bool found = false;
    EXPECT_FALSE(locate_volume(stream, image, found, false));
    EXPECT_EQ(image.kept_open, nullptr);
    std::ofstream(m_image) << "it is there now";
    EXPECT_EQ(image.open()->size(), 15U);
}

TEST_F(volume_detection_test, a_bare_volume_that_is_cut_short_is_found_at_0_and_said_to_be_too_small) {
    disk_builder disk(1000);
    disk.put(0, ntfs_boot_sector(1001));
    const located answer = locate(disk, 0);
    EXPECT_FALSE(answer.result);
    EXPECT_TRUE(answer.found) << "by this and the offset 0 the options accept it";
    EXPECT_EQ(answer.offset, 0u);
    EXPECT_EQ(
        answer.words,
        "volume offset 0x0 is a NTFS partition, however image size does not encapsulate entire volume\n");
    EXPECT_TRUE(locate(disk, 0, true).result);
}

TEST_F(volume_detection_test, a_volume_fits_when_it_ends_with_its_image) {
    disk_builder disk(1000);
    disk.put(0, ntfs_boot_sector(1000));
    EXPECT_TRUE(locate(disk, 0).result);
}

TEST_F(volume_detection_test, a_disk_with_a_partition_and_no_offset_is_answered_with_the_offset_to_give) {
    const located answer = locate(one_partition(), 0);
    EXPECT_FALSE(answer.result);
    EXPECT_TRUE(answer.found);
    EXPECT_EQ(answer.offset, 0x100000u);
    EXPECT_EQ(answer.words,
              "\n"
              "volume offset [ 0x100000 ] : ntfs or exfat\n"
              "\n"
              "use option [-offset 0x100000]\n");
}

TEST_F(volume_detection_test, the_offset_of_an_ntfs_partition_is_accepted_without_a_word) {
    for (const std::uint64_t offset : {0x100000u, 0x200000u}) {
        const located answer = locate(four_partitions(), offset);
        EXPECT_TRUE(answer.result);
        EXPECT_TRUE(answer.found);
        EXPECT_EQ(answer.offset, offset);
        EXPECT_EQ(answer.words, "");
    }
}

TEST_F(volume_detection_test, the_last_ntfs_partition_is_the_one_suggested) {
    const located answer = locate(four_partitions(), 0);
    EXPECT_FALSE(answer.result);
    EXPECT_TRUE(answer.found);
    EXPECT_EQ(answer.offset, 0x200000u);
    EXPECT_EQ(answer.words, std::string(table_of_four) + "use option [-offset 0x200000]\n");
}

TEST_F(volume_detection_test, an_offset_inside_of_a_partition_is_answered_with_the_table) {
    const located answer = locate(four_partitions(), 0x100200);
    EXPECT_FALSE(answer.result);
    EXPECT_TRUE(answer.found);
    EXPECT_EQ(answer.offset, 0x200000u);
    EXPECT_EQ(answer.words, std::string(table_of_four) + "use option [-offset 0x200000]\n");
}

TEST_F(volume_detection_test, the_offset_of_another_partition_ends_the_looking_for_a_suggestion) {
    const located linux = locate(four_partitions(), 0x180000);
    EXPECT_FALSE(linux.result);
    EXPECT_TRUE(linux.found);
    EXPECT_EQ(linux.offset, 0x100000u);
    EXPECT_EQ(linux.words, "volume offset selected 0x180000 is not a NTFS partition, but [linux]\n" +
                               std::string(table_of_four) + "use option [-offset 0x100000]\n");
    const located fat = locate(four_partitions(), 0x10000);
    EXPECT_FALSE(fat.result);
    EXPECT_FALSE(fat.found);
    EXPECT_EQ(fat.offset, 0x200000u) << "the last partition's";
    EXPECT_EQ(fat.words, "volume offset selected 0x10000 is not a NTFS partition, but [fat32]\n" +
                             std::string(table_of_four) + "prob detecting ntfs partition\n");
}

TEST_F(volume_detection_test, a_disk_without_ntfs_is_reported_and_the_offset_ends_as_its_last_partitions) {
    disk_builder disk(4096);
    disk.table(0, {{0x0C, 128, 100}, {0x83, 1024, 100}});
    const located answer = locate(disk, 0);
    EXPECT_FALSE(answer.result);
    EXPECT_FALSE(answer.found);
    EXPECT_EQ(answer.offset, 0x80000u);
    EXPECT_EQ(answer.words,
              "\n"
              "volume offset [ 0x10000 ] : fat32\n"
              "volume offset [ 0x80000 ] : linux\n"
              "\n"
              "prob detecting ntfs partition\n");
}

TEST_F(volume_detection_test, an_offset_beyond_the_image_gets_no_more_than_the_message_of_its_bounds) {
    const located answer = locate(one_partition(), 4096 * 512 + 1);
    EXPECT_FALSE(answer.result);
    EXPECT_FALSE(answer.found);
    EXPECT_EQ(answer.offset, 0x200001u);
    EXPECT_EQ(answer.words, "volume offset 0x200001 is not within image bounds\n");
    EXPECT_EQ(locate(0xFFFFFFFF80000000).words,
              "volume offset 0xffffffff80000000 is not within image bounds\n");
}

TEST_F(volume_detection_test, an_offset_equal_to_the_size_of_the_image_is_within_its_bounds) {
    EXPECT_EQ(locate(one_partition(), 4096 * 512).words,
              "\n"
              "volume offset [ 0x100000 ] : ntfs or exfat\n"
              "\n"
              "use option [-offset 0x100000]\n");
}

TEST_F(volume_detection_test, an_ntfs_partition_past_the_end_of_the_image_is_reported_and_suggested) {
    disk_builder disk(2000);
    disk.table(0, {{0x83, 100, 100}, {0x07, 2000, 100}, {0x07, 2001, 100}});
    const located answer = locate(disk, 0);
    EXPECT_FALSE(answer.result);
    EXPECT_EQ(answer.offset, 2001u * 512);
    EXPECT_EQ(answer.words,
              "volume offset 0xfa200 is not within image bounds\n"
              "\n"
              "volume offset [ 0xc800 ] : linux\n"
              "volume offset [ 0xfa000 ] : ntfs or exfat\n"
              "volume offset [ 0xfa200 ] : ntfs or exfat\n"
              "\n"
              "use option [-offset 0xfa200]\n");
}

TEST_F(volume_detection_test,
       a_truncated_last_partition_is_accepted_only_when_the_image_size_is_to_be_ignored) {
    disk_builder disk(3047);
    disk.table(0, {{0x07, 2048, 1000}}).put(2048, ntfs_boot_sector(999));
    const located refused = locate(disk, 0x100000);
    EXPECT_FALSE(refused.result);
    EXPECT_TRUE(refused.found);
    EXPECT_EQ(refused.offset, 0x100000u);
    EXPECT_EQ(refused.words,
              "volume offset 0x100000 is a NTFS partition, however image size does not encapsulate entire "
              "volume\n");
    const located accepted = locate(disk, 0x100000, true);
    EXPECT_TRUE(accepted.result);
    EXPECT_EQ(accepted.words, "");
}

TEST_F(volume_detection_test, exfat_and_encrypted_containers_are_taken_for_ntfs) {
    disk_builder disk(4096);
    disk.table(0, {{0x83, 100, 100}, {0x83, 200, 100}});
    disk.put(100, exfat_boot_sector(99, 9, 3))
        .put(200, byte_writer(ntfs_boot_sector(99)).text(3, "-FVE-FS-").take());
    EXPECT_TRUE(locate(disk, 100 * 512).result);
    EXPECT_TRUE(locate(disk, 200 * 512).result);
}

TEST_F(volume_detection_test, the_volume_types_of_old_sets_and_hidden_ones_count_as_ntfs) {
    disk_builder disk(4096);
    disk.table(0, {{0x27, 100, 100}, {0x87, 200, 100}});
    EXPECT_TRUE(locate(disk, 100 * 512).result);
    EXPECT_TRUE(locate(disk, 200 * 512).result);
    EXPECT_EQ(locate(disk, 0).words,
              "\n"
              "volume offset [ 0xc800 ] : hidden ntfs\n"
              "volume offset [ 0x19000 ] : ntfs volume set\n"
              "\n"
              "use option [-offset 0x19000]\n");
}

TEST_F(volume_detection_test, a_bare_volume_is_no_suggestion_for_an_offset_that_is_not_its_own) {
    disk_builder disk(1000);
    disk.put(0, ntfs_boot_sector(999));
    const located answer = locate(disk, 512);
    EXPECT_FALSE(answer.result);
    EXPECT_TRUE(answer.found);
    EXPECT_EQ(answer.offset, 0u);
    EXPECT_EQ(answer.words,
              "\n"
              "volume offset [ 0x0 ] : ntfs or exfat\n"
              "\n"
              "prob detecting ntfs partition\n");
}

TEST_F(volume_detection_test, a_source_without_any_table_is_reported) {
    const located answer = locate(disk_builder(1000), 0);
    EXPECT_FALSE(answer.result);
    EXPECT_FALSE(answer.found);
    EXPECT_EQ(answer.offset, 0u);
    EXPECT_EQ(answer.words, "couldn't find any partitions on disk\n");
}

TEST_F(volume_detection_test, an_image_that_is_missing_or_empty_is_a_disk_without_partitions) {
    EXPECT_EQ(locate(0).words, "couldn't find any partitions on disk\n");
    EXPECT_EQ(locate(1).words, "volume offset 0x1 is not within image bounds\n");
    write_file(m_image, {});
    EXPECT_EQ(locate(0).words, "couldn't find any partitions on disk\n");
}

TEST_F(volume_detection_test, a_table_that_only_a_search_finds_is_called_questionable) {
    disk_builder disk(5000);
    disk.table(1000, {{0x07, 63, 400}});
    const located without_offset = locate(disk, 0);
    EXPECT_FALSE(without_offset.result);
    EXPECT_EQ(without_offset.words,
              "disk is corrupted, partition info questionable\n"
              "\n"
              "volume offset [ 0x84e00 ] : ntfs or exfat\n"
              "\n"
              "use option [-offset 0x84e00]\n");
    const located with_offset = locate(disk, 1063 * 512);
    EXPECT_TRUE(with_offset.result);
    EXPECT_EQ(with_offset.words, "disk is corrupted, partition info questionable\n");
}

TEST_F(volume_detection_test, a_guessed_partition_shows_that_it_is_one) {
    disk_builder disk(5000);
    disk.table(1000, {{0x07, 63, 400}}).put(63, ntfs_boot_sector(936));
    EXPECT_EQ(locate(disk, 0).words,
              "disk is corrupted, partition info questionable\n"
              "\n"
              "volume offset [ 0x7e00 ] : ntfs or exfat [guess]\n"
              "volume offset [ 0x84e00 ] : ntfs or exfat\n"
              "\n"
              "use option [-offset 0x84e00]\n");
    EXPECT_TRUE(locate(disk, 0x7e00).result);
}

TEST_F(volume_detection_test, a_partition_without_a_name_for_its_type_is_unk) {
    disk_builder disk(5000);
    disk.table(0, {{0xFB, 128, 400}});
    EXPECT_EQ(locate(disk, 0x10000).words,
              "volume offset selected 0x10000 is not a NTFS partition, but [unk]\n"
              "\n"
              "volume offset [ 0x10000 ] : unk\n"
              "\n"
              "prob detecting ntfs partition\n");
}

TEST_F(volume_detection_test, numbers_are_written_the_same_whatever_the_state_of_the_stream) {
    one_partition().write_to(m_image);
    std::ostringstream stream;
    stream << std::oct << std::uppercase << std::showbase << std::setfill('0');
    std::uint64_t offset = 0xFFFFFFFF;
    bool found = false;
    EXPECT_FALSE(locate_in_image(stream, m_image.wstring(), offset, found, false));
    EXPECT_EQ(stream.str(), "volume offset 0xffffffff is not within image bounds\n");
}

TEST_F(volume_detection_test, a_volume_beyond_4_gib_is_found) {
    disk_builder disk(0x00A00000 + 1000);
    disk.table(0, {{0x07, 0x00A00000, 1000}});
    EXPECT_TRUE(locate(disk, 0x140000000).result);
    EXPECT_EQ(locate(disk, 0).offset, 0x140000000u);
}

TEST_F(volume_detection_test, an_unusable_disk_and_no_disk_are_refused_without_a_word) {
    std::ostringstream stream;
    bool found = true;
    std::uint64_t offset = 5;
    EXPECT_FALSE(locate_ntfs_volume(stream, found, offset, nullptr, false));
    EXPECT_FALSE(found);
    RAW_DISK_IO refused(L"", false, 0);
    found = true;
    EXPECT_FALSE(locate_ntfs_volume(stream, found, offset, &refused, false));
    EXPECT_FALSE(found);
    EXPECT_EQ(offset, 5u);
    EXPECT_EQ(stream.str(), "");
}

TEST_F(volume_detection_test, an_empty_path_and_an_empty_list_are_refused_without_a_word) {
    std::ostringstream stream;
    bool found = true;
    std::uint64_t offset = 5;
    EXPECT_FALSE(locate_in_image(stream, L"", offset, found, false));
    EXPECT_FALSE(found);
    found = true;
    EXPECT_FALSE(locate_in_vmdk(stream, {}, offset, found, false));
    EXPECT_FALSE(found);
    EXPECT_EQ(stream.str(), "");
}

TEST_F(volume_detection_test, virtual_disks_that_cannot_be_opened_are_reported) {
    std::ostringstream stream;
    bool found = true;
    std::uint64_t offset = 5;
    EXPECT_FALSE(locate_in_vmdk(stream, {(m_dir / "missing").wstring()}, offset, found, false));
    EXPECT_FALSE(found);
    EXPECT_EQ(stream.str(), "invalid disk collection of snaps \n");
}

TEST_F(volume_detection_test, a_drive_is_looked_at_like_an_image) {
    const device_files devices;
    one_partition().write_to(devices.drive(1));
    std::ostringstream stream;
    bool found = false;
    std::uint64_t offset = 0x100000;
    EXPECT_TRUE(locate_on_drive(stream, 1, offset, found, false));
    EXPECT_TRUE(found);
    EXPECT_EQ(offset, 0x100000u);
    EXPECT_EQ(stream.str(), "");
    offset = 0;
    EXPECT_FALSE(locate_on_drive(stream, 1, offset, found, false));
    EXPECT_EQ(offset, 0x100000u);
}

TEST_F(volume_detection_test, a_drive_that_cannot_be_accessed_is_reported_with_its_number) {
    const device_files devices;
    for (const auto& [number, text] :
         {std::pair<std::int32_t, std::string>{20, "20"}, {25, "25"}, {-1, "-1"}}) {
        std::ostringstream stream;
        bool found = true;
        std::uint64_t offset = 5;
        EXPECT_FALSE(locate_on_drive(stream, number, offset, found, false));
        EXPECT_FALSE(found);
        EXPECT_EQ(stream.str(), "problems accessing physical disk #" + text + ", aborting \n");
    }
}

TEST_F(volume_detection_test, the_ntfs_volumes_of_an_image_are_listed_in_the_order_of_its_table) {
    EXPECT_THAT(offsets_of(four_partitions()), ElementsAre(0x100000u, 0x200000u));
    EXPECT_THAT(offsets_of(one_partition()), ElementsAre(0x100000u));
}

TEST_F(volume_detection_test, an_image_without_ntfs_or_with_a_table_only_a_search_would_find_lists_nothing) {
    disk_builder other(4096);
    other.table(0, {{0x83, 128, 100}});
    EXPECT_THAT(offsets_of(other), IsEmpty());
    disk_builder damaged(5000);
    damaged.table(1000, {{0x07, 63, 400}});
    EXPECT_THAT(offsets_of(damaged), IsEmpty());
    std::vector<std::uint64_t> offsets = {1};
    EXPECT_FALSE(ntfs_offsets_in_image((m_dir / "missing").wstring(), offsets));
    EXPECT_THAT(offsets, IsEmpty());
    EXPECT_FALSE(ntfs_offsets_in_image(L"", offsets));
}

// The extended partition, and one record for each link and one for the partition in the last table.
disk_builder chain_of(std::uint32_t records) {
    disk_builder disk(3000);
    disk.table(0, {{0x05, 100, 2000}});
    const std::uint32_t tables = records - 1;
    for (std::uint32_t i = 0; i + 1 < tables; ++i) {
        disk.table(100 + i, {{0x05, i + 1, 1}});
    }
    disk.table(100 + tables - 1, {{0x07, 1, 1}});
    return disk;
}

TEST_F(volume_detection_test,
       an_image_with_more_than_768_partitions_lists_nothing_and_a_drive_has_no_such_limit) {
    EXPECT_THAT(offsets_of(chain_of(768)), ElementsAre((100u + 767) * 512));
    EXPECT_THAT(offsets_of(chain_of(769)), IsEmpty());
    const device_files devices;
    chain_of(769).write_to(devices.drive(0));
    std::vector<std::uint64_t> offsets;
    EXPECT_TRUE(ntfs_offsets_on_drive(0, offsets));
    EXPECT_THAT(offsets, ElementsAre((100u + 768) * 512));
}

TEST_F(volume_detection_test, the_ntfs_volumes_of_a_drive_are_those_of_its_own_table) {
    const device_files devices;
    four_partitions().write_to(devices.drive(0));
    one_partition().write_to(devices.drive(1));
    std::vector<std::uint64_t> offsets = {1};
    EXPECT_TRUE(ntfs_offsets_on_drive(0, offsets));
    EXPECT_THAT(offsets, ElementsAre(0x100000u, 0x200000u));
    EXPECT_TRUE(ntfs_offsets_on_drive(1, offsets));
    EXPECT_THAT(offsets, ElementsAre(0x100000u));
    EXPECT_FALSE(ntfs_offsets_on_drive(25, offsets));
    EXPECT_THAT(offsets, IsEmpty());
}

TEST_F(volume_detection_test, no_source_is_opened_for_writing) {
    const device_files devices;
    one_partition().write_to(devices.drive(0));
    one_partition().write_to(m_image);
    vmdk_builder().put_all(0, disk_builder(64).table(0, {{0x07, 8, 8}}).image()).write(m_dir / "virtual");
    const file_opens drive_opens(devices.drive(0));
    const file_opens image_opens(m_image);
    const file_opens virtual_opens(m_dir / "virtual");
    std::ostringstream stream;
    std::uint64_t offset = 0;
    bool found = false;
    std::vector<std::uint64_t> offsets;

    EXPECT_FALSE(locate_in_image(stream, m_image.wstring(), offset, found, false));
    file_opens::kinds image = image_opens.take();
    EXPECT_TRUE(image.reading);
    EXPECT_FALSE(image.writing);
    EXPECT_TRUE(ntfs_offsets_in_image(m_image.wstring(), offsets));
    image = image_opens.take();
    EXPECT_TRUE(image.reading);
    EXPECT_FALSE(image.writing);

    EXPECT_TRUE(locate_on_drive(stream, 0, offset, found, false));
    file_opens::kinds drive = drive_opens.take();
    EXPECT_TRUE(drive.reading);
    EXPECT_FALSE(drive.writing);
    EXPECT_TRUE(ntfs_offsets_on_drive(0, offsets));
    drive = drive_opens.take();
    EXPECT_TRUE(drive.reading);
    EXPECT_FALSE(drive.writing);

    offset = 0;
    EXPECT_FALSE(locate_in_vmdk(stream, {(m_dir / "virtual").wstring()}, offset, found, false));
    EXPECT_EQ(offset, 8u * 512u);
    const file_opens::kinds disk = virtual_opens.take();
    EXPECT_TRUE(disk.reading);
    EXPECT_FALSE(disk.writing);

    std::ofstream(m_image, std::ios::app).put('x');
    EXPECT_TRUE(image_opens.take().writing) << "it would be noticed";
}

}  // namespace
}  // namespace quarry::test
