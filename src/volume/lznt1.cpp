#include "volume/lznt1.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace quarry {

namespace {

// Up to this size a payload is too short to say anything of the rest of its chunk.
constexpr std::size_t longest_payload_on_zeros = 8;

}  // namespace

bool split_token(std::uint16_t token, std::uint64_t position, std::uint32_t& offset_back,
                 std::uint32_t& length) {
    // Position 0 wraps to the largest number, whose split makes the offset 1: no token is valid there.
    const auto bits = static_cast<unsigned>(std::bit_width((position - 1) >> 4));
    offset_back = (std::uint32_t{token} >> ((12 - bits) % 32)) + 1;
    length = (token & (0xFFFu >> (bits % 32))) + 3;
    return offset_back <= position;
}

// Deliberate: one would expect the rest of a chunk that ends early to be zeros. It shows the bytes of the
// chunk before in its place, which the file's size hides as a rule, since only the last chunk of a file ends
// early.
bool decompress_chunk(byte_view bytes, std::size_t size, const plain_chunk& before, plain_chunk& output) {
    std::uint8_t* const plain = output.storage.data();
    std::size_t in = 0;
    std::size_t out = 0;
    // Ends at the end of the payload, since each turn takes its flag byte, or with the chunk full.
    while (in < size && out < lznt1_chunk_size) {
        unsigned flags = bytes.u8_or_zero(in++);
        for (int item = 0; item < 8 && in < size && out < lznt1_chunk_size; ++item, flags >>= 1) {
            if ((flags & 1) == 0) {
                plain[out++] = bytes.u8_or_zero(in++);
                continue;
            }
            const auto token =
                static_cast<std::uint16_t>(bytes.u8_or_zero(in) | (bytes.u8_or_zero(in + 1) << 8));
            std::uint32_t offset_back = 0;
            std::uint32_t length = 0;
            if (!split_token(token, out, offset_back, length)) {
                return false;
            }
            in += 2;
            const std::size_t end = std::min<std::size_t>(out + length, lznt1_chunk_size);
            for (; out < end; ++out) {
                plain[out] = plain[out - offset_back];
            }
        }
    }
    if (size <= longest_payload_on_zeros) {
        std::memset(plain + out, 0, lznt1_chunk_size - out);
    } else {
        std::memcpy(plain + out, before.storage.data() + out, lznt1_chunk_size - out);
    }
    return true;
}

}  // namespace quarry
