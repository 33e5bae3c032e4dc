#include "foundation/md5.h"

#include <bit>
#include <cstring>

namespace quarry {

namespace {

constexpr std::size_t block_size = 64;
constexpr std::size_t length_field_offset = 56;  // the message length in bits ends the last block

std::uint32_t load_little_endian(const std::uint8_t* bytes) {
    if constexpr (std::endian::native == std::endian::little) {
        std::uint32_t value = 0;
        std::memcpy(&value, bytes, sizeof(value));
        return value;
    } else {
        return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
               static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
    }
}

void store_little_endian(std::uint8_t* bytes, std::uint32_t value) {
    for (unsigned i = 0; i < 4; ++i) {
        bytes[i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

// The four rounds' steps. The additions are ordered so that only the last of them waits for the step before.
template <int Shift>
void step_f(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d, std::uint32_t word,
            std::uint32_t constant) {
    a = std::rotl((d ^ (b & (c ^ d))) + (a + word + constant), Shift) + b;
}
// (b & d) | (c & ~d): the halves share no bit, so they may be added, and the half without b early.
template <int Shift>
void step_g(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d, std::uint32_t word,
            std::uint32_t constant) {
    a = std::rotl((b & d) + ((c & ~d) + (a + word + constant)), Shift) + b;
}
template <int Shift>
void step_h(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d, std::uint32_t word,
            std::uint32_t constant) {
    a = std::rotl((b ^ (c ^ d)) + (a + word + constant), Shift) + b;
}
template <int Shift>
void step_i(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d, std::uint32_t word,
            std::uint32_t constant) {
    a = std::rotl((c ^ (b | ~d)) + (a + word + constant), Shift) + b;
}

// Digests `count` blocks of 64 bytes.
void transform(std::array<std::uint32_t, 4>& state, const std::uint8_t* bytes, std::size_t count) {
    auto [a, b, c, d] = state;
    for (; count != 0; --count, bytes += block_size) {
        std::array<std::uint32_t, 16> x;
        for (std::size_t i = 0; i < x.size(); ++i) {
            x[i] = load_little_endian(bytes + 4 * i);
        }
        const std::uint32_t a_before = a;
        const std::uint32_t b_before = b;
        const std::uint32_t c_before = c;
        const std::uint32_t d_before = d;

        step_f<7>(a, b, c, d, x[0], 0xd76aa478);
        step_f<12>(d, a, b, c, x[1], 0xe8c7b756);
        step_f<17>(c, d, a, b, x[2], 0x242070db);
        step_f<22>(b, c, d, a, x[3], 0xc1bdceee);
        step_f<7>(a, b, c, d, x[4], 0xf57c0faf);
        step_f<12>(d, a, b, c, x[5], 0x4787c62a);
        step_f<17>(c, d, a, b, x[6], 0xa8304613);
        step_f<22>(b, c, d, a, x[7], 0xfd469501);
        step_f<7>(a, b, c, d, x[8], 0x698098d8);
        step_f<12>(d, a, b, c, x[9], 0x8b44f7af);
        step_f<17>(c, d, a, b, x[10], 0xffff5bb1);
        step_f<22>(b, c, d, a, x[11], 0x895cd7be);
        step_f<7>(a, b, c, d, x[12], 0x6b901122);
        step_f<12>(d, a, b, c, x[13], 0xfd987193);
        step_f<17>(c, d, a, b, x[14], 0xa679438e);
        step_f<22>(b, c, d, a, x[15], 0x49b40821);

        step_g<5>(a, b, c, d, x[1], 0xf61e2562);
        step_g<9>(d, a, b, c, x[6], 0xc040b340);
        step_g<14>(c, d, a, b, x[11], 0x265e5a51);
        step_g<20>(b, c, d, a, x[0], 0xe9b6c7aa);
        step_g<5>(a, b, c, d, x[5], 0xd62f105d);
        step_g<9>(d, a, b, c, x[10], 0x02441453);
        step_g<14>(c, d, a, b, x[15], 0xd8a1e681);
        step_g<20>(b, c, d, a, x[4], 0xe7d3fbc8);
        step_g<5>(a, b, c, d, x[9], 0x21e1cde6);
        step_g<9>(d, a, b, c, x[14], 0xc33707d6);
        step_g<14>(c, d, a, b, x[3], 0xf4d50d87);
        step_g<20>(b, c, d, a, x[8], 0x455a14ed);
        step_g<5>(a, b, c, d, x[13], 0xa9e3e905);
        step_g<9>(d, a, b, c, x[2], 0xfcefa3f8);
        step_g<14>(c, d, a, b, x[7], 0x676f02d9);
        step_g<20>(b, c, d, a, x[12], 0x8d2a4c8a);

        step_h<4>(a, b, c, d, x[5], 0xfffa3942);
        step_h<11>(d, a, b, c, x[8], 0x8771f681);
        step_h<16>(c, d, a, b, x[11], 0x6d9d6122);
        step_h<23>(b, c, d, a, x[14], 0xfde5380c);
        step_h<4>(a, b, c, d, x[1], 0xa4beea44);
        step_h<11>(d, a, b, c, x[4], 0x4bdecfa9);
        step_h<16>(c, d, a, b, x[7], 0xf6bb4b60);
        step_h<23>(b, c, d, a, x[10], 0xbebfbc70);
        step_h<4>(a, b, c, d, x[13], 0x289b7ec6);
        step_h<11>(d, a, b, c, x[0], 0xeaa127fa);
        step_h<16>(c, d, a, b, x[3], 0xd4ef3085);
        step_h<23>(b, c, d, a, x[6], 0x04881d05);
        step_h<4>(a, b, c, d, x[9], 0xd9d4d039);
        step_h<11>(d, a, b, c, x[12], 0xe6db99e5);
        step_h<16>(c, d, a, b, x[15], 0x1fa27cf8);
        step_h<23>(b, c, d, a, x[2], 0xc4ac5665);

        step_i<6>(a, b, c, d, x[0], 0xf4292244);
        step_i<10>(d, a, b, c, x[7], 0x432aff97);
        step_i<15>(c, d, a, b, x[14], 0xab9423a7);
        step_i<21>(b, c, d, a, x[5], 0xfc93a039);
        step_i<6>(a, b, c, d, x[12], 0x655b59c3);
        step_i<10>(d, a, b, c, x[3], 0x8f0ccc92);
        step_i<15>(c, d, a, b, x[10], 0xffeff47d);
        step_i<21>(b, c, d, a, x[1], 0x85845dd1);
        step_i<6>(a, b, c, d, x[8], 0x6fa87e4f);
        step_i<10>(d, a, b, c, x[15], 0xfe2ce6e0);
        step_i<15>(c, d, a, b, x[6], 0xa3014314);
        step_i<21>(b, c, d, a, x[13], 0x4e0811a1);
        step_i<6>(a, b, c, d, x[4], 0xf7537e82);
        step_i<10>(d, a, b, c, x[11], 0xbd3af235);
        step_i<15>(c, d, a, b, x[2], 0x2ad7d2bb);
        step_i<21>(b, c, d, a, x[9], 0xeb86d391);

        a += a_before;
        b += b_before;
        c += c_before;
        d += d_before;
    }
    state = {a, b, c, d};
}

std::size_t buffered_bytes(const md5_ctx& ctx) {
    return (ctx.bit_count[0] >> 3) % block_size;
}

void count_bits(md5_ctx& ctx, std::size_t bytes) {
    const std::uint64_t before = static_cast<std::uint64_t>(ctx.bit_count[1]) << 32 | ctx.bit_count[0];
    const std::uint64_t after = before + static_cast<std::uint64_t>(bytes) * 8;
    ctx.bit_count = {static_cast<std::uint32_t>(after), static_cast<std::uint32_t>(after >> 32)};
}

}  // namespace

bool md5_init(md5_ctx* ctx) {
    if (ctx == nullptr) {
        return false;
    }
    *ctx = {};
    ctx->state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    return true;
}

bool md5_update(md5_ctx* ctx, const void* bytes, std::size_t length) {
    if (ctx == nullptr || bytes == nullptr || length == 0) {
        return false;
    }
    const auto* input = static_cast<const std::uint8_t*>(bytes);
    const std::size_t buffered = buffered_bytes(*ctx);
    count_bits(*ctx, length);
    if (buffered != 0) {
        const std::size_t missing = block_size - buffered;
        if (length < missing) {
            std::memcpy(&ctx->buffer[buffered], input, length);
            return true;
        }
        std::memcpy(&ctx->buffer[buffered], input, missing);
        transform(ctx->state, ctx->buffer.data(), 1);
        input += missing;
        length -= missing;
    }
    transform(ctx->state, input, length / block_size);
    const std::size_t rest = length % block_size;
    if (rest != 0) {
        std::memcpy(ctx->buffer.data(), input + (length - rest), rest);
    }
    return true;
}

bool md5_final(md5_digest& digest, md5_ctx* ctx) {
    if (ctx == nullptr) {
        return false;
    }
    std::size_t used = buffered_bytes(*ctx);
    ctx->buffer[used++] = 0x80;
    if (used > length_field_offset) {
        std::memset(ctx->buffer.data() + used, 0, block_size - used);
        transform(ctx->state, ctx->buffer.data(), 1);
        used = 0;
    }
    std::memset(ctx->buffer.data() + used, 0, length_field_offset - used);
    store_little_endian(&ctx->buffer[length_field_offset], ctx->bit_count[0]);
    store_little_endian(&ctx->buffer[length_field_offset + 4], ctx->bit_count[1]);
    transform(ctx->state, ctx->buffer.data(), 1);
    for (std::size_t i = 0; i < ctx->state.size(); ++i) {
        store_little_endian(&digest[4 * i], ctx->state[i]);
    }
    return md5_init(ctx);
}

void hex_text(std::string& out, const void* bytes, std::size_t length, bool spaced) {
    static constexpr char digits[] = "0123456789abcdef";
    out.clear();
    if (bytes == nullptr) {
        return;
    }
    const auto* input = static_cast<const std::uint8_t*>(bytes);
    out.reserve(length * (spaced ? 3 : 2));
    for (std::size_t i = 0; i < length; ++i) {
        if (spaced && i != 0) {
            out += ' ';
        }
        out += digits[input[i] >> 4];
        out += digits[input[i] & 0x0F];
    }
}

}  // namespace quarry
