#include "foundation/sha256.h"

#include <bit>
#include <cstring>

#if defined(__x86_64__)
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace quarry {

namespace {

constexpr sha256_state initial_state = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                        0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

alignas(16) constexpr std::array<std::uint32_t, 64> round_constants = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

// The functions of the standard, section 4.1.2.
std::uint32_t choose(std::uint32_t x, std::uint32_t y, std::uint32_t z) {
    return z ^ (x & (y ^ z));
}
std::uint32_t majority(std::uint32_t x, std::uint32_t y, std::uint32_t z) {
    return (x & y) | (z & (x | y));
}
std::uint32_t large_sigma_0(std::uint32_t x) {
    return std::rotr(x, 2) ^ std::rotr(x, 13) ^ std::rotr(x, 22);
}
std::uint32_t large_sigma_1(std::uint32_t x) {
    return std::rotr(x, 6) ^ std::rotr(x, 11) ^ std::rotr(x, 25);
}
std::uint32_t small_sigma_0(std::uint32_t x) {
    return std::rotr(x, 7) ^ std::rotr(x, 18) ^ (x >> 3);
}
std::uint32_t small_sigma_1(std::uint32_t x) {
    return std::rotr(x, 17) ^ std::rotr(x, 19) ^ (x >> 10);
}

// One round. The variables keep their places: the caller names them one place further on in the next round.
void round_of(std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t& d, std::uint32_t e,
              std::uint32_t f, std::uint32_t g, std::uint32_t& h, std::uint32_t word) {
    const std::uint32_t sum = h + large_sigma_1(e) + choose(e, f, g) + word;
    d += sum;
    h = sum + large_sigma_0(a) + majority(a, b, c);
}

#if defined(__x86_64__)

#define QUARRY_WITH_SHA __attribute__((target("sha,sse4.1,ssse3")))

QUARRY_WITH_SHA inline __m128i load(const void* bytes) {
    return _mm_loadu_si128(static_cast<const __m128i*>(bytes));
}

// Four rounds with the words `schedule`, whose constants begin at `constants`. The instruction does two
// rounds with the two low words, and what were the variables C, D, G, H become A, B, E, F.
QUARRY_WITH_SHA inline void four_rounds(__m128i& abef, __m128i& cdgh, __m128i schedule,
                                        const std::uint32_t* constants) {
    const __m128i words = _mm_add_epi32(schedule, load(constants));
    cdgh = _mm_sha256rnds2_epu32(cdgh, abef, words);
    abef = _mm_sha256rnds2_epu32(abef, cdgh, _mm_shuffle_epi32(words, 0x0E));
}

// The next four words of the schedule from the last sixteen, oldest first.
QUARRY_WITH_SHA inline __m128i next_words(__m128i w0, __m128i w4, __m128i w8, __m128i w12) {
    const __m128i seven_back = _mm_alignr_epi8(w12, w8, 4);
    return _mm_sha256msg2_epu32(_mm_add_epi32(_mm_sha256msg1_epu32(w0, w4), seven_back), w12);
}

QUARRY_WITH_SHA void transform_with_sha(sha256_state& state, const std::uint8_t* blocks, std::size_t count) {
    const __m128i big_endian = _mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203);
    // From A B C D and E F G H to the pairs that the instructions want.
    const __m128i badc = _mm_shuffle_epi32(load(state.data()), 0xB1);
    const __m128i hgfe = _mm_shuffle_epi32(load(state.data() + 4), 0x1B);
    __m128i abef = _mm_alignr_epi8(badc, hgfe, 8);
    __m128i cdgh = _mm_blend_epi16(hgfe, badc, 0xF0);
    for (; count != 0; --count, blocks += sha_block_size) {
        const __m128i abef_before = abef;
        const __m128i cdgh_before = cdgh;
        __m128i w0 = _mm_shuffle_epi8(load(blocks), big_endian);
        __m128i w1 = _mm_shuffle_epi8(load(blocks + 16), big_endian);
        __m128i w2 = _mm_shuffle_epi8(load(blocks + 32), big_endian);
        __m128i w3 = _mm_shuffle_epi8(load(blocks + 48), big_endian);
        const std::uint32_t* constants = round_constants.data();
        for (int sixteen = 0; sixteen < 3; ++sixteen, constants += 16) {
            four_rounds(abef, cdgh, w0, constants);
            w0 = next_words(w0, w1, w2, w3);
            four_rounds(abef, cdgh, w1, constants + 4);
            w1 = next_words(w1, w2, w3, w0);
            four_rounds(abef, cdgh, w2, constants + 8);
            w2 = next_words(w2, w3, w0, w1);
            four_rounds(abef, cdgh, w3, constants + 12);
            w3 = next_words(w3, w0, w1, w2);
        }
        four_rounds(abef, cdgh, w0, constants);
        four_rounds(abef, cdgh, w1, constants + 4);
        four_rounds(abef, cdgh, w2, constants + 8);
        four_rounds(abef, cdgh, w3, constants + 12);
        abef = _mm_add_epi32(abef, abef_before);
        cdgh = _mm_add_epi32(cdgh, cdgh_before);
    }
    const __m128i feba = _mm_shuffle_epi32(abef, 0x1B);
    const __m128i dchg = _mm_shuffle_epi32(cdgh, 0xB1);
    const __m128i dcba = _mm_blend_epi16(feba, dchg, 0xF0);
    const __m128i hgfe_after = _mm_alignr_epi8(dchg, feba, 8);
    std::memcpy(state.data(), &dcba, sizeof(dcba));
    std::memcpy(state.data() + 4, &hgfe_after, sizeof(hgfe_after));
}

// What the instructions of the transform belong to: SSSE3 and SSE4.1, and the SHA extensions.
bool processor_has_sha() {
    constexpr unsigned leaf_of_features = 1;
    constexpr unsigned ssse3_and_sse41_in_ecx = 1u << 9 | 1u << 19;
    constexpr unsigned leaf_of_extended_features = 7;
    constexpr unsigned sha_in_ebx = 1u << 29;
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    if (__get_cpuid(leaf_of_features, &eax, &ebx, &ecx, &edx) == 0 ||
        (ecx & ssse3_and_sse41_in_ecx) != ssse3_and_sse41_in_ecx) {
        return false;
    }
    return __get_cpuid_count(leaf_of_extended_features, 0, &eax, &ebx, &ecx, &edx) != 0 &&
           (ebx & sha_in_ebx) != 0;
}

#endif

}  // namespace

void sha256_transform_plain(sha256_state& state, const std::uint8_t* blocks, std::size_t count) {
    auto [a, b, c, d, e, f, g, h] = state;
    for (; count != 0; --count, blocks += sha_block_size) {
        const sha256_state before = {a, b, c, d, e, f, g, h};
        // The last sixteen words of the schedule; word t is at t mod 16.
        std::array<std::uint32_t, 16> w;
        for (std::size_t i = 0; i < w.size(); ++i) {
            w[i] = load_big_endian(blocks + 4 * i);
        }
        for (std::size_t t = 0; t < round_constants.size(); t += w.size()) {
            if (t != 0) {
                for (std::size_t i = 0; i < w.size(); ++i) {
                    w[i] +=
                        small_sigma_1(w[(i + 14) % 16]) + w[(i + 9) % 16] + small_sigma_0(w[(i + 1) % 16]);
                }
            }
            const std::uint32_t* const k = round_constants.data() + t;
            round_of(a, b, c, d, e, f, g, h, k[0] + w[0]);
            round_of(h, a, b, c, d, e, f, g, k[1] + w[1]);
            round_of(g, h, a, b, c, d, e, f, k[2] + w[2]);
            round_of(f, g, h, a, b, c, d, e, k[3] + w[3]);
            round_of(e, f, g, h, a, b, c, d, k[4] + w[4]);
            round_of(d, e, f, g, h, a, b, c, k[5] + w[5]);
            round_of(c, d, e, f, g, h, a, b, k[6] + w[6]);
            round_of(b, c, d, e, f, g, h, a, k[7] + w[7]);
            round_of(a, b, c, d, e, f, g, h, k[8] + w[8]);
            round_of(h, a, b, c, d, e, f, g, k[9] + w[9]);
            round_of(g, h, a, b, c, d, e, f, k[10] + w[10]);
            round_of(f, g, h, a, b, c, d, e, k[11] + w[11]);
            round_of(e, f, g, h, a, b, c, d, k[12] + w[12]);
            round_of(d, e, f, g, h, a, b, c, k[13] + w[13]);
            round_of(c, d, e, f, g, h, a, b, k[14] + w[14]);
            round_of(b, c, d, e, f, g, h, a, k[15] + w[15]);
        }
        a += before[0];
        b += before[1];
        c += before[2];
        d += before[3];
        e += before[4];
        f += before[5];
        g += before[6];
        h += before[7];
    }
    state = {a, b, c, d, e, f, g, h};
}

sha256_transform* sha256_transform_of_processor() {
#if defined(__x86_64__)
    static sha256_transform* const found = processor_has_sha() ? transform_with_sha : nullptr;
    return found;
#else
    return nullptr;
#endif
}

bool sha256_init(sha256_ctx* ctx, sha256_transform* transform) {
    if (ctx == nullptr) {
        return false;
    }
    sha256_transform* const fast = sha256_transform_of_processor();
    *ctx = {};
    ctx->state = initial_state;
    ctx->transform = transform != nullptr ? transform : (fast != nullptr ? fast : sha256_transform_plain);
    return true;
}

bool sha256_update(sha256_ctx* ctx, const void* bytes, std::size_t length) {
    if (ctx == nullptr || bytes == nullptr || length == 0) {
        return false;
    }
    take_bytes(ctx->message, bytes, length, [ctx](const std::uint8_t* blocks, std::size_t count) {
        ctx->transform(ctx->state, blocks, count);
    });
    return true;
}

bool sha256_final(sha256_digest& digest, sha256_ctx* ctx) {
    if (ctx == nullptr) {
        return false;
    }
    end_message(ctx->message, [ctx](const std::uint8_t* blocks, std::size_t count) {
        ctx->transform(ctx->state, blocks, count);
    });
    for (std::size_t i = 0; i < ctx->state.size(); ++i) {
        store_big_endian(&digest[4 * i], ctx->state[i]);
    }
    return sha256_init(ctx, ctx->transform);
}

}  // namespace quarry
