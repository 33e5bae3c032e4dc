#include "exact/bit_words.h"

#include "support/byte_writer.h"

#include <gtest/gtest.h>

namespace quarry::test {

using exact::bit_words;

TEST(bit_words, come_from_words_with_their_highest_bit_first) {
    const bytes chunk = {0xB4, 0x96, 0x01, 0x80};  // 1001 0110 1011 0100, 1000 0000 0000 0001
    bit_words bits(byte_view(chunk), 0);
    EXPECT_EQ(bits.fetch(1), 1u);
    EXPECT_EQ(bits.fetch(3), 1u);
    EXPECT_EQ(bits.fetch(0), 0u);
    EXPECT_EQ(bits.fetch(8), 0x6Bu);
    EXPECT_EQ(bits.fetch(16), 0x4800u);
    EXPECT_EQ(bits.fetch(4), 1u);
    EXPECT_FALSE(bits.overran());
}

TEST(bit_words, are_the_same_however_many_are_taken_at_once) {
    bytes chunk = pattern(200);
    for (unsigned step = 1; step <= 16; ++step) {
        bit_words bits(byte_view(chunk), 0);
        std::size_t taken = 0;
        for (; taken + step <= 1600; taken += step) {
            unsigned expected = 0;
            for (std::size_t at = taken; at < taken + step; ++at) {
                const std::size_t in_word = at % 16;
                const unsigned byte = chunk[at / 16 * 2 + (in_word < 8 ? 1 : 0)];
                expected = 2 * expected + (byte >> (7 - in_word % 8)) % 2;
            }
            ASSERT_EQ(bits.fetch(step), expected) << step << " at " << taken;
        }
        EXPECT_FALSE(bits.overran());
    }
}

TEST(bit_words, are_zeros_after_the_end_which_can_be_asked_for_once_they_are_taken) {
    for (std::size_t words = 0; words < 12; ++words) {
        const bytes chunk(2 * words, 0xFF);
        bit_words bits(byte_view(chunk), 0);
        for (std::size_t i = 0; i < words; ++i) {
            EXPECT_EQ(bits.fetch(16), 0xFFFFu);
        }
        bits.fill();
        EXPECT_EQ(bits.look(16), 0u);
        EXPECT_FALSE(bits.overran()) << words;
        bits.pass(1);
        EXPECT_TRUE(bits.overran()) << words;
    }
}

TEST(bit_words, of_a_last_byte_are_none) {
    const bytes chunk = {0xFF, 0xFF, 0xFF};
    bit_words bits(byte_view(chunk), 0);
    EXPECT_EQ(bits.fetch(16), 0xFFFFu);
    EXPECT_FALSE(bits.overran());
    EXPECT_EQ(bits.fetch(8), 0u);
    EXPECT_TRUE(bits.overran());
}

TEST(bit_words, leave_room_for_bytes_after_those_that_a_reader_of_16_bits_needs) {
    // Words 0 and 1, two bytes, and word 2.
    const bytes chunk = {0x34, 0x12, 0x78, 0x56, 0xAA, 0xBB, 0xBC, 0x9A, 0, 0, 0, 0, 0, 0};
    for (unsigned taken = 1; taken <= 16; ++taken) {
        bit_words bits(byte_view(chunk), 0);
        bits.fill();
        bits.pass(taken);
        EXPECT_EQ(bits.take_byte(), 0xAA) << taken;
        EXPECT_EQ(bits.take_byte(), 0xBB) << taken;
        bits.fill();
        bits.pass(16 - taken);
        EXPECT_EQ(bits.fetch(16), 0x5678u) << taken;
        EXPECT_EQ(bits.fetch(16), 0x9ABCu) << taken;
    }
    bit_words bits(byte_view(chunk), 0);
    bits.fill();
    bits.pass(17);  // now the reader has fetched three words
    EXPECT_EQ(bits.take_two_bytes(), 0x9ABC);
}

TEST(bit_words, have_no_byte_after_the_end) {
    const bytes chunk = {1, 2, 3, 4, 5};
    bit_words bits(byte_view(chunk), 0);
    bits.fill();
    bits.pass(16);
    bit_words at_byte = bits;
    EXPECT_EQ(at_byte.take_byte(), 5);
    EXPECT_EQ(at_byte.take_byte(), std::nullopt);
    EXPECT_EQ(bits.take_two_bytes(), std::nullopt);
}

TEST(bit_words, end_at_the_word_of_which_the_last_bit_was_taken) {
    const bytes chunk = pattern(40);
    const auto end_after = [&](unsigned taken) {
        bit_words bits(byte_view(chunk), 4);
        for (; taken > 16; taken -= 16) {
            bits.fetch(16);
        }
        bits.fetch(taken);
        return bits.leave_word();
    };
    EXPECT_EQ(end_after(1), 6u);
    EXPECT_EQ(end_after(15), 6u);
    EXPECT_EQ(end_after(16), 8u);  // a whole word is left out
    EXPECT_EQ(end_after(17), 8u);
    EXPECT_EQ(end_after(48), 12u);
    EXPECT_EQ(end_after(49), 12u);
}

}  // namespace quarry::test
