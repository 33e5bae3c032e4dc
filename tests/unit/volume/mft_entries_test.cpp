#include "volume/mft_entries.h"

#include "unit/volume/categorized.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

TEST(categorize_entry, lists_header_information_names_and_then_the_others) {
    volume_builder volume;
    volume.add_file("a.txt").data("hello");
    const categorized got = categorize(volume);
    ASSERT_TRUE(got.ok);
    EXPECT_EQ(types_of(got.items), (std::vector<std::uint32_t>{0x110, 0x10, 0x30, 0x80}));
    for (const attr_item& item : got.items) {
        EXPECT_EQ(item.entry, first_user_entry);
        EXPECT_EQ(item.sequence, 1u);
        EXPECT_EQ(item.record_size, 1024u);
        EXPECT_FALSE(item.non_resident);
    }
    EXPECT_EQ(got.items[1].id, 0u);
    EXPECT_EQ(got.items[2].id, 1u);
    EXPECT_EQ(got.items[3].id, 2u);
    EXPECT_TRUE(got.log.empty());
}

TEST(categorize_entry, describes_the_record_header) {
    volume_builder volume;
    volume.add_file("a").sequence(7);
    const attr_item header = categorize(volume).items.at(0);
    EXPECT_EQ(header.reference, 0x0007000000000018u);
    EXPECT_EQ(header.sequence, 7u);
    EXPECT_EQ(header.bits, 0x04 | (1 << 3)) << "one link, nothing else but the bit that is always set";
    EXPECT_EQ(header.base, 0u);
    EXPECT_EQ(header.record_size, 1024u);
    EXPECT_EQ(header.id, 0u);
    EXPECT_EQ(header.flags, 0u);
}

TEST(categorize_entry, takes_the_record_size_of_the_header_item_from_its_update_sequence) {
    volume_builder volume;
    volume.add_file("a").record().update_sequence_count(2);
    const categorized got = categorize(volume);
    EXPECT_EQ(got.items.at(0).record_size, 512u);
    EXPECT_EQ(got.items.at(1).record_size, 1024u);
}

TEST(categorize_entry, categorizes_a_deleted_record_as_usual_and_marks_it) {
    volume_builder volume;
    volume.add_file("gone.txt").data("still here").deleted();
    const categorized got = categorize(volume);
    ASSERT_TRUE(got.ok);
    EXPECT_EQ(got.items.at(0).bits & 0x01, 0x01);
    ASSERT_EQ(got.items.size(), 4u);
    EXPECT_EQ(got.items[3].value, to_bytes("still here"));
}

TEST(categorize_entry, marks_a_directory) {
    volume_builder volume;
    volume.add_directory("sub");
    EXPECT_EQ(categorize(volume).items.at(0).bits & 0x03, 0x02);
}

// Four bits of the count are kept, so 16 links show as 0.
TEST(categorize_entry, keeps_the_count_of_hard_links_modulo_16) {
    for (const auto& [links, bits] : {std::pair{0, 0x04}, {1, 0x0C}, {15, 0x7C}, {16, 0x04}, {65535, 0x7C}}) {
        volume_builder volume;
        volume.add_file("a").record().links(static_cast<std::uint16_t>(links));
        EXPECT_EQ(categorize(volume).items.at(0).bits, bits) << links;
    }
}

TEST(categorize_entry, categorizes_an_extension_record_given_as_the_entry) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t place = file.add_extension();
    file.attribute(piece({{200, 4}}, 0, 0), place);
    const categorized got = categorize(volume, file.extension_entry(place));
    ASSERT_TRUE(got.ok);
    ASSERT_EQ(types_of(got.items), (std::vector<std::uint32_t>{0x110, 0x80}));
    EXPECT_EQ(got.items[0].bits & 0x80, 0x80);
    EXPECT_EQ(got.items[0].base, 0x0001000000000018u);
    EXPECT_EQ(got.items[1].owner, 0x0001000000000018u);
    EXPECT_EQ(got.items[1].entry, file.extension_entry(place));
}

TEST(categorize_entry, gives_the_entry_as_owner_in_a_base_record) {
    volume_builder volume;
    volume.add_file("a").data(runs({{200, 4}}));
    const categorized got = categorize(volume);
    EXPECT_EQ(of_type(got.items, 0x80).at(0)->owner, first_user_entry);
}

TEST(categorize_entry, reports_the_times_of_standard_information_in_its_own_order) {
    volume_builder volume;
    volume.add_file("a")
        .times({.created = 11, .modified = 22, .mft_changed = 33, .accessed = 44})
        .attributes(0x2826)
        .security_id(0x1234);
    const attr_item item = *of_type(categorize(volume).items, 0x10).at(0);
    EXPECT_EQ(item.created, 11u);
    EXPECT_EQ(item.modified, 22u);
    EXPECT_EQ(item.accessed, 44u);
    EXPECT_EQ(item.mft_changed, 33u);
    EXPECT_EQ(item.attributes, 0x2826u);
    EXPECT_EQ(item.security_id, 0x1234u);
    EXPECT_EQ(item.value_size, 0u);
}

TEST(categorize_entry, gives_no_security_id_for_the_short_form_of_standard_information) {
    volume_builder volume;
    standard_information old_form;
    old_form.security_id = 0x99;
    old_form.size = 48;
    volume.add_file("a").without_standard_information().attribute(
        attribute_builder::resident(0x10, old_form.build()));
    EXPECT_EQ(of_type(categorize(volume).items, 0x10).at(0)->security_id, 0u);
}

TEST(categorize_entry, describes_a_file_name) {
    volume_builder volume;
    file_name name;
    name.parent = reference(0x123456789A, 9);
    name.name = "caf\xC3\xA9";
    name.name_space = 3;
    name.times = {.created = 11, .modified = 22, .mft_changed = 33, .accessed = 44};
    name.allocated = 8192;
    name.real = 5000;
    name.attributes = 0x20;
    volume.add_file("x").without_names().attribute(
        attribute_builder::resident(0x30, name.build()).flags(0x0002).id(9));
    const attr_item item = *of_type(categorize(volume).items, 0x30).at(0);
    EXPECT_EQ(item.text, "caf\xC3\xA9");
    EXPECT_EQ(item.name, "");
    EXPECT_EQ(item.parent, 0x000900123456789Au);
    EXPECT_EQ(item.name_space, 3u);
    EXPECT_EQ(item.created, 11u);
    EXPECT_EQ(item.modified, 22u);
    EXPECT_EQ(item.accessed, 44u);
    EXPECT_EQ(item.mft_changed, 33u);
    EXPECT_EQ(item.real, 5000u);
    EXPECT_EQ(item.attributes, 0x20u);
    EXPECT_EQ(item.id, 9u);
    EXPECT_EQ(item.flags, 2u);
}

TEST(categorize_entry, lists_two_hard_links_in_one_directory_by_name) {
    volume_builder volume;
    volume.add_file("zebra").hard_link("apple", root_entry);
    const categorized got = categorize(volume);
    const auto names = of_type(got.items, 0x30);
    ASSERT_EQ(names.size(), 2u);
    EXPECT_EQ(names[0]->text, "apple");
    EXPECT_EQ(names[1]->text, "zebra");
}

// The key is text: the parent as eight hexadecimal digits, then the name.
TEST(categorize_entry, lists_names_by_parent_ahead_of_the_name) {
    volume_builder volume;
    auto& sub = volume.add_directory("sub");
    auto& file = volume.add_file("zebra");
    file.hard_link("apple", sub.entry()).hard_link("Zebra2", root_entry);
    const categorized got = categorize(volume, file.entry());
    const auto names = of_type(got.items, 0x30);
    ASSERT_EQ(names.size(), 3u);
    EXPECT_EQ(names[0]->text, "Zebra2") << "capitals come first";
    EXPECT_EQ(names[1]->text, "zebra");
    EXPECT_EQ(names[2]->text, "apple") << "entry 24 comes after entry 5";
}

TEST(categorize_entry, lists_the_short_name_with_the_others) {
    volume_builder volume;
    volume.add_file("long file name.txt").short_name("LONGFI~1.TXT");
    const categorized got = categorize(volume);
    const auto names = of_type(got.items, 0x30);
    ASSERT_EQ(names.size(), 2u);
    EXPECT_EQ(names[0]->text, "LONGFI~1.TXT");
    EXPECT_EQ(names[0]->name_space, 2u);
    EXPECT_EQ(names[1]->name_space, 1u);
}

TEST(categorize_entry, describes_a_stream_in_clusters) {
    volume_builder volume;
    volume.add_file("a").data(
        runs({{100, 8}, {hole, 16}, {90, 2}}),
        {.real = 100000, .initialized = 90000, .compressed = 40960, .unit = 4, .flags = 0x8001});
    const attr_item item = *of_type(categorize(volume).items, 0x80).at(0);
    EXPECT_TRUE(item.non_resident);
    EXPECT_EQ(item.flags, 0x8001u);
    EXPECT_EQ(item.allocated, 26u * 4096);
    EXPECT_EQ(item.real, 100000u);
    EXPECT_EQ(item.initialized, 90000u);
    EXPECT_EQ(item.compressed, 40960u);
    EXPECT_EQ(item.unit, 4u);
    EXPECT_EQ(item.value_size, 0u);
    EXPECT_EQ(runs_of(item), (flat_runs{{0, 100, 8, false}, {8, 0, 16, true}, {24, 90, 2, false}}));
}

TEST(categorize_entry, describes_a_resident_stream) {
    volume_builder volume;
    volume.add_file("a").resident_data(pattern(600));
    const attr_item item = *of_type(categorize(volume).items, 0x80).at(0);
    EXPECT_EQ(item.value_size, 600u);
    // More than 512 bytes: the sector end in the middle was put back.
    EXPECT_EQ(item.value, pattern(600));
    EXPECT_TRUE(item.runs.empty());
}

TEST(categorize_entry, lists_the_unnamed_and_a_named_stream_beside_each_other) {
    volume_builder volume;
    volume.add_file("a").data("one").stream("x", "two");
    const categorized got = categorize(volume);
    const auto streams = of_type(got.items, 0x80);
    ASSERT_EQ(streams.size(), 2u);
    EXPECT_EQ(streams[0]->name, "");
    EXPECT_EQ(streams[0]->value, to_bytes("one"));
    EXPECT_EQ(streams[1]->name, "x");
    EXPECT_EQ(streams[1]->value, to_bytes("two"));
}

TEST(categorize_entry, orders_attributes_by_id_and_then_by_type) {
    volume_builder volume;
    volume.add_file("a")
        .attribute(attribute_builder::resident(0x80, to_bytes("late")).id(9))
        .attribute(attribute_builder::resident(0xB0, to_bytes("bits")).id(4))
        .attribute(attribute_builder::resident(0x100, to_bytes("log")).id(4))
        .attribute(attribute_builder::resident(0xE0, to_bytes("ea")).id(4));
    EXPECT_EQ(types_of(categorize(volume).items),
              (std::vector<std::uint32_t>{0x110, 0x10, 0x30, 0xB0, 0xE0, 0x100, 0x80}));
}

// A value as long as a record cannot be there in full: its size shows, its bytes do not.
TEST(categorize_entry, keeps_no_resident_value_that_is_as_long_as_a_record) {
    for (const std::uint64_t size : {1024u, 1025u, 0xFFFFFFFFu}) {
        volume_builder volume;
        volume.add_file("a").attribute(attribute_builder::resident(0x80, to_bytes("abc")).force(16, 4, size));
        const attr_item item = *of_type(categorize(volume).items, 0x80).at(0);
        EXPECT_EQ(item.value_size, size);
        EXPECT_TRUE(item.value.empty());
    }
}

TEST(categorize_entry, fills_a_value_that_reaches_out_of_its_attribute_with_zeros) {
    volume_builder volume;
    volume.add_file("a").attribute(
        attribute_builder::resident(0x80, to_bytes("abcdefgh")).force(16, 4, 1023));
    const attr_item item = *of_type(categorize(volume).items, 0x80).at(0);
    bytes expected = to_bytes("abcdefgh");
    expected.resize(1023);
    EXPECT_EQ(item.value, expected);
}

TEST(categorize_entry, gives_zeros_for_a_value_that_begins_outside_of_its_attribute) {
    for (const std::uint64_t offset : {32u, 33u, 1000u, 0xFFFFu}) {
        volume_builder volume;
        volume.add_file("a").attribute(
            attribute_builder::resident(0x80, to_bytes("abcdefgh")).force(20, 2, offset));
        const attr_item item = *of_type(categorize(volume).items, 0x80).at(0);
        EXPECT_EQ(item.value_size, 8u) << offset;
        EXPECT_EQ(item.value, bytes(8, 0)) << offset;
    }
}

TEST(categorize_entry, takes_an_object_id_of_exactly_16_bytes) {
    const bytes id = from_hex("00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE FF");
    volume_builder volume;
    volume.add_file("a").attribute(attribute_builder::resident(0x40, id));
    const attr_item item = *of_type(categorize(volume).items, 0x40).at(0);
    EXPECT_EQ(bytes(item.object_id.begin(), item.object_id.end()), id);
    EXPECT_EQ(item.value, id);
}

TEST(categorize_entry, gives_only_the_size_of_a_longer_object_id) {
    volume_builder volume;
    volume.add_file("a").attribute(attribute_builder::resident(0x40, pattern(64)));
    const attr_item item = *of_type(categorize(volume).items, 0x40).at(0);
    EXPECT_EQ(item.value_size, 64u);
    EXPECT_EQ(bytes(item.object_id.begin(), item.object_id.end()), bytes(16, 0));
}

TEST(categorize_entry, takes_the_volume_name_from_the_value) {
    volume_builder volume;
    volume.add_file("a").attribute(attribute_builder::resident(0x60, ntfs_name("D\xC3\xA4ta").on_disk()));
    const attr_item item = *of_type(categorize(volume).items, 0x60).at(0);
    EXPECT_EQ(item.name, "D\xC3\xA4ta");
    EXPECT_EQ(item.text, "");
    EXPECT_EQ(item.value, ntfs_name("D\xC3\xA4ta").on_disk());
}

TEST(categorize_entry, takes_the_name_of_the_volume_name_attribute_before_its_value) {
    volume_builder volume;
    volume.add_file("a").attribute(
        attribute_builder::resident(0x60, ntfs_name("value").on_disk()).named("name"));
    EXPECT_EQ(of_type(categorize(volume).items, 0x60).at(0)->name, "name");
}

// What is kept of an entry beside its items.

entry_record entry_of(const volume_builder& volume, std::uint64_t entry) {
    opened_volume opened(volume);
    capturing_log log;
    entry_record record;
    record.has_list = record.has_base = record.has_unnamed_data = true;
    record.file_names["left over"] = {};
    EXPECT_TRUE(mft_entries_ctx(opened.ntfs(), log).read_entry(record, entry));
    return record;
}

TEST(read_entry, keeps_the_record_and_the_start_of_its_header) {
    volume_builder volume;
    volume.add_file("a").resident_data(pattern(600)).sequence(0x1234);
    const entry_record got = entry_of(volume, first_user_entry);
    EXPECT_EQ(got.entry, first_user_entry);
    EXPECT_EQ(got.sequence, 0x1234u);
    bytes record = volume.record_on_disk(first_user_entry);
    ASSERT_EQ(record.size(), 1024u);
    EXPECT_EQ(bytes(got.header.begin(), got.header.end()), bytes(record.begin(), record.begin() + 42));
    // The saved words of the two sector ends follow the update sequence number at 0x30.
    std::copy_n(record.begin() + 0x32, 2, record.begin() + 510);
    std::copy_n(record.begin() + 0x34, 2, record.begin() + 1022);
    EXPECT_EQ(got.record, record);
    EXPECT_FALSE(got.has_base);
    EXPECT_EQ(got.base, 0u);
    EXPECT_FALSE(got.has_list);
    EXPECT_FALSE(got.list_non_resident);
    EXPECT_TRUE(got.has_unnamed_data);
    EXPECT_EQ(got.file_names.size(), 1u);
}

TEST(read_entry, reports_of_an_attribute_list_and_where_it_lies) {
    for (const bool in_clusters : {false, true}) {
        volume_builder volume;
        auto& file = volume.add_file("a").attribute_list(build_attribute_list({{.record = 24, .id = 1}}));
        if (in_clusters) {
            file.list_in_clusters();
        }
        const entry_record got = entry_of(volume, first_user_entry);
        EXPECT_TRUE(got.has_list);
        EXPECT_EQ(got.list_non_resident, in_clusters);
        EXPECT_FALSE(got.has_unnamed_data);
    }
}

TEST(read_entry, keeps_the_base_reference_as_it_is_stored) {
    volume_builder volume;
    auto& file = volume.add_file("a").sequence(9);
    const std::size_t place = file.add_extension();
    const entry_record got = entry_of(volume, file.extension_entry(place));
    EXPECT_TRUE(got.has_base);
    EXPECT_EQ(got.base, 0x0009000000000018u);
}

TEST(categorize_index_only, lists_index_attributes_and_nothing_else) {
    volume_builder volume;
    auto& directory = volume.add_directory("sub");
    directory.index_in_blocks();
    volume.add_file("child", directory.entry());
    opened_volume opened(volume);
    capturing_log log;
    attr_item_list items(2);
    ASSERT_TRUE(categorize_index_only(opened.ntfs(), directory.entry(), items, log));
    EXPECT_EQ(types_of(items), (std::vector<std::uint32_t>{0x90, 0xA0}));
    EXPECT_EQ(items[0].name, "$I30");
    EXPECT_FALSE(categorize_index_only(opened.ntfs(), 40, items, log));
    EXPECT_TRUE(items.empty());
}

}  // namespace
}  // namespace quarry::test
