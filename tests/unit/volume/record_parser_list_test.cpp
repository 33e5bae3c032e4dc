// Records whose attribute list leads to more of the entry: that of $MFT and of $Bitmap.
#include "support/attribute_list_builder.h"
#include "support/opened_volume.h"
#include "support/record_builder.h"
#include "unit/volume/plain_runs.h"
#include "volume/ntfs.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

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

TEST(attribute_list, the_runs_of_extension_records_follow_those_of_record_0) {
    volume_builder builder(split_mft());
    opened_volume volume(builder);
    expect_both_pieces(volume);
}

TEST(attribute_list, a_list_in_clusters_serves_like_a_resident_one) {
    volume_builder builder(split_mft());
    builder.file(0).list_in_clusters();
    opened_volume volume(builder);
    expect_both_pieces(volume);
}

TEST(attribute_list, a_file_in_the_second_piece_of_mft_is_read) {
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

TEST(attribute_list, many_pieces_are_in_the_order_of_the_list) {
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

TEST(attribute_list, an_entry_whose_sequence_number_differs_is_passed_over_and_the_walk_goes_on) {
    EXPECT_EQ(pieces_after({{.record = 15}}), 2u);
    EXPECT_EQ(pieces_after({{.record = 15, .sequence = 2}}), 1u);
    EXPECT_EQ(pieces_after({{.record = 15, .sequence = 2}, {.record = 15}}), 2u);
}

// Pieces of $MFT that are found after so many entries that name a record of another sequence number.
std::uint64_t pieces_after(std::size_t useless_entries) {
    volume_builder builder(split_mft());
    std::vector<list_item> items(useless_entries, {.record = 15, .sequence = 2});
    items.push_back({.record = 15});
    builder.file(0).attribute_list(build_attribute_list(items)).list_in_clusters();
    opened_volume volume(builder);
    return volume->m_mft_info.data_runs.size();
}

TEST(attribute_list, a_list_is_followed_until_64_mib_were_read) {
    // Entries of 32 bytes take 496 or 497 clusters of 4096 bytes. After these there are 63,552 or 63,548
    // reads of 1024 bytes before 67,108,864 bytes are reached.
    EXPECT_EQ(pieces_after(63400), 2u);
    EXPECT_EQ(pieces_after(63600), 1u);
}

TEST(attribute_list, an_entry_whose_type_and_id_are_in_no_attribute_adds_nothing_and_the_walk_goes_on) {
    EXPECT_EQ(pieces_after({{.record = 15, .id = 77}, {.type = 0xA0, .record = 15}}), 1u);
    EXPECT_EQ(pieces_after({{.record = 15, .id = 77}, {.record = 15}}), 2u);
}

TEST(attribute_list, an_entry_that_points_to_the_record_itself_is_passed_over) {
    // In record 0 the $DATA has the id 2.
    EXPECT_EQ(pieces_after({{.record = 0, .id = 2}, {.record = 15}, {.record = 0, .id = 2}}), 2u);
}

TEST(attribute_list, a_record_that_is_none_is_passed_over) {
    // Entry 6 has no $DATA with that id, entry 20 was never used, entry 1000 is beyond the end.
    EXPECT_EQ(pieces_after(
                  {{.record = 6, .sequence = 6, .id = 9}, {.record = 20}, {.record = 1000}, {.record = 15}}),
              2u);
    EXPECT_EQ(pieces_after({{.record = 0xFFFFFFFFFFFF}, {.record = 15}}), 2u);
}

TEST(attribute_list, a_baad_record_and_an_index_block_are_passed_over) {
    for (const std::uint64_t signature : {0x44414142u, 0x58444E49u}) {
        volume_builder builder(split_mft());
        builder.force_record(15, 0, 4, signature);
        opened_volume volume(builder);
        EXPECT_EQ(volume->m_mft_info.data_runs.size(), 1u);
    }
}

TEST(attribute_list, a_record_whose_first_attribute_is_as_long_as_a_record_is_not_searched) {
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

TEST(attribute_list, an_attribute_of_length_0_in_an_extension_record_is_not_taken) {
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

TEST(attribute_list, the_search_in_an_extension_record_ends_at_the_distance_of_records) {
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

TEST(attribute_list, an_entry_shorter_than_its_fields_is_stepped_over_by_its_length) {
    // What is then in place of the next entry has a length of 0 or one beyond the list.
    for (std::uint64_t length = 1; length < 26; ++length) {
        EXPECT_EQ(pieces_after({{.record = 0, .forced = {{4, 2, length}}}, {.record = 15}}), 1u) << length;
    }
}

TEST(attribute_list, an_entry_of_length_0_or_beyond_the_list_ends_the_walk) {
    EXPECT_EQ(pieces_after({{.record = 0, .forced = {{4, 2, 0}}}, {.record = 15}}), 1u);
    EXPECT_EQ(pieces_after({{.record = 0}, {.record = 0, .forced = {{4, 2, 0xFFFF}}}, {.record = 15}}), 1u);
    EXPECT_EQ(pieces_after({{.record = 0, .forced = {{4, 2, 0xFFFF}}}, {.record = 15}}), 1u);
}

TEST(attribute_list, fewer_than_26_bytes_after_an_entry_end_the_walk) {
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

TEST(attribute_list, a_list_cut_at_any_length_is_survived) {
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

TEST(attribute_list, a_list_without_initialized_bytes_is_not_read) {
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

TEST(attribute_list, a_list_in_clusters_is_walked_to_the_end_of_its_clusters_whatever_its_real_size) {
    volume_builder builder(split_mft());
    builder.write_clusters(150, build_attribute_list({{.record = 0, .id = 2}, {.record = 15}}));
    builder.file(0).without_attribute_list().attribute(
        attribute_builder::non_resident(0x20, runs({{150, 1}})).real(32).initialized(32));
    opened_volume volume(builder);
    EXPECT_EQ(volume->m_mft_info.data_runs.size(), 2u) << "the second entry is past the real size";
}

TEST(attribute_list, a_run_of_a_list_that_cannot_be_read_leaves_the_next_one_in_its_place) {
    EXPECT_EQ(pieces_with_list_in({{150, 1}}), 2u);
    EXPECT_EQ(pieces_with_list_in({{1000000, 1}, {150, 1}}), 2u);
    EXPECT_EQ(pieces_with_list_in({{150, 1}, {1000000, 1}}), 2u);
    EXPECT_EQ(pieces_with_list_in({{1000000, 1}}), 1u);
}

TEST(attribute_list, a_sparse_run_of_a_list_is_read_from_the_start_of_the_volume) {
    // The boot sector as a list: its bytes 4 and 5, "TF", say that the first entry is 18,004 bytes long. The
    // next one then begins in $MFT at byte 16,384, in the slot of entry 1, at byte 596 of that.
    volume_builder builder(split_mft());
    builder.replace_record(1, byte_writer().raw(596, build_attribute_list({{.record = 15}})).take());
    builder.file(0).without_attribute_list().attribute(
        attribute_builder::non_resident(0x20, runs({{hole, 5}})).real(20480).initialized(20480));
    opened_volume volume(builder);
    EXPECT_EQ(volume->m_mft_info.data_runs.size(), 2u) << "zeros would hold no entry";
}

TEST(attribute_list, a_list_that_claims_more_clusters_than_there_are_costs_no_more_than_the_source) {
    EXPECT_EQ(pieces_with_list_in({{150, 1}, {hole, 0xFFFFFFFF}, {hole, 0xFFFFFFFF}}), 2u);
    EXPECT_EQ(pieces_with_list_in({{hole, 0xFFFFFFFF}}), 1u);
    EXPECT_EQ(pieces_with_list_in({{150, 0xFFFFFFFF}}), 2u);
}

TEST(attribute_list, sixty_thousand_entries_for_one_record_end_soon_and_cost_little_memory) {
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

TEST(attribute_list, entries_of_two_bytes_that_name_no_record_end_within_seconds) {
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

TEST(attribute_list, entries_for_an_attribute_of_one_byte_cost_no_more_memory_than_others) {
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

TEST(attribute_list, on_sectors_of_4096_bytes_the_pieces_of_mft_in_extension_records_are_not_found) {
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

TEST(attribute_list, a_list_longer_than_the_distance_of_records_is_not_read) {
    volume_builder builder(split_mft());
    builder.force_record(0, 28, 4, 64);
    opened_volume volume(builder);
    EXPECT_TRUE(volume->is_valid());
    EXPECT_TRUE(volume->m_mft_info.data_runs.empty());
}

TEST(attribute_list, entry_6_may_have_a_list_too) {
    volume_builder builder;
    const std::size_t place = builder.file(6).add_extension(30);
    builder.file(6).attribute(attribute_builder::non_resident(0x80, runs({{77, 3}})).lowest_vcn(1), place);
    opened_volume volume(builder);
    EXPECT_EQ(plain(volume->m_bitmap_runs), (plain_runs{{20, 1}, {77, 3}}));
}

TEST(attribute_list, entry_6_may_have_all_its_runs_in_an_extension_record) {
    volume_builder builder;
    builder.replace_record(
        6, builder.new_record(6)
               .add(attribute_builder::resident(0x20, build_attribute_list({{.record = 30, .id = 4}})))
               .build());
    builder.replace_record(30, builder.new_record(30).sequence(1).add(data("11 03 4D 00").id(4)).build());
    opened_volume volume(builder);
    EXPECT_EQ(plain(volume->m_bitmap_runs), (plain_runs{{77, 3}}));
}

// Whether a volume that was, or was not, valid is so after a record with this list was parsed as that of an
// entry.
bool valid_after(const bytes& list, std::uint64_t entry, bool with_data, bool valid_before) {
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

TEST(attribute_list, no_list_makes_a_volume_valid_or_invalid) {
    const bytes longer_than_the_list(8, 0x11);
    for (const bytes& list : {bytes(), build_attribute_list({{.record = 0}}), longer_than_the_list}) {
        for (const std::uint64_t entry : {0u, 6u}) {
            for (const bool with_data : {false, true}) {
                EXPECT_TRUE(valid_after(list, entry, with_data, true));
                EXPECT_FALSE(valid_after(list, entry, with_data, false));
            }
        }
    }
}

TEST(attribute_list, two_records_that_name_each_other_end) {
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
