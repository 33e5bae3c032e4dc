#include "support/lznt1_encoder.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <vector>

namespace quarry::test {

namespace {

constexpr std::size_t shortest_repeat = 3;

std::size_t longest_repeat_at(std::size_t position) {
    return (std::size_t{1} << (16 - lznt1_distance_bits(position))) - 1 + shortest_repeat;
}

struct found_repeat {
    std::size_t back = 0;
    std::size_t length = 0;
};

// Bytes that are the same from two places on, the later of which ends with the text.
std::size_t common_length(const bytes& plain, std::size_t early, std::size_t late, std::size_t most) {
    std::size_t length = 0;
    while (length < most && late + length < plain.size() && plain[early + length] == plain[late + length]) {
        ++length;
    }
    return length;
}

// Earlier places of the same three bytes, the newest first.
class places {
  public:
    explicit places(const bytes& plain) : m_plain(plain), m_previous(plain.size(), none) {
        m_newest.fill(none);
    }
    void add(std::size_t at) {
        if (at + shortest_repeat <= m_plain.size()) {
            m_previous[at] = m_newest[hash(at)];
            m_newest[hash(at)] = at;
        }
    }
    [[nodiscard]] found_repeat longest(std::size_t at) const {
        found_repeat best;
        if (at == 0 || at + shortest_repeat > m_plain.size()) {
            return best;
        }
        const std::size_t most = longest_repeat_at(at);
        for (std::size_t early = m_newest[hash(at)]; early != none; early = m_previous[early]) {
            const std::size_t length = common_length(m_plain, early, at, most);
            if (length >= shortest_repeat && length > best.length) {
                best = {at - early, length};
            }
        }
        return best;
    }

  private:
    static constexpr std::size_t none = ~std::size_t{0};
    [[nodiscard]] std::size_t hash(std::size_t at) const {
        return (m_plain[at] * 506832829u + m_plain[at + 1] * 40503u + m_plain[at + 2]) % m_newest.size();
    }
    const bytes& m_plain;
    std::array<std::size_t, 8191> m_newest{};
    std::vector<std::size_t> m_previous;
};

}  // namespace

unsigned lznt1_distance_bits(std::size_t position) {
    unsigned bits = 4;
    while (position > (std::size_t{1} << bits)) {
        ++bits;
    }
    return bits;
}

void lznt1_payload::begin_item(bool is_token) {
    if (m_items % 8 == 0) {
        m_flags_at = m_bytes.size();
        m_bytes.push_back(0);
    }
    if (is_token) {
        m_bytes[m_flags_at] = static_cast<std::uint8_t>(m_bytes[m_flags_at] | (1u << (m_items % 8)));
    }
    ++m_items;
}

lznt1_payload& lznt1_payload::literal(std::uint8_t byte) {
    begin_item(false);
    m_bytes.push_back(byte);
    ++m_position;
    return *this;
}

lznt1_payload& lznt1_payload::literals(const bytes& text) {
    for (const std::uint8_t byte : text) {
        literal(byte);
    }
    return *this;
}

lznt1_payload& lznt1_payload::repeat(std::size_t back, std::size_t length) {
    if (back == 0 || back > m_position || length < shortest_repeat ||
        length > longest_repeat_at(m_position)) {
        throw std::out_of_range("no token says this repeat here");
    }
    const unsigned length_bits = 16 - lznt1_distance_bits(m_position);
    token(static_cast<std::uint16_t>(((back - 1) << length_bits) | (length - shortest_repeat)));
    m_position += length;
    return *this;
}

lznt1_payload& lznt1_payload::token(std::uint16_t bits) {
    begin_item(true);
    m_bytes.push_back(static_cast<std::uint8_t>(bits & 0xFF));
    m_bytes.push_back(static_cast<std::uint8_t>(bits >> 8));
    return *this;
}

bytes lznt1_compress(const bytes& plain) {
    lznt1_payload payload;
    places seen(plain);
    std::size_t at = 0;
    while (at < plain.size()) {
        const found_repeat best = seen.longest(at);
        const std::size_t step = std::max<std::size_t>(best.length, 1);
        if (best.length > 0) {
            payload.repeat(best.back, best.length);
        } else {
            payload.literal(plain[at]);
        }
        for (std::size_t i = 0; i < step; ++i) {
            seen.add(at + i);
        }
        at += step;
    }
    return payload.build();
}

bytes lznt1_chunk(const bytes& payload) {
    if (payload.empty() || payload.size() > lznt1_block) {
        throw std::length_error("a chunk holds a payload of 1 to 4096 bytes");
    }
    byte_writer out(payload.size() + 2);
    out.u16(0, 0xB000 | (payload.size() - 1)).raw(2, payload);
    return out.take();
}

bytes lznt1_stored_chunk(const bytes& plain) {
    if (plain.size() > lznt1_block) {
        throw std::length_error("a chunk holds 4096 bytes");
    }
    byte_writer out(lznt1_block + 2);
    out.u16(0, 0x3FFF).raw(2, plain);
    return out.take();
}

bytes lznt1_chunks(const bytes& plain) {
    std::vector<bytes> chunks;
    for (std::size_t at = 0; at < plain.size(); at += lznt1_block) {
        const auto begin = plain.begin() + static_cast<std::ptrdiff_t>(at);
        const auto size = static_cast<std::ptrdiff_t>(std::min(lznt1_block, plain.size() - at));
        const bytes block(begin, begin + size);
        const bytes payload = lznt1_compress(block);
        chunks.push_back(payload.size() < lznt1_block ? lznt1_chunk(payload) : lznt1_stored_chunk(block));
    }
    return concat(chunks);
}

}  // namespace quarry::test
