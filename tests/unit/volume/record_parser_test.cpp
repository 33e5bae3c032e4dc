#include "support/opened_volume.h"
#include "support/record_builder.h"
#include "unit/volume/plain_runs.h"
#include "volume/attribute_values.h"
#include "volume/ntfs.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

// What is gathered from one record that has no attribute list. `step` is the distance of records.
INODE_STATS parsed(const bytes& record, std::uint32_t step = 1024) {
    CNtfs volume;
    volume.m_record_alloc = step;
    INODE_STATS stats;
    stats.size = 99;  // from an earlier record
    volume.parse_record(record, stats, 0, false);
    return stats;
}

INODE_STATS parsed(const record_builder& record) {
    return parsed(record.build_restored());
}

TEST(parse_record, the_runs_of_a_record_are_gathered_and_numbered) {
    const INODE_STATS stats = parsed(record_builder().add(data("11 10 04 11 08 30 00").real(90000)));
    EXPECT_EQ(plain(stats.data_runs), (plain_runs{{4, 16}, {52, 8}}));
    EXPECT_EQ(stats.data_runs[1].vcn, 16u);
    EXPECT_EQ(stats.data_runs[1].attr_type, 0x80u);
    EXPECT_EQ(stats.vcn_index.at(16), 1u);
    EXPECT_EQ(stats.size, 90000u);
}

TEST(parse_record, an_empty_record_gives_nothing_and_forgets_what_was_there) {
    const INODE_STATS stats = parsed(record_builder());
    EXPECT_EQ(stats.size, 0u);
    EXPECT_TRUE(stats.data_runs.empty());
    EXPECT_TRUE(stats.index_runs.empty());
    EXPECT_TRUE(stats.bitmap_runs.empty());
    EXPECT_TRUE(stats.vcn_index.empty());
}

TEST(parse_record, appending_keeps_what_was_there) {
    CNtfs volume;
    volume.m_record_alloc = 1024;
    INODE_STATS stats;
    const bytes first = record_builder().add(data("11 10 04 00").real(5)).build_restored();
    const bytes second = record_builder().add(data("11 08 30 00").real(6)).build_restored();
    volume.parse_record(first, stats, 6, false);
    volume.parse_record(second, stats, 6, true);
    EXPECT_EQ(plain(stats.data_runs), (plain_runs{{4, 16}, {48, 8}}));
    EXPECT_EQ(stats.data_runs[1].vcn, 16u);
    EXPECT_EQ(stats.size, 5u) << "the first size stays";
}

TEST(parse_record,
     a_later_data_attribute_of_the_same_record_replaces_the_runs_of_an_earlier_one_whatever_their_names) {
    const INODE_STATS stats = parsed(
        record_builder().add(data("11 10 04 00").real(5)).add(data("11 08 30 00").named("other").real(6)));
    EXPECT_EQ(plain(stats.data_runs), (plain_runs{{48, 8}}));
    EXPECT_EQ(stats.size, 5u);
}

TEST(parse_record, a_resident_data_value_is_in_the_place_of_runs) {
    const INODE_STATS stats =
        parsed(record_builder().add(attribute_builder::resident(0x80, to_bytes("abc"))));
    ASSERT_EQ(stats.data_runs.size(), 1u);
    EXPECT_TRUE(stats.data_runs[0].resident);
    EXPECT_EQ(stats.data_runs[0].bytes, to_bytes("abc"));
    EXPECT_EQ(stats.data_runs[0].value_size, 3u);
    EXPECT_EQ(stats.size, 3u);
    EXPECT_TRUE(parsed(record_builder().add(attribute_builder::resident(0x80, {}))).data_runs.empty());
}

TEST(parse_record, a_resident_value_that_reaches_out_of_its_attribute_is_kept_as_far_as_it_exists) {
    const INODE_STATS stats = parsed(record_builder().add(
        attribute_builder::resident(0x80, to_bytes("abcdefgh")).force(16, 4, 0xFFFFFFFF)));
    ASSERT_EQ(stats.data_runs.size(), 1u);
    EXPECT_EQ(stats.data_runs[0].bytes, to_bytes("abcdefgh"));
}

TEST(parse_record, a_data_attribute_without_initialized_bytes_and_without_pairs_is_passed_over) {
    // Length 64 and pairs at 64: there are none.
    const INODE_STATS stats = parsed(record_builder()
                                         .add(data("").initialized(0).real(7))
                                         .add(attribute_builder::with_pairs(0xB0, from_hex("11 01 05 00"))));
    EXPECT_TRUE(stats.data_runs.empty());
    EXPECT_EQ(stats.size, 0u);
    EXPECT_EQ(stats.bitmap_runs.size(), 1u) << "the walk goes on";
}

TEST(parse_record, pairs_that_hold_nothing_end_the_walk) {
    for (const char* pairs : {"00", ""}) {
        const INODE_STATS stats =
            parsed(record_builder()
                       .add(data("11 10 04 00"))
                       .add(data(pairs).initialized(1))
                       .add(attribute_builder::with_pairs(0xB0, from_hex("11 01 05 00"))));
        EXPECT_TRUE(stats.bitmap_runs.empty()) << "not reached";
        EXPECT_TRUE(stats.vcn_index.empty()) << "nothing is numbered after a failed walk";
    }
}

TEST(parse_record, without_initialized_bytes_pairs_are_decoded_if_there_are_any) {
    const INODE_STATS stats = parsed(record_builder().add(data("11 10 04 00").initialized(0)));
    EXPECT_EQ(stats.data_runs.size(), 1u);
}

TEST(parse_record, the_last_file_name_of_the_record_is_kept_and_its_size) {
    const auto named = [](const char* name, std::uint8_t name_space, std::uint64_t size) {
        return attribute_builder::resident(
            0x30, file_name{.name = name, .name_space = name_space, .real = size}.build());
    };
    const INODE_STATS stats = parsed(record_builder()
                                         .add(named("long name.txt", 1, 100))
                                         .add(named("LONGNA~1", 2, 200))
                                         .add(data("11 10 04 00")));
    const file_name_value kept{byte_view(stats.file_name_value.data(), stats.file_name_value.size())};
    EXPECT_EQ(kept.name_space(), 2);
    EXPECT_EQ(kept.name_length_in_units(), 8);
    EXPECT_EQ(stats.file_name_value[66], 'L');
    EXPECT_EQ(stats.size, 200u);
    EXPECT_TRUE(stats.name_wide.empty()) << "the file's name is not kept as text";
    EXPECT_TRUE(stats.name_narrow.empty());
}

TEST(parse_record, a_file_name_attribute_that_has_a_name_of_its_own_gives_that) {
    const INODE_STATS stats = parsed(record_builder().add(
        attribute_builder::resident(0x30, file_name{.name = "inner", .real = 100}.build()).named("outer")));
    EXPECT_EQ(stats.name_wide, L"outer");
    EXPECT_EQ(stats.name_narrow, "outer");
    EXPECT_EQ(stats.size, 0u);
    EXPECT_EQ(stats.file_name_value[64], 0);
    const INODE_STATS later =
        parsed(record_builder()
                   .add(attribute_builder::resident(0x30, file_name{.name = "inner"}.build()).named("outer"))
                   .add(attribute_builder::resident(0x30, file_name{.name = "later"}.build())));
    EXPECT_EQ(later.name_wide, L"") << "a later one without a name takes it away";
    EXPECT_EQ(later.name_narrow, "");
}

TEST(parse_record, a_file_name_without_a_value_is_passed_over_and_a_cut_one_is_survived) {
    EXPECT_EQ(parsed(record_builder().add(attribute_builder::resident(0x30, {}))).size, 0u);
    record_builder record;
    record.add(attribute_builder::resident(0x30, bytes(8, 0x55)).force(20, 2, 0xFFFF));
    const INODE_STATS stats = parsed(record);
    EXPECT_EQ(stats.size, 0u);
    EXPECT_EQ(stats.file_name_value, (std::array<std::uint8_t, 68>{}));
}

TEST(parse_record, each_index_allocation_has_its_list_and_its_name) {
    const auto index = [](const char* pairs) { return attribute_builder::with_pairs(0xA0, from_hex(pairs)); };
    const INODE_STATS stats = parsed(record_builder()
                                         .add(index("11 01 05 00").named("$I30"))
                                         .add(index("11 02 06 11 01 01 00"))
                                         .add(attribute_builder::resident(0xA0, bytes(16)).named("$R")));
    ASSERT_EQ(stats.index_runs.size(), 2u) << "a resident one is passed over";
    EXPECT_EQ(plain(stats.index_runs[0]), (plain_runs{{5, 1}}));
    EXPECT_EQ(plain(stats.index_runs[1]), (plain_runs{{6, 2}, {7, 1}}));
    EXPECT_EQ(stats.index_runs[0][0].attr_type, 0xA0u);
    EXPECT_EQ(stats.index_names, (std::vector<std::string>{"$I30", ""}));
}

TEST(parse_record, the_name_of_an_index_must_lie_in_its_attribute) {
    const auto name_with = [](std::size_t offset, unsigned width, std::uint64_t value) {
        return parsed(record_builder().add(attribute_builder::with_pairs(0xA0, from_hex("11 01 05 00"))
                                               .named("$I30")
                                               .force(offset, width, value)))
            .index_names.at(0);
    };
    // The attribute has 80 bytes: the name at 64, the pairs at 72.
    EXPECT_EQ(name_with(9, 1, 4), "$I30");
    EXPECT_EQ(name_with(9, 1, 0), "");
    EXPECT_EQ(name_with(10, 2, 0), "");
    EXPECT_EQ(name_with(9, 1, 9), "");
    EXPECT_EQ(name_with(10, 2, 73), "");
    EXPECT_EQ(name_with(10, 2, 0xFFFF), "");
}

TEST(parse_record, an_index_whose_pairs_hold_nothing_is_taken_back_and_ends_the_walk) {
    const INODE_STATS stats =
        parsed(record_builder()
                   .add(attribute_builder::with_pairs(0xA0, from_hex("00")).initialized(1))
                   .add(attribute_builder::with_pairs(0xB0, from_hex("11 01 05 00"))));
    EXPECT_TRUE(stats.index_runs.empty());
    EXPECT_TRUE(stats.index_names.empty());
    EXPECT_TRUE(stats.bitmap_runs.empty());
}

TEST(parse_record, an_index_without_initialized_bytes_and_without_pairs_is_passed_over) {
    const INODE_STATS stats = parsed(record_builder()
                                         .add(attribute_builder::with_pairs(0xA0, {}).initialized(0))
                                         .add(attribute_builder::with_pairs(0xB0, from_hex("11 01 05 00"))));
    EXPECT_TRUE(stats.index_runs.empty());
    EXPECT_EQ(stats.bitmap_runs.size(), 1u);
}

TEST(parse_record, an_empty_resident_stream_gives_nothing_and_the_walk_goes_on) {
    for (const std::uint32_t type : {0x80u, 0xB0u}) {
        const INODE_STATS stats =
            parsed(record_builder()
                       .add(attribute_builder::resident(type, {}))
                       .add(attribute_builder::with_pairs(0xB0, from_hex("11 02 05 00"))));
        EXPECT_TRUE(stats.data_runs.empty());
        EXPECT_EQ(plain(stats.bitmap_runs), (plain_runs{{5, 2}}));
    }
}

TEST(parse_record, a_bitmap_gives_runs_or_a_value_and_the_size_of_the_first) {
    const INODE_STATS stats = parsed(record_builder()
                                         .add(attribute_builder::resident(0xB0, bytes(8, 0xFF)))
                                         .add(attribute_builder::resident(0xB0, bytes(16, 0xFF)).named("x"))
                                         .add(attribute_builder::resident(0xB0, {}).named("y")));
    ASSERT_EQ(stats.bitmap_runs.size(), 2u);
    EXPECT_TRUE(stats.bitmap_runs[0].resident);
    EXPECT_EQ(stats.bitmap_runs[0].attr_type, 0xB0u);
    EXPECT_EQ(stats.bitmap_size, 8u);
    const INODE_STATS in_clusters =
        parsed(record_builder().add(attribute_builder::with_pairs(0xB0, from_hex("11 02 05 00")).real(5000)));
    EXPECT_EQ(plain(in_clusters.bitmap_runs), (plain_runs{{5, 2}}));
    EXPECT_EQ(in_clusters.bitmap_runs[0].attr_type, 0xB0u);
    EXPECT_EQ(in_clusters.bitmap_size, 5000u);
}

TEST(parse_record, the_runs_of_a_later_bitmap_replace_those_of_an_earlier_one) {
    const INODE_STATS stats =
        parsed(record_builder()
                   .add(attribute_builder::with_pairs(0xB0, from_hex("11 02 05 00")).real(5000))
                   .add(attribute_builder::with_pairs(0xB0, from_hex("11 03 09 00")).named("x").real(6000)));
    EXPECT_EQ(plain(stats.bitmap_runs), (plain_runs{{9, 3}}));
    EXPECT_EQ(stats.bitmap_size, 5000u);
}

TEST(parse_record, other_types_are_passed_over) {
    record_builder record;
    for (const std::uint32_t type :
         {0x40u, 0x50u, 0x60u, 0x70u, 0x90u, 0xC0u, 0xD0u, 0xE0u, 0xF0u, 0x100u, 0x1234u}) {
        record.add(attribute_builder::resident(type, bytes(16, 0x55)));
    }
    record.add(data("11 10 04 00"));
    EXPECT_EQ(parsed(record).data_runs.size(), 1u);
}

TEST(parse_record, a_chain_without_an_end_marker_ends_when_its_bytes_run_out) {
    record_builder record(4096);
    // 39 attributes of 24 bytes and one of 32 make 968 bytes.
    for (int i = 0; i < 39; ++i) {
        record.add(attribute_builder::resident(0x40, {}));
    }
    record.add(attribute_builder::resident(0xB0, bytes(8)));
    record.add(attribute_builder::resident(0xB0, bytes(8)));
    const bytes chain = record.without_end_marker().build_restored();
    EXPECT_EQ(parsed(chain, 967).bitmap_runs.size(), 0u);
    EXPECT_EQ(parsed(chain, 968).bitmap_runs.size(), 1u) << "the walk came to the last of them";
    EXPECT_EQ(parsed(chain, 999).bitmap_runs.size(), 1u);
    EXPECT_EQ(parsed(chain, 1000).bitmap_runs.size(), 2u);
    // The same where the record itself ends: 72 bytes of header, 968 of attributes.
    EXPECT_EQ(parsed(bytes(chain.begin(), chain.begin() + 1040), 4096).bitmap_runs.size(), 1u);
}

TEST(parse_record, an_attribute_of_length_0_ends_the_walk_after_its_turn) {
    const INODE_STATS stats = parsed(record_builder()
                                         .add(attribute_builder::resident(0x80, to_bytes("abc")).length(0))
                                         .add(attribute_builder::with_pairs(0xB0, from_hex("11 01 05 00"))));
    EXPECT_EQ(stats.data_runs.size(), 1u) << "the walk ends there successfully";
    EXPECT_EQ(stats.vcn_index.size(), 1u);
    EXPECT_TRUE(stats.bitmap_runs.empty());
}

TEST(parse_record, an_attribute_longer_than_the_distance_of_records_ends_the_walk_before_its_turn) {
    record_builder record(4096);
    record.add(attribute_builder::resident(0x80, bytes(1024 - 24 - 8)));
    record.add(attribute_builder::with_pairs(0xB0, from_hex("11 01 05 00")));
    EXPECT_EQ(parsed(record.build_restored(), 1016).data_runs.size(), 1u);
    EXPECT_TRUE(parsed(record.build_restored(), 1015).data_runs.empty());
    EXPECT_TRUE(parsed(record.build_restored(), 1016).bitmap_runs.empty()) << "no bytes are left for it";
    EXPECT_EQ(parsed(record.build_restored(), 2000).bitmap_runs.size(), 1u);
}

TEST(parse_record, lengths_of_any_kind_are_survived) {
    for (const std::uint32_t length :
         {1u, 4u, 7u, 15u, 16u, 23u, 63u, 64u, 71u, 72u, 1000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        for (const std::uint32_t type : {0x10u, 0x20u, 0x30u, 0x80u, 0xA0u, 0xB0u}) {
            const INODE_STATS resident = parsed(
                record_builder().add(attribute_builder::resident(type, bytes(64, 0x11)).length(length)));
            const INODE_STATS stored = parsed(record_builder().add(
                attribute_builder::with_pairs(type, from_hex("11 01 05 00")).length(length)));
            EXPECT_LE(resident.data_runs.size() + stored.data_runs.size(), 1024u);
        }
    }
}

TEST(parse_record, a_record_cut_at_any_length_is_survived) {
    record_builder builder;
    builder.add(attribute_builder::resident(0x10, standard_information{}.build()))
        .add(attribute_builder::resident(0x30, file_name{.name = "n", .real = 5}.build()))
        .add(data("21 18 34 56 00"))
        .add(attribute_builder::with_pairs(0xA0, from_hex("11 01 05 00")).named("$I30"))
        .add(attribute_builder::resident(0xB0, bytes(8)));
    const bytes record = builder.build_restored();
    for (std::size_t length = 0; length <= record.size(); ++length) {
        const INODE_STATS stats =
            parsed(bytes(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(length)));
        EXPECT_EQ(!stats.bitmap_runs.empty(), length >= builder.attribute_offset(4) + 20) << length;
    }
}

int loads = 0;
bool load_two_owners(CNtfs& volume) {
    ++loads;
    volume.m_sd_cache[0x100].owner = "S-1-5-18";
    volume.m_sd_cache[0x101].owner = "S-1-5-32-544";
    return true;
}
bool load_none(CNtfs& volume) {
    ++loads;
    volume.m_sd_cache[0x100].owner = "S-1-5-18";
    return false;
}

struct owner_case {
    std::uint32_t security_id = 0x101;
    std::uint64_t mft_size = 65536;
    bool validated = true;
    security_loader loader = load_two_owners;
};

std::string owner_of(const owner_case& with) {
    loads = 0;
    CNtfs volume;
    volume.m_record_alloc = 1024;
    volume.m_mft_info.size = with.mft_size;
    volume.m_Validated = with.validated;
    volume.m_load_security = with.loader;
    INODE_STATS stats;
    const bytes record = record_builder()
                             .add(attribute_builder::resident(
                                 0x10, standard_information{.security_id = with.security_id}.build()))
                             .build_restored();
    volume.parse_record(record, stats, 6, false);
    return stats.security_text;
}

TEST(parse_record, the_security_id_gives_the_owner) {
    EXPECT_EQ(owner_of({}), "S-1-5-32-544");
    EXPECT_EQ(loads, 1);
    EXPECT_EQ(owner_of({.security_id = 0x100}), "S-1-5-18");
    EXPECT_EQ(owner_of({.security_id = 0x999}), "");
}

TEST(parse_record, in_the_older_form_of_48_bytes_the_four_bytes_after_it_are_taken_for_a_security_id) {
    CNtfs volume;
    volume.m_record_alloc = 1024;
    volume.m_mft_info.size = 1;
    volume.m_Validated = true;
    volume.m_load_security = load_two_owners;
    INODE_STATS stats;
    record_builder record;
    record.add(attribute_builder::resident(0x10, standard_information{.size = 48}.build()));
    // The id's place is four bytes into the next attribute: its length.
    record.add(attribute_builder::resident(0x40, bytes(0x100 - 24)));
    volume.parse_record(record.build_restored(), stats, 6, false);
    EXPECT_EQ(stats.security_text, "S-1-5-18");
}

TEST(parse_record, the_owner_is_asked_for_only_where_it_can_be_known) {
    EXPECT_EQ(owner_of({.security_id = 0}), "");
    EXPECT_EQ(loads, 0);
    EXPECT_EQ(owner_of({.mft_size = 0}), "");
    EXPECT_EQ(loads, 0);
    EXPECT_EQ(owner_of({.validated = false}), "");
    EXPECT_EQ(loads, 0);
    EXPECT_EQ(owner_of({.loader = nullptr}), "");
    EXPECT_EQ(owner_of({.security_id = 0x100, .loader = load_none}), "")
        << "a loader that says no is believed";
    EXPECT_EQ(loads, 1);
}

TEST(parse_record, descriptors_are_loaded_once_however_many_attributes_ask_for_them) {
    for (const security_loader loader : {load_none, load_two_owners}) {
        loads = 0;
        CNtfs volume;
        volume.m_record_alloc = 1024;
        volume.m_mft_info.size = 1;
        volume.m_Validated = true;
        volume.m_load_security = loader;
        record_builder record;
        for (int i = 0; i < 5; ++i) {
            record.add(attribute_builder::resident(0x10, standard_information{.security_id = 0x100}.build()));
        }
        INODE_STATS stats;
        volume.parse_record(record.build_restored(), stats, 6, false);
        volume.parse_record(record.build_restored(), stats, 6, false);
        EXPECT_EQ(loads, 1);
        EXPECT_EQ(stats.security_text, loader == load_none ? "" : "S-1-5-18");
    }
}

TEST(parse_record, a_standard_information_whose_value_lies_outside_of_the_record_has_no_owner) {
    // The attribute is at 56 in a record of 1024 bytes, the id in the bytes 52 to 55 of its value.
    for (const std::uint64_t offset : {913u, 968u, 969u, 65535u}) {
        loads = 0;
        CNtfs volume;
        volume.m_record_alloc = 1024;
        volume.m_mft_info.size = 1;
        volume.m_Validated = true;
        volume.m_load_security = load_two_owners;
        INODE_STATS stats;
        bytes record = record_builder()
                           .add(attribute_builder::resident(0x10, bytes(72)).force(20, 2, offset))
                           .build_restored();
        std::fill(record.begin() + 900, record.end(), std::uint8_t{0x01});
        volume.parse_record(record, stats, 6, false);
        EXPECT_EQ(stats.security_text, "");
        EXPECT_EQ(loads, 0) << "bytes outside read as no id";
    }
}

TEST(parse_attributes, a_single_attribute_is_parsed_without_others) {
    CNtfs volume;
    volume.m_record_alloc = 1024;
    INODE_STATS stats;
    attribute list;
    const bytes record = record_builder().add(data("11 10 04 00")).add(data("11 08 30 00")).build_restored();
    EXPECT_TRUE(volume.parse_attributes(stats, list, first_attribute(record), 72, true, true));
    EXPECT_EQ(plain(stats.data_runs), (plain_runs{{4, 16}}));
    EXPECT_TRUE(volume.parse_attributes(stats, list, first_attribute(record), 1024, true, false));
    EXPECT_EQ(plain(stats.data_runs), (plain_runs{{4, 16}, {4, 16}, {48, 8}}));
}

TEST(parse_attributes, no_bytes_left_and_a_null_attribute_are_success) {
    CNtfs volume;
    volume.m_record_alloc = 1024;
    INODE_STATS stats;
    attribute list;
    const bytes record = record_builder().add(data("00").initialized(1)).build_restored();
    EXPECT_TRUE(volume.parse_attributes(stats, list, first_attribute(record), 0, true, false));
    EXPECT_TRUE(volume.parse_attributes(stats, list, first_attribute(record), -1, true, false));
    EXPECT_TRUE(volume.parse_attributes(stats, list, first_attribute(record), 71, true, false))
        << "it has 72";
    EXPECT_FALSE(volume.parse_attributes(stats, list, first_attribute(record), 72, true, false));
    EXPECT_TRUE(volume.parse_attributes(stats, list, attribute(), 1024, true, false));
}

TEST(parse_attributes,
     an_attribute_longer_than_the_distance_of_records_ends_the_walk_however_many_bytes_are_left) {
    CNtfs volume;
    volume.m_record_alloc = 72;
    INODE_STATS stats;
    attribute list;
    const bytes record = record_builder().add(data("11 10 04 00")).build_restored();
    EXPECT_TRUE(volume.parse_attributes(stats, list, first_attribute(record), 4096, true, false));
    EXPECT_EQ(stats.data_runs.size(), 1u);
    volume.m_record_alloc = 71;
    EXPECT_TRUE(volume.parse_attributes(stats, list, first_attribute(record), 4096, true, false));
    EXPECT_EQ(stats.data_runs.size(), 1u);
}

TEST(parse_attributes, the_last_attribute_list_is_reported) {
    CNtfs volume;
    volume.m_record_alloc = 1024;
    INODE_STATS stats;
    attribute list;
    const bytes record = record_builder()
                             .add(attribute_builder::resident(0x20, bytes(8)).id(3))
                             .add(attribute_builder::resident(0x20, bytes(8)).id(4))
                             .build_restored();
    EXPECT_TRUE(volume.parse_attributes(stats, list, first_attribute(record), 1024, false, false));
    EXPECT_EQ(list.id(), 4);
}

}  // namespace
}  // namespace quarry::test
