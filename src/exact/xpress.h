// One chunk of XPRESS with prefix codes (MS-XCA, "LZ77+Huffman").
//
//     0                     256
//     | 512 code lengths    | symbols and distances, in 16-bit words         |
//     | of 4 bits, the low  |          and between the words the bytes of     |
//     | half of a byte first|          lengths that do not fit into a symbol  |
//
//     symbol    0 to 255: a byte
//             256 to 511: a match   | 1 | k: 4 bits | L: 4 bits |
//
// A match repeats L + 3 bytes from 2^k + x bytes ahead, x being the k bits that follow the symbol. If L is
// 15, a byte b is added; if that is 255, the next two bytes are L itself. Symbol 256 marks the end of the
// data for some writers; a reader knows the size and never reads it as an end.
#pragma once

#include "exact/failure.h"
#include "exact/prefix_code.h"
#include "foundation/byte_view.h"

#include <cstdint>
#include <span>
#include <string>

namespace quarry::exact {

class xpress_decoder {
  public:
    // Decodes chunk number `number` of the stream `where` into `plain`, which has as many bytes as the chunk
    // decodes to. What follows in the chunk is not looked at. Fails with wof, at the chunk, if a rule is
    // broken: the code is not complete, a match leads ahead of the chunk or reaches past its end, a length of
    // two bytes is below 15, the chunk ends early. Then `plain` holds anything.
    [[nodiscard]] result<void> decode(byte_view stored, std::span<std::uint8_t> plain,
                                      const std::string& where, std::uint64_t number);

  private:
    static constexpr std::size_t symbols = 512;

    [[nodiscard]] const char* decode_all(byte_view stored, std::span<std::uint8_t> plain);

    prefix_code<symbols, 11> m_code;
};

}  // namespace quarry::exact
