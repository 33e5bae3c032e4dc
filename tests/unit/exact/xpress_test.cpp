#include "exact/xpress.h"

#include "support/slow_system_compression.h"
#include "support/xpress_builder.h"
#include "unit/exact/decoded_chunk.h"

#include <gtest/gtest.h>

namespace quarry::test {

namespace {

constexpr auto decode = decode_chunk<exact::xpress_decoder>;
constexpr auto expect_plain = expect_plain_chunk<exact::xpress_decoder>;
constexpr auto failure_of = failure_of_chunk<exact::xpress_decoder>;

bytes repeated(const char* text, std::size_t size) {
    const bytes one = to_bytes(text);
    bytes all;
    while (all.size() < size) {
        all.push_back(one[all.size() % one.size()]);
    }
    return all;
}

const char* const ends_early = "wof it: chunk 7: it ends before all of its bytes are decoded";

// Items of all kinds, and what they decode to.
struct random_chunk {
    bytes stored;
    bytes plain;

    random_chunk(std::mt19937& random, std::size_t size) {
        xpress_builder chunk(random_code_lengths(512, 15, random));
        while (plain.size() < size) {
            const std::size_t left = size - plain.size();
            if (random() % 2 == 0 || plain.empty() || left < 3) {
                plain.push_back(static_cast<std::uint8_t>(random()));
                chunk.literal(plain.back());
                continue;
            }
            const std::size_t distance =
                1 + random() % std::min<std::size_t>(plain.size(), 1 + random() % 5000);
            const std::size_t longest = random() % 8 == 0 ? 700 : 30;
            const std::size_t length = 3 + random() % std::min(left - 2, longest);
            chunk.match(distance, length);
            for (std::size_t i = 0; i < length; ++i) {
                plain.push_back(plain[plain.size() - distance]);
            }
        }
        stored = chunk.build();
    }
};

}  // namespace

TEST(xpress, decodes_the_example_of_literals_in_the_standard) {
    // MS-XCA 3.2: 26 letters and the end of the data, with codes of 4 and 5 bits.
    byte_writer lengths(256);
    lengths.raw(48, from_hex("50 55 55 55 55 55 55 55 55 55 55 45 44 04")).u8(128, 0x04);
    const bytes items = from_hex("d8 52 3e d7 94 11 5b e9 19 5f f9 d6 7c df 8d 04 00 00 00 00");
    expect_plain(concat({lengths.take(), items}), to_bytes("abcdefghijklmnopqrstuvwxyz"));
}

TEST(xpress, decodes_the_example_of_a_long_match_in_the_standard) {
    // MS-XCA 3.2: "abc" a hundred times. a 110, b 111, c 00, end 01, match of 297 bytes 10.
    byte_writer lengths(256);
    lengths.raw(48, from_hex("30 23")).u8(128, 0x02).u8(143, 0x20);
    expect_plain(concat({lengths.take(), from_hex("a8 dc 00 00 ff 26 01")}), repeated("abc", 300));
}

TEST(xpress, decodes_matches_of_every_distance_and_length) {
    const bytes before = pattern(5000);
    for (std::size_t distance = 1; distance <= 5000; distance = distance * 2 + 1) {
        for (const std::size_t length : {3u, 4u, 17u, 18u, 19u, 272u, 273u, 300u, 5000u}) {
            xpress_builder chunk;
            chunk.literals(before).match(distance, length).literal('!');
            bytes plain = before;
            for (std::size_t i = 0; i < length; ++i) {
                plain.push_back(plain[plain.size() - distance]);
            }
            plain.push_back('!');
            expect_plain(chunk.build(), plain);
        }
    }
}

TEST(xpress, decodes_matches_that_follow_each_other_at_every_bit_of_a_word) {
    // 9 bits for each symbol: the bytes of the lengths come after 9, 19, 29 ... bits of words.
    xpress_builder chunk;
    chunk.literals(to_bytes("ab"));
    for (int i = 0; i < 40; ++i) {
        chunk.match(2, 20);
    }
    expect_plain(chunk.build(), repeated("ab", 802));
}

TEST(xpress, reads_symbol_256_as_a_match_where_bytes_are_missing) {
    // Distance 1, length 3.
    expect_plain(xpress_builder().literal('x').end().literal('y').build(), to_bytes("xxxxy"));
    expect_plain(xpress_builder().literal('x').end().build(), to_bytes("x"));
}

TEST(xpress, does_not_look_at_what_follows) {
    const bytes stored = xpress_builder().literals(to_bytes("abc")).match(3, 6).build();
    expect_plain(concat({stored, bytes(9, 0xFF)}), to_bytes("abcabcabc"));
    expect_plain(stored, to_bytes("abcabcabc"));
}

TEST(xpress, is_cut_at_no_byte) {
    const bytes plain = repeated("abcdefg", 900);
    const bytes stored = xpress_builder()
                             .literals(to_bytes("abcdefg"))
                             .match(7, 280)
                             .match(7, 600)
                             .literals(to_bytes("fgabcdefgabcd"))
                             .build();
    expect_plain(stored, plain);
    for (std::size_t size = 0; size < stored.size(); ++size) {
        const bytes cut(stored.begin(), stored.begin() + static_cast<std::ptrdiff_t>(size));
        ASSERT_EQ(failure_of(cut, plain.size()),
                  size < 256 ? "wof it: chunk 7: it ends inside of its code lengths" : ends_early)
            << size;
    }
}

TEST(xpress, has_a_complete_code) {
    const auto with_lengths = [](const std::vector<std::pair<std::size_t, std::uint8_t>>& changes) {
        bytes lengths = flat_code_lengths(512);
        for (const auto& [symbol, length] : changes) {
            lengths[symbol] = length;
        }
        return failure_of(concat({xpress_builder(lengths).build(), bytes(10)}), 1);
    };
    const char* const incomplete = "wof it: chunk 7: its code is not complete";
    EXPECT_EQ(with_lengths({}), "");
    EXPECT_EQ(with_lengths({{511, 0}}), incomplete);
    EXPECT_EQ(with_lengths({{511, 10}}), incomplete);
    EXPECT_EQ(with_lengths({{511, 8}}), incomplete);
    EXPECT_EQ(with_lengths({{10, 8}, {11, 0}}), "");
    EXPECT_EQ(failure_of(bytes(300), 1), incomplete);
    bytes one_symbol(512);
    one_symbol['x'] = 1;
    EXPECT_EQ(failure_of(concat({xpress_builder(one_symbol).build(), bytes(10)}), 1), incomplete);
    one_symbol['y'] = 1;
    expect_plain(concat({xpress_builder(one_symbol).build(), bytes(4)}), to_bytes("xxxxxxxx"));
}

TEST(xpress, has_no_match_that_leads_ahead_of_its_chunk) {
    const char* const ahead = "wof it: chunk 7: a match leads ahead of its chunk";
    EXPECT_EQ(failure_of(xpress_builder().match(1, 3).build(), 3), ahead);
    EXPECT_EQ(failure_of(xpress_builder().literals(to_bytes("ab")).match(3, 3).build(), 5), ahead);
    EXPECT_EQ(failure_of(xpress_builder().literals(to_bytes("ab")).match(2, 3).build(), 5), "");
    EXPECT_EQ(failure_of(xpress_builder().literals(to_bytes("ab")).match(65535, 3).build(), 5), ahead);
}

TEST(xpress, has_no_match_that_reaches_past_its_end) {
    const bytes stored = xpress_builder().literals(to_bytes("ab")).match(2, 30).build();
    EXPECT_EQ(failure_of(stored, 32), "");
    EXPECT_EQ(failure_of(stored, 31), "wof it: chunk 7: a match reaches past the end of its chunk");
}

TEST(xpress, has_no_length_of_two_bytes_that_one_could_tell) {
    const auto chunk = [](unsigned told) {
        return xpress_builder()
            .literals(to_bytes("ab"))
            .match_with(1, 0,
                        {255, static_cast<std::uint8_t>(told % 256), static_cast<std::uint8_t>(told / 256)})
            .build();
    };
    EXPECT_EQ(failure_of(chunk(300), 305), "");
    EXPECT_EQ(failure_of(chunk(15), 20), "");  // longer than it need be
    EXPECT_EQ(failure_of(chunk(14), 19), "wof it: chunk 7: a length of two bytes is below 15");
    EXPECT_EQ(failure_of(chunk(0), 5), "wof it: chunk 7: a length of two bytes is below 15");
}

TEST(xpress, agrees_with_a_slow_decoder_on_random_chunks) {
    std::mt19937 random(11);
    for (int round = 0; round < 30; ++round) {
        const random_chunk chunk(random, 1 + random() % 8192);
        expect_plain(chunk.stored, chunk.plain);
        ASSERT_EQ(slow_xpress_chunk(chunk.stored, chunk.plain.size()), chunk.plain) << round;
    }
}

TEST(xpress, agrees_with_a_slow_decoder_on_damaged_chunks) {
    std::mt19937 random(12);
    std::size_t sound = 0;
    constexpr unsigned rounds = 300;
    for (unsigned round = 0; round < rounds; ++round) {
        random_chunk chunk(random, 1 + random() % 600);
        for (unsigned changes = 0; changes < 1 + round % 3u; ++changes) {
            // What is no part of the lengths is hit more often than it has bytes.
            const std::size_t from = random() % 4 == 0 ? 0 : 256;
            const std::size_t at = from + random() % (chunk.stored.size() - from);
            chunk.stored[at] = static_cast<std::uint8_t>(chunk.stored[at] ^ 1u << random() % 8);
        }
        if (random() % 4 == 0) {
            chunk.stored.resize(chunk.stored.size() - random() % 4);
        }
        const decoded_chunk fast = decode(chunk.stored, chunk.plain.size());
        const std::optional<bytes> slow = slow_xpress_chunk(chunk.stored, chunk.plain.size());
        ASSERT_EQ(fast.failed.empty(), slow.has_value()) << round << fast.failed;
        if (slow) {
            ASSERT_EQ(fast.plain, *slow) << round;
            ++sound;
        }
    }
    // The damage is of both kinds.
    EXPECT_GT(sound, rounds / 20u);
    EXPECT_LT(sound, rounds * 9u / 10);
}

}  // namespace quarry::test
