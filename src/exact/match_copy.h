// Repeats bytes that were decoded before, which is what a match of an LZ77 codec is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace quarry::exact {

// Writes `length` bytes at `at`, each equal to the one `distance` bytes ahead of it; source and target may
// overlap. The distance is 1 to `at`, and the length at most what is left of `plain`. Bytes after the match
// may be written too, none outside of `plain`.
inline void copy_match(std::span<std::uint8_t> plain, std::size_t at, std::size_t distance,
                       std::size_t length) {
    constexpr std::size_t stride = 8;
    std::uint8_t* to = plain.data() + at;
    const bool has_room = length + 2 * stride <= plain.size() - at;
    if (distance >= stride && has_room) {
        // Most matches are no longer than two strides.
        std::memcpy(to, to - distance, stride);
        std::memcpy(to + stride, to + stride - distance, stride);
        for (std::size_t i = 2 * stride; i < length; i += stride) {
            std::memcpy(to + i, to + i - distance, stride);
        }
        return;
    }
    if (distance == 1) {
        std::memset(to, to[-1], length);
        return;
    }
    for (std::size_t i = 0; i < length; ++i) {
        to[i] = *(to + i - distance);
    }
}

}  // namespace quarry::exact
