// Decoders of XPRESS and LZX that are slow and easy to see through, for comparison with the fast ones: bits
// one by one, codes looked up in a map, no table, no joined copy.
#pragma once

#include "support/byte_writer.h"

#include <cstddef>
#include <optional>

namespace quarry::test {

// The `plain_size` bytes that a chunk decodes to, or nothing if it breaks a rule.
[[nodiscard]] std::optional<bytes> slow_xpress_chunk(const bytes& stored, std::size_t plain_size);
[[nodiscard]] std::optional<bytes> slow_lzx_chunk(const bytes& stored, std::size_t plain_size);

}  // namespace quarry::test
