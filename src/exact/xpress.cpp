#include "exact/xpress.h"

#include "exact/chunk_rule.h"
#include "exact/match_copy.h"

#include <array>

namespace quarry::exact {

namespace {

constexpr unsigned first_match = 256;
constexpr unsigned match_length_mask = 15;
constexpr unsigned distance_shift = 4;
constexpr unsigned shortest_match = 3;
// Lengths that are stored in bytes.
constexpr unsigned length_in_byte = 15;
constexpr unsigned length_in_two_bytes = 255;

struct match {
    std::size_t distance = 0;
    std::size_t length = 0;
};

// The length that a symbol and the bytes after it make. The rule that is broken, or null.
const char* read_length(bit_words& bits, unsigned symbol, std::size_t& length) {
    unsigned told = symbol & match_length_mask;
    if (told == length_in_byte) {
        const auto more = bits.take_byte();
        if (!more) {
            return ends_early;
        }
        told += *more;
        if (*more == length_in_two_bytes) {
            const auto whole = bits.take_two_bytes();
            if (!whole) {
                return ends_early;
            }
            if (*whole < length_in_byte) {
                return "a length of two bytes is below 15";
            }
            told = *whole;
        }
    }
    length = std::size_t{told} + shortest_match;
    return nullptr;
}

}  // namespace

const char* xpress_decoder::decode_all(byte_view stored, std::span<std::uint8_t> plain) {
    constexpr std::size_t table_bytes = symbols / 2;
    if (stored.size() < table_bytes) {
        return "it ends inside of its code lengths";
    }
    std::array<std::uint8_t, symbols> lengths;
    for (std::size_t i = 0; i < table_bytes; ++i) {
        lengths[2 * i] = stored.data()[i] & 0x0F;
        lengths[2 * i + 1] = stored.data()[i] >> 4;
    }
    if (m_code.build(lengths) != code_kind::complete) {
        return "its code is not complete";
    }
    bit_words bits(stored, table_bytes);
    // Each turn decodes a byte or more.
    for (std::size_t at = 0; at < plain.size();) {
        // A byte and then a match are 15 + 15 + 15 bits at most, which one fill gives.
        bits.fill();
        unsigned symbol = m_code.read(bits);
        if (symbol < first_match) {
            plain[at++] = static_cast<std::uint8_t>(symbol);
            if (at == plain.size()) {
                break;
            }
            symbol = m_code.read(bits);
            if (symbol < first_match) {
                plain[at++] = static_cast<std::uint8_t>(symbol);
                continue;
            }
        }
        match found;
        if (const char* rule = read_length(bits, symbol, found.length)) {
            return bits.overran() ? ends_early : rule;
        }
        const unsigned distance_bits = (symbol - first_match) >> distance_shift;
        found.distance = (std::size_t{1} << distance_bits) + bits.take(distance_bits);
        if (found.distance > at) {
            return bits.overran() ? ends_early : "a match leads ahead of its chunk";
        }
        if (found.length > plain.size() - at) {
            return bits.overran() ? ends_early : "a match reaches past the end of its chunk";
        }
        copy_match(plain, at, found.distance, found.length);
        at += found.length;
    }
    return bits.overran() ? ends_early : nullptr;
}

result<void> xpress_decoder::decode(byte_view stored, std::span<std::uint8_t> plain, const std::string& where,
                                    std::uint64_t number) {
    return unless_broken(decode_all(stored, plain), where, number);
}

}  // namespace quarry::exact
