// Entries whose attributes lie in several records, which an attribute list names.
#include "support/run_program.h"
#include "unit/volume/categorized.h"
#include "volume/entry_flattening.h"

#include <ctime>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

// A file's pieces.

TEST(categorize_entry, joins_a_data_stream_spread_over_three_records) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    const std::size_t third = file.add_extension();
    file.attribute(piece({{100, 16}}, 0, 2).allocated(64 * 4096).real(200000).initialized(150000));
    file.attribute(piece({{300, 16}}, 16, 0).allocated(5).real(6).initialized(7), second);
    file.attribute(piece({{200, 32}}, 32, 5).allocated(8).real(9).initialized(10), third);
    const categorized got = categorize(volume);
    ASSERT_TRUE(got.ok);
    const auto streams = of_type(got.items, 0x80);
    ASSERT_EQ(streams.size(), 1u);
    EXPECT_EQ(runs_of(*streams[0]),
              (flat_runs{{0, 100, 16, false}, {16, 300, 16, false}, {32, 200, 32, false}}));
    EXPECT_EQ(streams[0]->allocated, 64u * 4096);
    EXPECT_EQ(streams[0]->real, 200000u);
    EXPECT_EQ(streams[0]->initialized, 150000u);
    EXPECT_EQ(streams[0]->entry, first_user_entry);
    EXPECT_EQ(streams[0]->owner, first_user_entry);
    EXPECT_EQ(streams[0]->id, 2u);
    EXPECT_EQ(got.log, (lines{"primary entry 24 pointing to ref entry 25",
                              "primary entry 24 pointing to ref entry 26"}));
}

TEST(categorize_entry, puts_an_earlier_piece_ahead_of_the_one_first_met) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(piece({{300, 16}}, 16, 2));
    file.attribute(piece({{100, 16}}, 0, 0), second);
    EXPECT_EQ(runs_of(*of_type(categorize(volume).items, 0x80).at(0)),
              (flat_runs{{0, 100, 16, false}, {16, 300, 16, false}}));
}

// Each join closes the gaps, so the place of a piece in the middle may be taken by the time it comes.
TEST(categorize_entry, loses_a_piece_that_the_list_names_after_a_later_one) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    const std::size_t third = file.add_extension();
    file.attribute(piece({{100, 16}}, 0, 2));
    file.attribute(piece({{300, 16}}, 16, 0), second).attribute(piece({{200, 32}}, 32, 5), third);
    file.attribute_list(build_attribute_list({{.record = 26, .id = 5}, {.record = 25, .id = 0}}));
    EXPECT_EQ(runs_of(*of_type(categorize(volume).items, 0x80).at(0)),
              (flat_runs{{0, 100, 16, false}, {16, 200, 32, false}}));
}

TEST(categorize_entry, joins_pieces_that_share_type_id_and_name) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(piece({{100, 16}}, 0, 3).named("x"));
    file.attribute(piece({{300, 16}}, 16, 3).named("x"), second);
    const categorized got = categorize(volume);
    const auto streams = of_type(got.items, 0x80);
    ASSERT_EQ(streams.size(), 1u);
    EXPECT_EQ(runs_of(*streams[0]), (flat_runs{{0, 100, 16, false}, {16, 300, 16, false}}));
}

// Pieces of a named stream that carry different ids stay apart.
TEST(categorize_entry, leaves_a_named_stream_in_pieces_when_their_ids_differ) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(piece({{100, 16}}, 0, 3).named("x"));
    file.attribute(piece({{300, 16}}, 16, 4).named("x"), second);
    const categorized got = categorize(volume);
    const auto streams = of_type(got.items, 0x80);
    ASSERT_EQ(streams.size(), 2u);
    EXPECT_EQ(runs_of(*streams[0]), (flat_runs{{0, 100, 16, false}}));
    EXPECT_EQ(runs_of(*streams[1]), (flat_runs{{16, 300, 16, false}}));
}

// A piece whose id belongs to another name is dropped.
TEST(categorize_entry, drops_a_piece_whose_id_is_for_another_name) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(piece({{100, 16}}, 0, 3).named("x"));
    file.attribute(piece({{300, 16}}, 16, 3).named("y"), second);
    file.attribute(piece({{400, 16}}, 16, 3), second);
    const categorized got = categorize(volume);
    const auto streams = of_type(got.items, 0x80);
    ASSERT_EQ(streams.size(), 1u);
    EXPECT_EQ(streams[0]->name, "x");
    EXPECT_EQ(runs_of(*streams[0]), (flat_runs{{0, 100, 16, false}}));
}

TEST(categorize_entry, leaves_the_first_of_two_resident_values_of_one_key) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(attribute_builder::resident(0x80, to_bytes("first")).id(3));
    file.attribute(attribute_builder::resident(0x80, to_bytes("second")).id(3), second);
    const categorized got = categorize(volume);
    const auto streams = of_type(got.items, 0x80);
    ASSERT_EQ(streams.size(), 1u);
    EXPECT_EQ(streams[0]->value, to_bytes("first"));
}

TEST(categorize_entry, lists_resident_unnamed_streams_of_different_ids_one_by_one) {
    volume_builder volume;
    volume.add_file("a")
        .attribute(attribute_builder::resident(0x80, to_bytes("first")).id(3))
        .attribute(attribute_builder::resident(0x80, to_bytes("second")).id(4))
        .attribute(attribute_builder::resident(0x80, {}).id(5));
    const categorized got = categorize(volume);
    const auto streams = of_type(got.items, 0x80);
    ASSERT_EQ(streams.size(), 2u) << "the empty one is a piece of the first";
    EXPECT_EQ(streams[0]->value, to_bytes("first"));
    EXPECT_EQ(streams[1]->value, to_bytes("second"));
}

// Of several unnamed streams the first in the order of the items takes a piece, whichever was met first.
TEST(categorize_entry, joins_a_piece_to_the_first_of_several_unnamed_streams) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(piece({{100, 16}}, 0, 5));
    file.attribute(attribute_builder::resident(0x80, to_bytes("resident")).id(3));
    file.attribute(piece({{300, 16}}, 16, 7), second);
    const categorized got = categorize(volume);
    const auto streams = of_type(got.items, 0x80);
    ASSERT_EQ(streams.size(), 2u);
    EXPECT_EQ(streams[0]->id, 3u);
    EXPECT_EQ(streams[0]->value, to_bytes("resident"));
    EXPECT_TRUE(streams[0]->runs.empty()) << "the runs of a resident stream are not listed";
    EXPECT_EQ(streams[1]->id, 5u);
    EXPECT_EQ(runs_of(*streams[1]), (flat_runs{{0, 100, 16, false}}));
}

TEST(categorize_entry, lists_an_empty_resident_stream) {
    volume_builder volume;
    volume.add_file("a").resident_data({});
    const attr_item item = *of_type(categorize(volume).items, 0x80).at(0);
    EXPECT_FALSE(item.non_resident);
    EXPECT_EQ(item.value_size, 0u);
    EXPECT_TRUE(item.value.empty());
}

TEST(categorize_entry, joins_the_index_allocation_of_a_directory_by_id_and_name) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(attribute_builder::non_resident(0xA0, {{100, 1}}).named("$I30").id(3));
    file.attribute(attribute_builder::non_resident(0xA0, {{110, 2}}).named("$I30").id(3).lowest_vcn(1),
                   second);
    const categorized got = categorize(volume);
    const auto found = of_type(got.items, 0xA0);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0]->name, "$I30");
    EXPECT_EQ(runs_of(*found[0]), (flat_runs{{0, 100, 1, false}, {1, 110, 2, false}}));
}

TEST(categorize_entry, takes_everything_of_an_extension_record_for_the_base_entry) {
    volume_builder volume;
    auto& file = volume.add_file("base");
    const std::size_t second = file.add_extension();
    file_name other;
    other.name = "another name";
    file.attribute(attribute_builder::resident(0x30, other.build()).id(8), second);
    file.attribute(attribute_builder::resident(0x80, to_bytes("in the extension")).id(9), second);
    const categorized got = categorize(volume);
    ASSERT_EQ(types_of(got.items), (std::vector<std::uint32_t>{0x110, 0x10, 0x30, 0x30, 0x80}));
    EXPECT_EQ(got.items[2].text, "another name");
    EXPECT_EQ(got.items[4].value, to_bytes("in the extension"));
    EXPECT_EQ(got.items[4].entry, file.entry());
}

// A record that was given to another file since is read all the same.
TEST(categorize_entry, does_not_compare_the_sequence_number_of_a_list_entry) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.record(second).sequence(77);
    file.attribute(piece({{300, 16}}, 0, 0), second);
    file.attribute_list(build_attribute_list({{.record = 25, .sequence = 3, .id = 0}}));
    EXPECT_EQ(of_type(categorize(volume).items, 0x80).size(), 1u);
}

TEST(categorize_entry, takes_only_what_the_list_names) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(attribute_builder::resident(0x80, to_bytes("named by the list")).named("x").id(1), second);
    file.attribute(attribute_builder::resident(0x80, to_bytes("not named")).named("y").id(2), second);
    file.attribute_list(build_attribute_list(
        {{.record = 25, .id = 1}, {.record = 25, .id = 7}, {.type = 0xB0, .record = 25, .id = 2}}));
    const categorized got = categorize(volume);
    const auto streams = of_type(got.items, 0x80);
    ASSERT_EQ(streams.size(), 1u);
    EXPECT_EQ(streams[0]->name, "x");
    EXPECT_EQ(got.log.size(), 3u) << "one line for each entry";
}

TEST(categorize_entry, follows_a_list_in_clusters) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(piece({{300, 16}}, 0, 0), second).list_in_clusters();
    const categorized got = categorize(volume);
    EXPECT_EQ(of_type(got.items, 0x80).size(), 1u);
    EXPECT_TRUE(of_type(got.items, 0x20).empty()) << "lists are no items";
    EXPECT_EQ(got.log, (lines{"primary entry 24 pointing to ref entry 25"}));
}

TEST(categorize_entry, does_not_follow_a_list_in_an_extension_record) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    const std::size_t third = file.add_extension();
    file.attribute(attribute_builder::resident(0x20, build_attribute_list({{.record = 26, .id = 0}})).id(1),
                   second);
    file.attribute(piece({{300, 16}}, 0, 0), third);
    file.attribute_list(build_attribute_list({{.type = 0x20, .record = 25, .id = 1}}));
    const categorized got = categorize(volume);
    EXPECT_TRUE(of_type(got.items, 0x80).empty());
    EXPECT_EQ(got.log.size(), 1u);
}

TEST(categorize_entry, follows_every_list_of_a_record) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(attribute_builder::resident(0x80, to_bytes("1")).named("x").id(1), second);
    file.attribute(attribute_builder::resident(0x80, to_bytes("2")).named("y").id(2), second);
    file.attribute_list(build_attribute_list({{.record = 25, .id = 1}}));
    file.attribute(attribute_builder::resident(0x20, build_attribute_list({{.record = 25, .id = 2}})).id(11));
    EXPECT_EQ(of_type(categorize(volume).items, 0x80).size(), 2u);
}

TEST(categorize_entry, goes_on_without_an_extension_record_that_is_none) {
    for (const char* const signature : {"BAAD", "INDX", "ABCD", "file"}) {
        volume_builder volume;
        auto& file = volume.add_file("a");
        const std::size_t second = file.add_extension();
        const std::size_t third = file.add_extension();
        file.attribute(attribute_builder::resident(0x80, to_bytes("lost")).named("x").id(1), second);
        file.attribute(attribute_builder::resident(0x80, to_bytes("kept")).named("y").id(1), third);
        file.record(second).signature(signature);
        file.attribute_list(build_attribute_list({{.record = 25, .id = 1}, {.record = 26, .id = 1}}));
        const categorized got = categorize(volume);
        EXPECT_TRUE(got.ok);
        const auto streams = of_type(got.items, 0x80);
        ASSERT_EQ(streams.size(), 1u) << signature;
        EXPECT_EQ(streams[0]->name, "y");
        lines expected{"primary entry 24 pointing to ref entry 25",
                       "primary entry 24 pointing to ref entry 26"};
        if (std::string(signature) == "BAAD") {
            expected.insert(expected.begin() + 1, "err: fixup_mft type: BAAD");
        }
        EXPECT_EQ(got.log, expected);
    }
}

TEST(categorize_entry, goes_on_without_an_extension_record_outside_of_the_mft) {
    volume_builder volume;
    volume.add_file("a")
        .attribute_list(build_attribute_list({{.record = 0xFFFFFFFFFFFF, .id = 1}}))
        .data("kept");
    const categorized got = categorize(volume);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.log, (lines{"primary entry 24 pointing to ref entry 281474976710655"}));
    EXPECT_EQ(of_type(got.items, 0x80).size(), 1u);
}

TEST(categorize_entry, goes_on_without_an_extension_record_that_has_no_first_attribute) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(attribute_builder::resident(0x80, to_bytes("lost")).id(1), second);
    file.record(second).first_attribute_offset(0);
    EXPECT_TRUE(of_type(categorize(volume).items, 0x80).empty());
}

TEST(categorize_entry, ends_the_search_in_an_extension_record_at_an_attribute_of_length_zero) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(attribute_builder::resident(0x70, pattern(12)).id(1).length(0), second);
    file.attribute(attribute_builder::resident(0x80, to_bytes("behind")).id(2), second);
    const categorized got = categorize(volume);
    EXPECT_TRUE(got.ok);
    EXPECT_TRUE(of_type(got.items, 0x80).empty());
}

TEST(categorize_entry, takes_nothing_of_an_extension_record_whose_first_attribute_fills_it) {
    for (const auto& [length, found] : {std::pair{1024u, 0u}, {0xFFFFFFFFu, 0u}, {1023u, 0u}}) {
        volume_builder volume;
        auto& file = volume.add_file("a");
        const std::size_t second = file.add_extension();
        file.attribute(attribute_builder::resident(0x80, to_bytes("x")).id(2).length(length), second);
        EXPECT_EQ(of_type(categorize(volume).items, 0x80).size(), found) << length;
    }
}

// Damaged attribute lists.

TEST(categorize_entry, ends_a_list_at_an_entry_of_length_zero) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(attribute_builder::resident(0x80, to_bytes("x")).named("x").id(1), second);
    file.attribute(attribute_builder::resident(0x80, to_bytes("y")).named("y").id(2), second);
    file.attribute_list(
        build_attribute_list({{.record = 25, .id = 1, .forced = {{4, 2, 0}}}, {.record = 25, .id = 2}}));
    const categorized got = categorize(volume);
    EXPECT_TRUE(got.ok);
    EXPECT_TRUE(of_type(got.items, 0x80).empty()) << "the entry itself counts for nothing";
    EXPECT_TRUE(got.log.empty());
}

TEST(categorize_entry, survives_a_list_cut_at_every_length) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(attribute_builder::resident(0x80, to_bytes("x")).named("x").id(1), second);
    file.attribute(attribute_builder::resident(0x80, to_bytes("y")).named("y").id(2), second);
    const bytes list = build_attribute_list({{.record = 25, .id = 1}, {.record = 25, .id = 2}});
    ASSERT_EQ(list.size(), 64u);
    for (std::size_t size = 0; size <= list.size(); ++size) {
        file.attribute_list(bytes(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(size)));
        const categorized got = categorize(volume);
        EXPECT_TRUE(got.ok);
        // An entry counts once its 26 bytes are there.
        EXPECT_EQ(of_type(got.items, 0x80).size(), (size >= 26 ? 1u : 0u) + (size >= 58 ? 1u : 0u)) << size;
    }
}

TEST(categorize_entry, steps_by_the_length_of_a_list_entry_however_small) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(attribute_builder::resident(0x80, to_bytes("x")).id(1), second);
    for (const std::uint64_t length : {1u, 8u, 25u, 31u, 33u, 0xFFFFu}) {
        file.attribute_list(build_attribute_list({{.record = 25, .id = 1, .forced = {{4, 2, length}}}}));
        const categorized got = categorize(volume);
        EXPECT_TRUE(got.ok);
        EXPECT_EQ(of_type(got.items, 0x80).size(), 1u) << length;
        EXPECT_LE(got.log.size(), 7u);
    }
}

TEST(categorize_entry, reads_nothing_for_a_list_entry_of_the_record_itself) {
    volume_builder volume;
    volume.add_file("a").data("x").attribute_list(
        build_attribute_list({{.record = 24, .id = 2}, {.record = 24, .id = 9}}));
    const categorized got = categorize(volume);
    EXPECT_TRUE(got.log.empty());
    EXPECT_EQ(of_type(got.items, 0x80).size(), 1u);
}

TEST(categorize_entry, ends_for_two_records_whose_lists_name_each_other) {
    volume_builder volume;
    auto& first = volume.add_file("a");
    auto& second = volume.add_file("b");
    first.attribute_list(build_attribute_list({{.type = 0x20, .record = second.entry(), .id = 2}}));
    second.attribute_list(build_attribute_list({{.type = 0x20, .record = first.entry(), .id = 2}}));
    EXPECT_TRUE(categorize(volume, first.entry()).ok);
    EXPECT_TRUE(categorize(volume, second.entry()).ok);
}

TEST(categorize_entry, ends_for_a_list_of_60000_entries_of_one_record) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(piece({{300, 16}}, 0, 1), second);
    file.attribute_list(build_attribute_list(std::vector<list_item>(60000, {.record = 25, .id = 1})))
        .list_in_clusters();
    const categorized got = categorize(volume);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.log.size(), 60000u);
    EXPECT_EQ(runs_of(*of_type(got.items, 0x80).at(0)), (flat_runs{{0, 300, 16, false}}));
}

TEST(categorize_entry, follows_lists_until_64_mib_were_read) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(piece({{300, 16}}, 0, 1), second);
    file.attribute_list(build_attribute_list(std::vector<list_item>(70000, {.record = 25, .id = 1})))
        .list_in_clusters();
    const categorized got = categorize(volume);
    EXPECT_TRUE(got.ok);
    // The list is cut at 2 MiB. What is left of 64 MiB are 63,488 records of 1024 bytes.
    EXPECT_EQ(got.log.size(), 63488u);
    EXPECT_EQ(of_type(got.items, 0x80).size(), 1u);
}

TEST(categorize_entry, follows_lists_until_32_mib_of_attributes_were_found) {
    volume_builder volume({.record_size = 4096});
    auto& file = volume.add_file("a");
    const attribute_builder named = attribute_builder::resident(0x80, bytes(3968)).named("s").id(1);
    ASSERT_EQ(named.build().size(), 4000u);
    file.attribute(named, file.add_extension());
    file.attribute_list(build_attribute_list(std::vector<list_item>(9000, {.record = 25, .id = 1})))
        .list_in_clusters();
    const categorized got = categorize(volume);
    EXPECT_TRUE(got.ok);
    // 8,388 times 4,000 bytes are a little less than 32 MiB.
    EXPECT_EQ(got.log.size(), 8389u);
    EXPECT_EQ(of_type(got.items, 0x80).size(), 1u);
}

TEST(categorize_entry, takes_no_more_memory_than_twice_the_source) {
    // 440 holes of one cluster each take 880 bytes of a record and 14,080 bytes of memory.
    bytes holes;
    for (int i = 0; i < 440; ++i) {
        holes.insert(holes.end(), {0x01, 0x01});
    }
    holes.push_back(0);
    volume_builder volume({.mft_entries = 96});
    auto& file = volume.add_file("a").data("x");
    for (std::uint16_t i = 0; i < 60; ++i) {
        file.attribute(
            attribute_builder::with_pairs(0x80, holes).named("s").id(static_cast<std::uint16_t>(100 + i)),
            file.add_extension());
    }
    file.list_in_clusters();
    opened_volume opened(volume);
    const std::uint64_t source = opened.ntfs().source_size();
    const categorized got = categorize(opened.ntfs(), file.entry());
    EXPECT_TRUE(got.ok);
    std::uint64_t memory = 0;
    for (const attr_item& item : got.items) {
        memory += item.runs.size() * sizeof(cluster_run);
    }
    ASSERT_LT(source, 60u * 14080 / 3) << "the runs of all records would be more than is allowed";
    EXPECT_GT(memory, source);
    EXPECT_LE(memory, 2 * source + 14080);
    EXPECT_EQ(of_type(got.items, 0x80).at(0)->value, to_bytes("x"));
}

TEST(flatten_entry, pads_values_with_4_mib_of_zeros_at_most) {
    // 100 attributes without a value of their own that claim 60,000 bytes each.
    entry_record record;
    bytes chain;
    for (std::uint16_t i = 0; i < 100; ++i) {
        const bytes header = attribute_builder::resident(0x80, {}).id(i).force(16, 4, 60000).build();
        chain.insert(chain.end(), header.begin(), header.end());
    }
    bool is_list = false;
    for (attribute at{byte_view(chain)}; !at.is_null(); at = at.next()) {
        ASSERT_TRUE(categorize_attribute(record, 30, at, is_list));
    }
    const attr_item_list items = flatten_entry(record, 65536);
    ASSERT_EQ(items.size(), 101u);
    // 4,194,304 bytes are 69 whole values and 54,304 bytes.
    EXPECT_EQ(items[1].value, bytes(60000));
    EXPECT_EQ(items[69].value.size(), 60000u);
    EXPECT_EQ(items[70].value.size(), 54304u);
    EXPECT_EQ(items[71].value.size(), 0u);
    EXPECT_EQ(items[100].value_size, 60000u);
}

TEST(categorize_entry, costs_little_for_a_list_whose_runs_claim_terabytes) {
    volume_builder volume;
    volume.add_file("a").data("kept").attribute(
        attribute_builder::with_pairs(0x20, from_hex("04 FF FF FF FF 04 FF FF FF FF 04 FF FF FF FF 00"))
            .id(9));
    const categorized got = categorize(volume);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(of_type(got.items, 0x80).size(), 1u);
}

TEST(categorize_entry, reads_the_list_as_far_as_its_clusters_can_be_read) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(attribute_builder::resident(0x80, to_bytes("x")).named("x").id(1), second);
    file.without_attribute_list();
    volume.write_clusters(90, build_attribute_list({{.record = 25, .id = 1}}));
    file.attribute(attribute_builder::non_resident(0x20, {{90, 1}, {90000, 1}}).id(9));
    const categorized got = categorize(volume);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(of_type(got.items, 0x80).size(), 1u);
}

// A volume with one file whose list names the same piece again and again. The runs of the piece lie between
// those that are there, each time anew.
void add_interleaved_file(volume_builder& volume, std::size_t times) {
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(piece({{100, 2}, {200, 2}, {300, 2}}, 0, 2));
    file.attribute(piece({{400, 2}, {500, 2}, {600, 2}}, 1, 7), second);
    bytes list;
    const bytes entry = build_attribute_list({{.record = 25, .id = 7}});
    for (std::size_t i = 0; i < times; ++i) {
        list.insert(list.end(), entry.begin(), entry.end());
    }
    file.attribute_list(list).list_in_clusters();
}

TEST(categorize_entry, joins_a_piece_named_again_and_again_as_merging_one_by_one_does) {
    volume_builder volume;
    add_interleaved_file(volume, 500);
    cluster_run_list expected{{100, 0, false, 2}, {200, 2, false, 2}, {300, 4, false, 2}};
    for (int i = 0; i < 500; ++i) {
        merge_runs({{400, 1, false, 2}, {500, 3, false, 2}, {600, 5, false, 2}}, expected);
    }
    ASSERT_EQ(expected.size(), 1503u);
    EXPECT_EQ(of_type(categorize(volume).items, 0x80).at(0)->runs, expected);
}

// 2 MiB that took most of a minute while each join walked over all that was there.
TEST(categorize_entry, joins_a_piece_named_sixty_thousand_times_in_little_time) {
    volume_builder volume;
    // A build with AddressSanitizer takes fifteen times as long.
    const std::size_t times = time_allowance() > 1.0 ? 20000 : 60000;
    add_interleaved_file(volume, times);
    opened_volume opened(volume);
    ASSERT_LT(opened->source_size(), 3u << 20);
    attr_item_list items;
    const std::clock_t start = std::clock();
    ASSERT_TRUE(categorize_entry(opened.ntfs(), 24, items, no_log()));
    const auto processor_seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    EXPECT_GT(of_type(items, 0x80).at(0)->runs.size(), 2 * times);
    EXPECT_LT(processor_seconds, 10.0 * time_allowance());
}

}  // namespace
}  // namespace quarry::test
