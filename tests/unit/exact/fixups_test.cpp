#include "exact/fixups.h"

#include "foundation/byte_view.h"
#include "support/byte_writer.h"

#include <gtest/gtest.h>

namespace quarry::test {

using exact::block_place;
using exact::failure_code;
using exact::restore_fixups;

namespace {

// 1,024 bytes: an array of three words at 0x30, the number 0x1234, saved words 0xAAAA and 0xBBBB.
bytes protected_block() {
    byte_writer out(1024);
    out.u16(4, 0x30).u16(6, 3).u16(0x30, 0x1234).u16(0x32, 0xAAAA).u16(0x34, 0xBBBB);
    return out.u16(510, 0x1234).u16(1022, 0x1234).take();
}

const block_place place{"record 7", {{0, 0x10000}}};

exact::failure failed(bytes block) {
    const bytes before = block;
    const exact::result<void> restored = restore_fixups(block, place);
    EXPECT_FALSE(restored);
    EXPECT_EQ(block, before);
    return restored ? exact::failure{} : restored.error();
}

}  // namespace

TEST(fixups, put_the_saved_words_where_the_number_was) {
    bytes block = protected_block();
    ASSERT_TRUE(restore_fixups(block, place));
    EXPECT_EQ(byte_view(block).u16_or_zero(510), 0xAAAA);
    EXPECT_EQ(byte_view(block).u16_or_zero(1022), 0xBBBB);
}

TEST(fixups, protect_each_512_bytes_of_a_large_block) {
    byte_writer out(4096);
    out.u16(4, 0x28).u16(6, 9).u16(0x28, 5);
    for (std::size_t sector = 0; sector < 8; ++sector) {
        out.u16(0x2A + 2 * sector, 0x100 + sector).u16(512 * sector + 510, 5);
    }
    bytes block = out.take();
    ASSERT_TRUE(restore_fixups(block, place));
    for (std::size_t sector = 0; sector < 8; ++sector) {
        EXPECT_EQ(byte_view(block).u16_or_zero(512 * sector + 510), 0x100 + sector);
    }
}

TEST(fixups, tell_the_first_sector_end_that_is_torn) {
    const exact::failure first = failed(byte_writer(protected_block()).u16(510, 0x1235).u16(1022, 9).take());
    EXPECT_EQ(first.code, failure_code::torn);
    EXPECT_EQ(first.text(),
              "record 7: torn: sector 0 ends in 0x1235, the update sequence number is 0x1234 (source byte "
              "0x101FE)");
    const exact::failure second = failed(byte_writer(protected_block()).u16(1022, 0).take());
    EXPECT_EQ(
        second.text(),
        "record 7: torn: sector 1 ends in 0x0, the update sequence number is 0x1234 (source byte 0x103FE)");
}

TEST(fixups, name_the_source_byte_through_the_pieces_of_a_block) {
    bytes block = byte_writer(protected_block()).u16(1022, 0).take();
    const exact::result<void> restored = restore_fixups(block, {"record 7", {{0, 0x10000}, {512, 0x90000}}});
    ASSERT_FALSE(restored);
    EXPECT_EQ(restored.error().source_byte, 0x901FEu);
}

TEST(fixups, refuse_an_array_that_is_not_made_for_the_block) {
    EXPECT_EQ(failed(byte_writer(protected_block()).u16(4, 0x31).take()).text(),
              "record 7: update sequence array of 3 words at 0x31 (source byte 0x10004)");
    for (const std::uint64_t words : {0u, 1u, 2u, 4u, 0xFFFFu}) {
        EXPECT_EQ(failed(byte_writer(protected_block()).u16(6, words).take()).code, failure_code::array)
            << words;
    }
}

TEST(fixups, take_an_array_that_ends_just_ahead_of_the_first_sector_end) {
    byte_writer out(1024);
    bytes block =
        out.u16(4, 504).u16(6, 3).u16(504, 7).u16(506, 1).u16(508, 2).u16(510, 7).u16(1022, 7).take();
    ASSERT_TRUE(restore_fixups(block, place));
    EXPECT_EQ(byte_view(block).u16_or_zero(510), 1);
    EXPECT_EQ(failed(byte_writer(protected_block()).u16(4, 506).take()).code, failure_code::array);
    EXPECT_EQ(failed(byte_writer(protected_block()).u16(4, 0xFFFE).take()).code, failure_code::array);
}

TEST(fixups, refuse_blocks_cut_anywhere) {
    for (std::size_t size = 0; size < 1024; ++size) {
        bytes block = protected_block();
        block.resize(size);
        EXPECT_FALSE(restore_fixups(block, place)) << size;
    }
}

}  // namespace quarry::test
