// Content for tests of compression.
#pragma once

#include "support/byte_writer.h"

#include <cstddef>
#include <cstdint>

namespace quarry::test {

// Words of a small dictionary, the first ones more often: text that LZNT1 brings down to about half. The same
// seed gives the same text.
[[nodiscard]] bytes text_like(std::size_t size, std::uint32_t seed);
// Bytes that do not compress.
[[nodiscard]] bytes random_bytes(std::size_t size, std::uint32_t seed);

}  // namespace quarry::test
