#include "exact/boot.h"

#include "support/opened_exact_volume.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {

using exact::notices;
using exact::parse_boot_sector;

namespace {

// 512 bytes a sector, 8 sectors a cluster, 80,000 sectors: 10,000 clusters.
byte_writer sound() {
    byte_writer out(512);
    out.text(3, "NTFS    ").u16(11, 512).u8(13, 8).u64(40, 80000).u64(48, 4).u64(56, 5000);
    return out.u8(64, 0xF6).u8(68, 1).u64(72, 0x26A7A1E93D3A46ED);
}

std::string fault(byte_writer sector) {
    const exact::result<exact::geometry> shape =
        parse_boot_sector(byte_view(sector.content()), 0x7E00, 0x7E00);
    return shape ? "" : text_of(shape.error());
}

exact::geometry shape_of(byte_writer sector) {
    return parse_boot_sector(byte_view(sector.content()), 0, 0).value_or(exact::geometry{});
}

// A volume and, after it, the backup of its boot sector.
bytes with_backup(const volume_builder& volume) {
    const bytes image = volume.image();
    return concat({image, bytes(image.begin(), image.begin() + 512)});
}

}  // namespace

TEST(boot, gives_the_geometry) {
    const exact::geometry shape =
        parse_boot_sector(byte_view(sound().content()), 0x7E00, 0x7E00).value_or(exact::geometry{});
    EXPECT_EQ(shape.volume_offset, 0x7E00u);
    EXPECT_EQ(shape.bytes_per_sector, 512u);
    EXPECT_EQ(shape.cluster_size, 4096u);
    EXPECT_EQ(shape.clusters, 10000u);
    EXPECT_EQ(shape.record_size, 1024u);
    EXPECT_EQ(shape.index_block_size, 4096u);
    EXPECT_EQ(shape.mft_lcn, 4u);
    EXPECT_EQ(shape.mirror_lcn, 5000u);
    EXPECT_EQ(shape.serial, 0x26A7A1E93D3A46EDu);
    EXPECT_FALSE(shape.from_backup);
    EXPECT_EQ(shape.source_byte_of(3), 0x7E00u + 3 * 4096);
    EXPECT_EQ(shape.volume_bytes(), 80000u * 512);
}

TEST(boot, begins_with_its_signature) {
    EXPECT_EQ(fault(sound().text(3, "NTFS   x")),
              "boot boot sector: signature is not \"NTFS    \" (source byte 0x7E03)");
}

TEST(boot, has_sectors_of_256_to_4096_bytes) {
    for (const std::uint64_t size : {256u, 512u, 1024u, 2048u, 4096u}) {
        EXPECT_EQ(fault(sound().u16(11, size)), "") << size;
    }
    for (const std::uint64_t size : {0u, 1u, 128u, 511u, 513u, 768u, 8192u, 65535u}) {
        EXPECT_EQ(fault(sound().u16(11, size)),
                  "boot boot sector: bytes per sector is " + std::to_string(size) + " (source byte 0x7E0B)");
    }
}

TEST(boot, has_clusters_of_at_most_2_MiB) {
    for (const std::uint64_t sectors : {1u, 2u, 4u, 8u, 16u, 32u, 64u, 128u}) {
        EXPECT_EQ(shape_of(sound().u8(13, sectors).u64(40, 80000000).u8(64, 0xF6).u8(68, 0xF4)).cluster_size,
                  512 * sectors);
    }
    // 0xF8 is 2^8 sectors, 0xF4 2^12.
    EXPECT_EQ(shape_of(sound().u8(13, 0xF8).u64(40, 80000000).u8(68, 0xF4)).cluster_size, 0x20000u);
    EXPECT_EQ(shape_of(sound().u8(13, 0xF4).u64(40, 80000000).u8(68, 0xF4)).cluster_size, 0x200000u);
    EXPECT_EQ(shape_of(sound().u8(13, 0xFF).u8(68, 0xF4)).cluster_size, 1024u);
    for (const std::uint64_t sectors : {0u, 3u, 127u, 129u, 200u, 0xF3u}) {
        EXPECT_EQ(fault(sound().u8(13, sectors)), "boot boot sector: sectors per cluster is " +
                                                      std::to_string(sectors) + " (source byte 0x7E0D)");
    }
    EXPECT_NE(fault(sound().u16(11, 1024).u8(13, 0xF4).u64(40, 80000000).u8(68, 0xF4)), "");
}

TEST(boot, has_records_of_512_to_65536_bytes) {
    EXPECT_EQ(shape_of(sound().u8(64, 0xF7)).record_size, 512u);
    EXPECT_EQ(shape_of(sound().u8(64, 0xF0)).record_size, 65536u);
    EXPECT_EQ(shape_of(sound().u8(64, 1)).record_size, 4096u);
    EXPECT_EQ(shape_of(sound().u8(64, 16)).record_size, 65536u);
    for (const std::uint64_t stored : {0u, 3u, 17u, 32u, 0xF8u, 0xEFu, 0xE1u, 0xE0u, 0x80u, 0xFFu}) {
        EXPECT_EQ(fault(sound().u8(64, stored)),
                  "boot boot sector: record size is " + std::to_string(stored) + " (source byte 0x7E40)");
        EXPECT_EQ(fault(sound().u8(68, stored)), "boot boot sector: index block size is " +
                                                     std::to_string(stored) + " (source byte 0x7E44)");
    }
}

TEST(boot, has_a_size_that_63_bits_hold) {
    EXPECT_NE(fault(sound().u64(40, 0)), "");
    EXPECT_EQ(fault(sound().u64(40, (std::uint64_t{1} << 54) - 0x7E00 / 512 - 1)), "");
    EXPECT_NE(fault(sound().u64(40, (std::uint64_t{1} << 54) - 0x7E00 / 512)), "");
    EXPECT_NE(fault(sound().u64(40, ~std::uint64_t{0})), "");
}

TEST(boot, has_mft_and_mirror_inside_of_the_volume) {
    EXPECT_EQ(fault(sound().u64(48, 9999).u64(56, 9999)), "");
    EXPECT_EQ(fault(sound().u64(48, 10000)), "boot boot sector: LCN of $MFT is 10000 (source byte 0x7E30)");
    EXPECT_EQ(fault(sound().u64(56, 10000)),
              "boot boot sector: LCN of the mirror of $MFT is 10000 (source byte 0x7E38)");
}

TEST(boot, cut_ahead_of_its_last_field_is_none) {
    const bytes whole = sound().take();
    for (std::size_t size = 0; size < 69; ++size) {
        EXPECT_FALSE(parse_boot_sector(byte_view(whole.data(), size), 0, 0)) << size;
    }
}

TEST(boot, is_replaced_by_its_backup) {
    const volume_builder volume;
    bytes image = with_backup(volume);
    std::fill(image.begin(), image.begin() + 512, std::uint8_t{0});
    opened_exact_volume opened(image);
    ASSERT_EQ(opened.open(), "");
    EXPECT_TRUE(opened.volume().shape().from_backup);
    EXPECT_THAT(
        text_of(opened.told()),
        testing::HasSubstr("boot-backup boot sector: signature is not \"NTFS    \"; the backup is used\n"));
}

TEST(boot, is_replaced_by_its_backup_in_a_last_sector_of_4096_bytes) {
    volume_builder volume({.bytes_per_sector = 4096, .sectors_per_cluster = 1});
    volume.add_file("a").data("hello");
    bytes image = volume.image();
    image.resize(image.size() + 4096);
    std::copy_n(image.begin(), 512, image.end() - 4096);
    std::fill_n(image.begin(), 4096, std::uint8_t{0});
    opened_exact_volume opened(image);
    ASSERT_EQ(opened.open(), "");
    EXPECT_TRUE(opened.volume().shape().from_backup);
    EXPECT_EQ(opened.volume().shape().bytes_per_sector, 4096u);
    EXPECT_EQ(opened.copy(first_user_entry).content, to_bytes("hello"));
}

TEST(boot, is_replaced_by_its_backup_when_it_cannot_be_read) {
    const volume_builder volume;
    opened_exact_volume opened(with_backup(volume));
    opened.source().unreadable(100, 1);
    ASSERT_EQ(opened.open(), "");
    EXPECT_TRUE(opened.volume().shape().from_backup);
}

TEST(boot, finds_the_backup_of_a_partition_after_others) {
    const volume_builder volume;
    bytes image = with_backup(volume);
    std::fill(image.begin(), image.begin() + 512, std::uint8_t{0});
    const std::uint64_t length = image.size();
    memory_source bytes_of(concat({bytes(0x10000), image, bytes(0x3000)}));
    const exact::exact_source source(bytes_of, "image");
    notices told;
    const exact::result<exact::geometry> shape = exact::read_geometry(source, 0x10000, length, told);
    ASSERT_TRUE(shape) << shape.error().text();
    EXPECT_EQ(shape->volume_offset, 0x10000u);
    notices none;
    EXPECT_FALSE(exact::read_geometry(source, 0x10000, length + 8192, none));
}

TEST(boot, takes_no_backup_of_another_volume) {
    const volume_builder volume;
    bytes image = with_backup(volume);
    std::fill(image.begin(), image.begin() + 512, std::uint8_t{0});
    // The last sector counts one sector less than there are ahead of it.
    byte_writer shifted(image);
    const std::uint64_t sectors = volume.image().size() / 512;
    opened_exact_volume opened(shifted.u64(image.size() - 512 + 40, sectors - 1).take());
    EXPECT_EQ(opened.open(), "boot boot sector: signature is not \"NTFS    \" (source byte 0x3)");
    // Record 0 is not where it says.
    byte_writer elsewhere(image);
    opened_exact_volume second(elsewhere.u64(image.size() - 512 + 48, volume.mft_lcn() + 1).take());
    EXPECT_EQ(second.open(), "boot boot sector: signature is not \"NTFS    \" (source byte 0x3)");
}

TEST(boot, warns_of_a_source_that_ends_ahead_of_its_volume) {
    volume_builder volume({.total_clusters = 1000});
    bytes image = volume.image();
    image.resize(image.size() - 1);
    opened_exact_volume opened(image);
    ASSERT_EQ(opened.open(), "");
    EXPECT_THAT(text_of(opened.told()),
                testing::HasSubstr(
                    "source-short source image: ends at byte 0x3E7FFF, the volume at byte 0x3E8000\n"));
}

}  // namespace quarry::test
