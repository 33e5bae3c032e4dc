#include "volume/transfer_unit.h"

#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

// The unit and the buffer on a source of so many bytes.
struct sizes {
    std::uint64_t unit = 0;
    std::uint64_t buffer = 0;
    [[nodiscard]] bool operator==(const sizes&) const = default;
};
void PrintTo(const sizes& each, std::ostream* out) {
    *out << each.unit << " in " << each.buffer;
}

sizes sizes_of(std::int32_t cluster_size, std::size_t source_size) {
    const temp_dir dir;
    write_file(dir / "source", bytes(source_size));
    CNtfs ntfs;
    ntfs.m_cluster_size = cluster_size;
    ntfs.m_disk = std::make_unique<RAW_DISK_IO>((dir / "source").wstring(), false, 0);
    return {transfer_unit(ntfs), transfer_buffer_size(ntfs)};
}

TEST(transfer_unit, is_16_clusters_and_held_whole_up_to_a_megabyte) {
    EXPECT_EQ(sizes_of(512, 10000), (sizes{8192, 8192}));
    EXPECT_EQ(sizes_of(4096, 10000), (sizes{65536, 65536}));
    EXPECT_EQ(sizes_of(65536, 10000), (sizes{1048576, 1048576}));
    EXPECT_EQ(sizes_of(131072, 3000000), (sizes{2097152, 2097152}));
}

TEST(transfer_unit, of_more_than_a_megabyte_stays_16_clusters_in_a_buffer_no_larger_than_the_source) {
    EXPECT_EQ(sizes_of(131072, 2000000), (sizes{2097152, 16u * 131072}));
    EXPECT_EQ(sizes_of(131072, 1500000), (sizes{2097152, 12u * 131072}));
    EXPECT_EQ(sizes_of(131072, 1000), (sizes{2097152, 8u * 131072})) << "a megabyte is always allowed";
    EXPECT_EQ(sizes_of(261120, 1000), (sizes{4177920, 4u * 261120}));
    EXPECT_EQ(sizes_of(16711425, 1000), (sizes{267382800, 16711425}))
        << "the largest cluster that a boot sector can claim";
}

TEST(transfer_unit, is_zero_without_a_cluster_size) {
    EXPECT_EQ(sizes_of(0, 1000), sizes());
    EXPECT_EQ(sizes_of(-1, 1000), sizes());
}

TEST(transfer_unit, of_clusters_that_no_volume_has_is_held_up_to_64_mebibytes_whatever_the_source) {
    const temp_dir dir;
    write_file(dir / "source", {});
    CNtfs ntfs;
    ntfs.m_cluster_size = 16711425;
    ntfs.m_disk = std::make_unique<RAW_DISK_IO>((dir / "source").wstring(), false, 0);
    ntfs.m_disk->m_size = ntfs.m_disk->m_content_size = std::uint64_t{1} << 40;
    EXPECT_EQ(transfer_buffer_size(ntfs), 4u * 16711425);
    ntfs.m_cluster_size = 2 << 20;
    EXPECT_EQ(transfer_buffer_size(ntfs), 32u << 20) << "16 of the largest clusters that there are";
}

}  // namespace
}  // namespace quarry::test
