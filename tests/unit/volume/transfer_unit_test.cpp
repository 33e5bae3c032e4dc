#include "volume/transfer_unit.h"

#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

// The unit on a source of so many bytes.
std::uint64_t unit_of(std::int32_t cluster_size, std::size_t source_size) {
    const temp_dir dir;
    write_file(dir / "source", bytes(source_size));
    CNtfs ntfs;
    ntfs.m_cluster_size = cluster_size;
    ntfs.m_disk = std::make_unique<RAW_DISK_IO>((dir / "source").wstring(), false, 0);
    return transfer_unit(ntfs);
}

TEST(TransferUnit, Is16Clusters) {
    EXPECT_EQ(unit_of(512, 10000), 8192u);
    EXPECT_EQ(unit_of(4096, 10000), 65536u);
    EXPECT_EQ(unit_of(65536, 10000), 1048576u);
    EXPECT_EQ(unit_of(131072, 3000000), 2097152u);
}

TEST(TransferUnit, OfMoreThanAMegabyteIsNoLargerThanTheSourceRoundedUpToACluster) {
    EXPECT_EQ(unit_of(131072, 2000000), 16u * 131072);
    EXPECT_EQ(unit_of(131072, 1500000), 12u * 131072);
    EXPECT_EQ(unit_of(131072, 1000), 8u * 131072) << "a megabyte is always allowed";
    EXPECT_EQ(unit_of(16711425, 1000), 16711425u) << "the largest cluster that a boot sector can claim";
}

TEST(TransferUnit, IsZeroWithoutAClusterSize) {
    EXPECT_EQ(unit_of(0, 1000), 0u);
    EXPECT_EQ(unit_of(-1, 1000), 0u);
}

}  // namespace
}  // namespace quarry::test
