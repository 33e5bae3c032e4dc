// How fast chunks of files that the system compressed are decompressed.
//
// Each kind of content is many chunks, so that branch predictors do not learn one of them by heart. Bytes per
// second count decompressed bytes.
#include "exact/lzx.h"
#include "exact/xpress.h"
#include "packed_chunks.h"

#include <random>
#include <vector>

#include <benchmark/benchmark.h>

namespace quarry::test {
namespace {

constexpr std::size_t chunks = 64;

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
    decode<exact::lzx_decoder>(state, lzx_chunk_bytes,
                               [](std::mt19937& random) { return lzx_chunk(false, random); });
}
void lzx_aligned(benchmark::State& state) {
    decode<exact::lzx_decoder>(state, lzx_chunk_bytes,
                               [](std::mt19937& random) { return lzx_chunk(true, random); });
}

BENCHMARK(xpress)->Arg(4096)->Arg(8192)->Arg(16384);
BENCHMARK(lzx_verbatim);
BENCHMARK(lzx_aligned);

}  // namespace
}  // namespace quarry::test
