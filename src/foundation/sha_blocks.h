// How the digests of FIPS 180-4 cut a message into blocks of 64 bytes, and how the last block ends.
//
//     message ... | 80 | 00 ... 00 | length of the message in bits, 8 bytes, big-endian |
//
// Whole blocks are digested straight from the caller's bytes; only a partial block is ever copied.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace quarry {

inline constexpr std::size_t sha_block_size = 64;

[[nodiscard]] inline std::uint32_t load_big_endian(const std::uint8_t* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
           static_cast<std::uint32_t>(bytes[2]) << 8 | static_cast<std::uint32_t>(bytes[3]);
}

template <typename Number>
void store_big_endian(std::uint8_t* bytes, Number value) {
    for (std::size_t i = sizeof(Number); i > 0; --i) {
        bytes[i - 1] = static_cast<std::uint8_t>(value);
        value = static_cast<Number>(value >> 8);
    }
}

// The part of a message that is not digested yet.
struct sha_message {
    std::uint64_t byte_count = 0;                       // of the message so far
    std::array<std::uint8_t, sha_block_size> buffer{};  // the bytes after the last whole block
};

// Takes the next `length` bytes. `digest(blocks, count)` gets whole blocks.
template <typename Digest>
void take_bytes(sha_message& message, const void* bytes, std::size_t length, Digest digest) {
    const auto* input = static_cast<const std::uint8_t*>(bytes);
    const std::size_t buffered = message.byte_count % sha_block_size;
    message.byte_count += length;
    if (buffered != 0) {
        const std::size_t missing = sha_block_size - buffered;
        if (length < missing) {
            std::memcpy(&message.buffer[buffered], input, length);
            return;
        }
        std::memcpy(&message.buffer[buffered], input, missing);
        digest(message.buffer.data(), std::size_t{1});
        input += missing;
        length -= missing;
    }
    digest(input, length / sha_block_size);
    const std::size_t rest = length % sha_block_size;
    if (rest != 0) {
        std::memcpy(message.buffer.data(), input + (length - rest), rest);
    }
}

// Digests what is left of the message, and its length.
template <typename Digest>
void end_message(sha_message& message, Digest digest) {
    constexpr std::size_t length_field_offset = 56;
    std::size_t used = message.byte_count % sha_block_size;
    message.buffer[used++] = 0x80;
    if (used > length_field_offset) {
        std::memset(message.buffer.data() + used, 0, sha_block_size - used);
        digest(message.buffer.data(), std::size_t{1});
        used = 0;
    }
    std::memset(message.buffer.data() + used, 0, length_field_offset - used);
    store_big_endian(&message.buffer[length_field_offset], message.byte_count * 8);
    digest(message.buffer.data(), std::size_t{1});
}

}  // namespace quarry
