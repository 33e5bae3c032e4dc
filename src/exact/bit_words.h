// Bits as the codecs of system compression store them: in 16-bit words, the highest bit of a word first.
//
//     bytes:   B4 96        2D ...
//     words:   0x96B4       0x..2D
//     bits:    1001 0110 1011 0100 | .... .... 0010 1101
//              first ----------->
//
// A reader looks ahead of the bits that it takes. Ahead of the end of a chunk there are the bits that it has,
// after its end there are zeros; whether some of those were taken can be asked at any time. A last byte that
// makes no word has no bits.
#pragma once

#include "foundation/byte_view.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace quarry::exact {

class bit_words {
  public:
    // Bits that can be looked at and taken after fill().
    static constexpr unsigned bits_after_fill = 48;
    // Bits that can be looked at or taken at once.
    static constexpr unsigned most_at_once = 16;

    // The words of a chunk from byte `start` on, of which there may be none.
    bit_words(byte_view chunk, std::size_t start)
        : m_bytes(chunk.data()), m_size(chunk.size()), m_next(start) {}

    // Fetches words until there are bits_after_fill bits at least.
    void fill() {
        constexpr std::size_t four_words = 8;
        if (m_next + four_words <= m_size) {
            // What of the four words does not count yet is there again, the same, when it is fetched.
            m_bits |= (two_words(0) << 32 | two_words(4)) >> m_count;
            const unsigned fetched = (63 - m_count) / bits_of_word;
            m_next += bytes_of_word * fetched;
            m_count += bits_of_word * fetched;
        } else {
            fill_at_end();
        }
    }

    // The next bits, the first of them highest; at most most_at_once, and of those that fill() has fetched.
    [[nodiscard]] unsigned look(unsigned count) const {
        return static_cast<unsigned>(m_bits >> 1 >> (63 - count));
    }
    void pass(unsigned count) {
        m_bits <<= count;
        m_count -= count;
    }
    unsigned take(unsigned count) {
        const unsigned bits = look(count);
        pass(count);
        return bits;
    }
    // The same for callers that do not count what fill() has fetched.
    unsigned fetch(unsigned count) {
        fill();
        return take(count);
    }

    // The bytes between the words, as XPRESS has them: a reader that has fetched words until it holds 16 bits
    // or more, and no further word, finds the next byte after them. To be called after fill(), with no more
    // than 32 bits taken. Nothing after the end of the chunk.
    std::optional<std::uint8_t> take_byte() {
        return_words(m_count / bits_of_word - 1);
        return byte_here();
    }
    std::optional<std::uint16_t> take_two_bytes() {
        return_words(m_count / bits_of_word - 1);
        const auto low = byte_here();
        const auto high = byte_here();
        if (!low || !high) {
            return std::nullopt;
        }
        return static_cast<std::uint16_t>(*low | *high << 8);
    }

    // Leaves out the rest of the word of which bits were taken last; a whole word if none is left of it.
    // The byte of the chunk that follows; it may lie after the end.
    [[nodiscard]] std::size_t leave_word() {
        const std::size_t end = end_of_taken();
        return m_count % bits_of_word == 0 ? end + bytes_of_word : end;
    }

    // True if bits were taken that lie after the end of the chunk.
    [[nodiscard]] bool overran() const { return end_of_taken() > m_size; }

  private:
    static constexpr unsigned bits_of_word = 16;
    static constexpr std::size_t bytes_of_word = 2;

    [[nodiscard]] std::uint64_t word(std::size_t ahead) const {
        const std::uint8_t* const at = m_bytes + m_next + ahead;
        return at[0] | std::uint64_t{at[1]} << 8;
    }

    [[nodiscard]] std::uint64_t two_words(std::size_t ahead) const {
        const std::uint8_t* const at = m_bytes + m_next + ahead;
        const std::uint32_t stored =
            at[0] | std::uint32_t{at[1]} << 8 | std::uint32_t{at[2]} << 16 | std::uint32_t{at[3]} << 24;
        return std::rotl(stored, 16);
    }

    void fill_at_end() {
        while (m_count < bits_after_fill) {
            if (m_next + bytes_of_word <= m_size) {
                m_bits |= word(0) << (48 - m_count);
            }
            m_next += bytes_of_word;
            m_count += bits_of_word;
        }
    }

    void return_words(unsigned words) {
        m_next -= bytes_of_word * words;
        m_count -= bits_of_word * words;
        m_bits &= ~(~std::uint64_t{0} >> m_count);
    }

    std::optional<std::uint8_t> byte_here() {
        if (m_next >= m_size) {
            return std::nullopt;
        }
        return m_bytes[m_next++];
    }

    // The end of the last word of which a bit was taken; the start if none was.
    [[nodiscard]] std::size_t end_of_taken() const {
        return m_next - bytes_of_word * (m_count / bits_of_word);
    }

    const std::uint8_t* m_bytes;
    std::size_t m_size;
    std::size_t m_next;        // the next word; after the end of the chunk words are zeros
    std::uint64_t m_bits = 0;  // the next bit is the highest
    unsigned m_count = 0;      // of the bits, 0 to 63
};

}  // namespace quarry::exact
