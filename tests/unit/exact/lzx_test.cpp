#include "exact/lzx.h"

#include "support/lzx_builder.h"
#include "support/slow_system_compression.h"
#include "unit/exact/decoded_chunk.h"

#include <gtest/gtest.h>

namespace quarry::test {

namespace {

constexpr auto decode = decode_chunk<exact::lzx_decoder>;
constexpr auto expect_plain = expect_plain_chunk<exact::lzx_decoder>;
constexpr auto failure_of = failure_of_chunk<exact::lzx_decoder>;

std::string failed(const std::string& rule) {
    return "wof it: chunk 7: " + rule;
}

const std::string ends_early = failed("it ends before all of its bytes are decoded");

void repeat(bytes& plain, std::size_t distance, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        plain.push_back(plain[plain.size() - distance]);
    }
}

lzx_codes random_codes(std::mt19937& random) {
    return {random_code_lengths(lzx_main_symbols, 16, random),
            random_code_lengths(lzx_length_symbols, 16, random), random_code_lengths(8, 7, random)};
}

// Blocks and items of all kinds, and what they decode to.
struct random_chunk {
    bytes stored;
    bytes plain;

    random_chunk(std::mt19937& random, std::size_t size) {
        lzx_builder chunk;
        std::array<std::size_t, 3> recent{1, 1, 1};
        while (plain.size() < size) {
            const std::size_t left = size - plain.size();
            const std::size_t end = plain.size() + (random() % 2 == 0 ? left : 1 + random() % left);
            if (random() % 4 == 0) {
                bytes content(end - plain.size());
                for (std::uint8_t& byte : content) {
                    byte = static_cast<std::uint8_t>(random());
                }
                for (std::size_t& distance : recent) {
                    distance = 1 + random() % end;
                }
                chunk.stored(content, static_cast<std::uint32_t>(recent[0]),
                             static_cast<std::uint32_t>(recent[1]), static_cast<std::uint32_t>(recent[2]));
                plain.insert(plain.end(), content.begin(), content.end());
                continue;
            }
            if (random() % 2 == 0) {
                chunk.verbatim(end - plain.size(), random_codes(random));
            } else {
                chunk.aligned(end - plain.size(), random_codes(random));
            }
            add_items(chunk, random, recent, end);
        }
        stored = chunk.build();
    }

  private:
    void add_items(lzx_builder& chunk, std::mt19937& random, std::array<std::size_t, 3>& recent,
                   std::size_t end) {
        while (plain.size() < end) {
            const std::size_t left = end - plain.size();
            const auto slot = static_cast<unsigned>(random() % 6);
            if (random() % 2 == 0 || plain.empty() || left < 2 || (slot < 3 && recent[slot] > plain.size())) {
                plain.push_back(static_cast<std::uint8_t>(random() % 4 == 0 ? 0xE8 : random()));
                chunk.literal(plain.back());
                continue;
            }
            const std::size_t length =
                2 + random() % std::min<std::size_t>(left - 1, random() % 8 == 0 ? 256 : 12);
            if (slot < 3) {
                std::swap(recent[0], recent[slot]);
                chunk.recent(slot, length);
            } else {
                recent = {1 + random() % std::min<std::size_t>(plain.size(), 32765), recent[0], recent[1]};
                chunk.match(recent[0], length);
            }
            repeat(plain, recent[0], length);
        }
    }
};

// The chunk of 40 bytes that begins with these and has no call at its end.
bytes padded(const bytes& begin) {
    bytes all = begin;
    all.resize(40, '.');
    return all;
}

}  // namespace

TEST(lzx, decodes_a_stored_block) {
    // Type 011, not the usual size, 16 bits of size: 3. The rest of the second word is left out.
    const bytes stored = from_hex("00 60  00 30  01 00 00 00  01 00 00 00  01 00 00 00  61 62 63");
    expect_plain(stored, to_bytes("abc"));
    EXPECT_EQ(lzx_builder().stored(to_bytes("abc")).build(), concat({stored, bytes(1)}));
}

TEST(lzx, decodes_literals_and_matches) {
    lzx_builder chunk;
    chunk.verbatim(14).literals(to_bytes("abc")).match(3, 9).recent(0, 2);
    expect_plain(chunk.build(), to_bytes("abcabcabcabcab"));
}

TEST(lzx, decodes_matches_of_every_distance_and_length) {
    const bytes before = pattern(32000);
    for (const bool aligned : {false, true}) {
        for (std::size_t distance = 1; distance <= 32000; distance = distance * 5 / 4 + 1) {
            const std::size_t length = 2 + distance % 256;
            lzx_builder chunk;
            chunk.stored(before);
            aligned ? chunk.aligned(length + 1) : chunk.verbatim(length + 1);
            chunk.match(distance, length).literal('!');
            bytes plain = before;
            repeat(plain, distance, length);
            plain.push_back('!');
            expect_plain(chunk.build(), plain);
        }
    }
}

TEST(lzx, decodes_the_longest_distance) {
    // 32,765: slot 29 with all of its bits set.
    for (const bool aligned : {false, true}) {
        bytes plain = pattern(32766);
        lzx_builder chunk;
        chunk.stored(plain);
        aligned ? chunk.aligned(2) : chunk.verbatim(2);
        chunk.match(32765, 2);
        repeat(plain, 32765, 2);
        expect_plain(chunk.build(), plain);
    }
}

TEST(lzx, keeps_the_last_three_distances) {
    lzx_builder chunk;
    const bytes before = to_bytes("0123456789");
    chunk.verbatim(10 + 7 * 2).literals(before);
    chunk.match(3, 2).match(5, 2).match(7, 2);                  // 7 5 3
    chunk.recent(2, 2).recent(1, 2).recent(0, 2).recent(2, 2);  // 3 5 7, 5 3 7, 5 3 7, 7 3 5
    bytes plain = before;
    for (const std::size_t distance : {3u, 5u, 7u, 3u, 5u, 5u, 7u}) {
        repeat(plain, distance, 2);
    }
    expect_plain(chunk.build(), plain);
}

TEST(lzx, begins_with_three_distances_of_1) {
    for (unsigned slot = 0; slot < 3; ++slot) {
        expect_plain(lzx_builder().verbatim(5).literal('x').recent(slot, 4).build(), to_bytes("xxxxx"));
    }
    // Those of the chunk before do not count.
    exact::lzx_decoder decoder;
    bytes plain(12);
    const bytes first = lzx_builder().verbatim(12).literals(to_bytes("abcdef")).match(6, 6).build();
    ASSERT_TRUE(decoder.decode(byte_view(first), plain, "it", 0));
    const bytes second = lzx_builder().verbatim(12).literals(to_bytes("abcdef")).recent(0, 6).build();
    ASSERT_TRUE(decoder.decode(byte_view(second), plain, "it", 1));
    EXPECT_EQ(plain, to_bytes("abcdefffffff"));
}

TEST(lzx, takes_distances_of_a_stored_block_into_the_next) {
    const auto after = [](unsigned slot) {
        return lzx_builder().stored(to_bytes("abcd"), 4, 3, 2).verbatim(2).recent(slot, 2).build();
    };
    expect_plain(after(0), to_bytes("abcdab"));
    expect_plain(after(1), to_bytes("abcdbc"));
    expect_plain(after(2), to_bytes("abcdcd"));
}

TEST(lzx, has_a_byte_more_after_a_stored_block_of_odd_size) {
    expect_plain(lzx_builder().stored(to_bytes("abc")).stored(to_bytes("def")).stored(to_bytes("gh")).build(),
                 to_bytes("abcdefgh"));
    // The last of a chunk need not have it.
    bytes stored = lzx_builder().stored(to_bytes("abc")).build();
    stored.pop_back();
    expect_plain(stored, to_bytes("abc"));
}

TEST(lzx, leaves_out_a_whole_word_if_a_stored_block_begins_at_its_edge) {
    // Symbols have 8 or 9 bits: the header of the stored block ends at each bit of a word for some number.
    std::size_t edges = 0;
    for (std::size_t literals = 1; literals <= 32; ++literals) {
        const bytes text = pattern(literals);
        lzx_builder chunk;
        chunk.verbatim(literals).literals(text);
        lzx_builder header = chunk;
        header.header(3, 2);
        lzx_builder bit_more = header;
        bit_more.bits().bits(1, 0);
        edges += bit_more.build().size() > header.build().size() ? 1 : 0;
        expect_plain(chunk.stored(to_bytes("ab")).build(), concat({text, to_bytes("ab")}));
    }
    EXPECT_GT(edges, 0u);
}

TEST(lzx, has_lengths_as_differences_from_the_block_before) {
    std::mt19937 random(5);
    lzx_builder chunk;
    bytes plain;
    for (int i = 0; i < 6; ++i) {
        const bytes text = pattern(100, static_cast<std::uint32_t>(i));
        chunk.verbatim(100, random_codes(random)).literals(text);
        plain = concat({plain, text});
    }
    expect_plain(chunk.build(), plain);
}

TEST(lzx, takes_a_repeated_length_from_the_first_of_its_symbols) {
    // Lengths of the first block: flat, 8 bits for symbols 0 to 15 and 9 bits for the others. In the second
    // symbols 14 to 17 become 9 by one run: the difference is that of symbol 14.
    lzx_codes second;
    second.main[14] = 9;
    second.main[15] = 9;
    second.main[494] = 8;  // 496 symbols: 16 of 8 bits
    second.main[495] = 8;
    const bytes text = {14, 15, 16, 17, 13, 0};
    lzx_builder chunk;
    chunk.verbatim(1).literal('x').verbatim(6, second).literals(text);
    expect_plain(chunk.build(), concat({to_bytes("x"), text}));
}

TEST(lzx, makes_targets_of_calls_relative) {
    // At byte 3: the target 0x1000 becomes 0x1000 - 3.
    expect_plain(lzx_builder().stored(padded(from_hex("90 90 90 E8 00 10 00 00"))).build(),
                 padded(from_hex("90 90 90 E8 FD 0F 00 00")));
    // 11,999,999 is the last that is changed, 12,000,000 is not.
    expect_plain(lzx_builder().stored(padded(from_hex("90 E8 FF 1A B7 00"))).build(),
                 padded(from_hex("90 E8 FE 1A B7 00")));
    expect_plain(lzx_builder().stored(padded(from_hex("90 E8 00 1B B7 00"))).build(),
                 padded(from_hex("90 E8 00 1B B7 00")));
    // At byte 2: -2 becomes 11,999,998, -3 stays.
    expect_plain(lzx_builder().stored(padded(from_hex("90 90 E8 FE FF FF FF"))).build(),
                 padded(from_hex("90 90 E8 FE 1A B7 00")));
    expect_plain(lzx_builder().stored(padded(from_hex("90 90 E8 FD FF FF FF"))).build(),
                 padded(from_hex("90 90 E8 FD FF FF FF")));
}

TEST(lzx, takes_no_call_from_the_target_of_another_nor_from_the_last_bytes) {
    expect_plain(lzx_builder().stored(padded(from_hex("90 E8 E8 00 00 00 90 90"))).build(),
                 padded(from_hex("90 E8 E7 00 00 00 90 90")));
    // The last ten bytes hold none: of 20 bytes, byte 9 may be one, byte 10 not.
    const auto call_at = [](std::size_t at, std::size_t target) {
        return byte_writer(bytes(20, '.')).u8(at, 0xE8).u32(at + 1, target).take();
    };
    expect_plain(lzx_builder().stored(call_at(9, 1000)).build(), call_at(9, 991));
    expect_plain(lzx_builder().stored(call_at(10, 1000)).build(), call_at(10, 1000));
    expect_plain(lzx_builder().stored(bytes(9, 0xE8)).build(), bytes(9, 0xE8));
    expect_plain(lzx_builder().stored(bytes(10, 0xE8)).build(), bytes(10, 0xE8));
}

TEST(lzx, is_cut_at_no_byte) {
    lzx_builder chunk;
    chunk.verbatim(4)
        .literals(to_bytes("abcd"))
        .stored(to_bytes("efg"))
        .aligned(21)
        .match(7, 20)
        .literal('!');
    bytes plain = to_bytes("abcdefg");
    repeat(plain, 7, 20);
    plain.push_back('!');
    const bytes stored = chunk.build();
    expect_plain(stored, plain);
    for (std::size_t size = 0; size < stored.size(); ++size) {
        const bytes cut(stored.begin(), stored.begin() + static_cast<std::ptrdiff_t>(size));
        ASSERT_EQ(failure_of(cut, plain.size()), ends_early) << size;
    }
    expect_plain(concat({stored, bytes(5, 0xFF)}), plain);
}

TEST(lzx, has_blocks_of_three_types_with_a_size_that_is_left) {
    for (const unsigned type : {0u, 4u, 5u, 6u, 7u}) {
        EXPECT_EQ(failure_of(concat({lzx_builder().header(type, 2).build(), bytes(300)}), 2),
                  failed("a block has no type that there is"));
    }
    const std::string size = failed("a block is empty or reaches past the end of its chunk");
    EXPECT_EQ(failure_of(concat({lzx_builder().header(1, 0).build(), bytes(300)}), 2), size);
    EXPECT_EQ(failure_of(lzx_builder().stored(to_bytes("abc")).build(), 2), size);
    EXPECT_EQ(failure_of(lzx_builder().stored(to_bytes("ab")).stored(to_bytes("cd")).build(), 3), size);
    EXPECT_EQ(failure_of(lzx_builder().stored(bytes(32768)).build(), 32767), size);
    expect_plain(lzx_builder().stored(bytes(32768, 'x')).build(), bytes(32768, 'x'));
}

TEST(lzx, has_no_distance_of_0_in_a_stored_block) {
    const std::string zero = failed("a stored block has a distance of 0");
    EXPECT_EQ(failure_of(lzx_builder().stored(to_bytes("ab"), 0, 1, 1).build(), 2), zero);
    EXPECT_EQ(failure_of(lzx_builder().stored(to_bytes("ab"), 1, 0, 1).build(), 2), zero);
    EXPECT_EQ(failure_of(lzx_builder().stored(to_bytes("ab"), 1, 1, 0).build(), 2), zero);
    EXPECT_EQ(failure_of(lzx_builder().stored(to_bytes("ab"), 0xFFFFFFFF, 1, 1).build(), 2), "");
}

TEST(lzx, has_no_match_that_leads_ahead_of_its_chunk) {
    const std::string ahead = failed("a match leads ahead of its chunk");
    EXPECT_EQ(failure_of(lzx_builder().verbatim(2).recent(0, 2).build(), 2), ahead);
    EXPECT_EQ(failure_of(lzx_builder().verbatim(4).literals(to_bytes("ab")).match(3, 2).build(), 4), ahead);
    EXPECT_EQ(failure_of(lzx_builder().verbatim(4).literals(to_bytes("ab")).match(2, 2).build(), 4), "");
    EXPECT_EQ(
        failure_of(lzx_builder().stored(to_bytes("ab"), 0xFFFFFFFF).verbatim(2).recent(0, 2).build(), 4),
        ahead);
}

TEST(lzx, has_no_match_that_reaches_past_the_end_of_its_block) {
    const std::string past = failed("a match reaches past the end of its block");
    EXPECT_EQ(failure_of(lzx_builder().verbatim(5).literals(to_bytes("ab")).match(1, 4).build(), 5), past);
    EXPECT_EQ(
        failure_of(
            lzx_builder().verbatim(5).literals(to_bytes("ab")).match(1, 4).stored(to_bytes("abcd")).build(),
            9),
        past);
}

TEST(lzx, has_complete_codes) {
    const auto with = [](const lzx_codes& codes) {
        return failure_of(concat({lzx_builder().aligned(1, codes).build(), bytes(20)}), 1);
    };
    EXPECT_EQ(with({}), "");
    lzx_codes codes;
    codes.main[0] = 0;
    EXPECT_EQ(with(codes), failed("its main code is not complete"));
    codes.main = bytes(lzx_main_symbols);
    EXPECT_EQ(with(codes), failed("its main code is not complete"));
    codes = {};
    codes.length[5] = 16;
    EXPECT_EQ(with(codes), failed("its code for lengths is not complete"));
    codes = {};
    codes.aligned[5] = 0;
    EXPECT_EQ(with(codes), failed("its code for the low bits of distances is not complete"));
}

TEST(lzx, may_have_an_empty_code_of_which_nothing_is_read) {
    lzx_codes codes;
    codes.length = bytes(lzx_length_symbols);
    codes.aligned = bytes(8);
    const auto chunk = [&](std::size_t distance, std::size_t length) {
        lzx_builder built;
        built.stored(bytes(50, 'x')).aligned(length, codes).match(distance, length);
        return concat({built.build(), bytes(10)});
    };
    // Distances up to 13 have two extra bits at most, lengths up to 8 need no symbol of their own.
    EXPECT_EQ(failure_of(chunk(13, 8), 58), "");
    EXPECT_EQ(failure_of(chunk(13, 9), 59), failed("a length is read by an empty code"));
    EXPECT_EQ(failure_of(chunk(14, 8), 58), failed("a distance is read by an empty code"));
}

TEST(lzx, has_as_many_code_lengths_as_symbols) {
    // The flat code of differences: symbols 0 to 11 have 4 bits, 12 to 19 have 5: 17 is 11101, 18 11110, 19
    // 11111.
    const auto chunk = [](std::string_view differences) {
        lzx_builder built;
        built.header(1, 1);
        for (const std::uint8_t length : flat_code_lengths(20)) {
            built.bits().bits(4, length);
        }
        built.bits().bits(differences);
        return concat({built.build(), bytes(400)});
    };
    const std::string more = failed("it has more code lengths than symbols");
    // Five runs of 51 zeros are 255 of 256 lengths.
    const std::string zeros = "11110 11111 11110 11111 11110 11111 11110 11111 11110 11111";
    EXPECT_EQ(failure_of(chunk(zeros + "11101 0000"), 1), more);
    EXPECT_EQ(failure_of(chunk(zeros + "11110 00000"), 1), more);
    EXPECT_EQ(failure_of(chunk(zeros + "11111 0 0000"), 1), more);
    EXPECT_EQ(failure_of(chunk("11111 0 11101"), 1), failed("a repeated code length is none"));
    EXPECT_EQ(failure_of(chunk("11111 0 11111"), 1), failed("a repeated code length is none"));
}

TEST(lzx, has_a_complete_code_for_code_lengths) {
    for (const unsigned first : {0u, 3u, 5u}) {
        lzx_builder built;
        built.header(1, 1);
        bytes lengths = flat_code_lengths(20);
        lengths[0] = static_cast<std::uint8_t>(first);
        for (const std::uint8_t length : lengths) {
            built.bits().bits(4, length);
        }
        EXPECT_EQ(failure_of(concat({built.build(), bytes(400)}), 1),
                  failed("its code for code lengths is not complete"));
    }
    EXPECT_EQ(failure_of(concat({lzx_builder().header(1, 1).build(), bytes(400)}), 1),
              failed("its code for code lengths is not complete"));
}

TEST(lzx, agrees_with_a_slow_decoder_on_random_chunks) {
    std::mt19937 random(21);
    for (int round = 0; round < 25; ++round) {
        const random_chunk chunk(random, 1 + random() % (round == 0 ? 1 : round < 10 ? 32768 : 3000));
        const std::optional<bytes> slow = slow_lzx_chunk(chunk.stored, chunk.plain.size());
        ASSERT_TRUE(slow.has_value()) << round;
        expect_plain(chunk.stored, *slow);
    }
}

TEST(lzx, agrees_with_a_slow_decoder_on_damaged_chunks) {
    std::mt19937 random(22);
    std::size_t sound = 0;
    constexpr unsigned rounds = 200;
    for (unsigned round = 0; round < rounds; ++round) {
        random_chunk chunk(random, 1 + random() % 600);
        for (unsigned changes = 0; changes < 1 + round % 3u; ++changes) {
            const std::size_t at = random() % chunk.stored.size();
            chunk.stored[at] = static_cast<std::uint8_t>(chunk.stored[at] ^ 1u << random() % 8);
        }
        if (random() % 4 == 0) {
            chunk.stored.resize(chunk.stored.size() -
                                random() % std::min<std::size_t>(4, chunk.stored.size()));
        }
        const decoded_chunk fast = decode(chunk.stored, chunk.plain.size());
        const std::optional<bytes> slow = slow_lzx_chunk(chunk.stored, chunk.plain.size());
        ASSERT_EQ(fast.failed.empty(), slow.has_value()) << round << fast.failed;
        if (slow) {
            ASSERT_EQ(fast.plain, *slow) << round;
            ++sound;
        }
    }
    EXPECT_GT(sound, rounds / 20u);
    EXPECT_LT(sound, rounds * 9u / 10);
}

}  // namespace quarry::test
