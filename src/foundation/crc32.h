// The CRC-32 of ISO 3309 (reversed polynomial 0xEDB88320), which guards the GPT.
#pragma once

#include <cstdint>
#include <span>

namespace quarry {

// The checksum of bytes. To take them in several pieces, hand on what the pieces before gave.
[[nodiscard]] std::uint32_t crc32(std::span<const std::uint8_t> bytes, std::uint32_t before = 0);

}  // namespace quarry
