// How fast the cluster of a position in a stream is found: by the cursor that copies use, and by a search
// from the front of the list, which it replaces.
#include "support/sample_text.h"
#include "volume/run_cursor.h"
#include "volume/runs.h"

#include <random>

#include <benchmark/benchmark.h>

namespace quarry::test {
namespace {

cluster_run_list runs_of(std::uint64_t count) {
    std::mt19937 random(1);
    cluster_run_list runs;
    std::uint64_t vcn = 0;
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint32_t length = 1 + random() % 8;
        runs.push_back({.lcn = 1000 + 3 * vcn, .vcn = vcn, .sparse = i % 16 == 0, .length = length});
        vcn += length;
    }
    return runs;
}

void from_end_to_end(benchmark::State& state) {
    const cluster_run_list runs = runs_of(static_cast<std::uint64_t>(state.range(0)));
    for (auto _ : state) {
        run_cursor cursor(runs);
        run_cursor::stretch found;
        for (std::uint64_t vcn = 0; cursor.find(vcn, found); vcn += found.length_in_clusters) {
            benchmark::DoNotOptimize(found);
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void at_random(benchmark::State& state) {
    const cluster_run_list runs = runs_of(static_cast<std::uint64_t>(state.range(0)));
    const std::uint64_t clusters = runs.back().vcn + runs.back().length;
    run_cursor cursor(runs);
    run_cursor::stretch found;
    std::mt19937_64 random(2);
    for (auto _ : state) {
        if (!cursor.find(random() % clusters, found)) {
            state.SkipWithError("a cluster is not found");
            return;
        }
        benchmark::DoNotOptimize(found);
    }
}

void searched_from_the_front(benchmark::State& state) {
    const cluster_run_list runs = runs_of(static_cast<std::uint64_t>(state.range(0)));
    const std::uint64_t clusters = runs.back().vcn + runs.back().length;
    std::size_t index = 0;
    std::uint64_t lcn = 0;
    std::mt19937_64 random(2);
    for (auto _ : state) {
        if (!find_run(runs, random() % clusters, index, lcn)) {
            state.SkipWithError("a cluster is not found");
            return;
        }
        benchmark::DoNotOptimize(lcn);
    }
}

void decoded_from_mapping_pairs(benchmark::State& state) {
    // Pairs of three bytes: one cluster, two clusters on.
    bytes pairs;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        pairs.insert(pairs.end(), {0x11, 1, 2});
    }
    pairs.push_back(0);
    data_run_list decoded;
    for (auto _ : state) {
        if (!decode_mapping_pairs(byte_view(pairs), decoded, 0x80, true) ||
            decoded.size() != static_cast<std::size_t>(state.range(0))) {
            state.SkipWithError("a run is missing");
            return;
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(from_end_to_end)->Arg(1000)->Arg(1'000'000);
BENCHMARK(at_random)->Arg(1000)->Arg(1'000'000);
BENCHMARK(searched_from_the_front)->Arg(1000);
BENCHMARK(decoded_from_mapping_pairs)->Arg(300);

}  // namespace
}  // namespace quarry::test
