#include "volume/attribute.h"

#include "support/attribute_builder.h"
#include "support/attribute_list_builder.h"
#include "support/record_builder.h"

#include <limits>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

constexpr std::uint32_t no_limit = std::numeric_limits<std::uint32_t>::max();

bytes name(const char* text) {
    return ntfs_name(text).on_disk();
}

TEST(attribute, each_field_of_the_resident_form_has_its_place) {
    const bytes raw = from_hex(
        "30 00 00 00  58 01 00 00  00 04 18 00  01 40 05 00"
        "02 00 00 00  20 00 01 00  24 00 49 00 33 00 30 00  AB CD");
    const attribute at{byte_view(raw)};
    EXPECT_EQ(at.type(), 0x30u);
    EXPECT_EQ(at.length(), 0x158u);
    EXPECT_FALSE(at.non_resident());
    EXPECT_EQ(at.name_length_in_units(), 4);
    EXPECT_EQ(at.name_offset(), 0x18);
    EXPECT_EQ(at.flags(), attr_flag_compressed | attr_flag_encrypted);
    EXPECT_EQ(at.id(), 5);
    EXPECT_EQ(at.value_length(), 2u);
    EXPECT_EQ(at.value_offset(), 0x20);
    EXPECT_EQ(at.value().to_vector(), from_hex("AB CD"));
}

TEST(attribute, each_field_of_the_non_resident_form_has_its_place) {
    byte_writer out(72);
    out.u32(0, 0x80).u32(4, 72).u8(8, 1).u16(12, attr_flag_sparse).u64(16, 0x1122334455667788).u64(24, 0x99);
    out.u16(32, 72).u8(34, 4).u64(40, 0xA0).u64(48, 0xA1).u64(56, 0xA2).u64(64, 0xA3);
    const bytes raw = out.take();
    const attribute at{byte_view(raw)};
    EXPECT_TRUE(at.non_resident());
    EXPECT_EQ(at.flags(), attr_flag_sparse);
    EXPECT_EQ(at.lowest_vcn(), 0x1122334455667788u);
    EXPECT_EQ(at.highest_vcn(), 0x99u);
    EXPECT_EQ(at.mapping_pairs_offset(), 72);
    EXPECT_EQ(at.compression_unit(), 4);
    EXPECT_EQ(at.allocated_size(), 0xA0u);
    EXPECT_EQ(at.real_size(), 0xA1u);
    EXPECT_EQ(at.initialized_size(), 0xA2u);
    EXPECT_EQ(at.compressed_size(), 0xA3u);
}

TEST(attribute, the_compressed_size_is_read_of_every_attribute_whatever_is_there) {
    // The header ends at 64, where the pairs 11 08 40 begin.
    const bytes raw = attribute_builder::with_pairs(0x80, from_hex("11 08 40 00 00 00 00 00")).build();
    EXPECT_EQ(attribute(byte_view(raw)).compressed_size(), 0x400811u);
}

TEST(attribute, a_value_ends_with_its_length_its_attribute_and_its_bytes) {
    const bytes raw = attribute_builder::resident(0x10, from_hex("01 02 03 04 05 06 07 08")).build();
    const auto value_size = [&](std::uint64_t length, std::uint64_t value_length, std::uint64_t offset) {
        bytes changed = raw;
        apply(changed, {{4, 4, length}, {16, 4, value_length}, {20, 2, offset}});
        changed.resize(40, 0xEE);
        return attribute(byte_view(changed)).value().size();
    };
    EXPECT_EQ(value_size(32, 8, 24), 8u);
    EXPECT_EQ(value_size(32, 0, 24), 0u);
    EXPECT_EQ(value_size(32, 1, 24), 1u);
    EXPECT_EQ(value_size(32, 9, 24), 8u) << "the attribute ends at 32";
    EXPECT_EQ(value_size(32, 0xFFFFFFFF, 24), 8u);
    EXPECT_EQ(value_size(30, 8, 24), 6u);
    EXPECT_EQ(value_size(0xFFFFFFFF, 0xFFFFFFFF, 24), 16u) << "the bytes end at 40";
    EXPECT_EQ(value_size(32, 8, 31), 1u);
    EXPECT_EQ(value_size(32, 8, 32), 0u);
    EXPECT_EQ(value_size(32, 8, 65535), 0u);
    EXPECT_EQ(value_size(0, 8, 24), 0u);
}

TEST(attribute, a_header_cut_at_any_length_reads_as_zeros_from_there_on) {
    const bytes whole(72, 0x55);
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        const attribute at{byte_view(whole.data(), length)};
        EXPECT_EQ(at.is_null(), length == 0);
        EXPECT_EQ(at.type(), length < 4 ? attr_end_marker : 0x55555555u) << length;
        EXPECT_EQ(at.length(), length < 8 ? 0u : 0x55555555u) << length;
        EXPECT_EQ(at.id(), length < 16 ? 0u : 0x5555u) << length;
        EXPECT_EQ(at.value_offset(), length < 22 ? 0u : 0x5555u) << length;
        EXPECT_EQ(at.mapping_pairs_offset(), length < 34 ? 0xFFFFu : 0x5555u) << length;
        EXPECT_EQ(at.compressed_size(), length < 72 ? 0u : 0x5555555555555555u) << length;
    }
}

TEST(first_attribute, it_is_where_the_record_says) {
    const bytes record = record_builder().add(attribute_builder::resident(0x10, bytes(48))).build();
    EXPECT_EQ(first_attribute(record).type(), 0x10u);
    EXPECT_EQ(first_attribute(record).bytes().size(), 1024u - 0x38);
    bytes outside = record;
    apply(outside, {{20, 2, 1024}});
    EXPECT_TRUE(first_attribute(outside).is_null());
    apply(outside, {{20, 2, 0xFFFF}});
    EXPECT_TRUE(first_attribute(outside).is_null());
    EXPECT_TRUE(first_attribute(byte_view()).is_null());
}

// A record of three attributes: 0x10, 0x30 of 0x70 bytes, 0x80 with id 9.
record_builder three_attributes() {
    record_builder record;
    record.add(attribute_builder::resident(0x10, bytes(48)));
    record.add(attribute_builder::resident(0x30, bytes(0x58)));
    record.add(attribute_builder::resident(0x80, bytes(8)).id(9));
    return record;
}

TEST(find_by_type, the_next_attribute_of_a_type_is_found_from_the_given_one_on) {
    const bytes record = three_attributes().build_restored();
    attribute at;
    EXPECT_TRUE(first_attribute_of_type(record, 0x80, at, 1024));
    EXPECT_EQ(at.id(), 9);
    EXPECT_TRUE(first_attribute_of_type(record, 0x10, at, 1024));
    EXPECT_EQ(at.type(), 0x10u);
    EXPECT_TRUE(next_attribute_of_type(at, 0x10, 1024)) << "the given one included";
    EXPECT_TRUE(next_attribute_of_type(at, 0x30, 1024));
    EXPECT_FALSE(next_attribute_of_type(at, 0x10, 1024)) << "nothing after";
    EXPECT_EQ(at.type(), attr_end_marker);
}

TEST(find_by_type, a_null_attribute_and_the_end_marker_give_false) {
    attribute at;
    EXPECT_FALSE(next_attribute_of_type(at, 0x10, 1024));
    const bytes end = from_hex("FF FF FF FF 00 00 00 00");
    at = attribute{byte_view(end)};
    EXPECT_FALSE(next_attribute_of_type(at, attr_end_marker, 1024));
}

TEST(find_by_type, a_length_of_0_or_above_the_limit_ends_the_search_after_a_mismatch_only) {
    const bytes record = three_attributes().build_restored();
    attribute at;
    EXPECT_TRUE(first_attribute_of_type(record, 0x80, at, 0x70)) << "0x70 bytes is the longest on the way";
    EXPECT_FALSE(first_attribute_of_type(record, 0x80, at, 0x6F));
    EXPECT_EQ(at.type(), 0x30u) << "it is where it ended";
    EXPECT_TRUE(first_attribute_of_type(record, 0x30, at, 0x6F)) << "a match is not measured";

    bytes damaged = record;
    apply(damaged, {{0x38 + 4, 4, 0}});
    EXPECT_FALSE(first_attribute_of_type(damaged, 0x80, at, 1024));
    EXPECT_TRUE(first_attribute_of_type(damaged, 0x10, at, 1024));
}

TEST(find_by_type, a_chain_without_an_end_marker_ends_with_its_bytes) {
    const bytes record = three_attributes().without_end_marker().build_restored();
    const std::size_t end = three_attributes().attribute_offset(3);
    for (std::size_t length = 0x38; length <= end; ++length) {
        attribute at;
        EXPECT_FALSE(first_attribute_of_type(byte_view(record.data(), length), 0xA0, at, no_limit)) << length;
    }
}

TEST(find_by_type, attributes_of_one_byte_end_with_the_bytes) {
    bytes chain;
    while (chain.size() < 4096) {
        const bytes step = from_hex("01 00 00 00 01 00 00 00");
        chain.insert(chain.end(), step.begin(), step.end());
    }
    attribute at{byte_view(chain)};
    EXPECT_FALSE(next_attribute_of_type(at, 0x77, 1024));
}

bytes named_attributes() {
    record_builder record(4096);
    record.add(attribute_builder::resident(0x80, bytes(8)).id(1));
    record.add(attribute_builder::resident(0x80, bytes(8)).named("alpha").id(2));
    record.add(attribute_builder::resident(0x90, bytes(8)).named("$I30").id(3));
    record.add(attribute_builder::resident(0x90, bytes(0x600)).named("$I30X").id(4));
    record.add(attribute_builder::resident(0xA0, bytes(8)).named("$I30Y").id(5));
    record.add(attribute_builder::resident(0xB0, bytes(8)).id(6));
    return record.build_restored();
}

// The id of what is found, or nothing.
std::optional<int> found_by_name(const bytes& record, std::uint32_t type, const bytes& name,
                                 std::uint32_t limit = 4096) {
    attribute at = first_attribute(record);
    return find_attribute_by_name(at, type, name, limit) ? std::optional<int>(at.id()) : std::nullopt;
}

TEST(find_by_name, type_and_name_must_both_match) {
    const bytes record = named_attributes();
    EXPECT_EQ(found_by_name(record, 0x90, name("$I30")), 3);
    EXPECT_EQ(found_by_name(record, 0x80, name("alpha")), 2);
    EXPECT_EQ(found_by_name(record, 0x80, name("Alpha")), std::nullopt);
    EXPECT_EQ(found_by_name(record, 0x80, name("beta")), std::nullopt);
    EXPECT_EQ(found_by_name(record, 0xB0, name("$I30")), std::nullopt);
}

TEST(find_by_name, an_attribute_whose_name_only_begins_with_the_wanted_one_is_found_as_well) {
    EXPECT_EQ(found_by_name(named_attributes(), 0xA0, name("$I30")), 5);
    EXPECT_EQ(found_by_name(named_attributes(), 0xA0, name("$I30YZ")), std::nullopt);
}

TEST(find_by_name, an_empty_name_finds_an_unnamed_attribute_only) {
    EXPECT_EQ(found_by_name(named_attributes(), 0x80, {}), 1);
    EXPECT_EQ(found_by_name(named_attributes(), 0xB0, {}), 6);
    EXPECT_EQ(found_by_name(named_attributes(), 0x90, {}), std::nullopt);
}

TEST(find_by_name, the_limit_ends_the_search_for_an_empty_name_only) {
    // The attribute with id 4 is longer than 0x600 bytes.
    EXPECT_EQ(found_by_name(named_attributes(), 0xB0, {}, 0x600), std::nullopt);
    EXPECT_EQ(found_by_name(named_attributes(), 0xA0, name("$I30"), 0x600), 5);
}

TEST(find_by_name, a_length_of_0_ends_every_search) {
    bytes record = named_attributes();
    apply(record, {{byte_view(record).u16_or_zero(20) + 4u, 4, 0}});
    EXPECT_EQ(found_by_name(record, 0x90, name("$I30")), std::nullopt);
    EXPECT_EQ(found_by_name(record, 0xB0, {}), std::nullopt);
    EXPECT_EQ(found_by_name(record, 0x80, {}), 1) << "the first one matches ahead of the test";
}

TEST(find_by_name, a_chain_without_an_end_marker_ends_with_its_bytes) {
    const bytes record = named_attributes();
    for (std::size_t length = 0; length <= record.size(); ++length) {
        attribute at = first_attribute(byte_view(record.data(), length));
        EXPECT_FALSE(find_attribute_by_name(at, 0xA0, name("none"), no_limit)) << length;
    }
}

TEST(find_by_name, a_name_outside_of_the_record_does_not_match) {
    bytes record = named_attributes();
    for (std::uint64_t offset : {4095u, 65535u}) {
        const std::size_t first = byte_view(record).u16_or_zero(20);
        apply(record, {{first + 10, 2, offset}, {first + 9, 1, 5}});
        EXPECT_EQ(found_by_name(record, 0x80, name("alpha")), 2);
    }
    attribute null;
    EXPECT_FALSE(find_attribute_by_name(null, 0x80, {}, 4096));
}

bytes three_list_entries() {
    return build_attribute_list(
        {{.type = 0x10, .record = 24, .id = 0},
         {.type = 0x80, .record = 0x123456789ABC, .sequence = 7, .id = 3, .name = "x"},
         {.type = 0xA0, .record = 30, .id = 4, .name = "$I30", .lowest_vcn = 17}});
}

TEST(list_entry, each_field_has_its_place) {
    const bytes raw = from_hex(
        "A0 00 00 00  28 00  04  1A  11 22 33 44 55 66 77 08  BC 9A 78 56 34 12  07 00  05 00"
        "24 00 49 00 33 00 30 00");
    const list_entry entry{byte_view(raw)};
    EXPECT_EQ(entry.type(), 0xA0u);
    EXPECT_EQ(entry.length(), 40);
    EXPECT_EQ(entry.name_length_in_units(), 4);
    EXPECT_EQ(entry.name_offset(), 26);
    EXPECT_EQ(entry.lowest_vcn(), 0x0877665544332211u);
    EXPECT_EQ(entry.entry_number(), 0x123456789ABCu);
    EXPECT_EQ(entry.sequence_number(), 7);
    EXPECT_EQ(entry.id(), 5);
    EXPECT_TRUE(list_entry().bytes().empty());
    EXPECT_EQ(list_entry().type(), attr_end_marker);
}

TEST(find_list_entry, an_entry_is_found_by_type_and_name) {
    const bytes list = three_list_entries();
    list_entry at{byte_view(list)};
    auto left = static_cast<std::int64_t>(list.size());
    EXPECT_TRUE(find_list_entry_by_name(at, left, 0xA0, name("$I30")));
    EXPECT_EQ(at.id(), 4);
    EXPECT_EQ(left, static_cast<std::int64_t>(at.bytes().size()));
    EXPECT_TRUE(find_list_entry_by_name(at, left, 0xA0, name("$I3"))) << "the start of the name is enough";
    EXPECT_FALSE(find_list_entry_by_name(at, left, 0x80, {}));
}

TEST(find_list_entry, an_empty_name_finds_an_unnamed_entry_only) {
    const bytes list = three_list_entries();
    list_entry at{byte_view(list)};
    auto left = static_cast<std::int64_t>(list.size());
    EXPECT_FALSE(find_list_entry_by_name(at, left, 0x80, {}));
    at = list_entry{byte_view(list)};
    left = static_cast<std::int64_t>(list.size());
    EXPECT_TRUE(find_list_entry_by_name(at, left, 0x10, {}));
}

TEST(find_list_entry, the_end_marker_is_never_found) {
    const bytes list = from_hex("FF FF FF FF 20 00");
    list_entry at{byte_view(list)};
    std::int64_t left = 6;
    EXPECT_FALSE(find_list_entry_by_name(at, left, attr_end_marker, {}));
    EXPECT_EQ(left, 6);
    EXPECT_FALSE(find_list_entry_by_name(at, left, 0x80, {}));
    const bytes others = three_list_entries();
    at = list_entry{byte_view(others)};
    left = static_cast<std::int64_t>(others.size());
    EXPECT_FALSE(find_list_entry_by_name(at, left, attr_end_marker, {}));
    EXPECT_EQ(left, static_cast<std::int64_t>(others.size())) << "it is not even sought";
}

TEST(find_list_entry, an_entry_of_length_0_sets_the_bytes_left_to_0) {
    bytes list = three_list_entries();
    apply(list, {{4, 2, 0}});
    list_entry at{byte_view(list)};
    auto left = static_cast<std::int64_t>(list.size());
    EXPECT_FALSE(find_list_entry_by_name(at, left, 0xA0, name("$I30")));
    EXPECT_EQ(left, 0);
}

TEST(find_list_entry, the_search_ends_when_no_bytes_are_left) {
    const bytes list = three_list_entries();
    for (std::int64_t claimed : {-1, 0, 32, 64}) {
        list_entry at{byte_view(list)};
        std::int64_t left = claimed;
        EXPECT_FALSE(find_list_entry_by_name(at, left, 0xA0, name("$I30"))) << claimed;
    }
    list_entry at{byte_view(list)};
    std::int64_t left = 65;
    EXPECT_TRUE(find_list_entry_by_name(at, left, 0xA0, name("$I30"))) << "one byte is enough to look";
    for (std::size_t length = 0; length < 72; ++length) {
        list_entry cut{byte_view(list.data(), length)};
        left = 1000;
        EXPECT_FALSE(find_list_entry_by_name(cut, left, 0xA0, name("$I30Y"))) << length;
    }
}

TEST(type_names, each_type_has_its_two_labels) {
    struct row {
        std::uint32_t type;
        const char* short_form;
        const char* long_form;
    };
    const row rows[] = {
        {0x10, "$StdInfo", "Standard Info Attrib"},
        {0x20, "AttribList", "Attribute list"},
        {0x30, "$Filename", "Filename Attrib"},
        {0x40, "$ObjectID", "Oject ID Attrib"},
        {0x50, "$Security", "Security Desc Attrib"},
        {0x60, "$VolName", "Volume name Attrib"},
        {0x70, "$VolInfo", "Volume Info Attrib"},
        {0x80, "$Data", "Data Attrib"},
        {0x90, "$IndxRoot", "Index Root Attrib"},
        {0xA0, "$IndxAlloc", "Index Allocation Attrib"},
        {0xB0, "$Bitmap", "Bitmap Attrib"},
        {0xC0, "$Reparse", "Reparse point Attrib"},
        {0xD0, "$EaInfo", "EA Info Attrib"},
        {0xE0, "$Ea", "NTFS_EA"},
        {0xF0, "$Property", "Property Set Attrib"},
        {0x100, "$Log", "Logged Utility Stream Attrib"},
        {0xFFFFFFFF, "NTFS_ATTRIBUTE_END_MARKER", "NTFS_ATTRIBUTE_END_MARKER"},
        {0, "unk", "unk"},
        {0x11, "unk", "unk"},
        {0x110, "unk", "unk"},
        {0xFFFFFFFE, "unk", "unk"},
    };
    for (const row& each : rows) {
        std::string label;
        attr_name_of_type(label, each.type, true);
        EXPECT_EQ(label, each.short_form);
        attr_name_of_type(label, each.type, false);
        EXPECT_EQ(label, each.long_form);
    }
}

}  // namespace
}  // namespace quarry::test
