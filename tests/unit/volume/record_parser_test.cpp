#include "support/attribute_list_builder.h"
#include "support/opened_volume.h"
#include "support/record_builder.h"
#include "volume/attribute_values.h"
#include "volume/ntfs.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

struct plain_run {
    std::uint64_t lcn;
    std::uint32_t length;
    bool operator==(const plain_run&) const = default;
};

std::vector<plain_run> plain(const data_run_list& list) {
    std::vector<plain_run> result;
    for (const data_run& run : list) {
        result.push_back({run.lcn, run.num_clusters});
    }
    return result;
}

using plain_runs = std::vector<plain_run>;

attribute_builder data(const char* pairs) {
    return attribute_builder::with_pairs(0x80, from_hex(pairs));
}

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

TEST(ParseRecord, the_runs_of_a_record_are_gathered_and_numbered) {
    const INODE_STATS stats = parsed(record_builder().add(data("11 10 04 11 08 30 00").real(90000)));
    EXPECT_EQ(plain(stats.data_runs), (plain_runs{{4, 16}, {52, 8}}));
    EXPECT_EQ(stats.data_runs[1].vcn, 16u);
    EXPECT_EQ(stats.data_runs[1].attr_type, 0x80u);
    EXPECT_EQ(stats.vcn_index.at(16), 1u);
    EXPECT_EQ(stats.size, 90000u);
}

TEST(ParseRecord, an_empty_record_gives_nothing_and_forgets_what_was_there) {
    const INODE_STATS stats = parsed(record_builder());
    EXPECT_EQ(stats.size, 0u);
    EXPECT_TRUE(stats.data_runs.empty());
    EXPECT_TRUE(stats.index_runs.empty());
    EXPECT_TRUE(stats.bitmap_runs.empty());
    EXPECT_TRUE(stats.vcn_index.empty());
}

TEST(ParseRecord, appending_keeps_what_was_there) {
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

TEST(ParseRecord,
     a_later_data_attribute_of_the_same_record_replaces_the_runs_of_an_earlier_one_whatever_their_names) {
    const INODE_STATS stats = parsed(
        record_builder().add(data("11 10 04 00").real(5)).add(data("11 08 30 00").named("other").real(6)));
    EXPECT_EQ(plain(stats.data_runs), (plain_runs{{48, 8}}));
    EXPECT_EQ(stats.size, 5u);
}

TEST(ParseRecord, a_resident_data_value_stands_in_the_place_of_runs) {
    const INODE_STATS stats =
        parsed(record_builder().add(attribute_builder::resident(0x80, to_bytes("abc"))));
    ASSERT_EQ(stats.data_runs.size(), 1u);
    EXPECT_TRUE(stats.data_runs[0].resident);
    EXPECT_EQ(stats.data_runs[0].bytes, to_bytes("abc"));
    EXPECT_EQ(stats.data_runs[0].value_size, 3u);
    EXPECT_EQ(stats.size, 3u);
    EXPECT_TRUE(parsed(record_builder().add(attribute_builder::resident(0x80, {}))).data_runs.empty());
}

TEST(ParseRecord, a_resident_value_that_reaches_out_of_its_attribute_is_kept_as_far_as_it_exists) {
    const INODE_STATS stats = parsed(record_builder().add(
        attribute_builder::resident(0x80, to_bytes("abcdefgh")).force(16, 4, 0xFFFFFFFF)));
    ASSERT_EQ(stats.data_runs.size(), 1u);
    EXPECT_EQ(stats.data_runs[0].bytes, to_bytes("abcdefgh"));
}

TEST(ParseRecord, a_data_attribute_without_initialized_bytes_and_without_pairs_is_passed_over) {
    // Length 64 and pairs at 64: there are none.
    const INODE_STATS stats = parsed(record_builder()
                                         .add(data("").initialized(0).real(7))
                                         .add(attribute_builder::with_pairs(0xB0, from_hex("11 01 05 00"))));
    EXPECT_TRUE(stats.data_runs.empty());
    EXPECT_EQ(stats.size, 0u);
    EXPECT_EQ(stats.bitmap_runs.size(), 1u) << "the walk goes on";
}

TEST(ParseRecord, pairs_that_hold_nothing_end_the_walk) {
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

TEST(ParseRecord, without_initialized_bytes_pairs_are_decoded_if_there_are_any) {
    const INODE_STATS stats = parsed(record_builder().add(data("11 10 04 00").initialized(0)));
    EXPECT_EQ(stats.data_runs.size(), 1u);
}

TEST(ParseRecord, the_last_file_name_of_the_record_is_kept_and_its_size) {
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

TEST(ParseRecord, a_file_name_attribute_that_has_a_name_of_its_own_gives_that) {
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

TEST(ParseRecord, a_file_name_without_a_value_is_passed_over_and_a_cut_one_is_survived) {
    EXPECT_EQ(parsed(record_builder().add(attribute_builder::resident(0x30, {}))).size, 0u);
    record_builder record;
    record.add(attribute_builder::resident(0x30, bytes(8, 0x55)).force(20, 2, 0xFFFF));
    const INODE_STATS stats = parsed(record);
    EXPECT_EQ(stats.size, 0u);
    EXPECT_EQ(stats.file_name_value, (std::array<std::uint8_t, 68>{}));
}

TEST(ParseRecord, each_index_allocation_has_its_list_and_its_name) {
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

TEST(ParseRecord, the_name_of_an_index_must_lie_in_its_attribute) {
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

TEST(ParseRecord, an_index_whose_pairs_hold_nothing_is_taken_back_and_ends_the_walk) {
    const INODE_STATS stats =
        parsed(record_builder()
                   .add(attribute_builder::with_pairs(0xA0, from_hex("00")).initialized(1))
                   .add(attribute_builder::with_pairs(0xB0, from_hex("11 01 05 00"))));
    EXPECT_TRUE(stats.index_runs.empty());
    EXPECT_TRUE(stats.index_names.empty());
    EXPECT_TRUE(stats.bitmap_runs.empty());
}

TEST(ParseRecord, an_index_without_initialized_bytes_and_without_pairs_is_passed_over) {
    const INODE_STATS stats = parsed(record_builder()
                                         .add(attribute_builder::with_pairs(0xA0, {}).initialized(0))
                                         .add(attribute_builder::with_pairs(0xB0, from_hex("11 01 05 00"))));
    EXPECT_TRUE(stats.index_runs.empty());
    EXPECT_EQ(stats.bitmap_runs.size(), 1u);
}

TEST(ParseRecord, an_empty_resident_stream_gives_nothing_and_the_walk_goes_on) {
    for (const std::uint32_t type : {0x80u, 0xB0u}) {
        const INODE_STATS stats =
            parsed(record_builder()
                       .add(attribute_builder::resident(type, {}))
                       .add(attribute_builder::with_pairs(0xB0, from_hex("11 02 05 00"))));
        EXPECT_TRUE(stats.data_runs.empty());
        EXPECT_EQ(plain(stats.bitmap_runs), (plain_runs{{5, 2}}));
    }
}

TEST(ParseRecord, a_bitmap_gives_runs_or_a_value_and_the_size_of_the_first) {
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

TEST(ParseRecord, the_runs_of_a_later_bitmap_replace_those_of_an_earlier_one) {
    const INODE_STATS stats =
        parsed(record_builder()
                   .add(attribute_builder::with_pairs(0xB0, from_hex("11 02 05 00")).real(5000))
                   .add(attribute_builder::with_pairs(0xB0, from_hex("11 03 09 00")).named("x").real(6000)));
    EXPECT_EQ(plain(stats.bitmap_runs), (plain_runs{{9, 3}}));
    EXPECT_EQ(stats.bitmap_size, 5000u);
}

TEST(ParseRecord, other_types_are_passed_over) {
    record_builder record;
    for (const std::uint32_t type :
         {0x40u, 0x50u, 0x60u, 0x70u, 0x90u, 0xC0u, 0xD0u, 0xE0u, 0xF0u, 0x100u, 0x1234u}) {
        record.add(attribute_builder::resident(type, bytes(16, 0x55)));
    }
    record.add(data("11 10 04 00"));
    EXPECT_EQ(parsed(record).data_runs.size(), 1u);
}

TEST(ParseRecord, a_chain_without_an_end_marker_ends_when_its_bytes_run_out) {
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

TEST(ParseRecord, an_attribute_of_length_0_ends_the_walk_after_its_turn) {
    const INODE_STATS stats = parsed(record_builder()
                                         .add(attribute_builder::resident(0x80, to_bytes("abc")).length(0))
                                         .add(attribute_builder::with_pairs(0xB0, from_hex("11 01 05 00"))));
    EXPECT_EQ(stats.data_runs.size(), 1u) << "the walk ends there successfully";
    EXPECT_EQ(stats.vcn_index.size(), 1u);
    EXPECT_TRUE(stats.bitmap_runs.empty());
}

TEST(ParseRecord, an_attribute_longer_than_the_distance_of_records_ends_the_walk_before_its_turn) {
    record_builder record(4096);
    record.add(attribute_builder::resident(0x80, bytes(1024 - 24 - 8)));
    record.add(attribute_builder::with_pairs(0xB0, from_hex("11 01 05 00")));
    EXPECT_EQ(parsed(record.build_restored(), 1016).data_runs.size(), 1u);
    EXPECT_TRUE(parsed(record.build_restored(), 1015).data_runs.empty());
    EXPECT_TRUE(parsed(record.build_restored(), 1016).bitmap_runs.empty()) << "no bytes are left for it";
    EXPECT_EQ(parsed(record.build_restored(), 2000).bitmap_runs.size(), 1u);
}

TEST(ParseRecord, lengths_of_any_kind_are_survived) {
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

TEST(ParseRecord, a_record_cut_at_any_length_is_survived) {
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

// Four entries of 1,024 bytes fit into a cluster: entry 5 is in the second one.
TEST(ParseRecord, a_second_record_of_mft_replaces_the_places_that_the_first_gave) {
    CNtfs volume;
    volume.m_record_alloc = 1024;
    volume.m_cluster_size = 4096;
    volume.m_Validated = true;
    std::uint64_t lcn = 0;
    std::uint32_t byte_offset = 0;
    const auto take = [&volume](const char* pairs) {
        volume.parse_record(record_builder().add(data(pairs)).build_restored(), volume.m_mft_info, 0, false);
    };
    take("11 01 05 00");
    EXPECT_FALSE(volume.get_lcn_for_inode(5, lcn, byte_offset));
    take("11 02 09 00");
    ASSERT_TRUE(volume.get_lcn_for_inode(5, lcn, byte_offset));
    EXPECT_EQ(lcn, 10u);
    EXPECT_EQ(byte_offset, 1024u);
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

TEST(ParseRecord, the_security_id_gives_the_owner) {
    EXPECT_EQ(owner_of({}), "S-1-5-32-544");
    EXPECT_EQ(loads, 1);
    EXPECT_EQ(owner_of({.security_id = 0x100}), "S-1-5-18");
    EXPECT_EQ(owner_of({.security_id = 0x999}), "");
}

TEST(ParseRecord, in_the_older_form_of_48_bytes_the_four_bytes_behind_it_are_taken_for_a_security_id) {
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

TEST(ParseRecord, the_owner_is_asked_for_only_where_it_can_be_known) {
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

TEST(ParseRecord, descriptors_are_loaded_once_however_many_attributes_ask_for_them) {
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

TEST(ParseRecord, a_standard_information_whose_value_lies_outside_of_the_record_has_no_owner) {
    // The attribute stands at 56 in a record of 1024 bytes, the id in the bytes 52 to 55 of its value.
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

TEST(ParseAttributes, a_single_attribute_is_parsed_alone) {
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

TEST(ParseAttributes, no_bytes_left_and_a_null_attribute_are_success) {
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

TEST(ParseAttributes,
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

TEST(ParseAttributes, the_last_attribute_list_is_told) {
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

// $MFT in two pieces, the second of which only its attribute list leads to.
geometry split_mft() {
    return {.mft_entries = 64, .mft_runs = {{4, 8}, {200, 8}}, .mft_runs_in_record_0 = 1};
}

void expect_both_pieces(opened_volume& volume) {
    EXPECT_EQ(plain(volume->m_mft_info.data_runs), (plain_runs{{4, 8}, {200, 8}}));
    EXPECT_EQ(volume->m_mft_info.data_runs[1].vcn, 8u);
    EXPECT_EQ(volume->m_mft_info.vcn_index.at(8), 1u);
    EXPECT_EQ(volume->get_num_entries(), 64u);
    // Eight clusters of 4096 bytes hold the entries up to 31.
    EXPECT_EQ(volume->entry_position(31), 4u * 4096 + 31 * 1024);
    EXPECT_EQ(volume->entry_position(32), 200u * 4096);
    EXPECT_EQ(volume->entry_position(63), 200u * 4096 + 31 * 1024);
    EXPECT_EQ(volume->entry_position(64), 0u);
}

TEST(AttributeList, the_runs_of_extension_records_follow_those_of_record_0) {
    volume_builder builder(split_mft());
    opened_volume volume(builder);
    expect_both_pieces(volume);
}

TEST(AttributeList, a_list_in_clusters_serves_like_a_resident_one) {
    volume_builder builder(split_mft());
    builder.file(0).list_in_clusters();
    opened_volume volume(builder);
    expect_both_pieces(volume);
}

TEST(AttributeList, a_file_in_the_second_piece_of_mft_is_read) {
    volume_builder builder(split_mft());
    builder.add_file_at(40, "far").data("content");
    opened_volume volume(builder);
    std::vector<std::uint8_t> record;
    std::uint64_t position = 0;
    std::uint64_t length = 0;
    ASSERT_TRUE(volume->read_record(40, record, position, length));
    EXPECT_EQ(position, 200u * 4096 + 8 * 1024);
    EXPECT_EQ(file_record{byte_view(record)}.entry_number(), 40u);
}

TEST(AttributeList, many_pieces_stand_in_the_order_of_the_list) {
    geometry shape{.mft_entries = 64, .mft_runs_in_record_0 = 1};
    shape.mft_runs = {{4, 4}, {30, 2}, {20, 2}, {400, 4}, {300, 4}};
    volume_builder builder(shape);
    opened_volume volume(builder);
    EXPECT_EQ(plain(volume->m_mft_info.data_runs),
              (plain_runs{{4, 4}, {30, 2}, {20, 2}, {400, 4}, {300, 4}}));
    EXPECT_EQ(volume->get_num_entries(), 64u);
    EXPECT_EQ(volume->entry_position(24), 20u * 4096);
    EXPECT_EQ(volume->entry_position(48), 300u * 4096);
}

// The list of a $MFT in two pieces, as the builder would make it: the extension record is entry 15.
bytes list_of_split_mft(const std::vector<list_item>& items) {
    volume_builder builder(split_mft());
    builder.file(0).attribute_list(build_attribute_list(items));
    return builder.image();
}

std::uint64_t pieces_after(const std::vector<list_item>& items) {
    opened_volume volume(list_of_split_mft(items));
    return volume->m_mft_info.data_runs.size();
}

TEST(AttributeList, an_entry_whose_sequence_number_differs_is_passed_over_and_the_walk_goes_on) {
    EXPECT_EQ(pieces_after({{.record = 15}}), 2u);
    EXPECT_EQ(pieces_after({{.record = 15, .sequence = 2}}), 1u);
    EXPECT_EQ(pieces_after({{.record = 15, .sequence = 2}, {.record = 15}}), 2u);
}

// Pieces of $MFT that are found behind so many entries that name a record of another sequence number.
std::uint64_t pieces_behind(std::size_t useless_entries) {
    volume_builder builder(split_mft());
    std::vector<list_item> items(useless_entries, {.record = 15, .sequence = 2});
    items.push_back({.record = 15});
    builder.file(0).attribute_list(build_attribute_list(items)).list_in_clusters();
    opened_volume volume(builder);
    return volume->m_mft_info.data_runs.size();
}

TEST(AttributeList, a_list_is_followed_until_64_mib_were_read) {
    // Entries of 32 bytes take 496 or 497 clusters of 4096 bytes. Behind these there are 63,552 or 63,548
    // reads of 1024 bytes before 67,108,864 bytes are reached.
    EXPECT_EQ(pieces_behind(63400), 2u);
    EXPECT_EQ(pieces_behind(63600), 1u);
}

TEST(AttributeList, an_entry_whose_type_and_id_are_in_no_attribute_adds_nothing_and_the_walk_goes_on) {
    EXPECT_EQ(pieces_after({{.record = 15, .id = 77}, {.type = 0xA0, .record = 15}}), 1u);
    EXPECT_EQ(pieces_after({{.record = 15, .id = 77}, {.record = 15}}), 2u);
}

TEST(AttributeList, an_entry_that_points_to_the_record_itself_is_passed_over) {
    // In record 0 the $DATA has the id 2.
    EXPECT_EQ(pieces_after({{.record = 0, .id = 2}, {.record = 15}, {.record = 0, .id = 2}}), 2u);
}

TEST(AttributeList, a_record_that_is_none_is_passed_over) {
    // Entry 6 has no $DATA with that id, entry 20 was never used, entry 1000 is beyond the end.
    EXPECT_EQ(pieces_after(
                  {{.record = 6, .sequence = 6, .id = 9}, {.record = 20}, {.record = 1000}, {.record = 15}}),
              2u);
    EXPECT_EQ(pieces_after({{.record = 0xFFFFFFFFFFFF}, {.record = 15}}), 2u);
}

TEST(AttributeList, a_baad_record_and_an_index_block_are_passed_over) {
    for (const std::uint64_t signature : {0x44414142u, 0x58444E49u}) {
        volume_builder builder(split_mft());
        builder.force_record(15, 0, 4, signature);
        opened_volume volume(builder);
        EXPECT_EQ(volume->m_mft_info.data_runs.size(), 1u);
    }
}

TEST(AttributeList, a_record_whose_first_attribute_is_as_long_as_a_record_is_not_searched) {
    for (const std::uint32_t length : {1023u, 1024u}) {
        volume_builder builder(split_mft());
        builder.replace_record(15, builder.new_record(15)
                                       .base(reference(0, 1))
                                       .add(data("11 08 7F 00").id(0).lowest_vcn(8).length(length))
                                       .build());
        builder.file(0).attribute_list(build_attribute_list({{.record = 15}}));
        opened_volume volume(builder);
        EXPECT_EQ(volume->m_mft_info.data_runs.size(), length < 1024 ? 2u : 1u);
    }
}

TEST(AttributeList, an_attribute_of_length_0_in_an_extension_record_is_not_taken) {
    for (const std::uint32_t length : {0u, 32u}) {
        volume_builder builder(split_mft());
        builder.replace_record(
            15, builder.new_record(15)
                    .base(reference(0, 1))
                    .add(attribute_builder::resident(0x80, bytes(8, 0x11)).id(0).length(length))
                    .build());
        builder.file(0).attribute_list(build_attribute_list({{.record = 15}}));
        opened_volume volume(builder);
        EXPECT_EQ(volume->m_mft_info.data_runs.size(), length == 0 ? 1u : 2u);
    }
}

TEST(AttributeList, the_search_in_an_extension_record_ends_at_the_distance_of_records) {
    // Records of 4096 bytes every 1024 bytes: entry 60 is the record in the slot of entry 15.
    for (const std::size_t filler : {392u, 400u, 408u}) {
        volume_builder builder(
            {.record_size = 4096, .mft_runs = {{4, 32}, {200, 32}}, .mft_runs_in_record_0 = 1});
        builder.force_record(0, 28, 4, 1024);
        builder.file(0).attribute_list(build_attribute_list({{.record = 60, .id = 9}}));
        builder.replace_record(15, builder.new_record(15)
                                       .base(reference(0, 1))
                                       .add(attribute_builder::resident(0x40, bytes(600 - 24)))
                                       .add(attribute_builder::resident(0x40, bytes(filler)))
                                       .add(data("11 20 7F 00").id(9).lowest_vcn(32))
                                       .build());
        opened_volume volume(builder);
        ASSERT_EQ(volume->get_mft_record_size(), 4096u);
        // 600 bytes and 24 + 400 make 1024.
        EXPECT_EQ(volume->m_mft_info.data_runs.size(), filler < 400 ? 2u : 1u) << filler;
    }
}

TEST(AttributeList, an_entry_shorter_than_its_fields_is_stepped_over_by_its_length) {
    // What then stands in the place of the next entry has a length of 0 or one beyond the list.
    for (std::uint64_t length = 1; length < 26; ++length) {
        EXPECT_EQ(pieces_after({{.record = 0, .forced = {{4, 2, length}}}, {.record = 15}}), 1u) << length;
    }
}

TEST(AttributeList, an_entry_of_length_0_or_beyond_the_list_ends_the_walk) {
    EXPECT_EQ(pieces_after({{.record = 0, .forced = {{4, 2, 0}}}, {.record = 15}}), 1u);
    EXPECT_EQ(pieces_after({{.record = 0}, {.record = 0, .forced = {{4, 2, 0xFFFF}}}, {.record = 15}}), 1u);
    EXPECT_EQ(pieces_after({{.record = 0, .forced = {{4, 2, 0xFFFF}}}, {.record = 15}}), 1u);
}

TEST(AttributeList, fewer_than_26_bytes_behind_an_entry_end_the_walk) {
    const bytes entry = build_attribute_list({{.record = 0}});
    const bytes wanted = build_attribute_list({{.record = 15}});
    ASSERT_EQ(wanted.size(), 32u);
    for (const std::size_t rest : {1u, 25u, 26u, 31u}) {
        bytes list = entry;
        bytes cut = wanted;
        cut.resize(rest);
        apply(cut, {{4, 2, rest}});
        list.insert(list.end(), cut.begin(), cut.begin() + static_cast<std::ptrdiff_t>(rest));
        list.resize(entry.size() + rest);
        volume_builder builder(split_mft());
        builder.file(0).attribute_list(list);
        opened_volume volume(builder);
        EXPECT_EQ(volume->m_mft_info.data_runs.size(), rest < 26 ? 1u : 2u) << rest;
    }
}

TEST(AttributeList, a_list_cut_at_any_length_is_survived) {
    const bytes whole = build_attribute_list({{.record = 15}, {.record = 15}});
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        volume_builder builder(split_mft());
        builder.file(0).attribute_list(
            bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
        opened_volume volume(builder);
        // An entry counts once its length, 32, is there; the second one with that as well.
        EXPECT_EQ(volume->m_mft_info.data_runs.size(), length < 32 ? 1u : length < 64 ? 2u : 3u) << length;
    }
}

TEST(AttributeList, a_list_without_initialized_bytes_is_not_read) {
    volume_builder builder(split_mft());
    builder.file(0).without_attribute_list();
    const bytes list = build_attribute_list({{.record = 15}});
    const auto add = [&](std::uint64_t initialized) {
        builder.write_clusters(150, list);
        builder.file(0).attribute(
            attribute_builder::non_resident(0x20, runs({{150, 1}})).real(32).initialized(initialized));
    };
    add(0);
    {
        opened_volume volume(builder);
        EXPECT_EQ(volume->m_mft_info.data_runs.size(), 1u);
    }
    add(32);
    opened_volume volume(builder);
    EXPECT_EQ(volume->m_mft_info.data_runs.size(), 2u) << "the last list counts";
}

// $MFT with a list that lies where these runs say; cluster 150 holds an entry that leads to the second piece.
std::uint64_t pieces_with_list_in(const run_list& where) {
    volume_builder builder(split_mft());
    builder.write_clusters(150, build_attribute_list({{.record = 15}}));
    builder.file(0).without_attribute_list().attribute(
        attribute_builder::non_resident(0x20, where).real(4096).initialized(4096));
    opened_volume volume(builder);
    return volume->m_mft_info.data_runs.size();
}

TEST(AttributeList, a_list_in_clusters_is_walked_to_the_end_of_its_clusters_whatever_its_real_size) {
    volume_builder builder(split_mft());
    builder.write_clusters(150, build_attribute_list({{.record = 0, .id = 2}, {.record = 15}}));
    builder.file(0).without_attribute_list().attribute(
        attribute_builder::non_resident(0x20, runs({{150, 1}})).real(32).initialized(32));
    opened_volume volume(builder);
    EXPECT_EQ(volume->m_mft_info.data_runs.size(), 2u) << "the second entry stands behind the real size";
}

TEST(AttributeList, a_run_of_a_list_that_cannot_be_read_leaves_the_next_one_in_its_place) {
    EXPECT_EQ(pieces_with_list_in({{150, 1}}), 2u);
    EXPECT_EQ(pieces_with_list_in({{1000000, 1}, {150, 1}}), 2u);
    EXPECT_EQ(pieces_with_list_in({{150, 1}, {1000000, 1}}), 2u);
    EXPECT_EQ(pieces_with_list_in({{1000000, 1}}), 1u);
}

TEST(AttributeList, a_sparse_run_of_a_list_is_read_from_the_start_of_the_volume) {
    // The boot sector as a list: its bytes 4 and 5, "TF", say that the first entry is 18,004 bytes long. The
    // next one then begins in $MFT at byte 16,384, in the slot of entry 1, at byte 596 of that.
    volume_builder builder(split_mft());
    builder.replace_record(1, byte_writer().raw(596, build_attribute_list({{.record = 15}})).take());
    builder.file(0).without_attribute_list().attribute(
        attribute_builder::non_resident(0x20, runs({{hole, 5}})).real(20480).initialized(20480));
    opened_volume volume(builder);
    EXPECT_EQ(volume->m_mft_info.data_runs.size(), 2u) << "zeros would hold no entry";
}

TEST(AttributeList, a_list_that_claims_more_clusters_than_there_are_costs_no_more_than_the_source) {
    EXPECT_EQ(pieces_with_list_in({{150, 1}, {hole, 0xFFFFFFFF}, {hole, 0xFFFFFFFF}}), 2u);
    EXPECT_EQ(pieces_with_list_in({{hole, 0xFFFFFFFF}}), 1u);
    EXPECT_EQ(pieces_with_list_in({{150, 0xFFFFFFFF}}), 2u);
}

TEST(AttributeList, sixty_thousand_entries_for_one_record_end_soon_and_cost_little_memory) {
    volume_builder builder(split_mft());
    bytes list;
    const bytes entry = build_attribute_list({{.record = 15}});
    while (list.size() < 60000 * entry.size()) {
        list.insert(list.end(), entry.begin(), entry.end());
    }
    builder.file(0).attribute_list(list).list_in_clusters();
    opened_volume volume(builder);
    EXPECT_TRUE(volume->is_valid());
    // Half a mebibyte of attributes, 72 bytes each with one run, and a little for the source.
    EXPECT_GT(volume->m_mft_info.data_runs.size(), 7000u);
    EXPECT_LT(volume->m_mft_info.data_runs.size(), 8000u);
}

TEST(AttributeList, entries_of_two_bytes_that_name_no_record_end_within_seconds) {
    // Each entry says that the next one begins two bytes on, in as many clusters as the source has.
    volume_builder builder(split_mft());
    bytes list(std::size_t{4} << 20);
    for (std::size_t i = 0; i < list.size(); i += 2) {
        list[i] = 2;
    }
    builder.write_clusters(300, list);
    builder.file(0).without_attribute_list().attribute(
        attribute_builder::non_resident(0x20, runs({{300, 1024}})).real(32).initialized(32));
    opened_volume volume(builder);
    EXPECT_EQ(volume->m_mft_info.data_runs.size(), 1u);
}

TEST(AttributeList, entries_for_an_attribute_of_one_byte_cost_no_more_memory_than_others) {
    volume_builder builder(split_mft());
    bytes list;
    const bytes entry = build_attribute_list({{.type = 0x80, .record = 15, .id = 9}});
    while (list.size() < 60000 * entry.size()) {
        list.insert(list.end(), entry.begin(), entry.end());
    }
    builder.file(0).attribute_list(list).list_in_clusters();
    // A resident value, which stays an element of the list each time.
    builder.file(0).attribute(attribute_builder::resident(0x80, bytes(8)).id(9).length(1), 1);
    opened_volume volume(builder);
    EXPECT_GT(volume->m_mft_info.data_runs.size(), 8192u);
    EXPECT_LT(volume->m_mft_info.data_runs.size(), 9000u);
}

TEST(AttributeList, on_sectors_of_4096_bytes_the_pieces_of_mft_in_extension_records_are_not_found) {
    geometry shape = split_mft();
    shape.bytes_per_sector = 4096;
    shape.sectors_per_cluster = 1;
    shape.record_size = 4096;
    shape.mft_runs = {{4, 32}, {200, 32}};
    {
        volume_builder builder(shape);
        opened_volume volume(builder);
        EXPECT_EQ(plain(volume->m_mft_info.data_runs), (plain_runs{{4, 32}}))
            << "nine words are too many for a record of one sector";
    }
    shape.stride = 4096;  // which no file system writes
    volume_builder builder(shape);
    opened_volume volume(builder);
    EXPECT_EQ(plain(volume->m_mft_info.data_runs), (plain_runs{{4, 32}, {200, 32}}));
}

TEST(AttributeList, a_list_longer_than_the_distance_of_records_is_not_read) {
    volume_builder builder(split_mft());
    builder.force_record(0, 28, 4, 64);
    opened_volume volume(builder);
    EXPECT_TRUE(volume->is_valid());
    EXPECT_TRUE(volume->m_mft_info.data_runs.empty());
}

TEST(AttributeList, entry_6_may_have_a_list_too) {
    volume_builder builder;
    const std::size_t place = builder.file(6).add_extension(30);
    builder.file(6).attribute(attribute_builder::non_resident(0x80, runs({{77, 3}})).lowest_vcn(1), place);
    opened_volume volume(builder);
    EXPECT_EQ(plain(volume->m_bitmap_runs), (plain_runs{{20, 1}, {77, 3}}));
}

TEST(AttributeList, entry_6_may_have_all_its_runs_in_an_extension_record) {
    volume_builder builder;
    builder.replace_record(
        6, builder.new_record(6)
               .add(attribute_builder::resident(0x20, build_attribute_list({{.record = 30, .id = 4}})))
               .build());
    builder.replace_record(30, builder.new_record(30).sequence(1).add(data("11 03 4D 00").id(4)).build());
    opened_volume volume(builder);
    EXPECT_EQ(plain(volume->m_bitmap_runs), (plain_runs{{77, 3}}));
}

// Whether the volume counts as valid once a record with this list was parsed as that of an entry.
bool valid_after(const bytes& list, std::uint64_t entry, bool with_data = true, bool valid_before = false) {
    CNtfs volume;
    volume.m_record_alloc = 1024;
    volume.m_Validated = valid_before;
    INODE_STATS stats;
    record_builder record;
    record.add(attribute_builder::resident(0x20, list));
    if (with_data) {
        record.add(data("11 10 04 00"));
    }
    volume.parse_record(record.build_restored(), stats, entry, false);
    EXPECT_EQ(stats.vcn_index.size(), with_data ? 1u : 0u);
    return volume.m_Validated;
}

TEST(AttributeList, the_list_of_mft_makes_the_volume_valid_unless_it_cannot_be_read) {
    const bytes longer_than_the_list(8, 0x11);
    EXPECT_TRUE(valid_after({}, 0)) << "an empty list is no failure";
    EXPECT_TRUE(valid_after(build_attribute_list({{.record = 0}}), 0));
    EXPECT_FALSE(valid_after(longer_than_the_list, 0));
    EXPECT_TRUE(valid_after(longer_than_the_list, 0, true, true)) << "what was valid stays so";
    EXPECT_FALSE(valid_after({}, 0, false)) << "without runs the list is not read";
    EXPECT_FALSE(valid_after({}, 6)) << "only that of $MFT does";
}

TEST(AttributeList, two_records_that_name_each_other_end) {
    volume_builder builder;
    const std::size_t place = builder.file(6).add_extension(30);
    builder.file(6).attribute(
        attribute_builder::resident(0x20, build_attribute_list({{.type = 0x20, .record = 6, .sequence = 6}})),
        place);
    opened_volume volume(builder);
    EXPECT_TRUE(volume->is_valid());
    EXPECT_EQ(volume->m_bitmap_runs.size(), 1u);
}

}  // namespace
}  // namespace quarry::test
