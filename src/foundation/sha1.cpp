#include "foundation/sha1.h"

#include <bit>

namespace quarry {

namespace {

// What a round of each quarter adds, section 4.2.1 of the standard.
constexpr std::array<std::uint32_t, 4> constants = {0x5a827999, 0x6ed9eba1, 0x8f1bbcdc, 0xca62c1d6};

// The function of a round, by its quarter, section 4.1.1.
std::uint32_t mixed(std::size_t quarter, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
    switch (quarter) {
        case 0:
            return d ^ (b & (c ^ d));
        case 2:
            return (b & c) | (d & (b | c));
        default:
            return b ^ c ^ d;
    }
}

}  // namespace

void sha1_ctx::digest_blocks(const std::uint8_t* blocks, std::size_t count) {
    constexpr std::size_t rounds = 80;
    for (; count != 0; --count, blocks += sha_block_size) {
        std::array<std::uint32_t, rounds> schedule{};
        for (std::size_t t = 0; t < rounds; ++t) {
            schedule[t] =
                t < 16
                    ? load_big_endian(blocks + 4 * t)
                    : std::rotl(schedule[t - 3] ^ schedule[t - 8] ^ schedule[t - 14] ^ schedule[t - 16], 1);
        }
        auto [a, b, c, d, e] = m_state;
        for (std::size_t t = 0; t < rounds; ++t) {
            const std::size_t quarter = t / 20;
            const std::uint32_t next =
                std::rotl(a, 5) + mixed(quarter, b, c, d) + e + constants[quarter] + schedule[t];
            e = d;
            d = c;
            c = std::rotl(b, 30);
            b = a;
            a = next;
        }
        m_state[0] += a;
        m_state[1] += b;
        m_state[2] += c;
        m_state[3] += d;
        m_state[4] += e;
    }
}

void sha1_ctx::update(const void* bytes, std::size_t length) {
    take_bytes(m_message, bytes, length,
               [this](const std::uint8_t* blocks, std::size_t count) { digest_blocks(blocks, count); });
}

sha1_digest sha1_ctx::final() {
    end_message(m_message,
                [this](const std::uint8_t* blocks, std::size_t count) { digest_blocks(blocks, count); });
    sha1_digest digest{};
    for (std::size_t i = 0; i < m_state.size(); ++i) {
        store_big_endian(&digest[4 * i], m_state[i]);
    }
    *this = {};
    return digest;
}

}  // namespace quarry
