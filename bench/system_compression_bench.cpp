// How fast chunks of files that the system compressed are decompressed.
//
// The chunks are made by the builders of the tests with one code for each content, so they hold what a chunk
// of a program holds: a code that is read first, bytes, short matches, and now and then a long one. Each kind
// of content is many chunks, so that branch predictors do not learn one of them by heart. Bytes per second
// count decompressed bytes.
#include "exact/lzx.h"
#include "exact/xpress.h"
#include "support/lzx_builder.h"
#include "support/xpress_builder.h"

#include <cstring>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

namespace quarry::test {
namespace {

constexpr std::size_t chunks = 64;

struct packed_chunk {
    bytes stored;
    bytes plain;
};

// Codes as those of text and programs: letters short, rare symbols long.
bytes skewed_lengths(std::size_t symbols, unsigned longest) {
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

packed_chunk xpress_chunk(std::size_t size, std::mt19937& random) {
    packed_chunk made;
    xpress_builder chunk(skewed_lengths(512, 15));
    add_items(chunk, made.plain, size, random);
    made.stored = chunk.build();
    return made;
}

packed_chunk lzx_chunk(bool aligned, std::mt19937& random) {
    packed_chunk made;
    const lzx_codes codes{skewed_lengths(lzx_main_symbols, 16), skewed_lengths(lzx_length_symbols, 16),
                          flat_code_lengths(8)};
    lzx_builder chunk;
    aligned ? chunk.aligned(32768, codes) : chunk.verbatim(32768, codes);
    add_items(chunk, made.plain, 32768, random);
    made.stored = chunk.build();
    return made;
}

template <typename Decoder, typename Make>
void decode(benchmark::State& state, std::size_t size, const Make& make) {
    std::mt19937 random(7);
    std::vector<bytes> stored;
    Decoder decoder;
    bytes plain(size);
    for (std::size_t i = 0; i < chunks; ++i) {
        const packed_chunk made = make(random);
        if (!decoder.decode(byte_view(made.stored), plain, "it", i) || plain != made.plain) {
            state.SkipWithError("a chunk does not come back");
            return;
        }
        stored.push_back(made.stored);
    }
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(decoder.decode(byte_view(stored[next]), plain, "it", next));
        benchmark::ClobberMemory();
        next = (next + 1) % chunks;
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
}

void xpress(benchmark::State& state) {
    const auto size = static_cast<std::size_t>(state.range(0));
    decode<exact::xpress_decoder>(state, size,
                                  [&](std::mt19937& random) { return xpress_chunk(size, random); });
}
void lzx_verbatim(benchmark::State& state) {
    decode<exact::lzx_decoder>(state, 32768, [](std::mt19937& random) { return lzx_chunk(false, random); });
}
void lzx_aligned(benchmark::State& state) {
    decode<exact::lzx_decoder>(state, 32768, [](std::mt19937& random) { return lzx_chunk(true, random); });
}

BENCHMARK(xpress)->Arg(4096)->Arg(8192)->Arg(16384);
BENCHMARK(lzx_verbatim);
BENCHMARK(lzx_aligned);

}  // namespace
}  // namespace quarry::test
