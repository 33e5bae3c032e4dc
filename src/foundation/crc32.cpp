#include "foundation/crc32.h"

#include <array>

namespace quarry {

namespace {

constexpr std::uint32_t polynomial = 0xEDB88320;

// What eight steps of the division make of each byte.
constexpr std::array<std::uint32_t, 256> make_table() {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t value = 0; value < table.size(); ++value) {
        std::uint32_t remainder = value;
        for (int bit = 0; bit < 8; ++bit) {
            remainder = (remainder & 1) != 0 ? (remainder >> 1) ^ polynomial : remainder >> 1;
        }
        table[value] = remainder;
    }
    return table;
}

constexpr auto table = make_table();

}  // namespace

std::uint32_t crc32(std::span<const std::uint8_t> bytes, std::uint32_t before) {
    std::uint32_t remainder = ~before;
    for (const std::uint8_t byte : bytes) {
        remainder = (remainder >> 8) ^ table[(remainder ^ byte) & 0xFF];
    }
    return ~remainder;
}

}  // namespace quarry
