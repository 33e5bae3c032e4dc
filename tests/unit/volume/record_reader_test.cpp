#include "volume/record_reader.h"

#include "support/opened_volume.h"
#include "volume/ntfs.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

bytes part(const bytes& whole, std::size_t from, std::size_t size) {
    return {whole.begin() + static_cast<std::ptrdiff_t>(from),
            whole.begin() + static_cast<std::ptrdiff_t>(from + size)};
}

struct record_read {
    bool result = false;
    bytes record;
    std::uint64_t position = 77;
    std::uint64_t length = 77;
};

record_read raw(CNtfs& volume, std::uint64_t entry) {
    record_read read;
    read.result = volume.read_record_raw(entry, read.record, read.position, read.length);
    return read;
}

record_read restored(CNtfs& volume, std::uint64_t entry) {
    record_read read;
    read.result = volume.read_record(entry, read.record, read.position, read.length);
    return read;
}

record_read in_place(CNtfs& volume, std::uint64_t entry, std::size_t room) {
    record_read read;
    read.record.assign(room, 0xEE);
    read.result = volume.read_record(entry, std::span(read.record), read.position, read.length);
    return read;
}

TEST(read_record, the_raw_form_gives_the_bytes_as_they_stand_on_disk) {
    volume_builder builder;
    builder.add_file("a").data("content");
    opened_volume volume(builder);
    const record_read read = raw(volume.ntfs(), 24);
    EXPECT_TRUE(read.result);
    EXPECT_EQ(read.record, builder.record_on_disk(24));
    EXPECT_EQ(read.position, 16384u + 24 * 1024);
    EXPECT_EQ(read.length, 1024u);
}

TEST(read_record, the_sector_ends_are_put_back) {
    volume_builder builder;
    builder.add_file("a").resident_data(pattern(700));
    opened_volume volume(builder);
    bytes expected = builder.record_on_disk(24);
    // The saved words are at 0x32 and 0x34.
    apply(expected, {{510, 2, byte_view(expected).u16_or_zero(0x32)},
                     {1022, 2, byte_view(expected).u16_or_zero(0x34)}});
    ASSERT_NE(expected, builder.record_on_disk(24));
    EXPECT_EQ(restored(volume.ntfs(), 24).record, expected);
    EXPECT_EQ(in_place(volume.ntfs(), 24, 1024).record, expected);
    bytes vector;
    std::uint64_t position = 0;
    record_kind kind = record_kind::unknown;
    EXPECT_TRUE(volume->read_record_checked(vector, position, kind, 24));
    EXPECT_EQ(kind, record_kind::file);
    EXPECT_EQ(vector, expected);
    EXPECT_EQ(position, 16384u + 24 * 1024);
    EXPECT_TRUE(volume->read_record_vector(vector, position, 24));
    EXPECT_EQ(vector, builder.record_on_disk(24));
}

TEST(read_record, a_count_of_9_in_1024_bytes_restores_two_words) {
    volume_builder builder;
    record_builder record = builder.new_record(24);
    record.update_sequence_count(9).first_attribute_offset(0x48);
    for (std::size_t word = 3; word < 9; ++word) {
        record.force(0x30 + 2 * word, 2, 0xBAD);
    }
    builder.replace_record(24, record.build());
    opened_volume volume(builder);
    const record_read read = restored(volume.ntfs(), 24);
    EXPECT_TRUE(read.result);
    EXPECT_EQ(byte_view(read.record).u16(510), 0);
    EXPECT_EQ(byte_view(read.record).u16(1022), 0);
}

TEST(read_record, with_sectors_larger_than_the_record_nothing_is_restored) {
    volume_builder builder({.bytes_per_sector = 4096, .sectors_per_cluster = 1, .record_size = 1024});
    builder.add_file("a");
    opened_volume volume(builder);
    EXPECT_EQ(restored(volume.ntfs(), 24).record, builder.record_on_disk(24));
    EXPECT_EQ(byte_view(builder.record_on_disk(24)).u16(6), 3);
    bytes vector;
    std::uint64_t position = 0;
    record_kind kind = record_kind::unknown;
    EXPECT_FALSE(volume->read_record_checked(vector, position, kind, 24))
        << "two sectors of 4096 bytes are more than this record has";
    EXPECT_EQ(kind, record_kind::file);
}

TEST(read_record, a_torn_record_is_read_like_any_other) {
    volume_builder builder;
    builder.add_file("a");
    builder.force_record(24, 510, 2, 0xDEAD);
    opened_volume volume(builder);
    const record_read read = restored(volume.ntfs(), 24);
    EXPECT_TRUE(read.result);
    EXPECT_EQ(byte_view(read.record).u16(510), 0);
}

TEST(read_record, counts_of_0_and_1_are_accepted_and_restore_nothing) {
    for (const std::uint64_t count : {0u, 1u}) {
        volume_builder builder;
        builder.add_file("a");
        builder.force_record(24, 6, 2, count);
        opened_volume volume(builder);
        const record_read read = restored(volume.ntfs(), 24);
        EXPECT_TRUE(read.result);
        EXPECT_EQ(read.record, builder.record_on_disk(24));
        record_kind kind = record_kind::unknown;
        bytes vector;
        std::uint64_t position = 0;
        EXPECT_TRUE(volume->read_record_checked(vector, position, kind, 24));
        EXPECT_EQ(vector, builder.record_on_disk(24));
    }
}

// What each reader makes of a record whose first bytes were changed.
struct verdict {
    bool read_record;
    bool read_in_place;
    bool read_checked;
    record_kind kind;
    bool operator==(const verdict&) const = default;
};

verdict verdict_on(const forced_number& change) {
    volume_builder builder;
    builder.add_file("a");
    builder.force_record(24, change.offset, change.width, change.value);
    opened_volume volume(builder);
    verdict result{};
    const record_read allocated = restored(volume.ntfs(), 24);
    result.read_record = allocated.result;
    EXPECT_EQ(allocated.record.empty(), !allocated.result);
    result.read_in_place = in_place(volume.ntfs(), 24, 1024).result;
    bytes vector;
    std::uint64_t position = 0;
    result.read_checked = volume->read_record_checked(vector, position, result.kind, 24);
    return result;
}

TEST(read_record, a_record_marked_baad_is_refused_but_told_by_the_checked_reader) {
    EXPECT_EQ(verdict_on({0, 4, 0x44414142}), (verdict{false, false, true, record_kind::baad}));
}

TEST(read_record, an_index_block_in_the_place_of_a_record_is_accepted) {
    EXPECT_EQ(verdict_on({0, 4, 0x58444E49}), (verdict{true, true, true, record_kind::indx}));
}

TEST(read_record, any_other_signature_is_refused) {
    EXPECT_EQ(verdict_on({0, 4, 0}), (verdict{false, false, false, record_kind::unknown}));
    EXPECT_EQ(verdict_on({0, 4, 0x454C4948}), (verdict{false, false, false, record_kind::unknown}));
}

TEST(read_record, a_file_record_that_fails_the_header_test_is_refused) {
    for (const forced_number& change : {forced_number{4, 2, 0x2A}, {6, 2, 10}, {20, 2, 0x49}}) {
        EXPECT_EQ(verdict_on(change), (verdict{false, false, false, record_kind::unknown})) << change.offset;
    }
}

TEST(read_record, a_record_of_512_bytes_is_read_but_the_checked_reader_refuses_it) {
    volume_builder builder({.record_size = 512});
    builder.replace_record(24, builder.new_record(24).add(attribute_builder::resident(0x80, {})).build());
    opened_volume volume(builder);
    ASSERT_EQ(volume->get_mft_record_size(), 512u);
    EXPECT_TRUE(restored(volume.ntfs(), 24).result);
    EXPECT_TRUE(in_place(volume.ntfs(), 24, 512).result);
    bytes vector;
    std::uint64_t position = 0;
    record_kind kind = record_kind::file;
    EXPECT_FALSE(volume->read_record_checked(vector, position, kind, 24));
    EXPECT_EQ(kind, record_kind::unknown);
    EXPECT_TRUE(volume->read_record_vector(vector, position, 24));
}

TEST(read_record, a_slot_that_was_never_used_is_refused) {
    opened_volume volume{volume_builder()};
    const record_read read = restored(volume.ntfs(), 24);
    EXPECT_FALSE(read.result);
    EXPECT_TRUE(read.record.empty());
    EXPECT_TRUE(raw(volume.ntfs(), 24).result) << "its bytes can be read";
}

TEST(read_record, an_index_block_whose_array_lies_anywhere_is_survived) {
    for (const std::uint64_t offset : {0u, 1020u, 1021u, 1023u, 1024u, 65535u}) {
        for (const std::uint64_t count : {0u, 1u, 2u, 3u, 4u, 65535u}) {
            volume_builder builder;
            builder.replace_record(24, byte_writer(1024).text(0, "INDX").u16(4, offset).u16(6, count).take());
            opened_volume volume(builder);
            EXPECT_TRUE(restored(volume.ntfs(), 24).result);
        }
    }
}

TEST(read_record, entry_0_is_read_from_where_the_boot_sector_says_though_there_are_no_runs) {
    volume_builder builder;
    builder.replace_record(0, builder.new_record(0).build());
    opened_volume volume(builder);
    ASSERT_EQ(volume->get_num_entries(), 0u);
    const record_read read = restored(volume.ntfs(), 0);
    EXPECT_TRUE(read.result);
    EXPECT_EQ(read.position, 16384u);
    bytes vector;
    std::uint64_t position = 0;
    record_kind kind = record_kind::unknown;
    EXPECT_TRUE(volume->read_record_checked(vector, position, kind, 0));
    EXPECT_EQ(position, 16384u);
}

TEST(read_record, only_entry_0_is_read_before_the_volume_is_valid) {
    volume_builder builder;
    builder.add_file("a");
    opened_volume volume(builder);
    volume->m_Validated = false;
    EXPECT_TRUE(restored(volume.ntfs(), 0).result);
    EXPECT_FALSE(raw(volume.ntfs(), 24).result);
    EXPECT_FALSE(restored(volume.ntfs(), 24).result);
    EXPECT_FALSE(in_place(volume.ntfs(), 24, 1024).result);
    bytes vector;
    std::uint64_t position = 0;
    record_kind kind = record_kind::file;
    EXPECT_FALSE(volume->read_record_vector(vector, position, 0))
        << "this form needs a valid volume for it as well";
    EXPECT_FALSE(volume->read_record_checked(vector, position, kind, 0));
    EXPECT_EQ(kind, record_kind::unknown);
}

TEST(read_record, an_entry_that_no_run_holds_is_refused) {
    opened_volume volume{volume_builder()};
    for (const std::uint64_t entry : {std::uint64_t{64}, std::uint64_t{1} << 47, ~std::uint64_t{0}}) {
        EXPECT_FALSE(restored(volume.ntfs(), entry).result);
        bytes vector;
        std::uint64_t position = 0;
        record_kind kind = record_kind::file;
        EXPECT_FALSE(volume->read_record_checked(vector, position, kind, entry));
        EXPECT_EQ(kind, record_kind::unknown);
        // An entry without a place reads from the start of the volume, where the boot sector is no record.
        const record_read nowhere = raw(volume.ntfs(), entry);
        EXPECT_TRUE(nowhere.result);
        EXPECT_EQ(nowhere.position, 0u);
        EXPECT_TRUE(byte_view(nowhere.record).text_at(3, "NTFS    "));
    }
}

TEST(read_record, the_callers_buffer_must_hold_the_whole_record) {
    volume_builder builder;
    builder.add_file("a");
    opened_volume volume(builder);
    for (const std::size_t room : {0u, 1u, 1023u}) {
        const record_read read = in_place(volume.ntfs(), 24, room);
        EXPECT_FALSE(read.result);
        EXPECT_EQ(read.length, 1024u) << "the room that is needed";
        EXPECT_EQ(read.record, bytes(room, 0xEE)) << "nothing was read";
    }
    const record_read larger = in_place(volume.ntfs(), 24, 1030);
    EXPECT_TRUE(larger.result);
    EXPECT_EQ(larger.length, 1024u);
    EXPECT_EQ(part(larger.record, 1024, 6), bytes(6, 0xEE));
}

TEST(read_record, a_record_length_of_any_size_is_refused_for_a_smaller_buffer_whatever_its_sign) {
    for (const std::uint64_t size : {1025u, 0x40000000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        volume_builder builder;
        builder.add_file("a");
        builder.force_record(0, 28, 4, size);
        opened_volume volume(builder);
        const record_read read = in_place(volume.ntfs(), 24, 1024);
        EXPECT_FALSE(read.result);
        EXPECT_EQ(read.record, bytes(1024, 0xEE)) << size;
    }
}

TEST(read_record, entry_0_has_the_boot_sectors_length_and_the_others_have_that_of_record_0) {
    volume_builder builder;
    builder.force_record(0, 28, 4, 512);
    opened_volume volume(builder);
    EXPECT_EQ(raw(volume.ntfs(), 0).length, 1024u);
    EXPECT_EQ(raw(volume.ntfs(), 2).length, 512u);
    bytes vector;
    std::uint64_t position = 0;
    EXPECT_TRUE(volume->read_record_vector(vector, position, 2));
    EXPECT_EQ(vector.size(), 1024u) << "this form takes the boot sector's for all";
}

TEST(read_record, records_that_overlap_are_read_at_their_step) {
    volume_builder builder;
    builder.force_record(0, 28, 4, 512);
    opened_volume volume(builder);
    EXPECT_EQ(raw(volume.ntfs(), 1).position, 16384u + 512);
    EXPECT_TRUE(restored(volume.ntfs(), 10).result) << "the root's record, 5 times 1024 bytes in";
    EXPECT_FALSE(restored(volume.ntfs(), 5).result);
}

TEST(read_record, a_step_that_no_attribute_fits_into_leaves_record_0_alone) {
    volume_builder builder;
    builder.force_record(0, 28, 4, 16);
    opened_volume volume(builder);
    EXPECT_TRUE(restored(volume.ntfs(), 0).result);
    EXPECT_FALSE(restored(volume.ntfs(), 5).result);
}

TEST(read_record, a_record_at_the_end_of_the_source_is_cut_and_the_rest_is_zeros) {
    volume_builder builder({.mft_runs = {{100, 16}}});
    builder.add_file_at(63, "last").resident_data(pattern(600));
    builder.force_record(63, 0x34, 2, 0x5A5A);  // the saved word of the second sector, whose end is not there
    bytes image = builder.image();
    image.resize(100 * 4096 + 63 * 1024 + 600);
    opened_volume volume(image);
    const record_read read = restored(volume.ntfs(), 63);
    EXPECT_TRUE(read.result);
    EXPECT_EQ(read.length, 600u);
    ASSERT_EQ(read.record.size(), 1024u);
    EXPECT_EQ(part(read.record, 600, 424), bytes(424));
    EXPECT_NE(byte_view(read.record).u16(510), 0x0101) << "the one sector end that was read is put back";
    bytes vector(5, 0xEE);
    std::uint64_t position = 0;
    EXPECT_TRUE(volume->read_record_vector(vector, position, 63));
    EXPECT_EQ(part(vector, 600, 424), bytes(424));
    const record_read kept = in_place(volume.ntfs(), 63, 1024);
    EXPECT_EQ(kept.length, 600u);
    EXPECT_EQ(kept.record, read.record);
}

TEST(read_record, a_record_that_begins_at_the_end_of_a_piece_of_mft_is_read_on_where_it_is) {
    // Clusters of 512 bytes: record 1 begins in the last cluster of the first piece.
    volume_builder builder({.sectors_per_cluster = 1, .mft_runs = {{40, 3}, {90, 125}}});
    builder.write_clusters(43, bytes(512, 0x43));
    opened_volume volume(builder);
    const record_read read = raw(volume.ntfs(), 1);
    EXPECT_TRUE(read.result);
    EXPECT_EQ(read.length, 1024u);
    EXPECT_EQ(part(read.record, 512, 512), bytes(512, 0x43))
        << "from the cluster after it on disk, not from 90";
}

TEST(read_record, a_failed_read_is_told_by_every_reader) {
    volume_builder builder({.mft_runs = {{4, 8}, {1000, 8}}});
    bytes image = builder.image();
    image.resize(100 * 4096);
    opened_volume volume(image);
    EXPECT_FALSE(raw(volume.ntfs(), 40).result);
    EXPECT_TRUE(raw(volume.ntfs(), 40).record.empty());
    EXPECT_EQ(raw(volume.ntfs(), 40).position, 1000u * 4096 + 8 * 1024);
    EXPECT_FALSE(in_place(volume.ntfs(), 40, 1024).result);
    bytes vector;
    std::uint64_t position = 0;
    record_kind kind = record_kind::file;
    EXPECT_FALSE(volume->read_record_checked(vector, position, kind, 40));
    EXPECT_EQ(kind, record_kind::unknown);
}

}  // namespace
}  // namespace quarry::test
