// Chunks of LZX, put together block by block and item by item.
#pragma once

#include "support/bit_word_writer.h"
#include "support/code_lengths.h"

#include <cstddef>
#include <cstdint>

namespace quarry::test {

inline constexpr std::size_t lzx_main_symbols = 496;
inline constexpr std::size_t lzx_length_symbols = 249;

// The lengths of the codes of a block.
struct lzx_codes {
    bytes main = flat_code_lengths(lzx_main_symbols);
    bytes length = flat_code_lengths(lzx_length_symbols);
    bytes aligned = flat_code_lengths(8);  // written for aligned blocks
};

class lzx_builder {
  public:
    // Only type and size. A size of 32,768 is one bit.
    lzx_builder& header(unsigned type, std::size_t size);
    // A block of symbols with its codes; the items follow.
    lzx_builder& verbatim(std::size_t size, const lzx_codes& codes = {});
    lzx_builder& aligned(std::size_t size, const lzx_codes& codes = {});
    // A whole stored block.
    lzx_builder& stored(const bytes& content, std::uint32_t r0 = 1, std::uint32_t r1 = 1,
                        std::uint32_t r2 = 1);

    lzx_builder& literal(unsigned byte) { return symbol(byte); }
    lzx_builder& literals(const bytes& content);
    // A match of a slot from 3 on. Length 2 to 257, distance 1 to 32,765.
    lzx_builder& match(std::size_t distance, std::size_t length);
    // A match with one of the last three distances: slot 0, 1 or 2.
    lzx_builder& recent(unsigned slot, std::size_t length);
    lzx_builder& symbol(unsigned symbol);

    // The lengths of one run of symbols as differences from those before: the code of the differences is
    // flat, runs of zeros and of equal lengths are written as such.
    lzx_builder& lengths(const bytes& lengths, const bytes& before);
    [[nodiscard]] bit_word_writer& bits() { return m_bits; }
    [[nodiscard]] bytes build() const;

  private:
    void block(unsigned type, std::size_t size, const lzx_codes& codes);
    void main_match(unsigned slot, std::size_t length);

    bit_word_writer m_bits;
    bool m_aligned = false;
    bytes m_main_before = bytes(lzx_main_symbols);
    bytes m_length_before = bytes(lzx_length_symbols);
    std::vector<code_word> m_main;
    std::vector<code_word> m_length;
    std::vector<code_word> m_aligned_code;
};

}  // namespace quarry::test
