#include "report/report_text.h"

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

namespace quarry {
namespace {

TEST(report_numbers, the_decimal_twin_has_no_minimum_width) {
    EXPECT_EQ(hex_and_decimal(0, 4), "0000 [0]");
    EXPECT_EQ(hex_and_decimal(0x12345, 4), "12345 [74565]");
    EXPECT_EQ(hex_and_decimal(0xFFFFFFFFFFFFFFFF, 12), "ffffffffffffffff [18446744073709551615]");
}

TEST(report_numbers, a_place_is_shown_in_bytes_and_sectors) {
    EXPECT_EQ(bytes_and_sectors(0x100000, 512), "000000100000 bytes [0x800 sectors]");
    EXPECT_EQ(bytes_and_sectors(0, 512), "000000000000 bytes [0x0 sectors]");
    EXPECT_EQ(bytes_and_sectors(0x1FFF, 4096), "000000001fff bytes [0x1 sectors]");
}

TEST(report_numbers, sectors_of_0_bytes_are_none) {
    EXPECT_EQ(bytes_and_sectors(0x100000, 0), "000000100000 bytes [0x0 sectors]");
}

TEST(file_attribute_words, every_bit_has_its_word_or_none) {
    struct word_of_bit {
        std::uint32_t bit;
        const char* word;
    };
    const word_of_bit rows[] = {
        {0x0001, "READ_ONLY"},  {0x0002, "HIDDEN"},
        {0x0004, "SYSTEM"},     {0x0008, "unk"},
        {0x0010, "DIRECTORY"},  {0x0020, "ARCHIVE"},
        {0x0040, "DEVICE"},     {0x0080, "NORMAL"},
        {0x0100, "TEMPORARY"},  {0x0200, "SPARSE_FILE"},
        {0x0400, "REPARSE_PT"}, {0x0800, "COMPRESSED"},
        {0x1000, "OFFLINE"},    {0x2000, "CONTENT_NOT_INDEXED"},
        {0x4000, "ENCRYPTED"},  {0x8000, "unk"},
        {0x10000, "VIRTUAL"},   {0x20000, "unk"},
        {0x08000000, "unk"},    {0x10000000, "DIRECTORY"},
        {0x20000000, "unk"},    {0x80000000, "unk"},
    };
    for (const word_of_bit& row : rows) {
        EXPECT_EQ(file_attribute_words(row.bit), row.word) << std::hex << row.bit;
    }
}

TEST(file_attribute_words, words_come_in_one_order_with_commas_between_them) {
    EXPECT_EQ(file_attribute_words(0x26), "HIDDEN, SYSTEM, ARCHIVE");
    EXPECT_EQ(file_attribute_words(0x10000010), "DIRECTORY, DIRECTORY");
    EXPECT_EQ(
        file_attribute_words(0xFFFFFFFF),
        "READ_ONLY, HIDDEN, SYSTEM, DIRECTORY, ARCHIVE, DEVICE, NORMAL, TEMPORARY, SPARSE_FILE, REPARSE_PT, "
        "COMPRESSED, OFFLINE, CONTENT_NOT_INDEXED, ENCRYPTED, VIRTUAL, DIRECTORY");
}

TEST(file_attribute_words, no_bit_and_unknown_bits_differ) {
    EXPECT_EQ(file_attribute_words(0), "none set");
    EXPECT_EQ(file_attribute_words(0x8008), "unk");
}

}  // namespace
}  // namespace quarry
