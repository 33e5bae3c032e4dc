#include "exact/lznt1_unit.h"

#include "support/lznt1_encoder.h"
#include "support/opened_exact_volume.h"
#include "support/sample_text.h"
#include "support/slow_lznt1.h"

#include <random>

#include <gtest/gtest.h>

namespace quarry::test {

namespace {

struct decoded {
    bytes plain;
    std::optional<std::uint64_t> short_chunk;
    std::string failed;
};

decoded decode(const bytes& stored, std::size_t wanted) {
    decoded out;
    out.plain.assign(wanted, 0xEE);
    const auto done = exact::decode_lznt1_unit(byte_view(stored), out.plain, "it", 7);
    if (done) {
        out.short_chunk = *done;
    } else {
        out.failed = text_of(done.error());
    }
    return out;
}

bytes chunk(const lznt1_payload& payload) {
    return lznt1_chunk(payload.build());
}

// A payload that decodes to `size` bytes: literals, then one long repeat.
lznt1_payload repeated(std::size_t size) {
    lznt1_payload payload;
    payload.literal('x');
    payload.repeat(1, size - 1);
    return payload;
}

}  // namespace

TEST(lznt1_unit, decodes_what_was_compressed) {
    const bytes plain = text_like(65536, 1);
    const bytes stored = lznt1_chunks(plain);
    const decoded out = decode(stored, plain.size());
    EXPECT_EQ(out.failed, "");
    EXPECT_EQ(out.plain, plain);
    EXPECT_EQ(out.short_chunk, std::nullopt);
}

TEST(lznt1_unit, decodes_the_chunks_that_are_wanted) {
    const bytes plain = text_like(65536, 1);
    bytes stored = lznt1_chunks(plain);
    for (const std::size_t wanted : {1u, 4095u, 4096u, 4097u, 8191u, 60000u}) {
        const decoded out = decode(stored, wanted);
        EXPECT_EQ(out.plain, bytes(plain.begin(), plain.begin() + static_cast<std::ptrdiff_t>(wanted)));
    }
    // What follows the wanted chunks is not looked at.
    const std::size_t first = lznt1_chunks(bytes(plain.begin(), plain.begin() + 4096)).size();
    stored[first + 1] = 0;
    EXPECT_EQ(decode(stored, 4096).failed, "");
    EXPECT_NE(decode(stored, 4097).failed, "");
}

TEST(lznt1_unit, is_zeros_after_a_header_of_0_or_its_last_stored_byte) {
    const bytes first = chunk(repeated(4096));
    bytes expected(4096, 'x');
    expected.resize(10000);
    EXPECT_EQ(decode(concat({first, bytes(2)}), 10000).plain, expected);
    EXPECT_EQ(decode(concat({first, bytes(2), bytes(100, 0xFF)}), 10000).plain, expected);
    EXPECT_EQ(decode(first, 10000).plain, expected);
    EXPECT_EQ(decode(concat({first, bytes(1)}), 10000).plain, expected);
    EXPECT_EQ(decode({}, 10).plain, bytes(10));
}

TEST(lznt1_unit, takes_stored_chunks_as_they_are) {
    const bytes plain = pattern(4096);
    EXPECT_EQ(decode(lznt1_stored_chunk(plain), 4096).plain, plain);
    EXPECT_EQ(decode(concat({lznt1_stored_chunk(plain), chunk(repeated(4096))}), 4100).plain,
              concat({plain, bytes(4, 'x')}));
}

TEST(lznt1_unit, fails_at_a_header_without_its_mark) {
    bytes stored = concat({chunk(repeated(4096)), chunk(repeated(4096))});
    const std::size_t second = stored.size() / 2;
    for (unsigned mark = 0; mark < 8; ++mark) {
        stored[second + 1] = static_cast<std::uint8_t>((stored[second + 1] & 0x8F) | (mark << 4));
        EXPECT_EQ(decode(stored, 8192).failed,
                  mark == 3 ? "" : "unit it: unit 7: chunk 1: its header has no mark");
    }
}

TEST(lznt1_unit, fails_at_a_stored_chunk_of_another_size) {
    bytes stored = lznt1_stored_chunk(pattern(4096));
    stored[0] = 0xFE;
    EXPECT_EQ(decode(stored, 4096).failed,
              "unit it: unit 7: chunk 0: it is stored as it is and has not 4,096 bytes");
}

TEST(lznt1_unit, fails_at_a_chunk_that_reaches_past_the_stored_clusters) {
    for (const bytes& whole : {chunk(repeated(4096)), lznt1_stored_chunk(pattern(4096))}) {
        for (std::size_t size = 2; size < whole.size(); ++size) {
            const bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            ASSERT_EQ(decode(cut, 4096).failed,
                      "unit it: unit 7: chunk 0: it reaches past the stored clusters");
        }
    }
}

TEST(lznt1_unit, fails_at_a_token_ahead_of_which_there_is_nothing) {
    lznt1_payload payload;
    payload.token(0);
    EXPECT_EQ(decode(chunk(payload), 4096).failed,
              "unit it: unit 7: chunk 0: a token leads ahead of its chunk");
}

TEST(lznt1_unit, fails_at_a_token_that_leads_ahead_of_its_chunk) {
    lznt1_payload sound;
    sound.literals(to_bytes("abc")).token(0x2000);
    EXPECT_EQ(decode(chunk(sound), 6).plain, to_bytes("abcabc"));
    lznt1_payload ahead;
    ahead.literals(to_bytes("abc")).token(0x3000);
    EXPECT_EQ(decode(chunk(ahead), 6).failed, "unit it: unit 7: chunk 0: a token leads ahead of its chunk");
}

TEST(lznt1_unit, fails_at_a_chunk_of_more_than_4096_bytes) {
    EXPECT_EQ(decode(chunk(repeated(4096)), 4096).failed, "");
    EXPECT_EQ(decode(chunk(repeated(4097)), 4096).failed,
              "unit it: unit 7: chunk 0: it has more than 4,096 bytes");
    lznt1_payload literal_too_many = repeated(4096);
    literal_too_many.literal('y');
    EXPECT_EQ(decode(chunk(literal_too_many), 4096).failed,
              "unit it: unit 7: chunk 0: it has more than 4,096 bytes");
}

TEST(lznt1_unit, fails_at_a_token_that_the_end_of_the_payload_cuts) {
    bytes payload = repeated(4096).build();
    payload.pop_back();
    EXPECT_EQ(decode(lznt1_chunk(payload), 4096).failed, "unit it: unit 7: chunk 0: its end cuts a token");
}

TEST(lznt1_unit, fills_a_short_chunk_with_zeros_and_reports_it) {
    lznt1_payload three;
    three.literals(to_bytes("abc"));
    const bytes stored = concat({chunk(repeated(4096)), chunk(three), chunk(repeated(4096))});
    const decoded out = decode(stored, 8192 + 5);
    EXPECT_EQ(out.plain, concat({bytes(4096, 'x'), to_bytes("abc"), bytes(4093), bytes(5, 'x')}));
    EXPECT_EQ(out.short_chunk, 1u);
    // Nothing that is wanted lies after its end.
    EXPECT_EQ(decode(stored, 4096 + 3).short_chunk, std::nullopt);
    EXPECT_EQ(decode(stored, 4096 + 4).short_chunk, 1u);
}

TEST(lznt1_unit, agrees_with_a_slow_decoder_on_damaged_units) {
    std::mt19937 random(20261122);
    const auto below = [&](std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
    };
    const bytes sound = lznt1_chunks(text_like(12288, 2));
    std::size_t failed = 0;
    for (int round = 0; round < 3000; ++round) {
        bytes stored = sound;
        for (std::size_t change = 0; change < 1 + below(3); ++change) {
            stored[below(stored.size())] = static_cast<std::uint8_t>(below(256));
        }
        const std::size_t wanted = 1 + below(12288);
        const decoded fast = decode(stored, wanted);
        const std::optional<bytes> slow = slow_strict_unit(stored, wanted);
        ASSERT_EQ(fast.failed.empty(), slow.has_value()) << round << fast.failed;
        if (slow) {
            ASSERT_EQ(fast.plain, *slow) << round;
        }
        failed += slow ? 0 : 1;
    }
    // The damage is of both kinds.
    EXPECT_GT(failed, 300u);
    EXPECT_LT(failed, 2700u);
}

TEST(lznt1_unit, agrees_with_a_slow_decoder_on_random_payloads) {
    std::mt19937 random(7);
    std::size_t sound = 0;
    for (int round = 0; round < 3000; ++round) {
        bytes payload(1 + random() % 64);
        for (std::uint8_t& each : payload) {
            // Small bytes make tokens that lead nowhere far.
            each = static_cast<std::uint8_t>(random() % 8 == 0 ? random() : random() % 16);
        }
        const bytes stored = lznt1_chunk(payload);
        const decoded fast = decode(stored, 4096);
        const std::optional<bytes> slow = slow_strict_unit(stored, 4096);
        ASSERT_EQ(fast.failed.empty(), slow.has_value()) << round << fast.failed;
        if (slow) {
            ASSERT_EQ(fast.plain, *slow) << round;
            ++sound;
        }
    }
    EXPECT_GT(sound, 100u);
}

}  // namespace quarry::test
