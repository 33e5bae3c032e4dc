#include "support/xpress_builder.h"

namespace quarry::test {

xpress_builder::xpress_builder(const bytes& lengths) : m_lengths(lengths), m_code(code_words(lengths)) {}

xpress_builder& xpress_builder::symbol(unsigned symbol) {
    m_bits.bits(m_code[symbol].length, m_code[symbol].bits);
    return *this;
}

xpress_builder& xpress_builder::literals(const bytes& content) {
    for (const std::uint8_t byte : content) {
        symbol(byte);
    }
    return *this;
}

xpress_builder& xpress_builder::match(std::size_t distance, std::size_t length) {
    unsigned distance_bits = 0;
    while (distance >> (distance_bits + 1) != 0) {
        ++distance_bits;
    }
    const std::size_t told = length - 3;
    symbol(static_cast<unsigned>(256 + 16 * distance_bits + (told < 15 ? told : 15)));
    if (told >= 15 && told < 15 + 255) {
        m_bits.byte(static_cast<unsigned>(told - 15));
    } else if (told >= 15) {
        m_bits.byte(255).byte(static_cast<unsigned>(told % 256)).byte(static_cast<unsigned>(told / 256));
    }
    m_bits.bits(distance_bits, distance);
    return *this;
}

xpress_builder& xpress_builder::match_with(unsigned distance_bits, unsigned distance,
                                           const bytes& length_bytes) {
    symbol(256 + 16 * distance_bits + 15);
    for (const std::uint8_t byte : length_bytes) {
        m_bits.byte(byte);
    }
    m_bits.bits(distance_bits, distance);
    return *this;
}

bytes xpress_builder::build() const {
    bytes chunk;
    for (std::size_t i = 0; i < 512; i += 2) {
        chunk.push_back(static_cast<std::uint8_t>(m_lengths[i] | m_lengths[i + 1] << 4));
    }
    bit_word_writer words = m_bits;
    return concat({chunk, words.take()});
}

}  // namespace quarry::test
