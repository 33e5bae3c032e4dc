// How fast bytes are hashed. The digest is compared first with the one of RFC 1321.
#include "foundation/md5.h"
#include "support/sample_text.h"

#include <benchmark/benchmark.h>

namespace quarry::test {
namespace {

std::string digest_of(std::string_view text) {
    md5_ctx context;
    md5_digest digest{};
    std::string hex;
    md5_init(&context);
    md5_update(&context, text.data(), text.size());
    md5_final(digest, &context);
    hex_text(hex, digest.data(), digest.size(), false);
    return hex;
}

void md5(benchmark::State& state) {
    if (digest_of("message digest") != "f96b697d7cb7938d525a2f31aaf161d0") {
        state.SkipWithError("the digest is wrong");
        return;
    }
    const bytes content = random_bytes(static_cast<std::size_t>(state.range(0)), 1);
    md5_ctx context;
    md5_init(&context);
    for (auto _ : state) {
        md5_update(&context, content.data(), content.size());
        benchmark::DoNotOptimize(context);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

BENCHMARK(md5)->Arg(64)->Arg(65536)->Arg(1 << 20);

}  // namespace
}  // namespace quarry::test
