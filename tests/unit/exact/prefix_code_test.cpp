#include "exact/prefix_code.h"

#include "support/bit_word_writer.h"
#include "support/code_lengths.h"

#include <gtest/gtest.h>

namespace quarry::test {

using exact::bit_words;
using exact::code_kind;
using exact::prefix_code;

namespace {

template <std::size_t symbols>
code_kind kind_of(const std::array<std::uint8_t, symbols>& lengths) {
    return prefix_code<symbols, 4>().build(lengths);
}

}  // namespace

TEST(prefix_code, has_shorter_codes_first_and_those_of_one_length_in_order) {
    // A 10, B 0, no C, D 110, E 111.
    prefix_code<5, 2> code;
    ASSERT_EQ(code.build(std::array<std::uint8_t, 5>{2, 1, 0, 3, 3}), code_kind::complete);
    const bytes chunk = bit_word_writer().bits("111 10 0 110 0 10 111 0").take();
    bit_words bits(byte_view(chunk), 0);
    std::string text;
    for (int i = 0; i < 8; ++i) {
        bits.fill();
        text += "ABCDE"[code.read(bits)];
    }
    EXPECT_EQ(text, "EABDBAEB");
}

TEST(prefix_code, is_complete_empty_or_wrong) {
    EXPECT_EQ(kind_of<4>({2, 2, 2, 2}), code_kind::complete);
    EXPECT_EQ(kind_of<4>({1, 1, 0, 0}), code_kind::complete);
    EXPECT_EQ(kind_of<4>({1, 2, 3, 3}), code_kind::complete);
    EXPECT_EQ(kind_of<4>({0, 0, 0, 0}), code_kind::empty);
    EXPECT_EQ(kind_of<4>({1, 0, 0, 0}), code_kind::wrong);  // 1 is no symbol's
    EXPECT_EQ(kind_of<4>({2, 2, 2, 3}), code_kind::wrong);
    EXPECT_EQ(kind_of<4>({1, 1, 1, 0}), code_kind::wrong);  // more than there is room for
    EXPECT_EQ(kind_of<4>({1, 1, 16, 0}), code_kind::wrong);
    EXPECT_EQ(kind_of<4>({1, 2, 2, 2}), code_kind::wrong);
}

TEST(prefix_code, of_16_bits_is_read) {
    std::array<std::uint8_t, 17> lengths{};
    for (std::uint8_t i = 0; i < 16; ++i) {
        lengths[i] = static_cast<std::uint8_t>(i + 1);
    }
    lengths[16] = 16;
    prefix_code<17, 5> code;
    ASSERT_EQ(code.build(lengths), code_kind::complete);
    for (unsigned symbol = 0; symbol < 17; ++symbol) {
        const bytes chunk =
            bit_word_writer().bits(16, symbol == 16 ? 0xFFFFu : 0xFFFEu << (15 - symbol)).take();
        bit_words bits(byte_view(chunk), 0);
        bits.fill();
        EXPECT_EQ(code.read(bits), symbol);
    }
}

TEST(prefix_code, gives_back_what_was_written_by_it) {
    std::mt19937 random(3);
    prefix_code<300, 6> code;
    for (int round = 0; round < 50; ++round) {
        const bytes lengths = random_code_lengths(300, 16, random);
        const std::vector<code_word> words = code_words(lengths);
        ASSERT_EQ(code.build(std::span<const std::uint8_t, 300>(lengths)), code_kind::complete);
        bit_word_writer writer;
        for (unsigned symbol = 0; symbol < 300; ++symbol) {
            writer.bits(words[symbol].length, words[symbol].bits);
        }
        const bytes chunk = writer.take();
        bit_words bits(byte_view(chunk), 0);
        for (unsigned symbol = 0; symbol < 300; ++symbol) {
            bits.fill();
            ASSERT_EQ(code.read(bits), symbol);
        }
        EXPECT_FALSE(bits.overran());
    }
}

}  // namespace quarry::test
