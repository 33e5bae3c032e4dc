#include "exact/run_map.h"

#include "support/attribute_builder.h"
#include "support/opened_exact_volume.h"

#include <gtest/gtest.h>

namespace quarry::test {

using exact::run_map;

namespace {

constexpr std::uint64_t volume_clusters = 1000;
constexpr std::uint64_t no_lcn = exact::run::no_lcn;

// Adds an attribute whose bytes the caller keeps. The failure's text, or nothing.
std::string add(run_map& map, const attribute_builder& builder) {
    const bytes stored = builder.build();
    const exact::result<void> added = map.add(attribute(byte_view(stored)), "it", 0x100);
    return added ? "" : text_of(added.error());
}

std::string fault(const attribute_builder& builder) {
    run_map map(volume_clusters, 4096);
    return add(map, builder);
}

// Mapping pairs as they are, 0x40 bytes into the attribute, for an attribute that ends at `highest`.
std::string pairs(std::string_view hex_digits, std::uint64_t highest) {
    return fault(attribute_builder::with_pairs(0x80, from_hex(hex_digits)).highest_vcn(highest));
}

}  // namespace

TEST(run_map, gives_stored_runs_and_holes) {
    run_map map(volume_clusters, 4096);
    ASSERT_EQ(add(map, attribute_builder::non_resident(0x80, {{100, 8}, {hole, 16}, {90, 2}})), "");
    EXPECT_EQ(map.runs(), (std::vector<exact::run>{{0, 100, 8}, {8, no_lcn, 16}, {24, 90, 2}}));
    EXPECT_EQ(map.end_vcn(), 26u);
    EXPECT_EQ(map.stored_clusters(), 10u);
}

TEST(run_map, finds_the_run_of_a_vcn) {
    run_map map(volume_clusters, 4096);
    EXPECT_EQ(map.find(0), nullptr);
    ASSERT_EQ(add(map, attribute_builder::non_resident(0x80, {{100, 8}, {hole, 16}, {90, 2}})), "");
    EXPECT_EQ(map.find(0)->lcn, 100u);
    EXPECT_EQ(map.find(7)->lcn, 100u);
    EXPECT_TRUE(map.find(8)->is_hole());
    EXPECT_EQ(map.find(25)->lcn, 90u);
    EXPECT_EQ(map.find(26), nullptr);
    EXPECT_EQ(map.find(no_lcn), nullptr);
}

TEST(run_map, reads_numbers_of_each_width_with_their_sign) {
    // Length 4 in 1 to 8 bytes, LCN 7 in 1 to 8 bytes.
    EXPECT_EQ(pairs("11 04 07 00", 3), "");
    EXPECT_EQ(pairs("88 0400000000000000 0700000000000000 00", 3), "");
    // LCN 100, then 10 lower in two bytes.
    run_map map(volume_clusters, 4096);
    ASSERT_EQ(
        add(map, attribute_builder::with_pairs(0x80, from_hex("11 01 64 21 01 F6FF 00")).highest_vcn(1)), "");
    EXPECT_EQ(map.runs()[1].lcn, 90u);
}

TEST(run_map, takes_the_last_cluster_of_the_volume_and_none_after_it) {
    EXPECT_EQ(fault(attribute_builder::non_resident(0x80, {{999, 1}})), "");
    EXPECT_EQ(fault(attribute_builder::non_resident(0x80, {{999, 2}})),
              "outside it: clusters 999 to 1000 lie outside of the volume of 1000 (source byte 0x140)");
    EXPECT_EQ(fault(attribute_builder::non_resident(0x80, {{1000, 1}})),
              "outside it: clusters 1000 to 1000 lie outside of the volume of 1000 (source byte 0x140)");
    EXPECT_EQ(fault(attribute_builder::non_resident(0x80, {{0, 1000}})), "");
    EXPECT_NE(fault(attribute_builder::non_resident(0x80, {{1, 1000}})), "");
}

TEST(run_map, has_no_lcn_below_0) {
    EXPECT_EQ(pairs("11 01 FF 00", 0),
              "runs it: mapping pairs at 0x40: an LCN below 0 or above 63 bits (source byte 0x140)");
    EXPECT_EQ(pairs("11 01 05 11 01 FA 00", 1),
              "runs it: mapping pairs at 0x43: an LCN below 0 or above 63 bits (source byte 0x143)");
    EXPECT_NE(pairs("11 01 05 81 01 FFFFFFFFFFFFFF7F 00", 1), "");
}

TEST(run_map, has_no_run_without_clusters) {
    EXPECT_EQ(pairs("11 00 05 11 01 05 00", 0),
              "runs it: mapping pairs at 0x40: a run of 0 clusters (source byte 0x140)");
    EXPECT_EQ(pairs("11 FF 05 00", 0),
              "runs it: mapping pairs at 0x40: a run of -1 clusters (source byte 0x140)");
    EXPECT_NE(pairs("01 FF 00", 0), "");
}

TEST(run_map, passes_over_a_hole_of_no_clusters) {
    EXPECT_EQ(pairs("01 00 11 01 05 00", 0), "");
}

TEST(run_map, refuses_fields_of_no_bytes_or_more_than_eight) {
    EXPECT_EQ(pairs("10 05 00", 0), "runs it: mapping pairs at 0x40: a header of 0x10 (source byte 0x140)");
    EXPECT_NE(pairs("09 010000000000000000 00", 0), "");
    EXPECT_NE(pairs("91 01 050000000000000000 00", 0), "");
}

TEST(run_map, cut_at_each_byte_of_its_pairs_has_no_end) {
    const bytes whole = from_hex("21 08 6400 01 10 21 02 F6FF");
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        bytes stored = attribute_builder::with_pairs(0x80, cut).highest_vcn(25).build();
        stored.resize(0x40 + size);
        store_u16(stored, 4, static_cast<std::uint16_t>(stored.size()));
        run_map map(volume_clusters, 4096);
        const exact::result<void> added = map.add(attribute(byte_view(stored)), "it", std::nullopt);
        ASSERT_FALSE(added) << size;
        EXPECT_EQ(added.error().code, exact::failure_code::runs) << size;
    }
    EXPECT_EQ(pairs("21 08 6400 01 10 21 02 F6FF 00", 25), "");
}

TEST(run_map, ends_where_its_attribute_says) {
    EXPECT_EQ(pairs("11 04 07 00", 4),
              "runs it: mapping pairs at 0x43: they end at VCN 4, the attribute says 5 (source byte 0x143)");
    EXPECT_NE(pairs("11 04 07 00", 2), "");
    EXPECT_NE(pairs("11 04 07 00", no_lcn), "");
    // Nothing is said by a highest VCN of 0 in a first piece; -1 is that of a stream without clusters.
    EXPECT_EQ(pairs("11 04 07 00", 0), "");
    EXPECT_EQ(pairs("00", 0), "");
    EXPECT_EQ(pairs("00", no_lcn), "");
}

TEST(run_map, goes_on_in_a_piece_that_begins_where_the_last_one_ended) {
    run_map map(volume_clusters, 4096);
    ASSERT_EQ(add(map, attribute_builder::non_resident(0x80, {{100, 8}})), "");
    ASSERT_EQ(add(map, attribute_builder::non_resident(0x80, {{50, 4}}).lowest_vcn(8)), "");
    EXPECT_EQ(map.runs(), (std::vector<exact::run>{{0, 100, 8}, {8, 50, 4}}));
}

TEST(run_map, has_no_gap_and_no_overlap) {
    const auto second_at = [](std::uint64_t vcn) {
        run_map map(volume_clusters, 4096);
        EXPECT_EQ(add(map, attribute_builder::non_resident(0x80, {{100, 8}})), "");
        return add(map, attribute_builder::non_resident(0x80, {{50, 4}}).lowest_vcn(vcn));
    };
    EXPECT_EQ(second_at(9), "gap it: piece at VCN 9, expected 8 (source byte 0x100)");
    EXPECT_EQ(second_at(7), "gap it: piece at VCN 7, expected 8 (source byte 0x100)");
    EXPECT_EQ(second_at(0), "duplicate it: stands twice at VCN 0 (source byte 0x100)");
    EXPECT_EQ(fault(attribute_builder::non_resident(0x80, {{50, 4}}).lowest_vcn(1)),
              "gap it: piece at VCN 1, expected 0 (source byte 0x100)");
}

TEST(run_map, has_no_two_pieces_at_one_vcn) {
    run_map map(volume_clusters, 4096);
    ASSERT_EQ(add(map, attribute_builder::non_resident(0x80, {{100, 8}})), "");
    ASSERT_EQ(add(map, attribute_builder::non_resident(0x80, {{50, 4}}).lowest_vcn(8)), "");
    EXPECT_EQ(add(map, attribute_builder::non_resident(0x80, {{60, 4}}).lowest_vcn(8)),
              "duplicate it: stands twice at VCN 8 (source byte 0x100)");
}

TEST(run_map, may_have_holes_larger_than_the_volume_up_to_63_bits) {
    EXPECT_EQ(fault(attribute_builder::non_resident(0x80, {{hole, std::uint64_t{1} << 40}})), "");
    // 2^51 clusters of 2^12 bytes leave 63 bits; one less does not.
    EXPECT_EQ(fault(attribute_builder::non_resident(0x80, {{hole, (std::uint64_t{1} << 51) - 1}})), "");
    EXPECT_EQ(fault(attribute_builder::non_resident(0x80, {{hole, std::uint64_t{1} << 51}})),
              "runs it: mapping pairs at 0x40: the stream leaves 63 bits (source byte 0x140)");
}

TEST(run_map, stores_no_more_clusters_than_the_volume_has) {
    // Each run is one cluster of the volume short of all of it.
    EXPECT_EQ(fault(attribute_builder::non_resident(0x80, {{0, 999}, {hole, 5000}, {3, 1}})), "");
    EXPECT_EQ(fault(attribute_builder::non_resident(0x80, {{0, 999}, {hole, 5000}, {3, 2}})),
              "runs it: stores more than the 1000 clusters of the volume (source byte 0x147)");
    // The pieces of a stream count together.
    run_map map(volume_clusters, 4096);
    ASSERT_EQ(add(map, attribute_builder::non_resident(0x80, {{0, 600}})), "");
    EXPECT_EQ(add(map, attribute_builder::non_resident(0x80, {{0, 401}}).lowest_vcn(600)),
              "runs it: stores more than the 1000 clusters of the volume (source byte 0x140)");
}

TEST(run_map, reports_a_cluster_that_is_used_twice) {
    run_map apart(volume_clusters, 4096);
    ASSERT_EQ(add(apart, attribute_builder::non_resident(0x80, {{100, 8}, {hole, 8}, {108, 2}, {98, 2}})),
              "");
    EXPECT_EQ(apart.cluster_used_twice(), std::nullopt);
    run_map twice(volume_clusters, 4096);
    ASSERT_EQ(add(twice, attribute_builder::non_resident(0x80, {{100, 8}, {50, 3}, {107, 2}})), "");
    EXPECT_EQ(twice.cluster_used_twice(), 107u);
    run_map inside(volume_clusters, 4096);
    ASSERT_EQ(add(inside, attribute_builder::non_resident(0x80, {{100, 50}, {110, 1}, {200, 1}})), "");
    EXPECT_EQ(inside.cluster_used_twice(), 110u);
}

}  // namespace quarry::test
