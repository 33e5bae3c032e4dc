#include "exact/mft.h"

#include "support/attribute_list_builder.h"
#include "support/opened_exact_volume.h"
#include "volume/attribute.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {

using exact::failure_code;
using exact::notices;
using testing::HasSubstr;

namespace {

// Copies the file at entry 24 of a volume with one file.
std::string copied(const volume_builder& volume) {
    opened_exact_volume opened(volume);
    if (const std::string failed = opened.open(); !failed.empty()) {
        return failed;
    }
    const exact_copy copy = opened.copy(first_user_entry);
    return copy.failed.empty() ? std::string(copy.content.begin(), copy.content.end()) : copy.failed;
}

std::uint64_t position_of_mirror(const bytes& image) {
    return byte_view(image).u64_or_zero(56) * 4096;
}

}  // namespace

TEST(mft, reads_its_records) {
    volume_builder volume;
    volume.add_file("a.txt").data("hello");
    opened_exact_volume opened(volume);
    EXPECT_EQ(opened.volume().table().entries(), 64u);
    EXPECT_FALSE(opened.volume().table().from_mirror());
    EXPECT_EQ(copied(volume), "hello");
}

TEST(mft, ends_with_its_last_record) {
    const volume_builder volume;
    opened_exact_volume opened(volume);
    notices told;
    const auto after = opened.volume().table().read(64, told);
    ASSERT_FALSE(after);
    EXPECT_EQ(text_of(after.error()), "behind-mft record 64: $MFT has 64 entries");
    EXPECT_EQ(opened.volume().table().read(~std::uint64_t{0}, told).error().code, failure_code::behind_mft);
    EXPECT_EQ(opened.volume().table().read(63, told).error().code, failure_code::signature);
}

TEST(mft, may_lie_in_many_runs) {
    volume_builder volume({.mft_runs = runs({{300, 2}, {100, 3}, {200, 1}, {50, 10}})});
    volume.add_file("a.txt").data("hello");
    EXPECT_EQ(copied(volume), "hello");
}

TEST(mft, may_lie_in_many_records) {
    volume_builder volume(
        {.mft_runs = runs({{300, 4}, {100, 3}, {200, 1}, {50, 8}}), .mft_runs_in_record_0 = 1});
    volume.add_file("a.txt").data("hello");
    EXPECT_EQ(copied(volume), "hello");
}

TEST(mft, has_its_later_pieces_in_the_earlier_ones) {
    // Entry 15 is in the fourth cluster, which only entry 15 itself describes.
    volume_builder volume({.mft_runs = runs({{300, 3}, {100, 13}}), .mft_runs_in_record_0 = 1});
    EXPECT_EQ(copied(volume), "mft record 15: is not in the pieces of $MFT known so far");
}

TEST(mft, may_have_records_that_straddle_runs) {
    // Clusters of 512 bytes: each record of 1,024 has its halves in different runs.
    geometry shape{.sectors_per_cluster = 1, .mft_entries = 32, .mft_runs = {{400, 2}}};
    for (std::int64_t i = 0; i < 31; ++i) {
        shape.mft_runs.push_back({100 + 4 * i, 1});
        shape.mft_runs.push_back({300 + 3 * (i % 30) - (i == 30 ? 100 : 0), 1});
    }
    volume_builder volume(shape);
    volume.add_file("a.txt").data("hello");
    EXPECT_EQ(copied(volume), "hello");
    // The second half of record 24 is torn: the byte on the source is that of its own run.
    bytes image = volume.image();
    const std::uint64_t second_half = static_cast<std::uint64_t>(shape.mft_runs[2 * 24].lcn) * 512;
    image[static_cast<std::size_t>(second_half) + 510] ^= 1;
    opened_exact_volume opened(image);
    const exact_copy copy = opened.copy(24);
    EXPECT_THAT(copy.failed, HasSubstr("torn record 24: torn: sector 1 ends in 0x100"));
    std::string source_byte = exact::hex(second_half + 510);
    EXPECT_THAT(copy.failed, HasSubstr("(source byte " + source_byte + ")"));
}

TEST(mft, has_records_of_1024_bytes_on_sectors_of_4096) {
    volume_builder volume({.bytes_per_sector = 4096, .sectors_per_cluster = 1});
    volume.add_file("a.txt").data("hello");
    EXPECT_EQ(copied(volume), "hello");
}

TEST(mft, has_records_of_4096_bytes_on_sectors_of_4096) {
    volume_builder volume({.bytes_per_sector = 4096, .sectors_per_cluster = 1, .record_size = 4096});
    volume.add_file("a.txt").data("hello");
    EXPECT_EQ(copied(volume), "hello");
}

TEST(mft, is_found_through_the_mirror_if_record_0_is_zeroed_or_torn_or_unreadable) {
    volume_builder volume({.system_files = true});
    volume.add_file("a.txt").data("hello");
    const bytes image = volume.image();
    const auto at = static_cast<std::size_t>(volume.record_position(0));
    const auto open_and_copy = [&](opened_exact_volume& opened) {
        ASSERT_EQ(opened.open(), "");
        EXPECT_TRUE(opened.volume().table().from_mirror());
        EXPECT_EQ(opened.copy(first_user_entry).content, to_bytes("hello"));
        EXPECT_THAT(text_of(opened.told()), HasSubstr("; the mirror's copy is used\n"));
    };
    bytes zeroed = image;
    std::fill_n(zeroed.begin() + static_cast<std::ptrdiff_t>(at), 1024, std::uint8_t{0});
    opened_exact_volume first(zeroed);
    open_and_copy(first);
    bytes torn = image;
    torn[at + 1023] ^= 1;
    opened_exact_volume second(torn);
    open_and_copy(second);
    opened_exact_volume third(image);
    third.source().unreadable(at + 700, 1);
    open_and_copy(third);
}

TEST(mft, gives_the_record_0_that_it_was_opened_by) {
    const volume_builder volume({.system_files = true});
    bytes image = volume.image();
    // Another first cluster of $DATA only in record 0, which is sound but for that.
    const auto start = static_cast<std::ptrdiff_t>(volume.record_position(0));
    const byte_view record0(image.data() + start, 1024);
    attribute data = first_attribute(record0);
    ASSERT_TRUE(next_attribute_of_type(data, 0x80, 1024));
    const std::size_t pairs =
        static_cast<std::size_t>(data.bytes().data() - image.data()) + data.mapping_pairs_offset();
    image[pairs + 1 + (image[pairs] & 0x0Fu)] += 1;
    opened_exact_volume opened(image);
    ASSERT_EQ(opened.open(), "");
    EXPECT_TRUE(opened.volume().table().from_mirror());
    exact::notices told;
    const auto read = opened.volume().table().read(0, told);
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(read->place().where, "record 0 of the mirror");
}

TEST(mft, is_not_found_if_its_mirror_is_damaged_too) {
    const volume_builder volume({.system_files = true});
    bytes image = volume.image();
    image[static_cast<std::size_t>(volume.record_position(0))] = 'f';
    image[static_cast<std::size_t>(position_of_mirror(image)) + 510] ^= 1;
    opened_exact_volume opened(image);
    EXPECT_EQ(opened.open(), "signature record 0: begins with \"fILE\", not \"FILE\" (source byte 0x4000)");
}

TEST(mft, has_its_first_records_in_the_mirror_too) {
    const volume_builder volume({.system_files = true});
    const bytes image = volume.image();
    for (const std::uint64_t entry : {1u, 2u, 3u, 4u}) {
        bytes damaged = image;
        damaged[static_cast<std::size_t>(volume.record_position(entry)) + 510] ^= 1;
        opened_exact_volume opened(damaged);
        notices told;
        const auto read = opened.volume().table().read(entry, told);
        if (entry < 4) {
            ASSERT_TRUE(read) << entry;
            EXPECT_EQ(read->place().where, "record " + std::to_string(entry) + " of the mirror");
            EXPECT_THAT(text_of(told), HasSubstr("mft-mirror record " + std::to_string(entry) + ": torn: "));
        } else {
            EXPECT_EQ(read.error().code, failure_code::torn);
        }
    }
}

TEST(mft, is_not_opened_by_a_piece_that_its_list_does_not_name) {
    volume_builder other;
    other.add_file("a.txt").data("hello");
    other.file(0).attribute_list(build_attribute_list({{.type = 0x10}, {.type = 0x30, .id = 1}}));
    EXPECT_EQ(copied(other),
              "mft record 0: its attribute list does not begin $DATA in this record (source byte 0x4000)");
    // Named is a second piece that begins at VCN 0, with an id of its own.
    volume_builder second;
    second.add_file("a.txt").data("hello");
    second.file(0).attribute(attribute_builder::non_resident(0x80, {{50, 16}}).id(77));
    second.file(0).attribute_list(build_attribute_list({{.type = 0x10}, {.type = 0x80, .id = 77}}));
    EXPECT_EQ(copied(second),
              "mft record 0: its attribute list begins $DATA at another attribute (source byte 0x4000)");
}

TEST(mft, begins_where_the_boot_sector_says) {
    volume_builder volume({.mft_runs = runs({{100, 16}})});
    // A copy of record 0 somewhere else, to which the boot sector leads.
    const bytes record = volume.record_on_disk(0);
    volume.write_clusters(200, record);
    volume.force_boot(48, 8, 200);
    volume.force_boot(56, 8, 200);
    EXPECT_EQ(copied(volume),
              "mft record 0: its $DATA does not begin at LCN 200, where the boot sector says "
              "(source byte 0xC8000)");
}

TEST(mft, has_sizes_that_agree_with_its_runs) {
    volume_builder volume;
    const bytes record = volume.record_on_disk(0);
    std::uint64_t offset = byte_view(record).u16_or_zero(20);
    while (byte_view(record).u32_or_zero(offset) != 0x80) {
        offset += byte_view(record).u32_or_zero(offset + 4);
    }
    volume.force_record(0, static_cast<std::size_t>(offset) + 40, 8, 0x11000);
    EXPECT_THAT(copied(volume), HasSubstr("sizes record 0, $DATA \"\": allocated 69632, size 65536"));
}

TEST(mft, may_have_several_pieces_in_record_0) {
    // 64 records of 1,024 bytes are 16 clusters, 8 of them in each piece.
    volume_builder volume({.mft_runs = runs({{300, 8}, {100, 8}})});
    volume.add_file("a.txt").data("hello");
    const auto record_0 = [&](std::uint64_t second_vcn) {
        record_builder record = volume.new_record(0);
        record.add(attribute_builder::resident(0x10, standard_information{}.build()).id(0));
        record.add(
            attribute_builder::resident(
                0x20, build_attribute_list({{.type = 0x10, .record = 0, .id = 0},
                                            {.type = 0x80, .record = 0, .id = 2},
                                            {.type = 0x80, .record = 0, .id = 3, .lowest_vcn = second_vcn}}))
                .id(1));
        record.add(attribute_builder::non_resident(0x80, {{300, 8}})
                       .id(2)
                       .allocated(65536)
                       .real(65536)
                       .initialized(65536));
        record.add(attribute_builder::non_resident(0x80, {{100, 8}}).id(3).lowest_vcn(second_vcn));
        return record.build();
    };
    volume.replace_record(0, record_0(8));
    EXPECT_EQ(copied(volume), "hello");
    volume.replace_record(0, record_0(9));
    EXPECT_THAT(copied(volume), HasSubstr("piece at VCN 9, expected 8"));
}

TEST(mft, has_one_table_and_it_is_stored_in_clusters) {
    volume_builder twice;
    twice.file(0).attribute(attribute_builder::non_resident(0x80, {{50, 16}}));
    EXPECT_EQ(copied(twice), "duplicate record 0, $DATA \"\": stands twice at VCN 0");
    volume_builder resident;
    record_builder record = resident.new_record(0);
    record.add(attribute_builder::resident(0x80, to_bytes("table")));
    resident.replace_record(0, record.build());
    EXPECT_THAT(copied(resident), HasSubstr("mft record 0: has no stored $DATA"));
}

TEST(mft, is_not_encrypted) {
    volume_builder volume;
    const bytes record = volume.record_on_disk(0);
    std::uint64_t offset = byte_view(record).u16_or_zero(20);
    while (byte_view(record).u32_or_zero(offset) != 0x80) {
        offset += byte_view(record).u32_or_zero(offset + 4);
    }
    volume.force_record(0, static_cast<std::size_t>(offset) + 12, 2, 0x4000);
    EXPECT_THAT(copied(volume), HasSubstr("flags record 0, $DATA \"\": flags are 0x4000"));
}

TEST(mft, reads_what_a_reference_leads_to) {
    volume_builder volume;
    volume.add_file("a.txt").sequence(7);
    volume.add_file("b.txt").deleted();
    opened_exact_volume opened(volume);
    const exact::mft& table = opened.volume().table();
    notices told;
    EXPECT_TRUE(table.read_in_use({24, 7}, told));
    EXPECT_EQ(text_of(told), "");
    EXPECT_TRUE(table.read_in_use({24, 0}, told));
    EXPECT_EQ(text_of(told), "no-sequence record 24: the reference to it has no sequence number\n");
    EXPECT_THAT(table.read_in_use({24, 6}, told).error().text(),
                HasSubstr("record 24: has sequence number 7, the reference says 6 (source byte 0x"));
    EXPECT_THAT(table.read_in_use({25, 1}, told).error().text(), HasSubstr("record 25: is not in use"));
}

TEST(mft, has_no_system_file_in_a_record_that_is_not_in_use) {
    volume_builder volume;
    volume.add_file("a.txt");
    volume.add_file("b.txt").deleted();
    opened_exact_volume opened(volume);
    const exact::mft& table = opened.volume().table();
    notices told;
    EXPECT_TRUE(table.read_system(24, told));
    EXPECT_THAT(table.read_system(25, told).error().text(), HasSubstr("record 25: is not in use"));
}

TEST(mft, reads_what_is_asked_for_by_number) {
    volume_builder volume;
    volume.add_file("a.txt").sequence(7);
    volume.add_file("b.txt").deleted();
    file_builder& large = volume.add_file("c.txt");
    const std::size_t place = large.add_extension();
    large.attribute(attribute_builder::resident(0x80, to_bytes("x")), place);
    opened_exact_volume opened(volume);
    const exact::mft& table = opened.volume().table();
    notices told;
    EXPECT_TRUE(table.read_asked(24, std::nullopt, told));
    EXPECT_TRUE(table.read_asked(24, 7, told));
    EXPECT_EQ(table.read_asked(24, 0, told).error().code, failure_code::sequence);
    EXPECT_EQ(table.read_asked(24, 8, told).error().code, failure_code::sequence);
    EXPECT_EQ(text_of(told), "");
    EXPECT_TRUE(table.read_asked(25, std::nullopt, told));
    EXPECT_EQ(text_of(told), "deleted record 25: deleted: the record is not in use\n");
    const auto extension = table.read_asked(large.extension_entry(place), std::nullopt, told);
    ASSERT_FALSE(extension);
    EXPECT_EQ(extension.error().code, failure_code::extension);
    EXPECT_EQ(extension.error().why, "is an extension of record 26");
}

}  // namespace quarry::test
