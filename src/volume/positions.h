// Byte positions, as far as the system can express them.
//
// A source and the volume on it may claim any cluster number. Positions are kept to 63 bits, which is what a
// file has room for; a position that they cannot hold reads as a failed read.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>

namespace quarry {

inline constexpr std::uint64_t highest_position = std::numeric_limits<std::int64_t>::max();

// The product of two numbers if a position can hold it.
[[nodiscard]] constexpr std::optional<std::uint64_t> position_product(std::uint64_t count,
                                                                      std::uint64_t size) {
    if (size != 0 && count > highest_position / size) {
        return std::nullopt;
    }
    return count * size;
}

// The sum of two positions if a position can hold it.
[[nodiscard]] constexpr std::optional<std::uint64_t> position_sum(std::uint64_t first, std::uint64_t second) {
    if (first > highest_position || second > highest_position - first) {
        return std::nullopt;
    }
    return first + second;
}

}  // namespace quarry
