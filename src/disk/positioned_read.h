// Bytes of a descriptor at a position, as many as there are.
#pragma once

#include "disk/byte_source.h"

#include <cstdint>
#include <span>

namespace quarry {

// Reads bytes of `descriptor` from byte position `offset` on, without moving the descriptor's own position.
// An interrupted read is begun again and one that came short is continued, until the buffer is full, the
// source ends or an error stops it. A position that the system cannot express is the error EINVAL.
[[nodiscard]] read_outcome read_from_descriptor(int descriptor, std::span<std::uint8_t> buffer,
                                                std::uint64_t offset);

// The same for readers of metadata, which take zeros for what was not read. Returns the number of bytes that
// were read, or -1 when an error came before the first of them (then `errno` says why).
[[nodiscard]] std::int64_t read_at_position(int descriptor, std::span<std::uint8_t> buffer,
                                            std::uint64_t offset);

}  // namespace quarry
