#include "volume/compressed_unit.h"

#include "support/lznt1_encoder.h"
#include "support/sample_text.h"
#include "support/slow_lznt1.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

constexpr std::uint32_t sparse_unit = unit_judge_by_sparse | unit_met_sparse;
constexpr std::uint32_t stored_unit = unit_judge_by_sparse;
constexpr std::size_t unit_size = 16 * 4096;

class gathered_bytes : public unit_output {
  public:
    void take(byte_view plain) override {
        m_bytes.insert(m_bytes.end(), plain.span().begin(), plain.span().end());
    }
    bytes m_bytes;
};

struct outcome {
    bool ok = false;
    std::uint64_t written = 0;
    bytes plain;
};

outcome make_plain(const bytes& unit, std::uint64_t limit, std::uint32_t flags) {
    gathered_bytes output;
    outcome out;
    out.written = 0xEEEE;
    out.ok = decompress_unit(output, out.written, byte_view(unit), limit, flags);
    out.plain = output.m_bytes;
    return out;
}

bytes padded(bytes text, std::size_t size = unit_size) {
    text.resize(std::max(size, text.size()));
    return text;
}

bytes first_bytes(const bytes& text, std::size_t count) {
    return bytes(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(count));
}

TEST(decompress_unit, refuses_an_empty_unit_and_a_limit_of_zero) {
    const outcome empty = make_plain({}, 4096, stored_unit);
    EXPECT_FALSE(empty.ok);
    EXPECT_EQ(empty.written, 0u);
    const outcome no_limit = make_plain(bytes(4096, 'a'), 0, stored_unit);
    EXPECT_FALSE(no_limit.ok);
    EXPECT_EQ(no_limit.written, 0u);
    EXPECT_TRUE(no_limit.plain.empty());
}

TEST(decompress_unit, writes_a_unit_of_16_stored_clusters_as_it_is) {
    const bytes unit = random_bytes(unit_size, 4);
    const outcome got = make_plain(unit, 1000000, stored_unit);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.written, unit_size);
    EXPECT_EQ(got.plain, unit);
}

TEST(decompress_unit, cuts_a_plain_unit_at_the_limit) {
    const bytes unit = random_bytes(unit_size, 4);
    const outcome got = make_plain(unit, 100, stored_unit);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.written, 100u);
    EXPECT_EQ(got.plain, first_bytes(unit, 100));
}

TEST(decompress_unit, walks_the_chunks_of_a_full_unit_that_begins_with_a_stored_chunk) {
    const bytes first = random_bytes(4096, 1);
    const bytes second = random_bytes(4096, 2);
    bytes unit = concat({lznt1_stored_chunk(first), lznt1_stored_chunk(second)});
    // Zero headers move on from block to block up to the end.
    unit = padded(unit);
    const outcome got = make_plain(unit, 1000000, stored_unit);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.written, 8192u);
    EXPECT_EQ(got.plain, concat({first, second}));
}

TEST(decompress_unit, takes_only_the_first_two_bytes_for_the_sign_of_a_stored_chunk) {
    bytes unit = padded({0xFF, 0x3F});
    EXPECT_EQ(make_plain(unit, 1000000, stored_unit).written, 4096u);
    unit[1] = 0x3E;
    EXPECT_EQ(make_plain(unit, 1000000, stored_unit).written, unit_size);
    EXPECT_EQ(make_plain({0xFF}, 1000000, stored_unit).written, 1u);
}

TEST(decompress_unit, decodes_the_chunks_of_a_unit_with_sparse_clusters) {
    const bytes text = text_like(unit_size, 6);
    const bytes chunks = lznt1_chunks(text);
    ASSERT_LT(chunks.size(), unit_size - 4096) << "the example compresses";
    const outcome got = make_plain(padded(chunks), 1000000, sparse_unit);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.written, unit_size);
    EXPECT_EQ(got.plain, text);
}

TEST(decompress_unit, gives_the_chunks_that_a_unit_has_and_no_more) {
    const bytes text = text_like(3 * 4096, 6);
    const outcome got = make_plain(padded(lznt1_chunks(text)), 1000000, sparse_unit);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.written, 3u * 4096);
    EXPECT_EQ(got.plain, text);
}

TEST(decompress_unit, counts_a_chunk_of_one_literal_as_4096_bytes) {
    const bytes unit = padded(from_hex("01 B0 00 41"));
    const outcome got = make_plain(unit, 1000000, sparse_unit);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.written, 4096u);
    bytes expected(4096, 0);
    expected[0] = 'A';
    EXPECT_EQ(got.plain, expected);
}

TEST(decompress_unit, shows_the_bytes_of_the_chunk_before_in_a_chunk_that_ends_early) {
    const bytes text = text_like(4096, 8);
    lznt1_payload nine_literals;
    nine_literals.literals(to_bytes("123456789"));
    const bytes unit =
        padded(concat({lznt1_chunk(lznt1_compress(text)), lznt1_chunk(nine_literals.build())}));
    bytes second = text;
    std::copy_n(to_bytes("123456789").begin(), 9, second.begin());
    EXPECT_EQ(make_plain(unit, 1000000, sparse_unit).plain, concat({text, second}));
}

// A stored chunk in between does not count as the chunk before.
TEST(decompress_unit, shows_the_bytes_of_the_last_compressed_chunk_in_a_chunk_that_ends_early) {
    const bytes text = text_like(4096, 8);
    const bytes stored = random_bytes(4096, 8);
    lznt1_payload nine_literals;
    nine_literals.literals(to_bytes("123456789"));
    const bytes unit = padded(concat(
        {lznt1_chunk(lznt1_compress(text)), lznt1_stored_chunk(stored), lznt1_chunk(nine_literals.build())}));
    bytes third = text;
    std::copy_n(to_bytes("123456789").begin(), 9, third.begin());
    EXPECT_EQ(make_plain(unit, 1000000, sparse_unit).plain, concat({text, stored, third}));
}

TEST(decompress_unit, shows_zeros_in_the_first_chunk_where_it_ends_early) {
    lznt1_payload nine_literals;
    nine_literals.literals(to_bytes("123456789"));
    bytes expected = to_bytes("123456789");
    expected.resize(4096);
    EXPECT_EQ(make_plain(padded(lznt1_chunk(nine_literals.build())), 1000000, sparse_unit).plain, expected);
}

TEST(decompress_unit, cuts_the_last_unit_at_the_limit) {
    const bytes text = text_like(3 * 4096, 6);
    const bytes unit = padded(lznt1_chunks(text));
    const outcome got = make_plain(unit, 100, sparse_unit);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.written, 100u);
    EXPECT_EQ(got.plain, first_bytes(text, 100));
    EXPECT_EQ(make_plain(unit, 4097, sparse_unit).plain, first_bytes(text, 4097));
}

// The chunks past the limit are decoded too: damage there is damage of the unit.
TEST(decompress_unit, fails_for_a_damaged_chunk_past_the_limit) {
    const bytes text = text_like(4096, 6);
    bytes unit = concat({lznt1_chunk(lznt1_compress(text)), from_hex("09 B0 01 FF FF 00 00 00 00 00 00 00")});
    const outcome got = make_plain(padded(unit), 100, sparse_unit);
    EXPECT_FALSE(got.ok);
}

TEST(decompress_unit, gives_a_wholly_sparse_unit_as_nothing_written) {
    const outcome got = make_plain(bytes(unit_size, 0), 1000000, sparse_unit);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.written, 0u);
}

TEST(decompress_unit, ignores_the_signature_of_a_chunk) {
    const bytes text = text_like(4096, 9);
    for (unsigned signature = 0; signature < 8; ++signature) {
        bytes unit = lznt1_chunk(lznt1_compress(text));
        unit[1] = static_cast<std::uint8_t>((unit[1] & 0x8F) | (signature << 4));
        EXPECT_EQ(make_plain(padded(unit), 1000000, sparse_unit).plain, text) << signature;
        const bytes stored = concat(
            {from_hex("FF"), bytes(1, static_cast<std::uint8_t>(0x0F | (signature << 4))), bytes(4096, 's')});
        EXPECT_EQ(make_plain(padded(stored), 1000000, sparse_unit).plain, bytes(4096, 's')) << signature;
    }
}

TEST(decompress_unit, passes_over_the_rest_of_a_block_at_a_zero_header) {
    const bytes text = text_like(4096, 10);
    const bytes chunk = lznt1_chunk(lznt1_compress(text));
    ASSERT_LT(chunk.size(), 4000u);
    bytes unit = padded(chunk, 4096);
    std::fill(unit.begin() + static_cast<std::ptrdiff_t>(chunk.size()) + 2, unit.end(), std::uint8_t{0xCC});
    unit = padded(concat({unit, chunk}));
    const outcome got = make_plain(unit, 1000000, sparse_unit);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.plain, concat({text, text}));
}

// A signature without a size is a zero header as well.
TEST(decompress_unit, ends_a_block_at_a_header_of_size_zero_whatever_its_signature) {
    bytes unit(2 * 4096, 0xCC);
    unit[0] = 0x00;
    unit[1] = 0x70;
    unit[4096] = 0x00;
    unit[4097] = 0x00;
    const outcome got = make_plain(unit, 1000000, sparse_unit);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.written, 0u);
}

TEST(decompress_unit, fails_at_an_impossible_header_with_zeros_in_the_last_block) {
    for (const char* const header : {"01 30", "FE 3F", "00 01", "34 02"}) {
        const outcome got = make_plain(padded(from_hex(header)), 1000000, sparse_unit);
        EXPECT_FALSE(got.ok) << header;
        EXPECT_EQ(got.written, 0u) << header;
    }
}

TEST(decompress_unit, fails_at_a_token_ahead_of_the_chunk_with_zeros_in_the_last_block) {
    EXPECT_FALSE(make_plain(padded(from_hex("03 B0 01 00 00 00")), 1000000, sparse_unit).ok);
}

// Chunks and then the raw unit: what was given out before the damage stays.
TEST(decompress_unit, gives_the_raw_unit_after_its_chunks_when_the_last_block_is_not_zero) {
    const bytes text = text_like(4096, 12);
    bytes unit = padded(concat({lznt1_chunk(lznt1_compress(text)), from_hex("01 30")}));
    unit.back() = 1;
    const outcome got = make_plain(unit, 1000000, sparse_unit);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.written, 4096 + unit_size);
    EXPECT_EQ(got.plain, concat({text, unit}));
    EXPECT_EQ(make_plain(unit, 5000, sparse_unit).plain, concat({text, first_bytes(unit, 904)}));
    const outcome used_up = make_plain(unit, 4096, sparse_unit);
    EXPECT_TRUE(used_up.ok);
    EXPECT_EQ(used_up.plain, text);
}

TEST(decompress_unit, looks_at_the_last_4096_bytes_and_no_others_for_the_rescue) {
    bytes unit = padded(from_hex("01 30"), 8192);
    unit[4095] = 1;
    EXPECT_FALSE(make_plain(unit, 1000000, sparse_unit).ok);
    unit[4096] = 1;
    EXPECT_TRUE(make_plain(unit, 1000000, sparse_unit).ok);
}

TEST(decompress_unit, looks_only_at_bytes_that_exist_for_the_rescue_of_a_short_unit) {
    // The damage itself is among the last bytes then, so a short unit is always taken for plain.
    const bytes unit = padded(from_hex("01 30"), 100);
    const outcome got = make_plain(unit, 1000000, sparse_unit);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.plain, unit);
}

TEST(decompress_unit, moves_on_by_the_given_part_of_a_stored_chunk) {
    // Past the limit of 10 bytes the walk goes on in the middle of the block, where it finds zero headers.
    bytes block(4096, 0);
    std::fill(block.begin(), block.begin() + 10, std::uint8_t{'b'});
    const outcome padded_block = make_plain(padded(lznt1_stored_chunk(block)), 10, sparse_unit);
    EXPECT_TRUE(padded_block.ok);
    EXPECT_EQ(padded_block.plain, bytes(10, 'b'));
    // Here it finds bytes that are no header.
    const outcome full_block = make_plain(padded(lznt1_stored_chunk(bytes(4096, 'b'))), 10, sparse_unit);
    EXPECT_FALSE(full_block.ok);
}

TEST(decompress_unit, takes_a_unit_without_flags_for_compressed) {
    EXPECT_EQ(make_plain(bytes(4096, 0), 1000000, 0).written, 0u);
    EXPECT_EQ(make_plain(bytes(4096, 0), 1000000, unit_met_sparse).written, 0u);
}

class judged_by_tail : public ::testing::TestWithParam<std::size_t> {};

TEST_P(judged_by_tail, is_plain_with_a_byte_set_in_a_sampled_word_of_the_last_block) {
    for (const std::size_t in_word : {0u, 7u}) {
        bytes unit(8192, 0);
        unit[4096 + GetParam() + in_word] = 1;
        const outcome got = make_plain(unit, 1000000, unit_judge_by_tail | sparse_unit);
        EXPECT_TRUE(got.ok);
        EXPECT_EQ(got.plain, unit);
    }
}
INSTANTIATE_TEST_SUITE_P(sampled_words, judged_by_tail, ::testing::Values(0, 8, 0x200, 0x400));

TEST(decompress_unit, judged_by_its_tail_is_compressed_with_nothing_in_the_sampled_words) {
    bytes unit(8192, 0xCC);
    std::fill(unit.begin(), unit.begin() + 2, std::uint8_t{0});
    for (const std::size_t word : {0u, 8u, 0x200u, 0x400u}) {
        std::fill_n(unit.begin() + 4096 + static_cast<std::ptrdiff_t>(word), 8, std::uint8_t{0});
    }
    EXPECT_EQ(make_plain(unit, 1000000, unit_judge_by_tail).written, 0u) << "zero headers at both blocks";
}

TEST(decompress_unit, judged_by_its_tail_is_plain_at_a_length_of_exactly_4096) {
    EXPECT_EQ(make_plain(bytes(4096, 0), 1000000, unit_judge_by_tail).written, 4096u);
    EXPECT_EQ(make_plain(bytes(4097, 0), 1000000, unit_judge_by_tail).written, 0u);
    EXPECT_EQ(make_plain(bytes(4095, 0), 1000000, unit_judge_by_tail).written, 0u);
}

TEST(decompress_unit, judged_by_its_tail_looks_only_at_bytes_that_exist) {
    // In a unit of 3600 bytes the word at 0x200 of the last block begins 16 bytes in; the first two lie
    // ahead.
    bytes unit(3600, 0);
    unit[23] = 1;
    EXPECT_EQ(make_plain(unit, 1000000, unit_judge_by_tail).plain, unit);
    // In one of 3590 bytes it begins at 6.
    for (std::size_t at = 1; at < 32; ++at) {
        bytes shorter(3590, 0);
        shorter[at + 1] = 1;
        const bool in_word = at + 1 >= 6 && at + 1 < 14;
        EXPECT_EQ(make_plain(shorter, 1000000, unit_judge_by_tail).written, in_word ? 3590u : 0u) << at + 1;
    }
    EXPECT_EQ(make_plain(bytes(1, 0), 1000000, unit_judge_by_tail).written, 0u);
}

TEST(decompress_unit, ends_a_chunk_that_claims_more_than_the_unit_holds_with_the_unit) {
    // The header claims a payload of 4096 bytes; ten are there, all literals but for the flag bytes.
    const bytes unit = from_hex("FF BF 00 41 42 43 44 45 46 47 48 00");
    bytes expected = to_bytes("ABCDEFGH");
    expected.resize(4096);
    const outcome got = make_plain(unit, 1000000, sparse_unit);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.plain, expected);
}

TEST(decompress_unit, gives_zeros_for_a_chunk_of_which_only_the_header_is_there) {
    const outcome got = make_plain(from_hex("FF BF"), 1000000, sparse_unit);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.plain, bytes(4096, 0));
}

TEST(decompress_unit, judges_a_chunk_that_claims_more_than_eight_bytes_by_its_claim_where_the_unit_ends) {
    // A whole chunk, then one that claims nine bytes of which three exist, and one that claims eight.
    const bytes text = text_like(4096, 8);
    const bytes first = lznt1_chunks(text);
    bytes rest_of_first = text;
    rest_of_first[0] = 'A';
    rest_of_first[1] = 'B';
    ASSERT_NE(text[2], 0);
    const outcome nine = make_plain(concat({first, from_hex("08 B0 00 41 42")}), 1000000, sparse_unit);
    ASSERT_TRUE(nine.ok);
    EXPECT_EQ(nine.plain, concat({text, rest_of_first}));
    bytes zeros(4096, 0);
    zeros[0] = 'A';
    zeros[1] = 'B';
    const outcome eight = make_plain(concat({first, from_hex("07 B0 00 41 42")}), 1000000, sparse_unit);
    ASSERT_TRUE(eight.ok);
    EXPECT_EQ(eight.plain, concat({text, zeros}));
}

TEST(decompress_unit, reads_a_header_on_the_last_byte_with_a_zero_after_it) {
    // 0x00 and a zero: the block is over. 0x41 and a zero: an impossible header, and a last block that is not
    // zero.
    const bytes chunk = lznt1_chunk(bytes(9, 0));
    EXPECT_EQ(make_plain(concat({chunk, from_hex("00")}), 1000000, sparse_unit).written, 4096u);
    const bytes odd = concat({chunk, from_hex("41")});
    EXPECT_EQ(make_plain(odd, 1000000, sparse_unit).written, 4096 + odd.size());
}

TEST(decompress_unit, takes_a_unit_of_one_byte) {
    EXPECT_EQ(make_plain({0x00}, 10, sparse_unit).written, 0u);
    EXPECT_EQ(make_plain({0x42}, 10, sparse_unit).plain, bytes(1, 0x42)) << "no header, so taken for plain";
    EXPECT_EQ(make_plain({0x42}, 10, stored_unit).plain, bytes(1, 0x42));
}

TEST(decompress_unit, gives_of_a_stored_chunk_what_the_unit_holds) {
    const bytes stored = lznt1_stored_chunk(random_bytes(4096, 3));
    for (const std::size_t size : {2u, 3u, 100u, 4097u}) {
        const outcome got = make_plain(first_bytes(stored, size), 1000000, sparse_unit);
        EXPECT_TRUE(got.ok) << size;
        EXPECT_EQ(got.plain, bytes(stored.begin() + 2, stored.begin() + static_cast<std::ptrdiff_t>(size)))
            << size;
    }
}

TEST(decompress_unit, takes_a_token_on_the_last_byte_of_the_unit_with_a_zero_after_it) {
    // Flags 0b10, a literal, and the low byte of a token: distance 1, length 5.
    bytes expected(6, 'A');
    expected.resize(4096);
    EXPECT_EQ(make_plain(from_hex("02 B0 02 41 02"), 1000000, sparse_unit).plain, expected);
}

TEST(decompress_unit, gives_one_chunk_of_4096_bytes_for_every_three_bytes_up_to_the_limit) {
    bytes unit;
    for (int i = 0; i < 50; ++i) {
        unit = concat({unit, from_hex("00 B0 00")});
    }
    EXPECT_EQ(make_plain(unit, 1000000, sparse_unit).written, 50u * 4096);
    EXPECT_EQ(make_plain(unit, 100000, sparse_unit).written, 100000u);
}

void expect_same_as_slow(const bytes& unit, std::size_t limit) {
    const slow_unit slow = slow_decode_chunks(unit, limit);
    const outcome got = make_plain(unit, limit, sparse_unit);
    ASSERT_EQ(got.ok, slow.ok);
    ASSERT_EQ(got.written, slow.plain.size());
    ASSERT_EQ(got.plain, slow.plain);
}

// A compressed chunk, a stored one, one that ends early, and zeros after them.
bytes small_chunks() {
    return concat({lznt1_chunks(text_like(1200, 21)), lznt1_stored_chunk(random_bytes(4096, 21)),
                   lznt1_chunks(text_like(700, 22))});
}

bytes small_unit() {
    return padded(small_chunks(), 2 * 4096);
}

TEST(decompress_unit, takes_a_unit_with_each_byte_flipped_as_the_slow_decoder_does) {
    const bytes unit = small_unit();
    for (std::size_t at = 0; at < unit.size(); ++at) {
        bytes damaged = unit;
        damaged[at] = static_cast<std::uint8_t>(~damaged[at]);
        expect_same_as_slow(damaged, 9000);
    }
}

TEST(decompress_unit, takes_a_unit_cut_at_each_length_as_the_slow_decoder_does) {
    const bytes unit = small_unit();
    for (std::size_t size = 1; size <= unit.size(); ++size) {
        expect_same_as_slow(first_bytes(unit, size), 1000000);
    }
}

TEST(decompress_unit, takes_every_limit_as_the_slow_decoder_does) {
    const bytes unit = small_unit();
    for (std::size_t limit = 1; limit < 12400; limit += 11) {
        expect_same_as_slow(unit, limit);
    }
}

}  // namespace
}  // namespace quarry::test
