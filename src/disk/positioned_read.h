// Bytes of a descriptor at a position, as many as there are.
#pragma once

#include <cstdint>
#include <span>

namespace quarry {

// Fills `buffer` with the bytes of `descriptor` from byte position `offset` on, without moving the
// descriptor's own position. An interrupted read is begun again and one that came short is continued, until
// the buffer is full, the source ends or an error stands in the way; what was not read is zeros. Returns the
// number of bytes that were read, or -1 when an error came before the first of them (then `errno` tells why).
[[nodiscard]] std::int64_t read_at_position(int descriptor, std::span<std::uint8_t> buffer,
                                            std::uint64_t offset);

}  // namespace quarry
