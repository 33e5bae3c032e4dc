#include "volume/lznt1.h"

#include "support/lznt1_encoder.h"
#include "support/sample_text.h"
#include "support/slow_lznt1.h"

#include <algorithm>
#include <random>
#include <tuple>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

struct split {
    bool valid = false;
    std::uint32_t offset = 0;
    std::uint32_t length = 0;
};

split split_of(std::uint16_t token, std::uint64_t position) {
    split out;
    out.valid = split_token(token, position, out.offset, out.length);
    return out;
}

// First and last position of a row, bits of offset, longest offset, longest length.
using split_row = std::tuple<std::uint64_t, std::uint64_t, unsigned, std::uint32_t, std::uint32_t>;
class split_table : public ::testing::TestWithParam<split_row> {};

TEST_P(split_table, has_its_bits_of_offset_and_length_over_the_whole_row) {
    const auto [first, last, bits, longest_offset, longest_length] = GetParam();
    for (std::uint64_t position = first; position <= last; ++position) {
        const split highest = split_of(0xFFFF, position);
        EXPECT_EQ(highest.offset, longest_offset) << position;
        EXPECT_EQ(highest.length, longest_length) << position;
        EXPECT_EQ(highest.valid, position >= longest_offset) << position;
        const split lowest = split_of(0, position);
        EXPECT_EQ(lowest.offset, 1u) << position;
        EXPECT_EQ(lowest.length, 3u) << position;
        EXPECT_TRUE(lowest.valid) << position;
        const split one_and_one = split_of(static_cast<std::uint16_t>((1u << (16 - bits)) | 1), position);
        EXPECT_EQ(one_and_one.offset, 2u) << position;
        EXPECT_EQ(one_and_one.length, 4u) << position;
        EXPECT_EQ(one_and_one.valid, position >= 2) << position;
    }
}

INSTANTIATE_TEST_SUITE_P(rows, split_table,
                         ::testing::Values(split_row{1, 16, 4, 16, 4098}, split_row{17, 32, 5, 32, 2050},
                                           split_row{33, 64, 6, 64, 1026}, split_row{65, 128, 7, 128, 514},
                                           split_row{129, 256, 8, 256, 258}, split_row{257, 512, 9, 512, 130},
                                           split_row{513, 1024, 10, 1024, 66},
                                           split_row{1025, 2048, 11, 2048, 34},
                                           split_row{2049, 4096, 12, 4096, 18}));

TEST(split_token, splits_one_token_in_two_ways_at_positions_16_and_17) {
    const split at_16 = split_of(0x1003, 16);
    EXPECT_TRUE(at_16.valid);
    EXPECT_EQ(at_16.offset, 2u);
    EXPECT_EQ(at_16.length, 6u);
    const split at_17 = split_of(0x1003, 17);
    EXPECT_TRUE(at_17.valid);
    EXPECT_EQ(at_17.offset, 3u);
    EXPECT_EQ(at_17.length, 6u);
}

TEST(split_token, allows_no_token_at_the_start_of_a_chunk) {
    for (const unsigned token : {0u, 1u, 0x0FFFu, 0x1000u, 0x8000u, 0xFFFFu}) {
        const split at_start = split_of(static_cast<std::uint16_t>(token), 0);
        EXPECT_FALSE(at_start.valid) << token;
        EXPECT_EQ(at_start.offset, 1u) << token;
    }
}

struct decoded {
    bool sound = false;
    bytes plain;
};

// The payload is all of the first `size` bytes; `before` is what the chunk before was filled with.
decoded decode(const bytes& text, std::size_t size, std::uint8_t before = 0) {
    plain_chunk chunk_before;
    plain_chunk output;
    chunk_before.storage.fill(before);
    output.storage.fill(0xEE);
    decoded out;
    out.sound = decompress_chunk(byte_view(text), size, chunk_before, output);
    if (out.sound) {
        out.plain = output.bytes().to_vector();
    }
    return out;
}

decoded decode(const bytes& payload) {
    return decode(payload, payload.size());
}

bytes filled_up(bytes start, std::uint8_t rest) {
    start.resize(lznt1_chunk_size, rest);
    return start;
}

bytes first_bytes(const bytes& text, std::size_t count) {
    return bytes(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(count));
}

TEST(decompress_chunk, copies_literals) {
    const decoded got = decode(from_hex("00 41 42 43 44 45 46 47 48 00 49"), 11, 0x2E);
    ASSERT_TRUE(got.sound);
    EXPECT_EQ(got.plain, filled_up(to_bytes("ABCDEFGHI"), 0x2E));
}

TEST(decompress_chunk, takes_the_lowest_flag_bit_first) {
    // 0b10: a literal, then a token that repeats it four times, then literals.
    const decoded got = decode(from_hex("02 41 01 00 42 43 44 45 46 47"), 10, 0x2E);
    ASSERT_TRUE(got.sound);
    EXPECT_EQ(got.plain, filled_up(to_bytes("AAAAABCDEFG"), 0x2E));
}

TEST(decompress_chunk, repeats_what_a_repeat_makes_where_it_overlaps) {
    lznt1_payload payload;
    payload.literals(to_bytes("xyz")).repeat(2, 5).literals(to_bytes("END!"));
    const decoded got = decode(payload.build(), payload.build().size(), 0x2E);
    ASSERT_TRUE(got.sound);
    EXPECT_EQ(got.plain, filled_up(to_bytes("xyzyzyzyEND!"), 0x2E));
}

TEST(decompress_chunk, clears_the_chunk_first_for_a_payload_of_at_most_eight_bytes) {
    const decoded eight = decode(from_hex("00 41 42 43 44 45 46 47"), 8, 0x2E);
    ASSERT_TRUE(eight.sound);
    EXPECT_EQ(eight.plain, filled_up(to_bytes("ABCDEFG"), 0));
    const decoded nine = decode(from_hex("00 41 42 43 44 45 46 47 48"), 9, 0x2E);
    ASSERT_TRUE(nine.sound);
    EXPECT_EQ(nine.plain, filled_up(to_bytes("ABCDEFGH"), 0x2E));
}

// The claimed size decides, also where fewer bytes exist.
TEST(decompress_chunk, judges_a_payload_that_claims_more_than_eight_bytes_by_its_claim) {
    const decoded cut = decode(from_hex("00 41 42"), 9, 0x2E);
    ASSERT_TRUE(cut.sound);
    EXPECT_EQ(cut.plain, filled_up(to_bytes("AB"), 0x2E));
    const decoded nothing = decode({}, 4096, 0x2E);
    ASSERT_TRUE(nothing.sound);
    EXPECT_EQ(nothing.plain, bytes(4096, 0x2E));
    EXPECT_EQ(decode(from_hex("00 41 42"), 8, 0x2E).plain, filled_up(to_bytes("AB"), 0));
}

TEST(decompress_chunk, gives_zeros_for_an_empty_payload) {
    const decoded got = decode(from_hex("00 41"), 0, 0x2E);
    ASSERT_TRUE(got.sound);
    EXPECT_EQ(got.plain, bytes(4096, 0));
}

TEST(decompress_chunk, shows_the_bytes_of_the_chunk_before_where_its_payload_ends_early) {
    const bytes chunk_before = pattern(4096, 5);
    plain_chunk before;
    std::copy(chunk_before.begin(), chunk_before.end(), before.storage.begin());
    plain_chunk output;
    const bytes payload = from_hex("00 41 42 43 44 45 46 47 48");
    ASSERT_TRUE(decompress_chunk(byte_view(payload), 9, before, output));
    bytes expected = to_bytes("ABCDEFGH");
    expected.insert(expected.end(), chunk_before.begin() + 8, chunk_before.end());
    EXPECT_EQ(output.bytes().to_vector(), expected);
}

TEST(decompress_chunk, ends_a_repeat_with_the_chunk) {
    lznt1_payload payload;
    payload.literal('a').repeat(1, 4094);
    EXPECT_EQ(decode(payload.build()).plain, filled_up(bytes(4095, 'a'), 0));
    lznt1_payload longer;
    longer.literal('a').repeat(1, 4098).literals(bytes(8, 'b'));
    EXPECT_EQ(decode(longer.build()).plain, bytes(4096, 'a'));
}

// Also where the payload goes on after it, so that the decoder has no other reason to go slowly.
TEST(decompress_chunk, ends_a_repeat_with_the_chunk_wherever_near_the_end_it_begins) {
    const bytes plain = pattern(4096, 7);
    for (std::size_t begin = 4060; begin < 4096; ++begin) {
        for (const std::size_t length : {3u, 16u, 17u, 18u}) {
            lznt1_payload payload;
            payload.literals(first_bytes(plain, begin)).repeat(100, length).literals(bytes(100, 'b'));
            const auto repeated = plain.begin() + static_cast<std::ptrdiff_t>(begin - 100);
            bytes expected = first_bytes(plain, begin);
            expected.insert(expected.end(), repeated, repeated + static_cast<std::ptrdiff_t>(length));
            expected.resize(4096, 'b');
            const decoded got = decode(payload.build());
            ASSERT_TRUE(got.sound);
            ASSERT_EQ(got.plain, expected) << length << " bytes at " << begin;
        }
    }
}

TEST(decompress_chunk, does_not_read_what_follows_a_full_chunk) {
    lznt1_payload payload;
    payload.literal('a').repeat(1, 4095).token(0xFFFF).token(0xFFFF).literal('b');
    const decoded got = decode(payload.build());
    ASSERT_TRUE(got.sound) << "tokens past the end decide nothing";
    EXPECT_EQ(got.plain, bytes(4096, 'a'));
}

TEST(decompress_chunk, refuses_a_token_ahead_of_the_chunk) {
    EXPECT_FALSE(decode(from_hex("01 00 00 41 41 41 41 41 41 41")).sound);
    EXPECT_FALSE(decode(from_hex("02 41 00 10 41 41 41 41 41 41")).sound) << "two back after one byte";
    lznt1_payload payload;
    payload.literals(bytes(16, 'a')).token(0xF000);
    EXPECT_TRUE(decode(payload.build()).sound) << "16 back after 16 bytes";
    lznt1_payload wide;
    wide.literals(bytes(17, 'a')).token(0x9000);
    EXPECT_FALSE(decode(wide.build()).sound) << "19 back after 17 bytes";
}

TEST(decompress_chunk, takes_the_second_byte_of_a_token_from_after_its_payload) {
    // The token's low byte ends the payload. Its high byte 0x10 makes the distance 2.
    const bytes text = from_hex("04 41 42 03 10");
    EXPECT_EQ(decode(text, 4).plain, filled_up(to_bytes("ABABABAB"), 0));
    // With nothing after the payload the high byte is 0: distance 1.
    EXPECT_EQ(decode(from_hex("04 41 42 03")).plain, filled_up(to_bytes("ABBBBBBB"), 0));
}

TEST(decompress_chunk, touches_nothing_else_after_its_payload) {
    bytes text = from_hex("00 41 42 43 44 45 46 47 48 00");
    text.resize(100, 'z');
    EXPECT_EQ(decode(text, 10, 0x2E).plain, filled_up(to_bytes("ABCDEFGH"), 0x2E)) << "a flag byte ends it";
    EXPECT_EQ(decode(text, 5, 0x2E).plain, filled_up(to_bytes("ABCD"), 0));
}

// What the encoder made comes back, and the slow decoder agrees.
void expect_round_trip(const bytes& plain) {
    const bytes payload = lznt1_compress(plain);
    const slow_chunk slow = slow_decode_chunk(payload, 0, payload.size(), bytes(4096, 0));
    ASSERT_TRUE(slow.sound);
    const decoded got = decode(payload);
    ASSERT_TRUE(got.sound);
    EXPECT_EQ(got.plain, slow.plain);
    EXPECT_TRUE(std::equal(plain.begin(), plain.end(), got.plain.begin()));
}

TEST(decompress_chunk, gives_text_back) {
    for (std::uint32_t seed = 1; seed <= 40; ++seed) {
        expect_round_trip(text_like(4096, seed));
    }
}

TEST(decompress_chunk, gives_random_bytes_back) {
    for (std::uint32_t seed = 1; seed <= 10; ++seed) {
        expect_round_trip(random_bytes(3600, seed));
    }
}

TEST(decompress_chunk, gives_repetitive_bytes_back) {
    for (std::size_t period = 1; period <= 70; ++period) {
        bytes plain = random_bytes(period, static_cast<std::uint32_t>(period));
        while (plain.size() < 4096) {
            plain.push_back(plain[plain.size() - period]);
        }
        expect_round_trip(plain);
    }
    expect_round_trip(bytes(4096, 0));
}

TEST(decompress_chunk, gives_bytes_of_every_size_back) {
    for (std::size_t size = 1; size <= 4096; size += size < 300 ? 1 : 37) {
        expect_round_trip(text_like(size, static_cast<std::uint32_t>(size)));
    }
}

void expect_repeat(const lznt1_payload& so_far, const bytes& text, std::size_t back, std::size_t length) {
    lznt1_payload payload = so_far;
    const bytes built = payload.repeat(back, length).build();
    bytes expected = first_bytes(text, so_far.position());
    for (std::size_t i = 0; i < length && expected.size() < 4096; ++i) {
        expected.push_back(expected[expected.size() - back]);
    }
    const std::uint8_t rest = built.size() < 9 ? 0 : 0x2E;
    ASSERT_EQ(decode(built, built.size(), 0x2E).plain, filled_up(expected, rest))
        << so_far.position() << " " << back << " " << length;
}

// At each position the longest and the shortest distance, each with the longest and the shortest repeat.
TEST(decompress_chunk, repeats_at_every_position_of_the_split) {
    const bytes text = random_bytes(4095, 3);
    lznt1_payload so_far;
    for (std::size_t position = 1; position < 4096; ++position) {
        so_far.literal(text[position - 1]);
        const unsigned bits = lznt1_distance_bits(position);
        const std::size_t furthest = std::min(position, std::size_t{1} << bits);
        const std::size_t longest = (std::size_t{1} << (16 - bits)) + 2;
        expect_repeat(so_far, text, 1, 3);
        expect_repeat(so_far, text, 1, longest);
        expect_repeat(so_far, text, furthest, 3);
        expect_repeat(so_far, text, furthest, longest);
    }
}

// Each distance with each length, far enough from the start for both.
TEST(decompress_chunk, repeats_from_every_distance_near_by) {
    const bytes text = random_bytes(200, 4);
    lznt1_payload so_far;
    so_far.literals(text);
    for (std::size_t back = 1; back <= 70; ++back) {
        for (std::size_t length = 3; length <= 70; ++length) {
            expect_repeat(so_far, text, back, length);
        }
    }
}

void expect_same_as_slow(const bytes& text, std::size_t size) {
    const bytes chunk_before = pattern(4096, 9);
    plain_chunk before;
    std::copy(chunk_before.begin(), chunk_before.end(), before.storage.begin());
    plain_chunk output;
    const bool sound = decompress_chunk(byte_view(text), size, before, output);
    const slow_chunk slow = slow_decode_chunk(text, 0, size, chunk_before);
    ASSERT_EQ(sound, slow.sound);
    if (sound) {
        ASSERT_EQ(output.bytes().to_vector(), slow.plain);
    }
}

TEST(decompress_chunk, decodes_any_bytes_as_the_slow_decoder_does) {
    std::mt19937 random(11);
    for (int round = 0; round < 20000; ++round) {
        // Few set flag bits and small tokens, so that a good part gets far.
        const std::size_t size = random() % 200;
        bytes text(size + random() % 4);
        for (auto& byte : text) {
            byte = static_cast<std::uint8_t>(random() % 3 == 0 ? random() : random() % 8);
        }
        expect_same_as_slow(text, size);
    }
}

TEST(decompress_chunk, decodes_damaged_text_as_the_slow_decoder_does) {
    const bytes payload = lznt1_compress(text_like(4096, 77));
    for (std::size_t at = 0; at < payload.size(); ++at) {
        bytes damaged = payload;
        damaged[at] = static_cast<std::uint8_t>(~damaged[at]);
        expect_same_as_slow(damaged, damaged.size());
        expect_same_as_slow(payload, at);
        expect_same_as_slow(first_bytes(payload, at), at);
    }
}

}  // namespace
}  // namespace quarry::test
