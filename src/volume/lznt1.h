// LZNT1, the compression of NTFS: one chunk at a time.
//
// A chunk holds 4096 decompressed bytes. Its payload is a row of groups: a flag byte, then up to eight items,
// whose kinds are the bits of the flag byte, low bit first. A clear bit is a literal byte, a set bit a 16-bit
// token that repeats bytes of the same chunk. A token splits into the distance to go back and the number of
// bytes to repeat. Where it splits depends on how many bytes of the chunk are decompressed already: a
// distance that leads ahead of the chunk is of no use, so an early token spends more bits on the length.
//
//     bytes so far    bits of distance    bits of length    longest distance    longest repeat
//     1 to 16               4                  12                  16                4098
//     17 to 32              5                  11                  32                2050
//     ...                  one more           one less            double
//     2049 to 4096         12                   4                4096                  18
//
// A repeat may reach into the bytes that it makes, which then repeat in their turn.
#pragma once

#include "foundation/byte_view.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace quarry {

inline constexpr std::size_t lznt1_chunk_size = 4096;  // decompressed bytes of a chunk

// The decompressed bytes of one chunk. The decoder works in strides and needs room after the end; what is
// there means nothing.
struct plain_chunk {
    static constexpr std::size_t room_after = 64;
    std::array<std::uint8_t, lznt1_chunk_size + room_after> storage{};

    [[nodiscard]] byte_view bytes() const { return {storage.data(), lznt1_chunk_size}; }
};

// How tokens split from a position on, for positions that only grow.
class token_split {
  public:
    [[nodiscard]] std::size_t back(unsigned token) const { return (token >> m_length_bits) + 1; }
    [[nodiscard]] std::size_t length(unsigned token) const { return (token & m_length_mask) + 3; }
    // Up to here they split this way.
    [[nodiscard]] std::size_t last_position() const { return m_last_position; }
    void move_to(std::size_t position) {
        while (position > m_last_position) {
            m_last_position *= 2;
            m_length_bits -= 1;
            m_length_mask >>= 1;
        }
    }

  private:
    std::size_t m_last_position = 16;
    unsigned m_length_bits = 12;
    unsigned m_length_mask = 0xFFF;
};

// Splits a token that follows `position` decompressed bytes of its chunk. False if it leads ahead of the
// chunk; both outputs are set even then.
[[nodiscard]] bool split_token(std::uint16_t token, std::uint64_t position, std::uint32_t& offset_back,
                               std::uint32_t& length);

// Decodes a chunk's payload of `size` bytes, which begins `bytes`. What follows in `bytes` is only touched
// where the last token of the payload is cut by its end; after `bytes` there are zeros. A payload that claims
// more than `bytes` holds ends with them.
//
// A chunk always counts as 4096 decompressed bytes. Where its payload ends early, `output` takes the rest
// from `before`, the chunk that the same unit had before this one; but it takes zeros if the payload claims
// at most eight bytes, however many of them exist. False for a token that leads ahead of the chunk; `output`
// then holds nothing of use.
[[nodiscard]] bool decompress_chunk(byte_view bytes, std::size_t size, const plain_chunk& before,
                                    plain_chunk& output);

}  // namespace quarry
