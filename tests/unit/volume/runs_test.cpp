#include "volume/runs.h"

#include "support/attribute_builder.h"
#include "support/byte_writer.h"
#include "unit/volume/plain_runs.h"

#include <limits>
#include <map>
#include <random>
#include <tuple>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

constexpr std::uint64_t all_ones = ~std::uint64_t{0};

// What the plain decoder makes of pairs.
std::vector<plain_run> decoded(const bytes& pairs) {
    data_run_list list;
    const bool found = decode_mapping_pairs(pairs, list, 0x80, true);
    EXPECT_EQ(found, !list.empty());
    return plain(list);
}

// What decode_runs makes of an attribute with these pairs, which fill it to its end.
data_run_list decoded_in_full(const bytes& pairs) {
    data_run_list list;
    const bytes attribute = attribute_builder::with_pairs(0x80, pairs)
                                .length(static_cast<std::uint32_t>(64 + pairs.size()))
                                .build();
    EXPECT_TRUE(decode_runs(attribute, list));
    return list;
}

cluster_run_list compact(const bytes& pairs) {
    cluster_run_list list;
    EXPECT_TRUE(to_cluster_runs(decoded_in_full(pairs), list));
    return list;
}

TEST(decode_mapping_pairs, a_pair_gives_a_run_of_so_many_clusters_at_an_lcn) {
    EXPECT_EQ(decoded(from_hex("21 18 34 56 00")), (std::vector<plain_run>{{0x5634, 0x18}}));
}

TEST(decode_mapping_pairs, each_lcn_is_a_difference_to_the_one_before) {
    EXPECT_EQ(decoded(from_hex("11 30 60 21 10 00 01 00")),
              (std::vector<plain_run>{{0x60, 0x30}, {0x160, 0x10}}));
}

TEST(decode_mapping_pairs, the_lcn_passes_over_a_sparse_run) {
    EXPECT_EQ(decoded(from_hex("11 08 40 01 08 11 08 E0 00")),
              (std::vector<plain_run>{{0x40, 8}, {all_ones, 8}, {0x20, 8}}));
}

TEST(decode_mapping_pairs, a_header_of_0_at_the_start_gives_false) {
    data_run_list list;
    EXPECT_FALSE(decode_mapping_pairs(from_hex("00 11 08 40"), list, 0x80, false));
    EXPECT_TRUE(list.empty());
}

TEST(decode_mapping_pairs, no_bytes_give_false_and_leave_the_list) {
    data_run_list list(1);
    EXPECT_FALSE(decode_mapping_pairs(byte_view(), list, 0x80, true));
    EXPECT_EQ(list.size(), 1u);
}

TEST(decode_mapping_pairs, the_list_is_emptied_only_if_asked_for) {
    data_run_list list;
    const bytes pairs = from_hex("11 08 40 00");
    ASSERT_TRUE(decode_mapping_pairs(pairs, list, 0x80, false));
    ASSERT_TRUE(decode_mapping_pairs(pairs, list, 0xB0, false));
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].attr_type, 0x80u);
    EXPECT_EQ(list[1].attr_type, 0xB0u);
    ASSERT_TRUE(decode_mapping_pairs(pairs, list, 0xA0, true));
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].attr_type, 0xA0u);
    // An empty sequence empties it too.
    EXPECT_FALSE(decode_mapping_pairs(from_hex("00"), list, 0xA0, true));
    EXPECT_TRUE(list.empty());
}

TEST(decode_mapping_pairs, a_run_keeps_its_pair_but_neither_its_difference_nor_its_vcn) {
    data_run_list list;
    ASSERT_TRUE(decode_mapping_pairs(from_hex("11 30 60 21 10 00 01 00"), list, 0x80, true));
    EXPECT_EQ(list[1].pair.view().to_vector(), from_hex("21 10 00 01"));
    EXPECT_EQ(list[1].delta, all_ones);
    EXPECT_EQ(list[1].vcn, 0u);
    EXPECT_TRUE(list[1].following.empty());
    EXPECT_TRUE(list[1].label.empty());
    EXPECT_FALSE(list[1].resident);
    EXPECT_FALSE(list[1].negative);

    bytes widest = from_hex("FF");
    widest.resize(31, 0x01);
    ASSERT_TRUE(decode_mapping_pairs(widest, list, 0x80, true));
    EXPECT_EQ(list[0].pair.view().to_vector(), widest) << "also the widest of 31 bytes";
}

TEST(decode_mapping_pairs, pairs_cut_at_any_length_give_the_runs_that_are_whole) {
    const bytes pairs = from_hex("21 18 34 56 11 30 10 00");
    const std::size_t whole_runs[] = {0, 0, 0, 0, 1, 1, 1, 2, 2};
    for (std::size_t length = 0; length <= pairs.size(); ++length) {
        const bytes cut(pairs.begin(), pairs.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(decoded(cut).size(), whole_runs[length]) << length;
    }
}

TEST(decode_mapping_pairs, a_length_of_more_than_four_bytes_is_folded_onto_the_first_four) {
    EXPECT_EQ(decoded(from_hex("14 FF FF FF FF 05 00")), (std::vector<plain_run>{{5, 0xFFFFFFFF}}));
    // The fifth byte is added to the first: 1 + 2.
    EXPECT_EQ(decoded(from_hex("15 01 00 00 00 02 05 00")), (std::vector<plain_run>{{5, 3}}));
    // With a carry, 0xFF + 2 = 0x101, and out of the 32 bits, 0xFFFFFFFF + 1 = 0.
    EXPECT_EQ(decoded(from_hex("15 FF 00 00 00 02 05 00")), (std::vector<plain_run>{{5, 0x101}}));
    EXPECT_EQ(decoded(from_hex("15 FF FF FF FF 01 05 00")), (std::vector<plain_run>{{5, 0}}));
    // Fifteen bytes of 1: four, four, four and three of them at each place.
    EXPECT_EQ(decoded(from_hex("1F 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 05 00")),
              (std::vector<plain_run>{{5, 0x03040404}}));
}

TEST(decode_mapping_pairs, a_length_of_no_bytes_is_0) {
    EXPECT_EQ(decoded(from_hex("10 05 11 08 01 00")), (std::vector<plain_run>{{5, 0}, {6, 8}}));
}

TEST(decode_mapping_pairs, the_top_bit_of_the_top_byte_makes_a_difference_negative) {
    EXPECT_EQ(decoded(from_hex("11 01 7F 00")), (std::vector<plain_run>{{0x7F, 1}}));
    EXPECT_EQ(decoded(from_hex("11 01 80 00")), (std::vector<plain_run>{{all_ones - 0x7F, 1}}));
    EXPECT_EQ(decoded(from_hex("21 01 80 00 00")), (std::vector<plain_run>{{0x80, 1}}));
    EXPECT_EQ(decoded(from_hex("41 01 FF FF FF FF 00")), (std::vector<plain_run>{{all_ones, 1}}));
    EXPECT_EQ(decoded(from_hex("81 01 FF FF FF FF FF FF FF 7F 00")),
              (std::vector<plain_run>{{0x7FFFFFFFFFFFFFFF, 1}}));
    EXPECT_EQ(decoded(from_hex("81 01 00 00 00 00 00 00 00 80 00")),
              (std::vector<plain_run>{{0x8000000000000000, 1}}));
}

TEST(decode_mapping_pairs, the_lcn_wraps_at_64_bits) {
    EXPECT_EQ(decoded(from_hex("11 01 FF 11 01 03 00")), (std::vector<plain_run>{{all_ones, 1}, {2, 1}}));
}

TEST(decode_mapping_pairs, of_a_difference_wider_than_8_bytes_the_first_8_count) {
    EXPECT_EQ(decoded(from_hex("91 01 05 00 00 00 00 00 00 00 7F 00")), (std::vector<plain_run>{{5, 1}}));
    EXPECT_EQ(decoded(from_hex("F1 01 05 00 00 00 00 00 00 00 00 00 00 00 00 00 80 00")),
              (std::vector<plain_run>{{5, 1}}));
}

TEST(decode_mapping_pairs, a_hundred_thousand_runs_are_decoded) {
    bytes pairs;
    for (int i = 0; i < 100000; ++i) {
        pairs.insert(pairs.end(), {0x11, 0x01, 0x02});
    }
    const std::vector<plain_run> runs = decoded(pairs);
    ASSERT_EQ(runs.size(), 100000u);
    EXPECT_EQ(runs.back(), (plain_run{200000, 1}));
}

TEST(decode_runs, no_attribute_and_one_of_length_0_give_false_and_an_empty_list) {
    data_run_list list(1);
    EXPECT_FALSE(decode_runs(byte_view(), list));
    EXPECT_TRUE(list.empty());
    list.resize(1);
    EXPECT_FALSE(
        decode_runs(attribute_builder::with_pairs(0x80, from_hex("11 08 40 00")).length(0).build(), list));
    EXPECT_TRUE(list.empty());
}

TEST(decode_runs, a_header_of_0_at_the_start_gives_true_and_an_empty_list) {
    data_run_list list(1);
    EXPECT_TRUE(decode_runs(attribute_builder::with_pairs(0x80, from_hex("00")).build(), list));
    EXPECT_TRUE(list.empty());
}

TEST(decode_runs, a_list_takes_room_for_its_runs_and_no_more) {
    const bytes pairs = from_hex("11 08 40 11 08 40 11 08 40 11 08 40 11 08 40 00");
    data_run_list list;
    ASSERT_TRUE(decode_runs(attribute_builder::with_pairs(0x80, pairs).build(), list));
    EXPECT_EQ(list.size(), 5u);
    EXPECT_EQ(list.capacity(), 5u);
    data_run_list plain;
    ASSERT_TRUE(decode_mapping_pairs(pairs, plain, 0x80, true));
    EXPECT_EQ(plain.size(), 5u);
    EXPECT_EQ(plain.capacity(), 5u);
}

TEST(decode_runs, a_run_keeps_everything_about_its_pair) {
    data_run_list list;
    const bytes attribute = attribute_builder::with_pairs(0x80, from_hex("11 08 40 01 04 21 10 E0 FF 00"))
                                .lowest_vcn(100)
                                .build();
    ASSERT_TRUE(decode_runs(attribute, list));
    ASSERT_EQ(list.size(), 3u);

    EXPECT_EQ(list[0].lcn, 0x40u);
    EXPECT_EQ(list[0].delta, 0x40u);
    EXPECT_FALSE(list[0].negative);
    EXPECT_EQ(list[0].vcn, 100u);
    EXPECT_EQ(list[0].offset, 64u);
    EXPECT_EQ(list[0].pair.view().to_vector(), from_hex("11 08 40"));
    EXPECT_EQ(list[0].following.view().to_vector(), from_hex("01 04 21"));
    EXPECT_EQ(list[0].attr_type, 0x80u);

    EXPECT_EQ(list[1].lcn, 0x40u) << "a sparse run is at the running LCN";
    EXPECT_EQ(list[1].delta, 0u);
    EXPECT_EQ(list[1].num_clusters, 4u);
    EXPECT_EQ(list[1].vcn, 108u);
    EXPECT_EQ(list[1].offset, 67u);

    EXPECT_EQ(list[2].lcn, 0x20u);
    EXPECT_EQ(list[2].delta, 0x20u);
    EXPECT_TRUE(list[2].negative);
    EXPECT_EQ(list[2].num_clusters, 16u);
    EXPECT_EQ(list[2].vcn, 112u);
    EXPECT_EQ(list[2].offset, 69u);
    EXPECT_EQ(list[2].pair.view().to_vector(), from_hex("21 10 E0 FF"));
}

TEST(decode_runs, the_three_bytes_after_a_pair_are_kept_if_all_of_them_lie_in_the_attribute) {
    EXPECT_EQ(decoded_in_full(from_hex("11 08 40 00 00 00"))[0].following.view().to_vector(),
              from_hex("00 00 00"));
    EXPECT_TRUE(decoded_in_full(from_hex("11 08 40 00 00"))[0].following.empty());
    EXPECT_TRUE(decoded_in_full(from_hex("11 08 40"))[0].following.empty());
}

TEST(decode_runs, pairs_cut_by_the_attributes_length_give_the_runs_that_are_whole) {
    const bytes attribute = attribute_builder::with_pairs(0x80, from_hex("21 18 34 56 11 30 10 00")).build();
    const std::size_t whole_runs[] = {0, 0, 0, 0, 1, 1, 1, 2, 2};
    for (std::uint32_t length = 0; length <= 8; ++length) {
        bytes cut = attribute;
        apply(cut, {{4, 4, 64 + length}});
        data_run_list list;
        EXPECT_TRUE(decode_runs(cut, list));
        EXPECT_EQ(list.size(), whole_runs[length]) << length;
    }
}

TEST(decode_runs, an_attribute_cut_at_any_length_is_survived) {
    const bytes attribute = attribute_builder::with_pairs(0x80, from_hex("21 18 34 56 11 30 10 00")).build();
    for (std::size_t length = 0; length < attribute.size(); ++length) {
        const bytes cut(attribute.begin(), attribute.begin() + static_cast<std::ptrdiff_t>(length));
        data_run_list list;
        EXPECT_EQ(decode_runs(cut, list), length >= 8) << "the length field ends at byte 8";
        EXPECT_EQ(list.size(), length < 68 ? 0u : length < 71 ? 1u : 2u) << length;
    }
}

TEST(decode_runs, pairs_that_begin_after_the_attribute_give_no_run) {
    for (const std::uint64_t offset : {72u, 73u, 65535u}) {
        data_run_list list;
        bytes attribute =
            attribute_builder::with_pairs(0x80, from_hex("11 08 40 00")).force(32, 2, offset).build();
        attribute.resize(66000, 0x11);
        EXPECT_TRUE(decode_runs(attribute, list));
        EXPECT_TRUE(list.empty()) << offset;
    }
}

TEST(decode_runs, a_length_is_cut_to_its_low_32_bits) {
    EXPECT_EQ(decoded_in_full(from_hex("15 01 00 00 00 02 05 00"))[0].num_clusters, 1u);
    EXPECT_EQ(decoded_in_full(from_hex("18 FF FF FF FF FF FF FF FF 05 00"))[0].num_clusters, 0xFFFFFFFFu);
    EXPECT_EQ(decoded_in_full(from_hex("10 05 00"))[0].num_clusters, 0u);
}

TEST(decode_runs, the_magnitude_of_a_negative_difference_is_taken_within_its_bytes) {
    const data_run_list narrow = decoded_in_full(from_hex("11 01 80 00"));
    EXPECT_EQ(narrow[0].delta, 0x80u);
    EXPECT_EQ(narrow[0].lcn, all_ones - 0x7F);
    const data_run_list wide = decoded_in_full(from_hex("81 01 FE FF FF FF FF FF FF FF 00"));
    EXPECT_TRUE(wide[0].negative);
    EXPECT_EQ(wide[0].delta, 2u);
    EXPECT_EQ(wide[0].lcn, all_ones - 1);
    const data_run_list widest =
        decoded_in_full(from_hex("F1 01 FE FF FF FF FF FF FF FF FF FF FF FF FF FF FF 00"));
    EXPECT_TRUE(widest[0].negative);
    EXPECT_EQ(widest[0].delta, 2u);
    EXPECT_EQ(widest[0].lcn, all_ones - 1);
}

// The lowest number of each width: only its highest bit.
TEST(decode_runs, a_difference_of_any_width_has_its_sign_in_its_highest_bit) {
    for (unsigned width = 1; width <= 8; ++width) {
        bytes pairs = {static_cast<std::uint8_t>(width << 4 | 1), 0x01};
        pairs.resize(1 + width);
        pairs.push_back(0x80);
        const data_run_list runs = decoded_in_full(pairs);
        ASSERT_EQ(runs.size(), 1u) << width;
        EXPECT_TRUE(runs[0].negative) << width;
        EXPECT_EQ(runs[0].delta, std::uint64_t{1} << (8 * width - 1)) << width;
        EXPECT_EQ(runs[0].lcn, ~((std::uint64_t{1} << (8 * width - 1)) - 1)) << width;
        pairs.back() = 0x40;
        EXPECT_EQ(decoded_in_full(pairs).at(0).lcn, std::uint64_t{1} << (8 * width - 2)) << width;
        EXPECT_EQ(decoded(pairs), (std::vector<plain_run>{{std::uint64_t{1} << (8 * width - 2), 1}}))
            << width;
    }
}

TEST(decode_runs, a_hundred_thousand_runs_are_decoded) {
    bytes pairs;
    for (int i = 0; i < 100000; ++i) {
        pairs.insert(pairs.end(), {0x11, 0x01, 0x02});
    }
    const data_run_list runs = decoded_in_full(pairs);
    ASSERT_EQ(runs.size(), 100000u);
    EXPECT_EQ(runs.back().lcn, 200000u);
    EXPECT_EQ(runs.back().vcn, 99999u);
}

TEST(decode_runs, the_vcn_wraps_at_64_bits) {
    data_run_list list;
    const bytes attribute = attribute_builder::with_pairs(0x80, from_hex("11 08 40 11 08 40 00"))
                                .lowest_vcn(all_ones - 3)
                                .build();
    ASSERT_TRUE(decode_runs(attribute, list));
    EXPECT_EQ(list[1].vcn, 4u);
}

TEST(to_cluster_runs, a_run_without_an_lcn_is_sparse) {
    EXPECT_EQ(compact(from_hex("11 08 40 01 08 11 08 E0 00")),
              (cluster_run_list{{0x40, 0, false, 8}, {0, 8, true, 8}, {0x20, 16, false, 8}}));
}

TEST(to_cluster_runs, a_first_run_may_be_at_lcn_0) {
    EXPECT_EQ(compact(from_hex("11 08 00 00")), (cluster_run_list{{0, 0, false, 8}}));
    EXPECT_EQ(compact(from_hex("01 08 00")), (cluster_run_list{{0, 0, true, 8}}))
        << "without an LCN it is sparse";
    EXPECT_EQ(compact(from_hex("0F 08 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00")),
              (cluster_run_list{{0, 0, true, 8}}))
        << "however long its length is";
    EXPECT_EQ(compact(from_hex("10 00 00")), (cluster_run_list{{0, 0, false, 0}}))
        << "an LCN without a length is one";
    cluster_run_list list;
    EXPECT_TRUE(to_cluster_runs({data_run()}, list));
    EXPECT_TRUE(list.at(0).sparse) << "and so it is without a pair";
}

TEST(to_cluster_runs,
     a_pair_with_an_lcn_difference_of_0_counts_as_sparse_unless_it_is_the_first_of_its_list) {
    EXPECT_EQ(compact(from_hex("11 08 40 11 08 00 11 08 10 00")),
              (cluster_run_list{{0x40, 0, false, 8}, {0, 8, true, 8}, {0x50, 16, false, 8}}));
}

TEST(to_cluster_runs, runs_are_appended) {
    cluster_run_list list{{1, 2, false, 3}};
    EXPECT_TRUE(to_cluster_runs(decoded_in_full(from_hex("11 08 40 00")), list));
    EXPECT_EQ(list, (cluster_run_list{{1, 2, false, 3}, {0x40, 0, false, 8}}));
    EXPECT_TRUE(to_cluster_runs({}, list));
    EXPECT_EQ(list.size(), 2u);
}

cluster_run_list merged(const cluster_run_list& new_runs, cluster_run_list existing) {
    merge_runs(new_runs, existing);
    return existing;
}

TEST(merge_runs, fragments_of_two_records_make_one_list) {
    EXPECT_EQ(merged({{500, 16, false, 16}}, {{100, 0, false, 16}}),
              (cluster_run_list{{100, 0, false, 16}, {500, 16, false, 16}}));
}

TEST(merge_runs, a_fragment_that_belongs_ahead_goes_ahead) {
    EXPECT_EQ(merged({{100, 0, false, 16}}, {{500, 16, false, 16}}),
              (cluster_run_list{{100, 0, false, 16}, {500, 16, false, 16}}));
}

TEST(merge_runs, gaps_disappear) {
    EXPECT_EQ(merged({{9, 200, false, 5}}, {{7, 100, false, 30}}),
              (cluster_run_list{{7, 0, false, 30}, {9, 30, false, 5}}));
}

TEST(merge_runs, where_both_hold_a_run_of_one_vcn_the_existing_one_stays) {
    EXPECT_EQ(merged({{900, 0, false, 4}, {901, 16, true, 3}}, {{100, 0, false, 16}}),
              (cluster_run_list{{100, 0, false, 16}, {901, 16, true, 3}}));
}

TEST(merge_runs, of_two_runs_with_one_vcn_in_the_new_list_the_first_stays) {
    EXPECT_EQ(merged({{1, 5, false, 1}, {2, 5, false, 1}}, {}), (cluster_run_list{{1, 0, false, 1}}));
}

TEST(merge_runs, an_empty_run_takes_the_place_of_the_run_after_it_at_the_next_merge) {
    cluster_run_list list = merged({{2, 4, false, 0}, {3, 8, false, 8}}, {{1, 0, false, 4}});
    EXPECT_EQ(list, (cluster_run_list{{1, 0, false, 4}, {2, 4, false, 0}, {3, 4, false, 8}}));
    EXPECT_EQ(merged({{4, 20, false, 1}}, list),
              (cluster_run_list{{1, 0, false, 4}, {2, 4, false, 0}, {4, 4, false, 1}}));
}

TEST(merge_runs, runs_that_lie_over_each_other_are_put_one_after_the_other) {
    EXPECT_EQ(merged({}, {{7, 0, false, 30}, {8, 1, false, 1}}),
              (cluster_run_list{{7, 0, false, 30}, {8, 30, false, 1}}));
    EXPECT_EQ(merged({{9, 50, false, 2}}, {{7, 0, false, 30}, {8, 29, false, 4}}),
              (cluster_run_list{{7, 0, false, 30}, {8, 30, false, 4}, {9, 34, false, 2}}));
}

TEST(merge_runs, nothing_merged_renumbers_the_list_all_the_same) {
    EXPECT_EQ(merged({}, {{7, 100, false, 30}, {8, 500, false, 1}}),
              (cluster_run_list{{7, 0, false, 30}, {8, 30, false, 1}}));
    EXPECT_EQ(merged({}, {}), cluster_run_list());
}

// The same by an ordered map, step by step.
cluster_run_list merged_through_a_map(const cluster_run_list& new_runs, const cluster_run_list& existing) {
    std::map<std::uint64_t, cluster_run> by_vcn;
    for (const cluster_run_list* list : {&existing, &new_runs}) {
        for (const cluster_run& run : *list) {
            by_vcn.try_emplace(run.vcn, run);
        }
    }
    cluster_run_list result;
    std::uint64_t vcn = 0;
    for (auto [key, run] : by_vcn) {
        run.vcn = vcn;
        vcn += run.length;
        result.push_back(run);
    }
    return result;
}

TEST(merge_runs, any_series_of_merges_gives_what_ordered_maps_give) {
    std::mt19937 random(20240817);
    const auto up_to = [&](unsigned most) { return static_cast<std::uint32_t>(random() % (most + 1)); };
    for (int series = 0; series < 2000; ++series) {
        cluster_run_list list;
        cluster_run_list expected;
        merge_progress progress;
        const bool with_empty_runs = series % 3 == 0;
        for (std::uint32_t merge = up_to(8); merge > 0; --merge) {
            cluster_run_list piece;
            // Past the list mostly, sometimes anywhere; in order mostly.
            std::uint64_t vcn = up_to(3) == 0 ? up_to(30) : expected.empty() ? 0 : expected.back().vcn + 5;
            for (std::uint32_t i = up_to(5); i > 0; --i) {
                const std::uint32_t length = with_empty_runs ? up_to(4) : 1 + up_to(4);
                piece.push_back({random(), vcn, up_to(1) == 0, length});
                vcn = up_to(9) == 0 ? up_to(30) : vcn + length;
            }
            expected = merged_through_a_map(piece, expected);
            merge_runs(piece, list, progress);
            ASSERT_EQ(list, expected) << "series " << series;
            ASSERT_LE(progress.numbered_runs, list.size());
        }
    }
}

TEST(merge_runs, a_million_runs_from_5000_records_are_looked_at_once) {
    cluster_run_list list;
    merge_progress progress;
    std::uint64_t vcn = 0;
    for (std::uint64_t record = 0; record < 5000; ++record) {
        cluster_run_list piece;
        for (std::uint64_t i = 0; i < 200; ++i) {
            piece.push_back({3 * vcn, vcn, false, 2});
            vcn += 2;
        }
        merge_runs(piece, list, progress);
        // All that was there before is known to be in order, so the next merge begins after it.
        ASSERT_EQ(progress.numbered_runs, 200 * record);
    }
    ASSERT_EQ(list.size(), 1000000u);
    EXPECT_EQ(list.back(), (cluster_run{5999994, 1999998, false, 2}));
}

TEST(merge_runs, the_same_piece_again_and_again_does_not_make_the_list_longer) {
    cluster_run_list list;
    merge_progress progress;
    const cluster_run_list piece{{10, 0, false, 4}, {20, 4, false, 4}};
    for (int i = 0; i < 60000; ++i) {
        merge_runs(piece, list, progress);
    }
    EXPECT_EQ(list, piece);
}

TEST(drop_sparse_runs, the_stored_clusters_follow_one_another) {
    cluster_run_list list{{10, 0, false, 4}, {0, 4, true, 12}, {30, 16, false, 2}, {0, 18, true, 1}};
    drop_sparse_runs(list);
    EXPECT_EQ(list, (cluster_run_list{{10, 0, false, 4}, {30, 4, false, 2}}));
    drop_sparse_runs(list);
    EXPECT_EQ(list, (cluster_run_list{{10, 0, false, 4}, {30, 4, false, 2}}));
}

TEST(drop_sparse_runs, the_rest_is_ordered_and_the_first_of_one_vcn_stays) {
    cluster_run_list list{{50, 9, false, 1}, {0, 2, true, 7}, {40, 2, false, 7}, {41, 2, false, 3}};
    drop_sparse_runs(list);
    EXPECT_EQ(list, (cluster_run_list{{40, 0, false, 7}, {50, 7, false, 1}}));
}

TEST(drop_sparse_runs, a_list_of_holes_becomes_empty) {
    cluster_run_list list{{0, 0, true, 4}};
    drop_sparse_runs(list);
    EXPECT_TRUE(list.empty());
    drop_sparse_runs(list);
    EXPECT_TRUE(list.empty());
}

TEST(find_run, each_cluster_of_a_run_has_its_lcn) {
    const cluster_run_list list{{100, 0, false, 4}, {0, 4, true, 4}, {50, 8, false, 1}};
    struct expectation {
        std::uint64_t vcn;
        std::size_t index;
        std::uint64_t lcn;
    };
    for (const expectation& each : {expectation{0, 0, 100}, {3, 0, 103}, {4, 1, 0}, {7, 1, 0}, {8, 2, 50}}) {
        std::size_t index = 99;
        std::uint64_t lcn = 99;
        EXPECT_TRUE(find_run(list, each.vcn, index, lcn));
        EXPECT_EQ(index, each.index);
        EXPECT_EQ(lcn, each.lcn);
    }
}

TEST(find_run, a_vcn_past_the_end_is_in_no_run) {
    const cluster_run_list list{{100, 0, false, 4}};
    for (const std::uint64_t vcn : {std::uint64_t{4}, std::uint64_t{5}, all_ones}) {
        std::size_t index = 99;
        std::uint64_t lcn = 99;
        EXPECT_FALSE(find_run(list, vcn, index, lcn));
        EXPECT_EQ(index, 0u);
        EXPECT_EQ(lcn, 0u);
    }
}

TEST(find_run, the_first_of_several_runs_that_cover_a_vcn_counts) {
    std::size_t index = 0;
    std::uint64_t lcn = 0;
    EXPECT_TRUE(find_run({{10, 8, false, 8}, {70, 0, false, 32}, {90, 4, false, 4}}, 5, index, lcn));
    EXPECT_EQ(index, 1u);
    EXPECT_EQ(lcn, 75u);
}

TEST(find_run, an_empty_run_covers_nothing_and_a_run_at_the_end_of_the_numbers_does_not_wrap) {
    std::size_t index = 0;
    std::uint64_t lcn = 0;
    EXPECT_FALSE(find_run({{10, 8, false, 0}}, 8, index, lcn));
    EXPECT_FALSE(find_run({{10, all_ones - 1, false, 16}}, 3, index, lcn));
    EXPECT_TRUE(find_run({{10, all_ones - 1, false, 16}}, all_ones, index, lcn));
    EXPECT_EQ(lcn, 11u);
}

TEST(run_bytes, sparse_runs_count_unless_they_are_left_out) {
    const cluster_run_list list{{100, 0, false, 4}, {0, 4, true, 3}, {50, 7, false, 1}};
    EXPECT_EQ(run_bytes(list, 4096, false), 32768u);
    EXPECT_EQ(run_bytes(list, 4096, true), 20480u);
    EXPECT_EQ(run_bytes({}, 4096, false), 0u);
    EXPECT_EQ(run_bytes(list, 0, false), 0u);
}

TEST(run_bytes, the_total_has_64_bits) {
    const cluster_run_list list{{0, 0, false, 0xFFFFFFFF}, {0, 0, false, 0xFFFFFFFF}};
    EXPECT_EQ(run_bytes(list, 4096, false), 0x1FFFFFFFE000u);
}

TEST(run_bytes, a_total_that_64_bits_cannot_hold_is_all_ones) {
    EXPECT_EQ(run_bytes(cluster_run_list(3, {0, 0, false, 0xFFFFFFFF}), all_ones / 4, false), all_ones);
}

TEST(count_clusters, an_empty_list_has_none_and_a_resident_value_counts_as_one) {
    EXPECT_EQ(count_clusters({}), 0u);
    data_run_list list(2);
    list[0].resident = true;
    list[1].num_clusters = 50;
    EXPECT_EQ(count_clusters(list), 1u);
}

TEST(count_clusters, sparse_runs_count_too) {
    data_run_list list;
    ASSERT_TRUE(decode_mapping_pairs(from_hex("11 08 40 01 04 14 FF FF FF FF 05 00"), list, 0x80, true));
    EXPECT_EQ(count_clusters(list), 0x10000000Bu);
}

}  // namespace
}  // namespace quarry::test
