// LZNT1 the other way: chunks and units of compressed streams for the tests.
#pragma once

#include "support/byte_writer.h"

#include <cstddef>
#include <cstdint>

namespace quarry::test {

inline constexpr std::size_t lznt1_block = 4096;  // decompressed bytes of a chunk

// The payload of a chunk, item by item, for chunks that no encoder would make.
class lznt1_payload {
  public:
    lznt1_payload& literal(std::uint8_t byte);
    lznt1_payload& literals(const bytes& text);
    // A repeat of `length` bytes (3 and up) from `back` bytes ahead. Throws std::out_of_range if a token at
    // this place cannot say that.
    lznt1_payload& repeat(std::size_t back, std::size_t length);
    // A token as it is, whatever it means.
    lznt1_payload& token(std::uint16_t bits);

    // Decompressed bytes so far, by the items given.
    [[nodiscard]] std::size_t position() const { return m_position; }
    [[nodiscard]] bytes build() const { return m_bytes; }

  private:
    void begin_item(bool is_token);
    bytes m_bytes;
    std::size_t m_flags_at = 0;
    unsigned m_items = 0;
    std::size_t m_position = 0;
};

// Bits of the distance in a token after `position` decompressed bytes (at least 1): 4 to 12.
[[nodiscard]] unsigned lznt1_distance_bits(std::size_t position);

// At most 4096 bytes as a payload, each item the longest repeat there is.
[[nodiscard]] bytes lznt1_compress(const bytes& plain);

// A chunk with its header. The payload has at most 4096 bytes.
[[nodiscard]] bytes lznt1_chunk(const bytes& payload);
// A block that is stored as it is after a chunk header; zeros fill it up to 4096 bytes.
[[nodiscard]] bytes lznt1_stored_chunk(const bytes& plain);

// The chunks of a unit, one for each 4096 of its bytes, stored where a payload would be no shorter.
[[nodiscard]] bytes lznt1_chunks(const bytes& plain);

}  // namespace quarry::test
