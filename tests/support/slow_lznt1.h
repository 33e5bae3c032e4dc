// A decoder of compressed units that is slow and easy to see through, for comparison with the fast one.
#pragma once

#include "support/byte_writer.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace quarry::test {

// One chunk of 4096 decompressed bytes. A payload that claims more than `unit` holds ends with it; the bytes
// of a token after the end count as zeros.
struct slow_chunk {
    bool sound = false;
    bytes plain;
};
[[nodiscard]] slow_chunk slow_decode_chunk(const bytes& unit, std::size_t payload_at,
                                           std::size_t payload_size, const bytes& chunk_before);

// A unit of chunks, without the question whether it is plain.
struct slow_unit {
    bool ok = false;
    bytes plain;  // what was given out, also by a unit that failed
};
[[nodiscard]] slow_unit slow_decode_chunks(const bytes& unit, std::size_t limit);

// The strict rules: a unit of chunks, or nothing if it breaks one. `wanted` bytes from its start; bytes that
// no chunk gives are zeros.
[[nodiscard]] std::optional<bytes> slow_strict_unit(const bytes& stored, std::size_t wanted);

}  // namespace quarry::test
