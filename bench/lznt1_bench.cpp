// How fast compressed units are decompressed, beside a plain copy of the same bytes.
//
// A unit is 16 clusters of 4096 bytes. Each kind of content is cut into many units, so that branch predictors
// do not learn one of them by heart. Bytes per second count decompressed bytes.
#include "support/lznt1_encoder.h"
#include "support/sample_text.h"
#include "volume/compressed_unit.h"

#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>

namespace quarry::test {
namespace {

constexpr std::size_t unit_size = 16 * 4096;
constexpr std::size_t units = 64;

class into_buffer : public unit_output {
  public:
    void take(byte_view plain) override {
        std::memcpy(m_bytes.data() + m_size, plain.data(), plain.size());
        m_size += plain.size();
    }
    void clear() { m_size = 0; }
    [[nodiscard]] const std::uint8_t* data() const { return m_bytes.data(); }

  private:
    bytes m_bytes = bytes(unit_size);
    std::size_t m_size = 0;
};

std::vector<bytes> compressed_units(const bytes& plain) {
    std::vector<bytes> result;
    for (std::size_t at = 0; at < plain.size(); at += unit_size) {
        bytes unit = lznt1_chunks({plain.begin() + static_cast<std::ptrdiff_t>(at),
                                   plain.begin() + static_cast<std::ptrdiff_t>(at + unit_size)});
        unit.resize(std::max(unit.size(), unit_size));
        result.push_back(unit);
    }
    return result;
}

bool made_plain(into_buffer& output, const bytes& unit) {
    std::uint64_t written = 0;
    output.clear();
    return decompress_unit(output, written, byte_view(unit), unit_size,
                           unit_judge_by_sparse | unit_met_sparse) &&
           written == unit_size;
}

void decode(benchmark::State& state, const bytes& plain) {
    const std::vector<bytes> compressed = compressed_units(plain);
    into_buffer output;
    for (std::size_t i = 0; i < compressed.size(); ++i) {
        if (!made_plain(output, compressed[i]) ||
            std::memcmp(output.data(), plain.data() + i * unit_size, unit_size) != 0) {
            state.SkipWithError("a unit does not come back");
            return;
        }
    }
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(made_plain(output, compressed[next]));
        benchmark::ClobberMemory();
        next = (next + 1) % compressed.size();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * unit_size));
}

bytes repetitive(std::size_t size) {
    const bytes text = text_like(50, 5);
    bytes out;
    while (out.size() < size) {
        out.insert(out.end(), text.begin(), text.end());
    }
    out.resize(size);
    return out;
}

void text_at_two_to_one(benchmark::State& state) {
    decode(state, text_like(units * unit_size, 1));
}
void repetitive_text(benchmark::State& state) {
    decode(state, repetitive(units * unit_size));
}
void zeros(benchmark::State& state) {
    decode(state, bytes(units * unit_size, 0));
}
void random_stored(benchmark::State& state) {
    decode(state, random_bytes(units * unit_size, 1));
}

void plain_memcpy(benchmark::State& state) {
    const bytes plain = text_like(units * unit_size, 1);
    bytes output(unit_size);
    std::size_t next = 0;
    for (auto _ : state) {
        std::memcpy(output.data(), plain.data() + next * unit_size, unit_size);
        benchmark::DoNotOptimize(output.data());
        benchmark::ClobberMemory();
        next = (next + 1) % units;
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * unit_size));
}

BENCHMARK(text_at_two_to_one);
BENCHMARK(repetitive_text);
BENCHMARK(zeros);
BENCHMARK(random_stored);
BENCHMARK(plain_memcpy);

}  // namespace
}  // namespace quarry::test
