#include "volume/file_record.h"

#include "support/record_builder.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

// The two bytes at the end of each sector of 512 bytes.
std::vector<std::uint16_t> sector_ends(const bytes& record) {
    std::vector<std::uint16_t> ends;
    for (std::size_t end = 512; end <= record.size(); end += 512) {
        ends.push_back(byte_view(record).u16_or_zero(end - 2));
    }
    return ends;
}

// A block whose saved words are 1, 2, 3 ... and whose sector ends are 0xEEEE.
bytes block(std::size_t size, unsigned count, std::string_view signature = "FILE") {
    byte_writer out(size);
    out.fill(0, size, 0xEE).text(0, signature).u16(4, 0x30).u16(6, count).u16(20, 0x48).u16(0x30, 0x7777);
    for (std::size_t word = 1; word < 9; ++word) {
        out.u16(0x30 + 2 * word, word);
    }
    return out.take();
}

using words = std::vector<std::uint16_t>;

TEST(file_record, each_field_of_the_header_has_its_place) {
    byte_writer out(64);
    out.text(0, "FILE")
        .u16(4, 0x30)
        .u16(6, 3)
        .u64(8, 0x1122334455667788)
        .u16(16, 0x0102)
        .u16(18, 5)
        .u16(20, 0x38);
    out.u16(22, 3).u32(24, 416).u32(28, 1024).u64(32, 0x0009000000000123).u16(40, 7).u32(44, 24);
    const bytes raw = out.take();
    const file_record record{byte_view(raw)};
    EXPECT_TRUE(record.is_file());
    EXPECT_FALSE(record.is_indx());
    EXPECT_FALSE(record.is_baad());
    EXPECT_EQ(record.update_sequence_offset(), 0x30);
    EXPECT_EQ(record.update_sequence_count(), 3);
    EXPECT_EQ(record.logfile_sequence_number(), 0x1122334455667788u);
    EXPECT_EQ(record.sequence_number(), 0x0102);
    EXPECT_EQ(record.hard_link_count(), 5);
    EXPECT_EQ(record.first_attribute_offset(), 0x38);
    EXPECT_TRUE(record.in_use());
    EXPECT_TRUE(record.is_directory());
    EXPECT_EQ(record.bytes_used(), 416u);
    EXPECT_EQ(record.bytes_allocated(), 1024u);
    EXPECT_EQ(reference_entry(record.base_reference()), 0x123u);
    EXPECT_EQ(reference_sequence(record.base_reference()), 9);
    EXPECT_EQ(record.next_attribute_id(), 7);
    EXPECT_EQ(record.entry_number(), 24u);
}

TEST(file_record, the_flags_are_two_bits_of_their_own) {
    EXPECT_FALSE(file_record(byte_view(record_builder().flags(0).build())).in_use());
    const bytes deleted_directory = record_builder().flags(2).build();
    EXPECT_FALSE(file_record(byte_view(deleted_directory)).in_use());
    EXPECT_TRUE(file_record(byte_view(deleted_directory)).is_directory());
    const bytes file = record_builder().flags(1).build();
    EXPECT_FALSE(file_record(byte_view(file)).is_directory());
}

TEST(record_header, a_file_record_passes) {
    EXPECT_TRUE(record_header_ok(record_builder().build()));
    EXPECT_TRUE(record_header_ok(record_builder(4096).build()));
}

TEST(record_header, only_the_signature_file_passes) {
    for (const char* signature : {"INDX", "BAAD", "file", "FILF", "\0\0\0\0", "HOLE"}) {
        EXPECT_FALSE(record_header_ok(record_builder().signature(std::string_view(signature, 4)).build()))
            << signature;
    }
    EXPECT_FALSE(record_header_ok(bytes(1024))) << "a slot that was never used";
}

TEST(record_header, a_record_with_its_array_elsewhere_is_refused) {
    for (const unsigned offset : {0x0u, 0x2Au, 0x2Fu, 0x31u, 0xFFFFu}) {
        EXPECT_FALSE(record_header_ok(record_builder().force_on_disk(4, 2, offset).build())) << offset;
    }
}

TEST(record_header, the_array_has_at_most_9_words) {
    for (const unsigned count : {0u, 1u, 8u, 9u}) {
        EXPECT_TRUE(record_header_ok(record_builder().force_on_disk(6, 2, count).build())) << count;
    }
    for (const unsigned count : {10u, 0x7FFFu, 0x8000u, 0xFFFFu}) {
        EXPECT_FALSE(record_header_ok(record_builder().force_on_disk(6, 2, count).build())) << count;
    }
}

TEST(record_header, the_first_attribute_is_at_0x48_or_before) {
    for (const unsigned offset : {0u, 1u, 0x47u, 0x48u}) {
        EXPECT_TRUE(record_header_ok(record_builder().force_on_disk(20, 2, offset).build())) << offset;
    }
    for (const unsigned offset : {0x49u, 0x8000u, 0xFFFFu}) {
        EXPECT_FALSE(record_header_ok(record_builder().force_on_disk(20, 2, offset).build())) << offset;
    }
}

TEST(record_header, a_header_cut_ahead_of_the_arrays_place_is_refused) {
    const bytes record = record_builder().build();
    for (std::size_t length = 0; length < 6; ++length) {
        EXPECT_FALSE(record_header_ok(byte_view(record.data(), length))) << length;
    }
}

TEST(record_size, it_follows_from_the_count_with_sectors_of_512_bytes) {
    EXPECT_EQ(record_size_from_header(block(4096, 9)), 4096u);
    EXPECT_EQ(record_size_from_header(block(1024, 3)), 1024u);
    EXPECT_EQ(record_size_from_header(block(1024, 2)), 512u);
    EXPECT_EQ(record_size_from_header(block(1024, 1)), 0u);
    // The volume's own sectors do not matter: one of 4096 bytes has a count of 2.
    EXPECT_EQ(record_size_from_header(record_builder(4096, 4096).build()), 512u);
}

TEST(record_size, an_empty_array_and_a_bad_header_give_0) {
    EXPECT_EQ(record_size_from_header(block(1024, 0)), 0u);
    EXPECT_EQ(record_size_from_header(block(1024, 10)), 0u);
    EXPECT_EQ(record_size_from_header(block(1024, 3, "INDX")), 0u);
    EXPECT_EQ(record_size_from_header(byte_view()), 0u);
}

TEST(sector_ends, a_count_of_3_restores_two_words) {
    bytes record = block(2048, 3);
    restore_sector_ends(record, 512, 5);
    EXPECT_EQ(sector_ends(record), (words{1, 2, 0xEEEE, 0xEEEE}));
}

TEST(sector_ends, the_limit_ends_it_ahead_of_the_count) {
    bytes record = block(2048, 9);
    restore_sector_ends(record, 512, 3);
    EXPECT_EQ(sector_ends(record), (words{1, 2, 0xEEEE, 0xEEEE}));
    EXPECT_EQ(sector_end_limit(1024, 512), 3u);
    EXPECT_EQ(sector_end_limit(1023, 512), 2u);
    EXPECT_EQ(sector_end_limit(1024, 4096), 1u);
    EXPECT_EQ(sector_end_limit(1024, 0), 0u);
}

TEST(sector_ends, a_torn_record_is_restored_like_any_other) {
    bytes record = block(1024, 3);
    ASSERT_NE(byte_view(record).u16(510), byte_view(record).u16(0x30))
        << "the sector end is not the update number";
    restore_sector_ends(record, 512, 3);
    EXPECT_EQ(sector_ends(record), (words{1, 2}));
}

TEST(sector_ends, a_protected_record_comes_back_as_it_was_written) {
    record_builder builder(4096);
    builder.add(attribute_builder::resident(0x80, pattern(3000)));
    bytes record = builder.build();
    ASSERT_NE(record, builder.build_restored());
    restore_sector_ends(record, 512, sector_end_limit(record.size(), 512));
    EXPECT_EQ(record, builder.build_restored());
}

TEST(sector_ends, counts_and_limits_of_0_and_1_restore_nothing) {
    for (const unsigned count : {0u, 1u}) {
        bytes record = block(1024, count);
        const bytes before = record;
        restore_sector_ends(record, 512, 100);
        EXPECT_EQ(record, before);
    }
    for (const std::uint64_t limit : {0u, 1u}) {
        bytes record = block(1024, 9);
        const bytes before = record;
        restore_sector_ends(record, 512, limit);
        EXPECT_EQ(record, before);
    }
}

TEST(sector_ends, the_volumes_own_sector_size_counts_though_each_512_bytes_are_protected) {
    bytes record = block(4096, 9);
    restore_sector_ends(record, 4096, sector_end_limit(record.size(), 4096));
    EXPECT_EQ(sector_ends(record), (words{0xEEEE, 0xEEEE, 0xEEEE, 0xEEEE, 0xEEEE, 0xEEEE, 0xEEEE, 1}))
        << "the first saved word is at the end of the record";
}

TEST(sector_ends, a_sector_size_of_0_restores_nothing) {
    bytes record = block(1024, 9);
    const bytes before = record;
    restore_sector_ends(record, 0, 100);
    EXPECT_EQ(record, before);
}

TEST(sector_ends, sectors_that_are_not_in_the_record_are_left_out) {
    bytes record = block(1024, 9);
    restore_sector_ends(record, 512, 1000);
    EXPECT_EQ(sector_ends(record), (words{1, 2}));
    record = block(1100, 9);
    restore_sector_ends(record, 65535, 1000);
    EXPECT_EQ(record, block(1100, 9));
}

TEST(sector_ends, a_sector_of_one_byte_has_no_end_ahead_of_the_record) {
    bytes record = block(64, 3);
    restore_sector_ends(record, 1, 65);
    // Word 1 would belong at byte -1; word 2 goes to byte 0.
    bytes expected = block(64, 3);
    apply(expected, {{0, 2, 2}});
    EXPECT_EQ(record, expected);
}

TEST(sector_ends, the_array_of_an_index_block_is_where_its_header_says) {
    bytes index = block(4096, 9, "INDX");
    apply(index, {{4, 2, 0x28}, {0x28 + 2, 2, 0xA1}, {0x28 + 4, 2, 0xA2}});
    restore_sector_ends(index, 512, 3);
    EXPECT_EQ(byte_view(index).u16(510), 0xA1);
    EXPECT_EQ(byte_view(index).u16(1022), 0xA2);
}

TEST(sector_ends, an_array_that_reaches_out_of_the_block_serves_as_far_as_the_block_holds_it) {
    for (const std::uint64_t offset : {4093u, 4095u, 65535u}) {
        bytes index = block(4096, 9, "INDX");
        apply(index, {{4, 2, offset}});
        const bytes before = index;
        restore_sector_ends(index, 512, 9);
        EXPECT_EQ(index, before) << offset;
    }
    bytes index = block(4096, 9, "INDX");
    apply(index, {{4, 2, 4090}, {4092, 2, 0x1234}, {4094, 2, 0x5678}});
    restore_sector_ends(index, 512, 9);
    EXPECT_EQ(byte_view(index).u16(510), 0x1234);
    EXPECT_EQ(byte_view(index).u16(1022), 0x5678);
    EXPECT_EQ(byte_view(index).u16(1534), 0xEEEE);
}

TEST(sector_ends, a_record_cut_at_any_length_is_survived) {
    const bytes whole = block(1100, 9);
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        restore_sector_ends(cut, 512, 9);
        EXPECT_EQ(cut.size(), length);
        if (length >= 512) {
            EXPECT_EQ(byte_view(cut).u16(510), 1);
        }
    }
}

record_kind kind_of(bytes block, bool& accepted, std::uint32_t sector_size = 512) {
    record_kind kind = record_kind::baad;
    accepted = apply_fixups_checked(kind, block, sector_size);
    return kind;
}

TEST(checked_fixups, the_kind_is_given_and_the_fixups_are_restored) {
    for (const auto& [signature, kind] :
         {std::pair("FILE", record_kind::file), {"INDX", record_kind::indx}, {"BAAD", record_kind::baad}}) {
        bytes record = block(1024, 3, signature);
        record_kind found = record_kind::unknown;
        EXPECT_TRUE(apply_fixups_checked(found, record, 512));
        EXPECT_EQ(found, kind) << signature;
        EXPECT_EQ(sector_ends(record), (words{1, 2})) << signature;
    }
}

TEST(checked_fixups, a_block_below_1024_bytes_is_refused) {
    bool accepted = true;
    EXPECT_EQ(kind_of(block(1023, 3), accepted), record_kind::unknown);
    EXPECT_FALSE(accepted);
    EXPECT_EQ(kind_of({}, accepted), record_kind::unknown);
    EXPECT_FALSE(accepted);
}

TEST(checked_fixups, what_is_none_of_the_kinds_is_refused) {
    bool accepted = true;
    EXPECT_EQ(kind_of(bytes(1024), accepted), record_kind::unknown);
    EXPECT_FALSE(accepted);
    // A "FILE" that fails the header test is none.
    EXPECT_EQ(kind_of(block(8192, 10), accepted), record_kind::unknown);
    EXPECT_FALSE(accepted);
}

TEST(checked_fixups, a_baad_record_may_have_10_words_and_no_more) {
    bool accepted = false;
    EXPECT_EQ(kind_of(block(8192, 10, "BAAD"), accepted), record_kind::baad);
    EXPECT_TRUE(accepted);
    EXPECT_EQ(kind_of(block(8192, 11, "BAAD"), accepted), record_kind::baad);
    EXPECT_FALSE(accepted);
}

TEST(checked_fixups, an_index_block_may_have_as_many_words_as_it_has_sectors) {
    bool accepted = false;
    EXPECT_EQ(kind_of(block(8192, 17, "INDX"), accepted), record_kind::indx);
    EXPECT_TRUE(accepted);
    EXPECT_EQ(kind_of(block(8192, 18, "INDX"), accepted), record_kind::indx);
    EXPECT_FALSE(accepted);
}

TEST(checked_fixups, an_array_longer_than_the_block_is_refused_and_leaves_the_block) {
    bytes record = block(1024, 4);
    const bytes before = record;
    record_kind kind = record_kind::unknown;
    EXPECT_FALSE(apply_fixups_checked(kind, record, 512));
    EXPECT_EQ(kind, record_kind::file);
    EXPECT_EQ(record, before);
}

TEST(checked_fixups, an_array_of_512_byte_sectors_is_refused_where_the_volume_has_larger_ones) {
    // What is written on sectors of 4096 bytes: nine words, of which the volume's sector size allows two.
    bytes record = block(4096, 9);
    const bytes before = record;
    record_kind kind = record_kind::unknown;
    EXPECT_FALSE(apply_fixups_checked(kind, record, 4096));
    EXPECT_EQ(kind, record_kind::file);
    EXPECT_EQ(record, before);
}

TEST(checked_fixups, counts_of_0_and_1_and_a_sector_size_of_0_are_accepted_and_restore_nothing) {
    for (const unsigned count : {0u, 1u}) {
        bytes record = block(1024, count);
        record_kind kind = record_kind::unknown;
        EXPECT_TRUE(apply_fixups_checked(kind, record, 512));
        EXPECT_EQ(record, block(1024, count));
    }
    bytes record = block(1024, 3);
    record_kind kind = record_kind::unknown;
    EXPECT_TRUE(apply_fixups_checked(kind, record, 0));
    EXPECT_EQ(record, block(1024, 3));
}

TEST(checked_fixups, a_size_that_is_no_multiple_of_the_sector_is_restored_in_its_whole_sectors) {
    bytes record = block(1500, 3);
    record_kind kind = record_kind::unknown;
    EXPECT_TRUE(apply_fixups_checked(kind, record, 512));
    EXPECT_EQ(byte_view(record).u16(510), 1);
    EXPECT_EQ(byte_view(record).u16(1022), 2);
}

}  // namespace
}  // namespace quarry::test
