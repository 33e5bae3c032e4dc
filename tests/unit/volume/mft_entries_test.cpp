#include "volume/mft_entries.h"

#include "support/capturing_log.h"
#include "support/opened_volume.h"
#include "volume/entry_flattening.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using lines = std::vector<std::string>;

// What became of one entry.
struct categorized {
    bool ok = false;
    attr_item_list items;
    lines log;
};

categorized categorize(CNtfs& ntfs, std::uint64_t entry) {
    categorized out;
    out.items.resize(3);
    capturing_log log;
    out.ok = categorize_entry(ntfs, entry, out.items, log);
    out.log = log.lines;
    return out;
}

categorized categorize(const volume_builder& volume, std::uint64_t entry = first_user_entry) {
    opened_volume opened(volume);
    return categorize(opened.ntfs(), entry);
}

std::vector<const attr_item*> of_type(const attr_item_list& items, std::uint32_t type) {
    std::vector<const attr_item*> found;
    for (const attr_item& item : items) {
        if (item.type == type) {
            found.push_back(&item);
        }
    }
    return found;
}

std::vector<std::uint32_t> types_of(const attr_item_list& items) {
    std::vector<std::uint32_t> types;
    for (const attr_item& item : items) {
        types.push_back(item.type);
    }
    return types;
}

// VCN, LCN, length; LCN 0 and a mark for holes.
using flat_runs = std::vector<std::tuple<std::uint64_t, std::uint64_t, std::uint32_t, bool>>;
flat_runs runs_of(const attr_item& item) {
    flat_runs out;
    for (const cluster_run& run : item.runs) {
        out.emplace_back(run.vcn, run.lcn, run.length, run.sparse);
    }
    return out;
}

attribute_builder piece(run_list where, std::uint64_t lowest_vcn, std::uint16_t id) {
    return attribute_builder::non_resident(attr_data, std::move(where)).lowest_vcn(lowest_vcn).id(id);
}

TEST(CategorizeEntry, ListsHeaderInformationNamesAndThenTheOthers) {
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

TEST(CategorizeEntry, DescribesTheRecordHeader) {
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

TEST(CategorizeEntry, TakesTheRecordSizeOfTheHeaderItemFromItsUpdateSequence) {
    volume_builder volume;
    volume.add_file("a").record().update_sequence_count(2);
    const categorized got = categorize(volume);
    EXPECT_EQ(got.items.at(0).record_size, 512u);
    EXPECT_EQ(got.items.at(1).record_size, 1024u);
}

TEST(CategorizeEntry, CategorizesADeletedRecordAsUsualAndMarksIt) {
    volume_builder volume;
    volume.add_file("gone.txt").data("still here").deleted();
    const categorized got = categorize(volume);
    ASSERT_TRUE(got.ok);
    EXPECT_EQ(got.items.at(0).bits & 0x01, 0x01);
    ASSERT_EQ(got.items.size(), 4u);
    EXPECT_EQ(got.items[3].value, to_bytes("still here"));
}

TEST(CategorizeEntry, MarksADirectory) {
    volume_builder volume;
    volume.add_directory("sub");
    EXPECT_EQ(categorize(volume).items.at(0).bits & 0x03, 0x02);
}

// Four bits of the count are kept, so 16 links show as 0.
TEST(CategorizeEntry, KeepsTheCountOfHardLinksModulo16) {
    for (const auto& [links, bits] : {std::pair{0, 0x04}, {1, 0x0C}, {15, 0x7C}, {16, 0x04}, {65535, 0x7C}}) {
        volume_builder volume;
        volume.add_file("a").record().links(static_cast<std::uint16_t>(links));
        EXPECT_EQ(categorize(volume).items.at(0).bits, bits) << links;
    }
}

TEST(CategorizeEntry, CategorizesAnExtensionRecordGivenAsTheEntry) {
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

TEST(CategorizeEntry, GivesTheEntryAsOwnerInABaseRecord) {
    volume_builder volume;
    volume.add_file("a").data(runs({{200, 4}}));
    const categorized got = categorize(volume);
    EXPECT_EQ(of_type(got.items, 0x80).at(0)->owner, first_user_entry);
}

TEST(CategorizeEntry, TellsTheTimesOfStandardInformationInItsOwnOrder) {
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

TEST(CategorizeEntry, GivesNoSecurityIdForTheShortFormOfStandardInformation) {
    volume_builder volume;
    standard_information old_form;
    old_form.security_id = 0x99;
    old_form.size = 48;
    volume.add_file("a").without_standard_information().attribute(
        attribute_builder::resident(0x10, old_form.build()));
    EXPECT_EQ(of_type(categorize(volume).items, 0x10).at(0)->security_id, 0u);
}

TEST(CategorizeEntry, DescribesAFileName) {
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

TEST(CategorizeEntry, ListsTwoHardLinksInOneDirectoryByName) {
    volume_builder volume;
    volume.add_file("zebra").hard_link("apple", root_entry);
    const categorized got = categorize(volume);
    const auto names = of_type(got.items, 0x30);
    ASSERT_EQ(names.size(), 2u);
    EXPECT_EQ(names[0]->text, "apple");
    EXPECT_EQ(names[1]->text, "zebra");
}

// The key is text: the parent as eight hexadecimal digits, then the name.
TEST(CategorizeEntry, ListsNamesByParentAheadOfTheName) {
    volume_builder volume;
    auto& sub = volume.add_directory("sub");
    auto& file = volume.add_file("zebra");
    file.hard_link("apple", sub.entry()).hard_link("Zebra2", root_entry);
    const categorized got = categorize(volume, file.entry());
    const auto names = of_type(got.items, 0x30);
    ASSERT_EQ(names.size(), 3u);
    EXPECT_EQ(names[0]->text, "Zebra2") << "capitals come first";
    EXPECT_EQ(names[1]->text, "zebra");
    EXPECT_EQ(names[2]->text, "apple") << "entry 24 comes behind entry 5";
}

TEST(CategorizeEntry, ListsTheShortNameWithTheOthers) {
    volume_builder volume;
    volume.add_file("long file name.txt").short_name("LONGFI~1.TXT");
    const categorized got = categorize(volume);
    const auto names = of_type(got.items, 0x30);
    ASSERT_EQ(names.size(), 2u);
    EXPECT_EQ(names[0]->text, "LONGFI~1.TXT");
    EXPECT_EQ(names[0]->name_space, 2u);
    EXPECT_EQ(names[1]->name_space, 1u);
}

TEST(CategorizeEntry, DescribesAStreamInClusters) {
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

TEST(CategorizeEntry, DescribesAResidentStream) {
    volume_builder volume;
    volume.add_file("a").resident_data(pattern(600));
    const attr_item item = *of_type(categorize(volume).items, 0x80).at(0);
    EXPECT_EQ(item.value_size, 600u);
    // More than 512 bytes: the sector end in the middle was put back.
    EXPECT_EQ(item.value, pattern(600));
    EXPECT_TRUE(item.runs.empty());
}

TEST(CategorizeEntry, ListsTheUnnamedAndANamedStreamBesideEachOther) {
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

TEST(CategorizeEntry, OrdersAttributesByIdAndThenByType) {
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
TEST(CategorizeEntry, KeepsNoResidentValueThatIsAsLongAsARecord) {
    for (const std::uint64_t size : {1024u, 1025u, 0xFFFFFFFFu}) {
        volume_builder volume;
        volume.add_file("a").attribute(attribute_builder::resident(0x80, to_bytes("abc")).force(16, 4, size));
        const attr_item item = *of_type(categorize(volume).items, 0x80).at(0);
        EXPECT_EQ(item.value_size, size);
        EXPECT_TRUE(item.value.empty());
    }
}

TEST(CategorizeEntry, FillsAValueThatReachesOutOfItsAttributeWithZeros) {
    volume_builder volume;
    volume.add_file("a").attribute(
        attribute_builder::resident(0x80, to_bytes("abcdefgh")).force(16, 4, 1023));
    const attr_item item = *of_type(categorize(volume).items, 0x80).at(0);
    bytes expected = to_bytes("abcdefgh");
    expected.resize(1023);
    EXPECT_EQ(item.value, expected);
}

TEST(CategorizeEntry, GivesZerosForAValueThatBeginsOutsideOfItsAttribute) {
    for (const std::uint64_t offset : {32u, 33u, 1000u, 0xFFFFu}) {
        volume_builder volume;
        volume.add_file("a").attribute(
            attribute_builder::resident(0x80, to_bytes("abcdefgh")).force(20, 2, offset));
        const attr_item item = *of_type(categorize(volume).items, 0x80).at(0);
        EXPECT_EQ(item.value_size, 8u) << offset;
        EXPECT_EQ(item.value, bytes(8, 0)) << offset;
    }
}

TEST(CategorizeEntry, TakesAnObjectIdOfExactly16Bytes) {
    const bytes id = from_hex("00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE FF");
    volume_builder volume;
    volume.add_file("a").attribute(attribute_builder::resident(0x40, id));
    const attr_item item = *of_type(categorize(volume).items, 0x40).at(0);
    EXPECT_EQ(bytes(item.object_id.begin(), item.object_id.end()), id);
    EXPECT_EQ(item.value, id);
}

TEST(CategorizeEntry, GivesTheSizeAloneOfALongerObjectId) {
    volume_builder volume;
    volume.add_file("a").attribute(attribute_builder::resident(0x40, pattern(64)));
    const attr_item item = *of_type(categorize(volume).items, 0x40).at(0);
    EXPECT_EQ(item.value_size, 64u);
    EXPECT_EQ(bytes(item.object_id.begin(), item.object_id.end()), bytes(16, 0));
}

TEST(CategorizeEntry, TakesTheVolumeNameFromTheValue) {
    volume_builder volume;
    volume.add_file("a").attribute(attribute_builder::resident(0x60, ntfs_name("D\xC3\xA4ta").on_disk()));
    const attr_item item = *of_type(categorize(volume).items, 0x60).at(0);
    EXPECT_EQ(item.name, "D\xC3\xA4ta");
    EXPECT_EQ(item.text, "");
    EXPECT_EQ(item.value, ntfs_name("D\xC3\xA4ta").on_disk());
}

TEST(CategorizeEntry, TakesTheNameOfTheVolumeNameAttributeBeforeItsValue) {
    volume_builder volume;
    volume.add_file("a").attribute(
        attribute_builder::resident(0x60, ntfs_name("value").on_disk()).named("name"));
    EXPECT_EQ(of_type(categorize(volume).items, 0x60).at(0)->name, "name");
}

// A file's pieces.

TEST(CategorizeEntry, JoinsADataStreamSpreadOverThreeRecords) {
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

TEST(CategorizeEntry, PutsAnEarlierPieceAheadOfTheOneFirstMet) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(piece({{300, 16}}, 16, 2));
    file.attribute(piece({{100, 16}}, 0, 0), second);
    EXPECT_EQ(runs_of(*of_type(categorize(volume).items, 0x80).at(0)),
              (flat_runs{{0, 100, 16, false}, {16, 300, 16, false}}));
}

// Each join closes the gaps, so the place of a piece in the middle may be taken by the time it comes.
TEST(CategorizeEntry, LosesAPieceThatTheListNamesBehindALaterOne) {
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

TEST(CategorizeEntry, JoinsPiecesThatShareTypeIdAndName) {
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
TEST(CategorizeEntry, LeavesANamedStreamInPiecesWhenTheirIdsDiffer) {
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

// A piece whose id stands for another name is dropped.
TEST(CategorizeEntry, DropsAPieceWhoseIdStandsForAnotherName) {
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

TEST(CategorizeEntry, LeavesTheFirstOfTwoResidentValuesOfOneKey) {
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

TEST(CategorizeEntry, ListsResidentUnnamedStreamsOfDifferentIdsOneByOne) {
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
TEST(CategorizeEntry, JoinsAPieceToTheFirstOfSeveralUnnamedStreams) {
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

TEST(CategorizeEntry, ListsAnEmptyResidentStream) {
    volume_builder volume;
    volume.add_file("a").resident_data({});
    const attr_item item = *of_type(categorize(volume).items, 0x80).at(0);
    EXPECT_FALSE(item.non_resident);
    EXPECT_EQ(item.value_size, 0u);
    EXPECT_TRUE(item.value.empty());
}

TEST(CategorizeEntry, JoinsTheIndexAllocationOfADirectoryByIdAndName) {
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

TEST(CategorizeEntry, TakesEverythingOfAnExtensionRecordForTheBaseEntry) {
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
TEST(CategorizeEntry, DoesNotCompareTheSequenceNumberOfAListEntry) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.record(second).sequence(77);
    file.attribute(piece({{300, 16}}, 0, 0), second);
    file.attribute_list(build_attribute_list({{.record = 25, .sequence = 3, .id = 0}}));
    EXPECT_EQ(of_type(categorize(volume).items, 0x80).size(), 1u);
}

TEST(CategorizeEntry, TakesOnlyWhatTheListNames) {
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

TEST(CategorizeEntry, FollowsAListInClusters) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(piece({{300, 16}}, 0, 0), second).list_in_clusters();
    const categorized got = categorize(volume);
    EXPECT_EQ(of_type(got.items, 0x80).size(), 1u);
    EXPECT_TRUE(of_type(got.items, 0x20).empty()) << "lists are no items";
    EXPECT_EQ(got.log, (lines{"primary entry 24 pointing to ref entry 25"}));
}

TEST(CategorizeEntry, DoesNotFollowAListInAnExtensionRecord) {
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

TEST(CategorizeEntry, FollowsEveryListOfARecord) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(attribute_builder::resident(0x80, to_bytes("1")).named("x").id(1), second);
    file.attribute(attribute_builder::resident(0x80, to_bytes("2")).named("y").id(2), second);
    file.attribute_list(build_attribute_list({{.record = 25, .id = 1}}));
    file.attribute(attribute_builder::resident(0x20, build_attribute_list({{.record = 25, .id = 2}})).id(11));
    EXPECT_EQ(of_type(categorize(volume).items, 0x80).size(), 2u);
}

TEST(CategorizeEntry, GoesOnWithoutAnExtensionRecordThatIsNone) {
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

TEST(CategorizeEntry, GoesOnWithoutAnExtensionRecordOutsideOfTheMft) {
    volume_builder volume;
    volume.add_file("a")
        .attribute_list(build_attribute_list({{.record = 0xFFFFFFFFFFFF, .id = 1}}))
        .data("kept");
    const categorized got = categorize(volume);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.log, (lines{"primary entry 24 pointing to ref entry 281474976710655"}));
    EXPECT_EQ(of_type(got.items, 0x80).size(), 1u);
}

TEST(CategorizeEntry, GoesOnWithoutAnExtensionRecordThatHasNoFirstAttribute) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(attribute_builder::resident(0x80, to_bytes("lost")).id(1), second);
    file.record(second).first_attribute_offset(0);
    EXPECT_TRUE(of_type(categorize(volume).items, 0x80).empty());
}

TEST(CategorizeEntry, EndsTheSearchInAnExtensionRecordAtAnAttributeOfLengthZero) {
    volume_builder volume;
    auto& file = volume.add_file("a");
    const std::size_t second = file.add_extension();
    file.attribute(attribute_builder::resident(0x70, pattern(12)).id(1).length(0), second);
    file.attribute(attribute_builder::resident(0x80, to_bytes("behind")).id(2), second);
    const categorized got = categorize(volume);
    EXPECT_TRUE(got.ok);
    EXPECT_TRUE(of_type(got.items, 0x80).empty());
}

TEST(CategorizeEntry, TakesNothingOfAnExtensionRecordWhoseFirstAttributeFillsIt) {
    for (const auto& [length, found] : {std::pair{1024u, 0u}, {0xFFFFFFFFu, 0u}, {1023u, 0u}}) {
        volume_builder volume;
        auto& file = volume.add_file("a");
        const std::size_t second = file.add_extension();
        file.attribute(attribute_builder::resident(0x80, to_bytes("x")).id(2).length(length), second);
        EXPECT_EQ(of_type(categorize(volume).items, 0x80).size(), found) << length;
    }
}

// What is logged and refused.

TEST(CategorizeEntry, RefusesAVolumeThatIsNotValidWithoutAWord) {
    CNtfs cleared;
    const categorized got = categorize(cleared, 5);
    EXPECT_FALSE(got.ok);
    EXPECT_TRUE(got.items.empty());
    EXPECT_TRUE(got.log.empty());
}

TEST(CategorizeEntry, RefusesASlotThatWasNeverUsed) {
    volume_builder volume;
    const categorized got = categorize(volume, 30);
    EXPECT_FALSE(got.ok);
    EXPECT_TRUE(got.items.empty());
    EXPECT_EQ(got.log, (lines{"err: mftfixup 1e"}));
}

TEST(CategorizeEntry, RefusesAnEntryOutsideOfTheMft) {
    volume_builder volume;
    const categorized got = categorize(volume, 0xABCDEF0123);
    EXPECT_FALSE(got.ok);
    EXPECT_EQ(got.log, (lines{"err: mftfixup abcdef0123"}));
}

TEST(CategorizeEntry, RefusesARecordMarkedBad) {
    volume_builder volume;
    volume.add_file("a").record().signature("BAAD");
    const categorized got = categorize(volume);
    EXPECT_FALSE(got.ok);
    EXPECT_TRUE(got.items.empty());
    EXPECT_EQ(got.log, (lines{"err: fixup_mft type: BAAD", "err: recd bad 18"}));
}

TEST(CategorizeEntry, RefusesARecordThatFailsTheHeaderTest) {
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

TEST(CategorizeEntry, AcceptsAnIndexBlockInThePlaceOfARecord) {
    volume_builder volume;
    volume.add_file("a").data("x").record().signature("INDX");
    const categorized got = categorize(volume);
    ASSERT_TRUE(got.ok);
    EXPECT_EQ(got.items.size(), 4u);
    EXPECT_EQ(got.items[0].record_size, 0u);
}

TEST(CategorizeEntry, SurvivesAnIndexBlockWhoseArrayAndFirstAttributeLieAnywhere) {
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

TEST(CategorizeEntry, RestoresTheSectorsOfTheRecordAloneWhateverTheCountSays) {
    volume_builder volume;
    record_builder record = volume.new_record(24);
    record.update_sequence_count(9).add(attribute_builder::resident(0x80, pattern(600)));
    volume.replace_record(24, record.build());
    EXPECT_EQ(of_type(categorize(volume).items, 0x80).at(0)->value, pattern(600));
}

TEST(CategorizeEntry, RestoresNothingWhereASectorIsLargerThanTheRecord) {
    volume_builder volume({.bytes_per_sector = 4096, .sectors_per_cluster = 1, .record_size = 1024});
    volume.add_file("a").resident_data(bytes(600, 'x'));
    const bytes value = of_type(categorize(volume).items, 0x80).at(0)->value;
    EXPECT_EQ(std::count(value.begin(), value.end(), 'x'), 598) << "two bytes are the update sequence number";
}

TEST(CategorizeEntry, TakesARecordOf512Bytes) {
    volume_builder volume({.record_size = 512});
    volume.replace_record(
        24, volume.new_record(24).add(attribute_builder::resident(0x80, to_bytes("small"))).build());
    EXPECT_EQ(of_type(categorize(volume).items, 0x80).at(0)->value, to_bytes("small"));
}

TEST(CategorizeEntry, FindsEntry0ThroughTheRunsOfMft) {
    volume_builder volume;
    opened_volume opened(volume);
    EXPECT_TRUE(categorize(opened.ntfs(), 0).ok);
    opened->m_mft_info = {};
    const categorized got = categorize(opened.ntfs(), 0);
    EXPECT_FALSE(got.ok) << "its place in the boot sector does not count here";
    EXPECT_EQ(got.log, (lines{"err: mftfixup 0"}));
}

TEST(CategorizeEntry, RefusesARecordThatCannotBeRead) {
    volume_builder volume({.mft_runs = {{4, 8}, {1000, 8}}});
    bytes image = volume.image();
    image.resize(100 * 4096);
    opened_volume opened(image);
    const categorized got = categorize(opened.ntfs(), 40);
    EXPECT_FALSE(got.ok);
    EXPECT_EQ(got.log, (lines{"err: mftfixup 28"}));
}

TEST(CategorizeEntry, LearnsTheSizesOfAVolumeThatItValidatesItself) {
    volume_builder builder({.record_size = 4096});
    builder.add_file("a").resident_data(pattern(1900));
    const temp_dir dir;
    builder.write_to(dir / "image");
    CNtfs volume;
    ASSERT_TRUE(volume.open_source(source_path, (dir / "image").wstring(), -1, 0, false));
    const categorized got = categorize(volume, 24);
    ASSERT_TRUE(got.ok);
    EXPECT_EQ(of_type(got.items, 0x80).at(0)->value, pattern(1900));
}

TEST(CategorizeEntry, AcceptsARecordWhoseSectorEndsDoNotMatch) {
    volume_builder volume;
    volume.add_file("a").resident_data(pattern(600)).record().force_on_disk(510, 2, 0xDEAD);
    EXPECT_EQ(of_type(categorize(volume).items, 0x80).at(0)->value, pattern(600));
}

TEST(CategorizeEntry, RestoresNothingForACountBelow2) {
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

TEST(CategorizeEntry, GivesTheHeaderAloneForAFirstAttributeOffsetOfZero) {
    volume_builder volume;
    volume.add_file("a").data("x").record().first_attribute_offset(0);
    const categorized got = categorize(volume);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(types_of(got.items), (std::vector<std::uint32_t>{0x110}));
}

TEST(CategorizeEntry, KeepsWhatStandsAheadOfAnAttributeOutsideOfTheRecord) {
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

TEST(CategorizeEntry, SurvivesAttributesShorterThanTheirHeader) {
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

TEST(CategorizeEntry, EndsAtTheRecordsEndWithoutAnEndMarker) {
    volume_builder volume;
    volume.add_file("a").data("x").record().without_end_marker();
    const categorized got = categorize(volume);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.items.size(), 4u);
}

TEST(CategorizeEntry, IsTheSameForEveryLengthAtWhichTheImageEndsBehindTheRecord) {
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
TEST(CategorizeEntry, PutsBackTheSectorEndsOfARecordThatTheSourceCuts) {
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
TEST(CategorizeEntry, ReadsLaterRecordsInTheLengthToWhichTheEndOfTheSourceCutOne) {
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
        << "z lies behind byte 512 of a whole record";
}

TEST(CategorizeEntry, IsTheSameWithSectorsOf4096Bytes) {
    geometry shape;
    shape.bytes_per_sector = 4096;
    shape.sectors_per_cluster = 1;
    shape.record_size = 4096;
    shape.stride = 4096;
    volume_builder volume(shape);
    volume.add_file("a").resident_data(pattern(3000));
    EXPECT_EQ(of_type(categorize(volume).items, 0x80).at(0)->value, pattern(3000));
}

// Damaged attribute lists.

TEST(CategorizeEntry, EndsAListAtAnEntryOfLengthZero) {
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

TEST(CategorizeEntry, SurvivesAListCutAtEveryLength) {
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

TEST(CategorizeEntry, StepsByTheLengthOfAListEntryHoweverSmall) {
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

TEST(CategorizeEntry, ReadsNothingForAListEntryOfTheRecordItself) {
    volume_builder volume;
    volume.add_file("a").data("x").attribute_list(
        build_attribute_list({{.record = 24, .id = 2}, {.record = 24, .id = 9}}));
    const categorized got = categorize(volume);
    EXPECT_TRUE(got.log.empty());
    EXPECT_EQ(of_type(got.items, 0x80).size(), 1u);
}

TEST(CategorizeEntry, EndsForTwoRecordsWhoseListsNameEachOther) {
    volume_builder volume;
    auto& first = volume.add_file("a");
    auto& second = volume.add_file("b");
    first.attribute_list(build_attribute_list({{.type = 0x20, .record = second.entry(), .id = 2}}));
    second.attribute_list(build_attribute_list({{.type = 0x20, .record = first.entry(), .id = 2}}));
    EXPECT_TRUE(categorize(volume, first.entry()).ok);
    EXPECT_TRUE(categorize(volume, second.entry()).ok);
}

TEST(CategorizeEntry, EndsForAListOf60000EntriesOfOneRecord) {
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

TEST(CategorizeEntry, FollowsListsUntil64MiBWereRead) {
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

TEST(CategorizeEntry, FollowsListsUntil32MiBOfAttributesWereFound) {
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

TEST(CategorizeEntry, TakesNoMoreMemoryThanTwiceTheSource) {
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

TEST(FlattenEntry, PadsValuesWith4MiBOfZerosAtMost) {
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

TEST(CategorizeEntry, CostsLittleForAListWhoseRunsClaimTerabytes) {
    volume_builder volume;
    volume.add_file("a").data("kept").attribute(
        attribute_builder::with_pairs(0x20, from_hex("04 FF FF FF FF 04 FF FF FF FF 04 FF FF FF FF 00"))
            .id(9));
    const categorized got = categorize(volume);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(of_type(got.items, 0x80).size(), 1u);
}

TEST(CategorizeEntry, ReadsTheListAsFarAsItsClustersCanBeRead) {
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

TEST(ReadEntry, KeepsTheRecordAndTheStartOfItsHeader) {
    volume_builder volume;
    volume.add_file("a").resident_data(pattern(600)).sequence(0x1234);
    const entry_record got = entry_of(volume, first_user_entry);
    EXPECT_EQ(got.entry, first_user_entry);
    EXPECT_EQ(got.sequence, 0x1234u);
    bytes record = volume.record_on_disk(first_user_entry);
    ASSERT_EQ(record.size(), 1024u);
    EXPECT_EQ(bytes(got.header.begin(), got.header.end()), bytes(record.begin(), record.begin() + 42));
    // The saved words of the two sector ends stand behind the update sequence number at 0x30.
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

TEST(ReadEntry, TellsOfAnAttributeListAndWhereItLies) {
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

TEST(ReadEntry, KeepsTheBaseReferenceAsItIsStored) {
    volume_builder volume;
    auto& file = volume.add_file("a").sequence(9);
    const std::size_t place = file.add_extension();
    const entry_record got = entry_of(volume, file.extension_entry(place));
    EXPECT_TRUE(got.has_base);
    EXPECT_EQ(got.base, 0x0009000000000018u);
}

TEST(CategorizeIndexOnly, ListsIndexAttributesAndNothingElse) {
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
