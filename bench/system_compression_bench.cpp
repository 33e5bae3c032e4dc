// How fast chunks of files that the system compressed are decompressed.
//
// Each kind of content is many chunks, so that branch predictors do not learn one of them by heart. Bytes per
// second count decompressed bytes. Chunks of a program are those that libwim makes of this one, and libwim
// decompresses them too: how fast that can be depends on the content and on the machine.
#include "exact/lzx.h"
#include "exact/xpress.h"
#include "packed_chunks.h"

#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <vector>
#include <wimlib.h>

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

// The chunks of a program: `decode(chunk, plain)` decodes one and says whether it could.
template <typename Decode>
void program(benchmark::State& state, wimlib_compression_type type, const Decode& decode) {
    constexpr unsigned usual_level = 50;
    const auto size = static_cast<std::size_t>(state.range(0));
    std::ifstream file("/proc/self/exe", std::ios::binary);
    bytes plain(std::istreambuf_iterator<char>(file), {});
    plain.resize(plain.size() / size * size);
    wimlib_compressor* compressor = nullptr;
    if (wimlib_create_compressor(type, size, usual_level, &compressor) != 0) {
        state.SkipWithError("libwim makes no compressor");
        return;
    }
    const std::unique_ptr<wimlib_compressor, decltype(&wimlib_free_compressor)> owner(
        compressor, &wimlib_free_compressor);
    std::vector<bytes> stored;
    bytes decoded(size);
    for (std::size_t at = 0; at < plain.size(); at += size) {
        bytes chunk(size);
        chunk.resize(wimlib_compress(plain.data() + at, size, chunk.data(), size - 1, compressor));
        if (chunk.empty()) {
            continue;  // it would be stored as it is
        }
        if (!decode(chunk, decoded) || !std::equal(decoded.begin(), decoded.end(), plain.data() + at)) {
            state.SkipWithError("a chunk does not come back");
            return;
        }
        stored.push_back(chunk);
    }
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(decode(stored[next], decoded));
        benchmark::ClobberMemory();
        next = (next + 1) % stored.size();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
}

template <typename Decoder, wimlib_compression_type type>
void of_a_program(benchmark::State& state) {
    Decoder decoder;
    program(state, type, [&](const bytes& chunk, bytes& plain) {
        return decoder.decode(byte_view(chunk), plain, "it", 0).has_value();
    });
}

template <wimlib_compression_type type>
void of_a_program_by_libwim(benchmark::State& state) {
    wimlib_decompressor* decompressor = nullptr;
    if (wimlib_create_decompressor(type, static_cast<std::size_t>(state.range(0)), &decompressor) != 0) {
        state.SkipWithError("libwim makes no decompressor");
        return;
    }
    program(state, type, [&](const bytes& chunk, bytes& plain) {
        return wimlib_decompress(chunk.data(), chunk.size(), plain.data(), plain.size(), decompressor) == 0;
    });
    wimlib_free_decompressor(decompressor);
}

constexpr auto xpress_type = WIMLIB_COMPRESSION_TYPE_XPRESS;
constexpr auto lzx_type = WIMLIB_COMPRESSION_TYPE_LZX;

BENCHMARK(of_a_program<exact::xpress_decoder, xpress_type>)
    ->Name("xpress_program")
    ->Arg(4096)
    ->Arg(8192)
    ->Arg(16384);
BENCHMARK(of_a_program_by_libwim<xpress_type>)
    ->Name("xpress_program_by_libwim")
    ->Arg(4096)
    ->Arg(8192)
    ->Arg(16384);
BENCHMARK(of_a_program<exact::lzx_decoder, lzx_type>)->Name("lzx_program")->Arg(32768);
BENCHMARK(of_a_program_by_libwim<lzx_type>)->Name("lzx_program_by_libwim")->Arg(32768);

BENCHMARK(xpress)->Arg(4096)->Arg(8192)->Arg(16384);
BENCHMARK(lzx_verbatim);
BENCHMARK(lzx_aligned);

}  // namespace
}  // namespace quarry::test
