#include "disk/vmdk_disk.h"
#include "support/disk_builder.h"
#include "support/temp_dir.h"
#include "support/vmdk_builder.h"
#include "support/volume_builder.h"
#include "volume/ntfs_open.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

constexpr std::uint64_t partition_offset = 0x100000;

class OpenVirtualDisk : public ::testing::Test {
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

TEST_F(OpenVirtualDisk, a_bare_volume_opens_at_the_start_of_the_disk) {
    ASSERT_TRUE(open_by_vmdk(write(volume_builder().image()), 0, m_volume, false, nullptr));
    EXPECT_TRUE(m_volume->is_valid());
    EXPECT_EQ(m_volume->m_volume_offset, 0u);
    EXPECT_EQ(m_volume->m_source_type, 0);
    EXPECT_EQ(m_volume->m_disk->m_kind, source_kind_virtual_disk);
}

TEST_F(OpenVirtualDisk, an_offset_above_zero_is_taken_and_recorded_as_the_origin) {
    ASSERT_TRUE(open_by_vmdk(write(disk_image()), partition_offset, m_volume, false, nullptr));
    EXPECT_EQ(m_volume->m_volume_offset, partition_offset);
    EXPECT_EQ(m_volume->disk_origin(), partition_offset);
    EXPECT_EQ(m_volume->m_disk->m_origin_sectors, 0);
}

TEST_F(OpenVirtualDisk, without_an_offset_the_first_partition_is_tried_ntfs_or_not) {
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

TEST_F(OpenVirtualDisk, an_offset_where_no_volume_is_fails) {
    EXPECT_FALSE(open_by_vmdk(write(disk_image()), 512, m_volume, false, nullptr));
    EXPECT_EQ(m_volume, nullptr);
}

TEST_F(OpenVirtualDisk, files_that_are_no_whole_chain_fail) {
    const std::vector<std::wstring> files = write(volume_builder().image());
    EXPECT_FALSE(open_by_vmdk({files[0]}, 0, m_volume, false, nullptr));
    EXPECT_EQ(m_volume, nullptr);
}

}  // namespace
}  // namespace quarry::test
