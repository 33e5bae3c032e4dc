#include "disk/partition_types.h"

#include "support/byte_writer.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

bytes entry(std::uint8_t type, std::uint32_t first, std::uint32_t count) {
    return byte_writer(16).u8(4, type).u32(8, first).u32(12, count).take();
}

TEST(partition_types, exactly_91_type_bytes_count_as_partitions) {
    const bytes counting = from_hex(
        "01 04 05 06 07 08 0B 0C 0E 0F 11 12 14 15 16 1B 1C 1E 1F 24 27 41 42 43 56 64 66 74 76 79 7A 7B 7C "
        "7D "
        "80 81 82 83 84 85 86 87 88 8B 8C 8E 90 91 92 93 97 98 9A A8 AB AC AF B6 B7 BB BC C2 C3 C4 C5 C6 C7 "
        "CB "
        "CC CD CE CF D4 D5 D6 D8 DE E4 E5 E6 E8 EF F0 F2 F4 F6 F9 FB FC FD FE");
    const std::set<std::uint8_t> expected(counting.begin(), counting.end());
    ASSERT_EQ(expected.size(), 91u);
    for (unsigned type = 0; type <= 0xFF; ++type) {
        const auto byte = static_cast<std::uint8_t>(type);
        EXPECT_EQ(is_partition_type(byte), expected.count(byte) == 1) << "type " << type;
        EXPECT_EQ(is_partition_type(partition_entry(entry(byte, 0, 0))), expected.count(byte) == 1)
            << "type " << type;
    }
}

TEST(partition_types, every_type_has_its_name_and_those_without_one_are_unk) {
    const std::map<unsigned, std::string> names = {
        {0x00, "empty"},
        {0x01, "fat12"},
        {0x02, "xenix root"},
        {0x03, "xenix /usr"},
        {0x04, "fat16"},
        {0x05, "exten"},
        {0x06, "fat"},
        {0x07, "ntfs or exfat"},
        {0x08, "aix boot"},
        {0x09, "aix data"},
        {0x0A, "os/2 boot"},
        {0x0B, "fat32"},
        {0x0C, "fat32"},
        {0x0E, "fat16 LBA mapped"},
        {0x0F, "exten"},
        {0x11, "hidden fat16"},
        {0x14, "hidden fat16"},
        {0x16, "hidden fat16"},
        {0x17, "hidden ntfs"},
        {0x1B, "hidden fat32"},
        {0x1C, "hidden fat32"},
        {0x1E, "hidden fat16"},
        {0x27, "hidden ntfs"},
        {0x82, "linux swap"},
        {0x83, "linux"},
        {0x86, "fat16 volume set"},
        {0x87, "ntfs volume set"},
        {0x88, "linux partition table"},
        {0x8B, "fat32 fault tolerant"},
        {0x8C, "fat32 fault tolerant"},
        {0x8D, "fat12"},
        {0x8E, "linux Logical Volume Mgr"},
        {0x90, "hidden fat16"},
        {0x91, "hidden fat16"},
        {0x92, "hidden fat16"},
        {0x93, "hidden linux"},
        {0x97, "hidden fat32"},
        {0x98, "hidden fat32"},
        {0xA0, "hibernation partition"},
        {0xA1, "hibernation partition"},
        {0xA6, "openbsd"},
        {0xAF, "hfs"},
        {0xEE, "gpt"},
    };
    for (unsigned type = 0; type <= 0xFF; ++type) {
        const auto named = names.find(type);
        const std::string expected = named == names.end() ? "unk" : named->second;
        EXPECT_EQ(partition_type_name(static_cast<std::uint16_t>(type)), expected) << "type " << type;
    }
}

TEST(partition_types, a_guessed_type_is_named_by_its_lower_byte_with_guess_after_it) {
    EXPECT_EQ(partition_type_name(0x8000), "empty [guess]");
    EXPECT_EQ(partition_type_name(0x8007), "ntfs or exfat [guess]");
    EXPECT_EQ(partition_type_name(0xFF83), "linux [guess]");
    EXPECT_EQ(partition_type_name(0x80FF), "unk [guess]");
}

TEST(partition_types, a_type_of_two_bytes_that_is_no_guess_has_no_name) {
    EXPECT_EQ(partition_type_name(0x0107), "unk");
    EXPECT_EQ(partition_type_name(0x7F83), "unk");
}

TEST(partition_types, four_types_are_ntfs_to_the_user_guessed_or_not) {
    const std::set<unsigned> ntfs = {0x07, 0x17, 0x27, 0x87};
    for (unsigned type = 0; type <= 0xFF; ++type) {
        EXPECT_EQ(is_ntfs_type(static_cast<std::uint16_t>(type)), ntfs.count(type) == 1) << "type " << type;
        EXPECT_EQ(is_ntfs_type(static_cast<std::uint16_t>(type | 0x8000)), ntfs.count(type) == 1)
            << "guessed type " << type;
    }
}

TEST(partition_types, an_entry_is_used_when_it_has_a_length_and_a_type) {
    EXPECT_TRUE(is_used(partition_entry(entry(0x07, 0, 1))));
    EXPECT_TRUE(is_used(partition_entry(entry(0xFF, 0, 0xFFFFFFFF))));
    EXPECT_FALSE(is_used(partition_entry(entry(0x07, 63, 0))));
    EXPECT_FALSE(is_used(partition_entry(entry(0x00, 63, 1))));
}

TEST(partition_types, only_the_types_05_and_0f_lead_to_a_further_table) {
    for (unsigned type = 0; type <= 0xFF; ++type) {
        EXPECT_EQ(is_link(partition_entry(entry(static_cast<std::uint8_t>(type), 0, 1))),
                  type == 0x05 || type == 0x0F)
            << "type " << type;
    }
}

TEST(partition_types, an_entry_that_is_cut_reads_as_zeros_where_it_ends) {
    const bytes whole = entry(0x07, 0x01020304, 0x05060708);
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        const bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        const partition_entry view{byte_view(cut)};
        EXPECT_EQ(view.type(), length >= 5 ? 0x07 : 0) << length;
        EXPECT_EQ(view.first_sector(), length >= 12 ? 0x01020304u : 0u) << length;
        EXPECT_EQ(view.num_sectors(), length >= 16 ? 0x05060708u : 0u) << length;
    }
}

}  // namespace
}  // namespace quarry::test
