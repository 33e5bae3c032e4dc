// Chunks of XPRESS with prefix codes, put together item by item.
#pragma once

#include "support/bit_word_writer.h"
#include "support/code_lengths.h"

#include <cstddef>

namespace quarry::test {

class xpress_builder {
  public:
    // With a code in which each of the 512 symbols has 9 bits: the symbol itself.
    xpress_builder() : xpress_builder(flat_code_lengths(512)) {}
    explicit xpress_builder(const bytes& lengths);

    xpress_builder& symbol(unsigned symbol);
    xpress_builder& literal(unsigned byte) { return symbol(byte); }
    xpress_builder& literals(const bytes& content);
    // A length below 3 or above 65,538 cannot be encoded.
    xpress_builder& match(std::size_t distance, std::size_t length);
    // Symbol, bytes and bits of a match as the caller wants them.
    xpress_builder& match_with(unsigned distance_bits, unsigned distance, const bytes& length_bytes);
    xpress_builder& end() { return symbol(256); }
    [[nodiscard]] bytes build() const;

  private:
    bytes m_lengths;
    std::vector<code_word> m_code;
    bit_word_writer m_bits;
};

}  // namespace quarry::test
