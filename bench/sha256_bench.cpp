// How fast bytes are hashed by SHA-256, in plain C++ and by the processor's instructions. The digest is
// compared first with the one of the standard.
#include "foundation/md5.h"
#include "foundation/sha256.h"
#include "support/sample_text.h"

#include <benchmark/benchmark.h>

namespace quarry::test {
namespace {

std::string digest_of(std::string_view text, sha256_transform* transform) {
    sha256_ctx context;
    sha256_digest digest{};
    std::string hex;
    sha256_init(&context, transform);
    sha256_update(&context, text.data(), text.size());
    sha256_final(digest, &context);
    hex_text(hex, digest.data(), digest.size(), false);
    return hex;
}

void run(benchmark::State& state, sha256_transform* transform) {
    if (transform == nullptr) {
        state.SkipWithError("this processor has no instructions for SHA-256");
        return;
    }
    if (digest_of("abc", transform) != "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad") {
        state.SkipWithError("the digest is wrong");
        return;
    }
    const bytes content = random_bytes(static_cast<std::size_t>(state.range(0)), 1);
    sha256_ctx context;
    sha256_init(&context, transform);
    for (auto _ : state) {
        sha256_update(&context, content.data(), content.size());
        benchmark::DoNotOptimize(context);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void sha256_plain(benchmark::State& state) {
    run(state, sha256_transform_plain);
}
void sha256_of_processor(benchmark::State& state) {
    run(state, sha256_transform_of_processor());
}

BENCHMARK(sha256_plain)->Arg(64)->Arg(65536)->Arg(1 << 20);
BENCHMARK(sha256_of_processor)->Arg(64)->Arg(65536)->Arg(1 << 20);

}  // namespace
}  // namespace quarry::test
