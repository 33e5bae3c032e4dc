// What is refused and what is logged of damaged entries, and what is read of them all the same.
#include "unit/volume/categorized.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

TEST(categorize_entry, refuses_a_volume_that_is_not_valid_without_a_word) {
    CNtfs cleared;
    const categorized got = categorize(cleared, 5);
    EXPECT_FALSE(got.ok);
    EXPECT_TRUE(got.items.empty());
    EXPECT_TRUE(got.log.empty());
}

TEST(categorize_entry, refuses_a_slot_that_was_never_used) {
    volume_builder volume;
    const categorized got = categorize(volume, 30);
    EXPECT_FALSE(got.ok);
    EXPECT_TRUE(got.items.empty());
    EXPECT_EQ(got.log, (lines{"err: mftfixup 1e"}));
}

TEST(categorize_entry, refuses_an_entry_outside_of_the_mft) {
    volume_builder volume;
    const categorized got = categorize(volume, 0xABCDEF0123);
    EXPECT_FALSE(got.ok);
    EXPECT_EQ(got.log, (lines{"err: mftfixup abcdef0123"}));
}

TEST(categorize_entry, refuses_a_record_marked_bad) {
    volume_builder volume;
    volume.add_file("a").record().signature("BAAD");
    const categorized got = categorize(volume);
    EXPECT_FALSE(got.ok);
    EXPECT_TRUE(got.items.empty());
    EXPECT_EQ(got.log, (lines{"err: fixup_mft type: BAAD", "err: recd bad 18"}));
}

TEST(categorize_entry, refuses_a_record_that_fails_the_header_test) {
    volume_builder volume;
    volume.add_file("a").record().update_sequence_offset(0x2A);
    EXPECT_EQ(categorize(volume).log, (lines{"err: mftfixup 18"}));
    volume_builder counted;
    counted.add_file("a").record().force(6, 2, 10);
    EXPECT_EQ(categorize(counted).log, (lines{"err: mftfixup 18"}));
    volume_builder placed;
    placed.add_file("a").record().first_attribute_offset(0x49);
    EXPECT_EQ(categorize(placed).log, (lines{"err: mftfixup 18"}));
}

TEST(categorize_entry, accepts_an_index_block_in_the_place_of_a_record) {
    volume_builder volume;
    volume.add_file("a").data("x").record().signature("INDX");
    const categorized got = categorize(volume);
    ASSERT_TRUE(got.ok);
    EXPECT_EQ(got.items.size(), 4u);
    EXPECT_EQ(got.items[0].record_size, 0u);
}

TEST(categorize_entry, survives_an_index_block_whose_array_and_first_attribute_lie_anywhere) {
    for (const std::uint64_t first : {0u, 1020u, 1023u, 1024u, 65535u}) {
        for (const std::uint64_t array : {0u, 1021u, 1023u, 65535u}) {
            volume_builder volume;
            volume.replace_record(
                24, byte_writer(1024).text(0, "INDX").u16(4, array).u16(6, 65535).u16(20, first).take());
            const categorized got = categorize(volume);
            EXPECT_TRUE(got.ok);
            EXPECT_EQ(types_of(got.items), (std::vector<std::uint32_t>{0x110})) << first;
        }
    }
}

TEST(categorize_entry, restores_only_the_sectors_of_the_record_whatever_the_count_says) {
    volume_builder volume;
    record_builder record = volume.new_record(24);
    record.update_sequence_count(9).add(attribute_builder::resident(0x80, pattern(600)));
    volume.replace_record(24, record.build());
    EXPECT_EQ(of_type(categorize(volume).items, 0x80).at(0)->value, pattern(600));
}

TEST(categorize_entry, restores_nothing_where_a_sector_is_larger_than_the_record) {
    volume_builder volume({.bytes_per_sector = 4096, .sectors_per_cluster = 1, .record_size = 1024});
    volume.add_file("a").resident_data(bytes(600, 'x'));
    const bytes value = of_type(categorize(volume).items, 0x80).at(0)->value;
    EXPECT_EQ(std::count(value.begin(), value.end(), 'x'), 598) << "two bytes are the update sequence number";
}

TEST(categorize_entry, takes_a_record_of_512_bytes) {
    volume_builder volume({.record_size = 512});
    volume.replace_record(
        24, volume.new_record(24).add(attribute_builder::resident(0x80, to_bytes("small"))).build());
    EXPECT_EQ(of_type(categorize(volume).items, 0x80).at(0)->value, to_bytes("small"));
}

TEST(categorize_entry, finds_entry_0_through_the_runs_of_mft) {
    volume_builder volume;
    EXPECT_TRUE(categorize(opened_volume(volume).ntfs(), 0).ok);
    volume.replace_record(0, volume.new_record(0).build());
    opened_volume opened(volume);
    const categorized got = categorize(opened.ntfs(), 0);
    EXPECT_FALSE(got.ok) << "its place in the boot sector does not count here";
    EXPECT_EQ(got.log, (lines{"err: mftfixup 0"}));
}

TEST(categorize_entry, refuses_a_record_that_cannot_be_read) {
    volume_builder volume({.mft_runs = {{4, 8}, {1000, 8}}});
    bytes image = volume.image();
    image.resize(100 * 4096);
    opened_volume opened(image);
    const categorized got = categorize(opened.ntfs(), 40);
    EXPECT_FALSE(got.ok);
    EXPECT_EQ(got.log, (lines{"err: mftfixup 28"}));
}

TEST(categorize_entry, learns_the_sizes_of_a_volume_that_it_validates_itself) {
    volume_builder builder({.record_size = 4096});
    builder.add_file("a").resident_data(pattern(1900));
    const temp_dir dir;
    builder.write_to(dir / "image");
    CNtfs volume;
    ASSERT_TRUE(volume.open_source(source_type_path, (dir / "image").wstring(), -1, 0, false));
    const categorized got = categorize(volume, 24);
    ASSERT_TRUE(got.ok);
    EXPECT_EQ(of_type(got.items, 0x80).at(0)->value, pattern(1900));
}

TEST(categorize_entry, accepts_a_record_whose_sector_ends_do_not_match) {
    volume_builder volume;
    volume.add_file("a").resident_data(pattern(600)).record().force_on_disk(510, 2, 0xDEAD);
    EXPECT_EQ(of_type(categorize(volume).items, 0x80).at(0)->value, pattern(600));
}

TEST(categorize_entry, restores_nothing_for_a_count_below_2) {
    for (const unsigned count : {0u, 1u}) {
        volume_builder volume;
        volume.add_file("a").resident_data(bytes(600, 'x')).record().force_on_disk(6, 2, count);
        const categorized got = categorize(volume);
        ASSERT_TRUE(got.ok) << count;
        const bytes value = of_type(got.items, 0x80).at(0)->value;
        EXPECT_EQ(std::count(value.begin(), value.end(), 'x'), 598)
            << "two bytes are the update sequence number";
    }
}

TEST(categorize_entry, gives_only_the_header_for_a_first_attribute_offset_of_zero) {
    volume_builder volume;
    volume.add_file("a").data("x").record().first_attribute_offset(0);
    const categorized got = categorize(volume);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(types_of(got.items), (std::vector<std::uint32_t>{0x110}));
}

TEST(categorize_entry, keeps_what_is_ahead_of_an_attribute_outside_of_the_record) {
    for (const std::uint32_t length : {0u, 2000u, 1000u, 0xFFFFFFFFu}) {
        volume_builder volume;
        volume.add_file("a")
            .attribute(attribute_builder::resident(0x80, to_bytes("good")).id(5))
            .attribute(attribute_builder::resident(0x80, to_bytes("bad")).named("bad").id(6).length(length))
            .attribute(attribute_builder::resident(0xB0, to_bytes("behind")).id(7));
        const categorized got = categorize(volume);
        EXPECT_TRUE(got.ok);
        EXPECT_EQ(types_of(got.items), (std::vector<std::uint32_t>{0x110, 0x10, 0x30, 0x80})) << length;
        EXPECT_TRUE(got.log.empty());
    }
}

TEST(categorize_entry, survives_attributes_shorter_than_their_header) {
    for (const std::uint32_t length : {1u, 7u, 8u, 15u, 16u, 23u, 24u, 63u}) {
        for (const std::uint32_t type :
             {0x10u, 0x20u, 0x30u, 0x40u, 0x50u, 0x60u, 0x70u, 0x80u, 0x90u, 0xA0u, 0xC0u}) {
            volume_builder volume;
            volume.add_file("a")
                .attribute(attribute_builder::resident(type, pattern(80)).id(5).length(length))
                .attribute(attribute_builder::non_resident(type, {{100, 4}}).id(6).length(length));
            EXPECT_TRUE(categorize(volume).ok) << type << " " << length;
        }
    }
}

TEST(categorize_entry, ends_at_the_records_end_without_an_end_marker) {
    volume_builder volume;
    volume.add_file("a").data("x").record().without_end_marker();
    const categorized got = categorize(volume);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.items.size(), 4u);
}

TEST(categorize_entry, is_the_same_for_every_length_at_which_the_image_ends_after_the_record) {
    volume_builder volume;
    volume.add_file("a").data("content");
    const bytes image = volume.image();
    const std::size_t at = volume.record_position(first_user_entry);
    for (std::size_t size = at + 1; size < at + 1024; size += 31) {
        opened_volume opened(bytes(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(size)));
        const categorized got = categorize(opened.ntfs(), first_user_entry);
        // The header test looks at the first 22 bytes; the signature is the last thing that may be cut.
        EXPECT_EQ(got.ok, size - at >= 4) << size - at;
        EXPECT_EQ(got.items.empty(), !got.ok);
    }
}

// The saved words are put back over the whole record, also where the source ended ahead of a sector's end.
TEST(categorize_entry, puts_back_the_sector_ends_of_a_record_that_the_source_cuts) {
    volume_builder volume({.mft_entries = 28});
    record_builder record = volume.new_record(27);
    // 56 bytes of header, 24 of the attribute's, and a value to the end of the record.
    record.add(attribute_builder::resident(0x80, bytes(944, 'x'))).without_end_marker();
    volume.replace_record(27, record.build());
    bytes image = volume.image();
    image.resize(volume.record_position(27) + 600);
    opened_volume opened(image);
    bytes expected(600 - 80, 'x');
    expected.resize(942);
    expected.resize(944, 'x');
    EXPECT_EQ(of_type(categorize(opened.ntfs(), 27).items, 0x80).at(0)->value, expected);
}

// Once the end of the source has cut a record, later ones of the entry are read in the cut length.
TEST(categorize_entry, reads_later_records_in_the_length_to_which_the_end_of_the_source_cut_one) {
    geometry shape;
    shape.mft_entries = 28;
    volume_builder volume(shape);
    auto& first = volume.add_file_at(26, "first");
    const std::size_t last = first.add_extension(27);
    const std::size_t again = first.add_extension(25);
    first.attribute(attribute_builder::resident(0x80, to_bytes("in the cut record")).named("x").id(1), last);
    first.attribute(attribute_builder::resident(0x80, pattern(300)).named("y").id(3), again);
    first.attribute(attribute_builder::resident(0x80, pattern(300)).named("z").id(4), again);
    const bytes image = volume.image();
    const std::size_t end = volume.record_position(27) + 512;

    first.attribute_list(
        build_attribute_list({{.record = 27, .id = 1}, {.record = 25, .id = 3}, {.record = 25, .id = 4}}));
    const auto names_in = [&](std::size_t size) {
        bytes cut = volume.image();
        cut.resize(size);
        opened_volume opened(cut);
        const categorized got = categorize(opened.ntfs(), 26);
        std::vector<std::string> names;
        for (const attr_item* const item : of_type(got.items, 0x80)) {
            names.push_back(item->name);
        }
        return names;
    };
    EXPECT_EQ(names_in(image.size()), (std::vector<std::string>{"x", "y", "z"}));
    EXPECT_EQ(names_in(end), (std::vector<std::string>{"x", "y"}))
        << "z lies past byte 512 of a whole record";
}

TEST(categorize_entry, is_the_same_with_sectors_of_4096_bytes) {
    geometry shape;
    shape.bytes_per_sector = 4096;
    shape.sectors_per_cluster = 1;
    shape.record_size = 4096;
    shape.stride = 4096;
    volume_builder volume(shape);
    volume.add_file("a").resident_data(pattern(3000));
    EXPECT_EQ(of_type(categorize(volume).items, 0x80).at(0)->value, pattern(3000));
}

}  // namespace
}  // namespace quarry::test
