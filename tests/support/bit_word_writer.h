// Bits in 16-bit words, the highest bit of a word first, as the codecs of system compression read them.
#pragma once

#include "support/byte_writer.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace quarry::test {

class bit_word_writer {
  public:
    // The low `count` bits of a value, its highest first.
    bit_word_writer& bits(unsigned count, std::uint64_t value);
    // "110 01": zeros and ones; blanks are free.
    bit_word_writer& bits(std::string_view digits);
    // A byte between the words: after those of which a reader has fetched so many that it holds 16 bits or
    // more that are not taken yet.
    bit_word_writer& byte(unsigned value);
    // The rest of the word is left out; a whole word if none is left.
    bit_word_writer& leave_word();
    // Bytes after all words so far, which must be full.
    bit_word_writer& raw(const bytes& content);
    [[nodiscard]] bytes take() { return std::move(m_bytes); }

  private:
    void fetch(std::size_t bits);

    bytes m_bytes;
    std::size_t m_taken = 0;                // bits
    std::vector<std::size_t> m_word_begin;  // of each word that is fetched
};

}  // namespace quarry::test
