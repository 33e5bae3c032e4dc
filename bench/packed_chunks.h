// Chunks of files that the system compressed, made by the builders of the tests with one code for each
// content. They hold what a chunk of a program holds: a code that is read first, bytes, short matches, and
// now and then a long one.
#pragma once

#include "support/lzx_builder.h"
#include "support/xpress_builder.h"

#include <algorithm>
#include <cstddef>
#include <random>

namespace quarry::test {

inline constexpr std::size_t lzx_chunk_bytes = 32768;

struct packed_chunk {
    bytes stored;
    bytes plain;
};

// Codes as those of text and programs: letters short, rare symbols long.
inline bytes skewed_lengths(std::size_t symbols, unsigned longest) {
    std::mt19937 random(1);
    return random_code_lengths(symbols, longest, random);
}

template <typename Builder>
void add_items(Builder& chunk, bytes& plain, std::size_t size, std::mt19937& random) {
    while (plain.size() < size) {
        const std::size_t left = size - plain.size();
        // About as many bytes as matches, matches of 3 to 18 bytes, one in 32 longer.
        if (random() % 2 == 0 || plain.size() < 64 || left < 3) {
            plain.push_back(static_cast<std::uint8_t>(random() % 0xE8));  // no call of a program
            chunk.literal(plain.back());
            continue;
        }
        const std::size_t distance = 1 + random() % (random() % 4 == 0 ? 16 : plain.size() - 1);
        const std::size_t wanted = 3 + random() % 16 + (random() % 32 == 0 ? 200 : 0);
        const std::size_t length = std::min(wanted, left);
        chunk.match(distance, length);
        for (std::size_t i = 0; i < length; ++i) {
            plain.push_back(plain[plain.size() - distance]);
        }
    }
}

inline packed_chunk xpress_chunk(std::size_t size, std::mt19937& random) {
    packed_chunk made;
    xpress_builder chunk(skewed_lengths(512, 15));
    add_items(chunk, made.plain, size, random);
    made.stored = chunk.build();
    return made;
}

inline packed_chunk lzx_chunk(bool aligned, std::mt19937& random) {
    packed_chunk made;
    const lzx_codes codes{skewed_lengths(lzx_main_symbols, 16), skewed_lengths(lzx_length_symbols, 16),
                          flat_code_lengths(8)};
    lzx_builder chunk;
    aligned ? chunk.aligned(lzx_chunk_bytes, codes) : chunk.verbatim(lzx_chunk_bytes, codes);
    add_items(chunk, made.plain, lzx_chunk_bytes, random);
    made.stored = chunk.build();
    return made;
}

}  // namespace quarry::test
