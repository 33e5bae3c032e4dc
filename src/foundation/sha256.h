// The SHA-256 message digest (FIPS 180-4).
//
// The digest that proves a copy in court. It is computed while the bytes are written, in one pass, so all
// routines are streaming as those of md5.h are: sha256_init, any number of sha256_update, sha256_final. Whole
// 64-byte blocks are digested straight from the caller's bytes; only a partial block is ever copied. Many
// processors have instructions for the rounds; where they do, those are used.
#pragma once

#include "foundation/sha_blocks.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace quarry {

// The eight working variables, A to H.
using sha256_state = std::array<std::uint32_t, 8>;
// Digests `count` blocks of 64 bytes into the state.
using sha256_transform = void(sha256_state& state, const std::uint8_t* blocks, std::size_t count);

// In plain C++.
sha256_transform sha256_transform_plain;
// With the instructions of this processor; null if it has none for it.
[[nodiscard]] sha256_transform* sha256_transform_of_processor();

struct sha256_ctx {
    sha256_state state{};
    sha_message message;
    sha256_transform* transform = nullptr;
};
using sha256_digest = std::array<std::uint8_t, 32>;

// Makes the context ready for a new message, by the fastest transform that there is or by `transform`. False
// for a null context.
bool sha256_init(sha256_ctx* ctx, sha256_transform* transform = nullptr);
// Takes the next `length` bytes of the message. False, with nothing changed, for a null context, null bytes
// or a length of 0.
bool sha256_update(sha256_ctx* ctx, const void* bytes, std::size_t length);
// Ends the message and makes the context ready for the next one, by the same transform. False for a null
// context; `digest` then keeps its value.
bool sha256_final(sha256_digest& digest, sha256_ctx* ctx);

}  // namespace quarry
