#include "support/record_builder.h"

#include "support/index_builder.h"

#include <stdexcept>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

bytes part(const bytes& whole, std::size_t offset, std::size_t length) {
    const auto from = whole.begin() + static_cast<std::ptrdiff_t>(offset);
    return {from, from + static_cast<std::ptrdiff_t>(length)};
}

TEST(record_builder, an_empty_record_is_a_header_and_an_end_marker) {
    const bytes record = record_builder(1024, 512).entry(0x21).sequence(7).build();
    ASSERT_EQ(record.size(), 1024u);
    EXPECT_EQ(
        part(record, 0, 0x40),
        from_hex("46494c45 3000 0300 0000000000000000 0700 0100 3800 0100 40000000 00040000 0000000000000000"
                 "0000 0000 21000000 0101 0000 0000 0000 ffffffff 00000000"));
}

TEST(record_builder, sector_ends_are_replaced_on_disk_and_back_in_the_restored_form) {
    record_builder builder(1024, 512);
    builder.update_sequence_number(0xBEEF).add(attribute_builder::resident(0x80, bytes(900, 0x55)));
    const bytes on_disk = builder.build();
    EXPECT_EQ(part(on_disk, 0x30, 6), from_hex("efbe 5555 0000"));
    EXPECT_EQ(part(on_disk, 510, 2), from_hex("efbe"));
    EXPECT_EQ(part(on_disk, 1022, 2), from_hex("efbe"));
    const bytes restored = builder.build_restored();
    EXPECT_EQ(part(restored, 0x30, 6), from_hex("efbe 5555 0000"));
    EXPECT_EQ(part(restored, 510, 2), from_hex("5555"));
    EXPECT_EQ(part(restored, 1022, 2), from_hex("0000"));
}

TEST(record_builder, attributes_without_an_id_get_the_next_free_one) {
    record_builder builder;
    builder.add(attribute_builder::resident(0x10, {}));
    builder.add(attribute_builder::resident(0x80, {}).id(6));
    builder.add(attribute_builder::resident(0x80, {}));
    const bytes record = builder.build();
    EXPECT_EQ(builder.attribute_offset(1), 0x38u + 24u);
    EXPECT_EQ(record[builder.attribute_offset(0) + 14], 0);
    EXPECT_EQ(record[builder.attribute_offset(1) + 14], 6);
    EXPECT_EQ(record[builder.attribute_offset(2) + 14], 7);
    EXPECT_EQ(record[40], 8);
}

TEST(record_builder, header_fields_can_say_anything) {
    const bytes record = record_builder()
                             .signature("BAAD")
                             .update_sequence_offset(0x2A)
                             .update_sequence_count(9)
                             .first_attribute_offset(0x49)
                             .flags(0)
                             .allocated(0x12345678)
                             .base(reference(3, 4))
                             .force_on_disk(1022, 2, 0xABCD)
                             .build();
    EXPECT_EQ(part(record, 0, 8), from_hex("42414144 2a00 0900"));
    EXPECT_EQ(part(record, 20, 4), from_hex("4900 0000"));
    EXPECT_EQ(part(record, 28, 12), from_hex("78563412 0300000000000400"));
    EXPECT_EQ(part(record, 1022, 2), from_hex("cdab"));
}

TEST(record_builder, attributes_that_do_not_fit_are_an_error) {
    record_builder builder;
    builder.add(attribute_builder::resident(0x80, bytes(1000)));
    EXPECT_THROW(static_cast<void>(builder.build()), std::length_error);
}

TEST(record_builder, a_large_record_has_its_first_attribute_after_nine_words) {
    const bytes record = record_builder(4096, 512).build();
    EXPECT_EQ(part(record, 4, 4), from_hex("3000 0900"));
    EXPECT_EQ(part(record, 20, 2), from_hex("4800"));
    EXPECT_EQ(part(record, 4094, 2), from_hex("0101"));
}

TEST(index_builder, an_entry_is_its_key_after_16_bytes_and_a_sub_node_last) {
    const index_entry entry{.file_reference = reference(9, 2), .key = from_hex("aabbcc"), .sub_node = 5};
    EXPECT_EQ(entry.build(),
              from_hex("0900000000000200 2000 0300 0100 0000 aabbcc0000000000 0500000000000000"));
}

TEST(index_builder, a_view_entry_says_where_its_data_are) {
    const index_entry entry{.key = from_hex("00010000"), .view_data = from_hex("11223344")};
    EXPECT_EQ(entry.build(), from_hex("1400 0400 00000000 1800 0400 0000 0000 00010000 11223344"));
}

TEST(index_builder, a_root_has_its_node_at_16_and_ends_with_an_end_entry) {
    EXPECT_EQ(build_index_root({}), from_hex("30000000 01000000 00100000 01 000000"
                                             "10000000 20000000 20000000 00000000"
                                             "0000000000000000 1000 0000 0200 0000"));
}

TEST(index_builder, a_block_is_protected_like_a_record) {
    const bytes block = index_block_builder().vcn(3).add({.key = from_hex("0102030405060708")}).build();
    ASSERT_EQ(block.size(), 4096u);
    EXPECT_EQ(part(block, 0, 42), from_hex("494e4458 2800 0900 0000000000000000 0300000000000000"
                                           "28000000 50000000 e80f0000 00000000 0202"));
    EXPECT_EQ(part(block, 64, 40), from_hex("0000000000000000 1800 0800 0000 0000 0102030405060708"
                                            "0000000000000000 1000 0000 0200 0000"));
    EXPECT_EQ(part(block, 510, 2), from_hex("0202"));
}

}  // namespace
}  // namespace quarry::test
