#include "exact/record.h"

#include "support/opened_exact_volume.h"
#include "support/record_builder.h"

#include <gtest/gtest.h>

namespace quarry::test {

using exact::failure_code;
using exact::notices;

namespace {

exact::result<exact::record> verified(bytes stored, notices& told, std::uint64_t entry = 40) {
    return exact::record::verify(std::move(stored), entry, {"record 40", {{0, 0x8000}}}, told);
}

exact::result<exact::record> verified(const record_builder& builder) {
    notices told;
    return verified(builder.build(), told);
}

// The code and the words of the failure; empty if the record is sound.
std::string fault(const record_builder& builder) {
    const exact::result<exact::record> record = verified(builder);
    return record ? "" : text_of(record.error());
}

// $DATA of 10 bytes at 0x38, named "ab"; 0x30 bytes long, its name at 0x18, its value at 0x20.
record_builder one_resident() {
    record_builder builder;
    builder.entry(40).sequence(3).add(attribute_builder::resident(0x80, to_bytes("0123456789")).named("ab"));
    return builder;
}
// $DATA of 4 clusters at 0x38; 0x48 bytes long, its mapping pairs at 0x40.
record_builder one_in_clusters() {
    record_builder builder;
    builder.entry(40).add(attribute_builder::non_resident(0x80, {{100, 4}}));
    return builder;
}
constexpr std::size_t first = 0x38;

}  // namespace

TEST(record, gives_its_attributes) {
    const exact::result<exact::record> record = verified(one_resident());
    ASSERT_TRUE(record) << record.error().text();
    EXPECT_EQ(record->self(), (exact::reference{40, 3}));
    EXPECT_TRUE(record->in_use());
    EXPECT_FALSE(record->base());
    ASSERT_EQ(record->attributes().size(), 1u);
    EXPECT_EQ(record->attributes()[0].type(), 0x80u);
    EXPECT_EQ(record->attributes()[0].value().to_vector(), to_bytes("0123456789"));
    EXPECT_EQ(exact::name_of(record->attributes()[0]), u"ab");
    EXPECT_EQ(record->source_byte(record->attributes()[0].bytes()), 0x8038u);
}

TEST(record, may_have_its_update_sequence_array_at_0x2A) {
    EXPECT_EQ(fault(one_resident().update_sequence_offset(0x2A)), "");
}

TEST(record, has_the_signature_FILE_and_no_other) {
    EXPECT_EQ(fault(one_resident().signature("BAAD")),
              "signature record 40: begins with \"BAAD\", not \"FILE\" (source byte 0x8000)");
    EXPECT_EQ(fault(record_builder(one_resident()).force(0, 4, 0)),
              "signature record 40: begins with \"\\u0000\\u0000\\u0000\\u0000\", not \"FILE\" (source byte "
              "0x8000)");
}

TEST(record, fails_at_each_torn_sector) {
    EXPECT_EQ(fault(one_resident().force_on_disk(510, 2, 0x0202)),
              "torn record 40: torn: sector 0 ends in 0x202, the update sequence number is 0x101 "
              "(source byte 0x81FE)");
    EXPECT_EQ(fault(one_resident().force_on_disk(1022, 1, 0x00)),
              "torn record 40: torn: sector 1 ends in 0x100, the update sequence number is 0x101 "
              "(source byte 0x83FE)");
}

TEST(record, says_its_own_size) {
    EXPECT_EQ(fault(one_resident().allocated(1025)),
              "layout record 40: its allocated size is 1025, records of this volume have 1024 (source byte "
              "0x801C)");
    EXPECT_NE(fault(one_resident().allocated(1023)), "");
    EXPECT_NE(fault(one_resident().allocated(0)), "");
    EXPECT_NE(fault(one_resident().allocated(0xFFFFFFFF)), "");
}

TEST(record, uses_no_more_than_its_size) {
    EXPECT_EQ(fault(one_resident().force(24, 4, 1024)), "");
    EXPECT_EQ(fault(one_resident().force(24, 4, 1032)),
              "layout record 40: its used size is 1032 (source byte 0x8018)");
    EXPECT_NE(fault(one_resident().force(24, 4, 1020)), "");
    EXPECT_NE(fault(one_resident().force(24, 4, 0xFFFFFFF8)), "");
}

TEST(record, has_its_first_attribute_after_the_header) {
    EXPECT_EQ(fault(one_resident().first_attribute_offset(40)),
              "layout record 40: its first attribute is at 0x28 (source byte 0x8014)");
    EXPECT_NE(fault(one_resident().first_attribute_offset(0x3A)), "");
    EXPECT_NE(fault(one_resident().first_attribute_offset(0xFFF8)), "");
}

TEST(record, warns_if_it_says_that_it_is_another_entry) {
    notices told;
    ASSERT_TRUE(verified(one_resident().entry(41).build(), told));
    EXPECT_EQ(text_of(told), "own-number record 40: says that it is record 41\n");
    notices of_old;
    ASSERT_TRUE(verified(one_resident().entry(41).update_sequence_offset(0x2A).build(), of_old));
    EXPECT_EQ(text_of(of_old), "");
}

TEST(record, has_a_chain_that_ends_inside_of_the_used_size) {
    EXPECT_EQ(fault(one_resident().without_end_marker()),
              "layout record 40: attribute at 0x68: the chain has no end inside of the used size "
              "(source byte 0x8068)");
    // The marker may be the last thing that counts.
    EXPECT_EQ(fault(one_resident().force(24, 4, 0x70)), "");
    EXPECT_NE(fault(one_resident().force(24, 4, 0x68)), "");
}

TEST(record, has_attributes_of_sound_length) {
    const auto length = [](std::uint32_t value) { return fault(one_resident().force(first + 4, 4, value)); };
    EXPECT_EQ(length(0x30), "");
    EXPECT_EQ(length(0),
              "layout record 40: attribute at 0x38: its length is no multiple of 8 from 24 on "
              "(source byte 0x8038)");
    EXPECT_NE(length(16), "");
    EXPECT_NE(length(0x31), "");
    EXPECT_NE(length(0x28), "") << "cuts the value";
    EXPECT_EQ(length(0x400),
              "layout record 40: attribute at 0x38: it reaches past the used size of the record "
              "(source byte 0x8038)");
    EXPECT_NE(length(0xFFFFFFF8), "");
}

TEST(record, has_attributes_that_are_resident_or_not) {
    EXPECT_EQ(fault(one_resident().force(first + 8, 1, 2)),
              "layout record 40: attribute at 0x38: its form is neither resident nor non-resident "
              "(source byte 0x8038)");
    EXPECT_EQ(fault(one_resident().force(first + 8, 1, 1)),
              "layout record 40: attribute at 0x38: it has no room for its header (source byte 0x8038)");
}

TEST(record, has_names_inside_of_their_attributes) {
    const auto name = [](std::uint8_t units, std::uint16_t offset) {
        return fault(one_resident().force(first + 9, 1, units).force(first + 10, 2, offset));
    };
    EXPECT_EQ(name(2, 0x2C), "");
    EXPECT_EQ(name(2, 0x2E),
              "layout record 40: attribute at 0x38: its name is not inside of it (source byte 0x8038)");
    EXPECT_NE(name(2, 0x16), "");
    EXPECT_NE(name(255, 0x18), "");
    EXPECT_NE(name(1, 0xFFFF), "");
    EXPECT_EQ(name(0, 0xFFFF), "");
}

TEST(record, has_resident_values_inside_of_their_attributes) {
    const auto value = [](std::uint32_t length, std::uint16_t offset) {
        return fault(one_resident().force(first + 16, 4, length).force(first + 20, 2, offset));
    };
    EXPECT_EQ(value(0x10, 0x20), "");
    EXPECT_EQ(value(0x11, 0x20),
              "layout record 40: attribute at 0x38: its value is not inside of it (source byte 0x8038)");
    EXPECT_EQ(value(0, 0x30), "");
    EXPECT_NE(value(0, 0x31), "");
    EXPECT_NE(value(1, 0x17), "");
    EXPECT_NE(value(0, 0x17), "");
    EXPECT_NE(value(0xFFFFFFFF, 0x20), "");
}

TEST(record, has_mapping_pairs_inside_of_their_attributes) {
    const auto pairs = [](std::uint16_t offset) {
        return fault(one_in_clusters().force(first + 32, 2, offset));
    };
    EXPECT_EQ(pairs(0x40), "");
    EXPECT_EQ(pairs(0x48), "") << "none at all is for the runs to judge";
    EXPECT_EQ(
        pairs(0x3F),
        "layout record 40: attribute at 0x38: its mapping pairs are not inside of it (source byte 0x8038)");
    EXPECT_NE(pairs(0x49), "");
    EXPECT_NE(pairs(0xFFFF), "");
}

TEST(record, cut_anywhere_is_none) {
    const bytes whole = one_resident().build();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        notices told;
        EXPECT_FALSE(verified(bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)), told))
            << size;
    }
}

TEST(record, of_4096_bytes_is_protected_at_each_512) {
    record_builder builder(4096);
    builder.entry(40).add(attribute_builder::resident(0x80, pattern(3000)));
    EXPECT_EQ(fault(builder), "");
    for (std::size_t sector = 0; sector < 8; ++sector) {
        EXPECT_NE(fault(record_builder(builder).force_on_disk(512 * sector + 511, 1, 0xEE)), "") << sector;
    }
}

}  // namespace quarry::test
