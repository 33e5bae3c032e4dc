#include "support/volume_builder.h"

#include "foundation/byte_view.h"

#include <stdexcept>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

TEST(volume_builder, the_boot_sector_reports_the_geometry) {
    const bytes image = volume_builder().image();
    const byte_view boot(image);
    EXPECT_TRUE(boot.text_at(3, "NTFS    "));
    EXPECT_EQ(boot.u16(11), 512);
    EXPECT_EQ(boot.u8(13), 8);
    EXPECT_EQ(boot.u64(40), image.size() / 512);
    EXPECT_EQ(boot.u64(48), 4u);
    EXPECT_EQ(boot.u8(64), 0xF6);
    EXPECT_EQ(boot.u8(68), 1);
    EXPECT_EQ(boot.u16(510), 0xAA55);
}

TEST(volume_builder, every_cluster_and_record_size_has_its_byte_in_the_boot_sector) {
    struct expectation {
        geometry shape;
        std::uint8_t sectors_per_cluster;
        std::uint64_t mft_lcn;
        std::uint8_t clusters_per_record;
    };
    const expectation all[] = {
        {{.sectors_per_cluster = 1}, 1, 32, 2},
        {{.sectors_per_cluster = 2}, 2, 16, 1},
        {{.sectors_per_cluster = 8, .record_size = 4096}, 8, 4, 1},
        {{.sectors_per_cluster = 128, .record_size = 4096}, 128, 1, 0xF4},
        {{.bytes_per_sector = 4096, .sectors_per_cluster = 1, .record_size = 4096}, 1, 4, 1},
    };
    for (const expectation& each : all) {
        const bytes image = volume_builder(each.shape).image();
        EXPECT_EQ(byte_view(image).u8(13), each.sectors_per_cluster);
        EXPECT_EQ(byte_view(image).u64(48), each.mft_lcn);
        EXPECT_EQ(byte_view(image).u8(64), each.clusters_per_record);
    }
}

TEST(volume_builder, files_take_entries_from_24_on_and_unused_slots_are_zero) {
    volume_builder volume;
    EXPECT_EQ(volume.add_file("a").entry(), 24u);
    EXPECT_EQ(volume.add_directory("d").entry(), 25u);
    EXPECT_EQ(volume.record_position(24), 4u * 4096 + 24u * 1024);
    EXPECT_TRUE(byte_view(volume.record_on_disk(24)).text_at(0, "FILE"));
    EXPECT_EQ(byte_view(volume.record_on_disk(25)).u16(22), 3);
    EXPECT_EQ(volume.record_on_disk(26), bytes(1024));
}

TEST(volume_builder, content_goes_into_the_record_or_through_the_given_runs) {
    volume_builder volume;
    volume.add_file("small").data("tiny content");
    volume.add_file("placed").data(pattern(std::size_t{3} * 4096), runs({{102, 1}, {hole, 1}, {100, 1}}));
    const bytes image = volume.image();
    const bytes expected = pattern(3 * 4096);
    EXPECT_TRUE(std::equal(expected.begin(), expected.begin() + 4096, image.begin() + 102 * 4096));
    EXPECT_TRUE(std::equal(expected.begin() + 2 * 4096, expected.end(), image.begin() + 100 * 4096));
    const bytes record = volume.record_on_disk(24);
    const bytes tiny = to_bytes("tiny content");
    EXPECT_NE(std::search(record.begin(), record.end(), tiny.begin(), tiny.end()), record.end());
}

TEST(volume_builder, runs_that_lie_about_the_volume_do_not_make_it_larger) {
    volume_builder plain;
    plain.add_file("x").data(runs({{100, 8}}));
    volume_builder lying;
    lying.add_file("x").data(runs({{100, 8}, {std::int64_t{1} << 40, 8}}));
    EXPECT_EQ(lying.image().size(), plain.image().size());
    EXPECT_EQ(plain.image().size(), 108u * 4096) << "up to cluster 107";
}

TEST(volume_builder, a_split_mft_lies_where_its_runs_say) {
    volume_builder volume({.mft_runs = {{4, 8}, {200, 8}}, .mft_runs_in_record_0 = 1});
    EXPECT_EQ(volume.record_position(31), 4u * 4096 + 31u * 1024);
    EXPECT_EQ(volume.record_position(32), 200u * 4096);
    EXPECT_EQ(byte_view(volume.record_on_disk(15)).u64(32), reference(0, 1));
}

TEST(volume_builder, a_full_mft_is_an_error) {
    volume_builder volume({.mft_entries = 25});
    volume.add_file("fits");
    EXPECT_THROW(volume.add_file("does not"), std::length_error);
}

TEST(volume_builder, forced_numbers_and_replaced_records_come_last) {
    volume_builder volume;
    volume.add_file("a");
    volume.add_file("b");
    volume.force_boot(13, 1, 0);
    volume.force_record(24, 0, 4, 0x44414142);
    volume.replace_record(25, {});
    const bytes image = volume.image();
    EXPECT_EQ(image[13], 0);
    EXPECT_TRUE(byte_view(volume.record_on_disk(24)).text_at(0, "BAAD"));
    EXPECT_EQ(volume.record_on_disk(25), bytes(1024));
}

TEST(volume_builder, an_image_at_an_offset_has_zeros_ahead_of_it) {
    const volume_builder volume;
    const bytes image = volume.image_at(1048576);
    EXPECT_EQ(image.size(), 1048576 + volume.image().size());
    EXPECT_EQ(image[1048575], 0);
    EXPECT_TRUE(byte_view(image).text_at(1048576 + 3, "NTFS    "));
}

TEST(volume_builder, the_root_lists_mft_as_entry_0_and_itself) {
    // Behind the header, $STANDARD_INFORMATION (96 bytes) and $FILE_NAME (24 + 68, rounded to 96): the index
    // root, its name in 8 bytes after the header, its node at 16, the first entry at 16 from there.
    const bytes record = volume_builder().record_on_disk(5);
    const byte_view index = byte_view(record).from(0x38 + 96 + 96);
    ASSERT_EQ(index.u32(0), 0x90u);
    const byte_view bitmap = index.from(32 + 16 + 16);
    EXPECT_EQ(bitmap.u64(0), reference(6, 6));
    const byte_view mft = bitmap.from(bitmap.u16_or_zero(8));
    EXPECT_EQ(mft.u64(0), reference(0, 1));
    const byte_view itself = mft.from(mft.u16_or_zero(8));
    EXPECT_EQ(itself.u48_or_zero(0), 5u) << "its sequence number lies under the first protected sector end";
    EXPECT_EQ(itself.u16(16 + 66), u'.');
    const byte_view end = itself.from(itself.u16_or_zero(8));
    EXPECT_EQ(end.u16(12), 2);
}

}  // namespace
}  // namespace quarry::test
