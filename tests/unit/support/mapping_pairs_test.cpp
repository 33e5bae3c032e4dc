#include "support/mapping_pairs.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

TEST(encode_mapping_pairs, one_run) {
    EXPECT_EQ(encode_mapping_pairs(runs({{0x5634, 0x18}})), from_hex("21 18 34 56 00"));
}

TEST(encode_mapping_pairs, deltas_count_from_the_run_before_and_may_be_negative) {
    EXPECT_EQ(encode_mapping_pairs(runs({{0x40, 8}, {hole, 8}, {0x20, 8}})),
              from_hex("11 08 40 01 08 11 08 e0 00"));
    EXPECT_EQ(encode_mapping_pairs(runs({{0x60, 0x30}, {0x160, 0x10}})), from_hex("11 30 60 21 10 00 01 00"));
}

TEST(encode_mapping_pairs, a_number_takes_one_more_byte_when_its_top_bit_would_be_a_sign) {
    EXPECT_EQ(encode_mapping_pairs(runs({{0x80, 0x80}})), from_hex("22 80 00 80 00 00"));
    EXPECT_EQ(encode_mapping_pairs(runs({{0x7F, 0x7F}})), from_hex("11 7f 7f 00"));
}

TEST(encode_mapping_pairs, a_run_at_cluster_0_has_a_delta_field) {
    EXPECT_EQ(encode_mapping_pairs(runs({{0, 8}})), from_hex("11 08 00 00"));
}

TEST(encode_mapping_pairs, no_runs_are_just_the_end) {
    EXPECT_EQ(encode_mapping_pairs({}), from_hex("00"));
}

TEST(clusters_of, holes_count) {
    EXPECT_EQ(clusters_of(runs({{100, 8}, {hole, 16}})), 24u);
}

}  // namespace
}  // namespace quarry::test
