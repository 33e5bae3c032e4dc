// One chunk of LZX, as it is used for 32,768 bytes in files that the system compressed and in WIM files.
//
// A chunk is a row of blocks, in bits of 16-bit words. Each block has its own codes, whose lengths are stored
// as what they differ from those of the block before:
//
//     | type: 3 | size: 1 or 1 + 16 | aligned: 8 x 3 | lengths | lengths | lengths | symbols and extra bits |
//       1 verbatim                    only of type 2   of 256    of 240    of 249
//       2 aligned                                      bytes     matches   long lengths
//
//     | type 3  | size | to the next word | R0 R1 R2: 3 x 32 bits | the bytes | one more if odd |   stored
//
//     main symbol    0 to 255: a byte
//                  256 to 495: a match, 256 + | slot: 5 bits | length: 3 bits |
//
// A match repeats bytes from a distance. The last three distances are R0, R1, R2; slots 0 to 2 take one of
// them, each other slot is a range of distances in which extra bits choose:
//
//     slot       3   4   5   6   7   8  ...  28     29
//     distance   1   2   4   6  10  14       16382  24574   and more, by
//     extra      0   1   1   2   2   3       13     13      bits
//
// In aligned blocks the lowest three of the extra bits are a symbol of a code of their own. Once all bytes
// are decoded, the targets of what may be calls of x86 programs, which were made absolute, are made relative.
#pragma once

#include "exact/bit_words.h"
#include "exact/failure.h"
#include "exact/prefix_code.h"
#include "foundation/byte_view.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace quarry::exact {

class lzx_decoder {
  public:
    static constexpr std::size_t largest_chunk = 32768;

    // Decodes chunk number `number` of the stream `where` into `plain`, which has as many bytes as the chunk
    // decodes to, at most largest_chunk. What follows in the chunk is not looked at. Fails with wof, at the
    // chunk, if a rule is broken: an impossible type or size of a block, a code that is not complete, a match
    // that leads ahead of the chunk or reaches past the end of its block, a chunk that ends early. Then
    // `plain` holds anything.
    [[nodiscard]] result<void> decode(byte_view stored, std::span<std::uint8_t> plain,
                                      const std::string& where, std::uint64_t number);

  private:
    static constexpr std::size_t byte_symbols = 256;
    static constexpr std::size_t main_symbols = byte_symbols + std::size_t{30} * 8;
    static constexpr std::size_t length_symbols = 249;
    static constexpr std::size_t aligned_symbols = 8;
    static constexpr std::size_t pre_symbols = 20;

    // Each gives the rule that is broken, or null.
    [[nodiscard]] const char* decode_all(byte_view stored, std::span<std::uint8_t> plain);
    [[nodiscard]] const char* read_codes(bit_words& bits, bool aligned);
    [[nodiscard]] const char* read_lengths(bit_words& bits, std::span<std::uint8_t> lengths);
    [[nodiscard]] const char* decode_block(bit_words& bits, std::span<std::uint8_t> plain, std::size_t begin,
                                           std::size_t end, bool aligned);
    [[nodiscard]] const char* copy_stored(byte_view stored, std::size_t& place, std::span<std::uint8_t> to);
    // The distance of a match that takes one of the last three, or keeps its own among them.
    std::size_t recent_distance(unsigned slot);
    void keep_distance(std::size_t distance);

    prefix_code<main_symbols, 11> m_main;
    prefix_code<length_symbols, 10> m_length;
    prefix_code<aligned_symbols, 7> m_aligned;
    prefix_code<pre_symbols, 7> m_pre;
    bool m_has_length_code = false;
    bool m_has_aligned_code = false;
    // Lengths of codes, from one block to the next.
    std::array<std::uint8_t, main_symbols> m_main_lengths{};
    std::array<std::uint8_t, length_symbols> m_length_lengths{};
    std::array<std::size_t, 3> m_recent{};  // R0, R1, R2
};

}  // namespace quarry::exact
