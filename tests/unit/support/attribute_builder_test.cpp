#include "support/attribute_builder.h"

#include "support/attribute_list_builder.h"
#include "support/attribute_values.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

TEST(attribute_builder, a_resident_attribute_has_header_name_and_value) {
    EXPECT_EQ(attribute_builder::resident(0x80, to_bytes("hello")).named("s").id(3).build(),
              from_hex("80000000 28000000 00 01 1800 0000 0300 05000000 2000 00 00"
                       "7300 000000000000 68656c6c6f 000000"));
}

TEST(attribute_builder, a_non_resident_attribute_takes_its_sizes_from_its_runs) {
    EXPECT_EQ(
        attribute_builder::non_resident(0x80, runs({{0x5634, 0x18}})).id(1).build(),
        from_hex("80000000 48000000 01 00 4000 0000 0100 0000000000000000 1700000000000000 4000 00 0000000000"
                 "0080010000000000 0080010000000000 0080010000000000 2118345600 000000"));
}

TEST(attribute_builder, a_compressed_size_makes_the_header_eight_bytes_longer) {
    const bytes built = attribute_builder::non_resident(0x80, runs({{1, 2}}))
                            .flags(1)
                            .unit(4)
                            .real(0x55)
                            .initialized(0x44)
                            .compressed(0x33)
                            .build();
    ASSERT_EQ(built.size(), 80u);
    EXPECT_EQ(built[32], 72);
    EXPECT_EQ(built[34], 4);
    EXPECT_EQ(built[48], 0x55);
    EXPECT_EQ(built[56], 0x44);
    EXPECT_EQ(built[64], 0x33);
    EXPECT_EQ(built[72], 0x11);
}

TEST(attribute_builder, any_field_can_be_forced_and_also_only_the_length) {
    const bytes built =
        attribute_builder::resident(0x80, {}).length(0xFFFFFFF0).force(16, 4, 0x11223344).build();
    EXPECT_EQ(built, from_hex("80000000 f0ffffff 00 00 1800 0000 0000 44332211 1800 00 00"));
}

TEST(attribute_builder, a_fragment_names_its_first_and_last_cluster) {
    const bytes built = attribute_builder::non_resident(0x80, runs({{7, 3}})).lowest_vcn(0x20).build();
    EXPECT_EQ(built[16], 0x20);
    EXPECT_EQ(built[24], 0x22);
}

TEST(attribute_values, a_file_name_has_its_name_after_66_bytes) {
    const bytes value =
        file_name{.parent = reference(5, 5), .name = "ab", .name_space = 3, .real = 9}.build();
    ASSERT_EQ(value.size(), 70u);
    EXPECT_EQ(bytes(value.begin(), value.begin() + 8), from_hex("0500000000000500"));
    EXPECT_EQ(value[48], 9);
    EXPECT_EQ(bytes(value.begin() + 64, value.end()), from_hex("02 03 6100 6200"));
}

TEST(attribute_values, a_junction_holds_both_names_with_a_zero_unit_after_each) {
    EXPECT_EQ((reparse_point{.substitute_name = "s", .print_name = "p"}.build()),
              from_hex("030000a0 1000 0000 0000 0200 0400 0200 7300 0000 7000 0000"));
}

TEST(attribute_values, a_symbolic_link_has_a_flags_word_ahead_of_its_names) {
    EXPECT_EQ((reparse_point{.tag = 0xA000000C,
                             .substitute_name = "s",
                             .print_name = "p",
                             .with_flags_word = true,
                             .flags_word = 1}
                   .build()),
              from_hex("0c0000a0 1400 0000 0000 0200 0400 0200 01000000 7300 0000 7000 0000"));
}

TEST(attribute_list, an_entry_is_26_bytes_and_its_name_rounded_to_eight) {
    EXPECT_EQ(build_attribute_list({{.type = 0x80, .record = 40, .sequence = 2, .id = 1, .name = "n"}}),
              from_hex("80000000 2000 01 1a 0000000000000000 280000000000 0200 0100 6e00 00000000"));
}

}  // namespace
}  // namespace quarry::test
