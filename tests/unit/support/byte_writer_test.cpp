#include "support/byte_writer.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

TEST(byte_writer, numbers_are_little_endian_and_the_bytes_grow_with_zeros) {
    EXPECT_EQ(byte_writer().u8(1, 0xAB).u16(2, 0x1234).take(), (bytes{0, 0xAB, 0x34, 0x12}));
    EXPECT_EQ(byte_writer().u32(0, 0x01020304).take(), (bytes{4, 3, 2, 1}));
    EXPECT_EQ(byte_writer().u48(0, 0x010203040506).take(), (bytes{6, 5, 4, 3, 2, 1}));
    EXPECT_EQ(byte_writer().u64(0, 0x0102030405060708).take(), (bytes{8, 7, 6, 5, 4, 3, 2, 1}));
}

TEST(byte_writer, padding_reaches_the_next_multiple_and_no_further) {
    EXPECT_EQ(byte_writer().u8(0, 1).pad_to_multiple(8).size(), 8u);
    EXPECT_EQ(byte_writer(8).pad_to_multiple(8).size(), 8u);
}

TEST(from_hex, digits_of_both_cases_with_blanks) {
    EXPECT_EQ(from_hex("21 18 aF Fa00"), (bytes{0x21, 0x18, 0xAF, 0xFA, 0x00}));
    EXPECT_THROW(static_cast<void>(from_hex("1")), std::invalid_argument);
    EXPECT_THROW(static_cast<void>(from_hex("1x")), std::invalid_argument);
}

TEST(apply, a_forced_number_replaces_just_its_bytes) {
    bytes target{1, 2, 3, 4};
    apply(target, {{1, 2, 0xBBAA}});
    EXPECT_EQ(target, (bytes{1, 0xAA, 0xBB, 4}));
}

TEST(ntfs_name, text_becomes_utf16_units_with_surrogates) {
    EXPECT_EQ(ntfs_name("a\u00E9\u20AC").units, u"a\u00E9\u20AC");
    EXPECT_EQ(ntfs_name("\xF0\x9F\x98\x80").units, (std::u16string{0xD83D, 0xDE00}));
    EXPECT_EQ(ntfs_name("a\u20AC").on_disk(), (bytes{0x61, 0x00, 0xAC, 0x20}));
}

TEST(reference, the_sequence_number_is_above_48_bits_of_entry) {
    EXPECT_EQ(reference(5, 7), 0x0007000000000005u);
    EXPECT_EQ(reference(0xFFFF000000000001, 2), 0x0002000000000001u);
}

TEST(protect_sector_ends, the_ends_move_into_the_array_and_the_number_takes_their_place) {
    bytes record(16);
    record[6] = 0x61;
    record[7] = 0x62;
    record[14] = 0x71;
    record[15] = 0x72;
    protect_sector_ends(record, 0, 3, 0x0101, 8);
    EXPECT_EQ(record, from_hex("01 01 61 62 71 72 01 01 00 00 00 00 00 00 01 01"));
}

TEST(protect_sector_ends, a_stride_that_does_not_lie_inside_is_not_changed) {
    bytes record(12, 0xEE);
    protect_sector_ends(record, 0, 3, 0x0101, 8);
    EXPECT_EQ(record, from_hex("01 01 ee ee ee ee 01 01 ee ee ee ee"));
}

}  // namespace
}  // namespace quarry::test
