// The MD5 message digest (RFC 1321), and bytes as hexadecimal text.
//
// A copy can carry the digest of its own bytes in its name. The digest is computed while the bytes are
// written, in one pass, so all routines are streaming: md5_init, any number of md5_update, md5_final. Whole
// 64-byte blocks are digested straight from the caller's bytes; only a partial block is ever copied.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace quarry {

struct md5_ctx {
    std::array<std::uint32_t, 4> state{};      // A, B, C, D
    std::array<std::uint32_t, 2> bit_count{};  // bits so far: low half, high half
    std::array<std::uint8_t, 64> buffer{};     // the bytes after the last whole block
};
using md5_digest = std::array<std::uint8_t, 16>;

// Makes the context ready for a new message. False for a null context.
bool md5_init(md5_ctx* ctx);
// Takes the next `length` bytes of the message. False, with nothing changed, for a null context, null bytes
// or a length of 0.
bool md5_update(md5_ctx* ctx, const void* bytes, std::size_t length);
// Ends the message and makes the context ready for the next one. False for a null context; `digest` then
// keeps its value.
bool md5_final(md5_digest& digest, md5_ctx* ctx);

// Two lower-case hexadecimal digits for each of `length` bytes; with `spaced` a blank between bytes. Null
// bytes or a length of 0 give empty text.
void hex_text(std::string& out, const void* bytes, std::size_t length, bool spaced);

}  // namespace quarry
