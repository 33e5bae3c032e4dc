// One fuzz input as a file with holes: its stored bytes go to places that the input names, and its length has
// nothing to do with how many there are. A file of 4 KiB that seems to hold 16 TiB costs an adversary
// nothing.
//
// Everything is counted from the end of the input, so that what is stored begins at its start and sectors
// keep their alignment:
//
//     stored bytes
//     pieces, 12 bytes each: the first stored byte of the piece (4 bytes), where it goes in the file (8)
//     length of the file (8); one that is too short for the pieces grows to hold them
//     number of pieces (1)
//
// Stored bytes before the first piece go to the start of the file. Numbers are little-endian; those that are
// too large wrap. An input of less than nine bytes is all stored.
#pragma once

#include "foundation/byte_view.h"
#include "support/memory_file.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quarry::fuzz {

// No file is longer.
inline constexpr std::uint64_t most_file_bytes = std::uint64_t{1} << 44;
inline constexpr std::size_t most_pieces = 16;

struct piece_place {
    std::uint32_t first = 0;   // stored byte
    std::uint64_t offset = 0;  // bytes from the start of the file
};

struct sparse_input {
    std::vector<std::uint8_t> stored;
    std::vector<piece_place> places;
    std::uint64_t length = 0;
};

// Stored bytes that lie together in the file.
struct file_piece {
    std::uint64_t offset = 0;
    byte_view content;
};

[[nodiscard]] inline sparse_input take_sparse(byte_view input) {
    constexpr std::size_t place_size = 12;
    constexpr std::size_t fixed_size = 9;
    sparse_input result;
    if (input.size() < fixed_size) {
        result.stored = input.to_vector();
        return result;
    }
    std::size_t end = input.size() - fixed_size;
    result.length = input.u64_or_zero(end) % (most_file_bytes + 1);
    const std::size_t wanted = input.u8_or_zero(end + 8) % (most_pieces + 1);
    for (const std::size_t count = std::min(wanted, end / place_size); result.places.size() < count;) {
        end -= place_size;
        result.places.push_back({static_cast<std::uint32_t>(input.u32_or_zero(end)),
                                 input.u64_or_zero(end + 4) % most_file_bytes});
    }
    std::reverse(result.places.begin(), result.places.end());
    result.stored = input.clipped(0, end).to_vector();
    return result;
}

[[nodiscard]] inline std::vector<std::uint8_t> put_sparse(const sparse_input& input) {
    std::vector<std::uint8_t> out = input.stored;
    const auto number = [&](std::uint64_t value, unsigned width) {
        for (unsigned i = 0; i < width; ++i) {
            out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
        }
    };
    for (const piece_place& place : input.places) {
        number(place.first, 4);
        number(place.offset, 8);
    }
    number(input.length, 8);
    number(input.places.size(), 1);
    return out;
}

// The pieces in the order of the stored bytes; one that would reach beyond the longest file is cut.
[[nodiscard]] inline std::vector<file_piece> pieces_of(const sparse_input& input) {
    std::vector<piece_place> places = input.places;
    std::stable_sort(places.begin(), places.end(),
                     [](const piece_place& a, const piece_place& b) { return a.first < b.first; });
    places.insert(places.begin(), piece_place{});
    const byte_view stored(input.stored);
    std::vector<file_piece> pieces;
    for (std::size_t i = 0; i < places.size(); ++i) {
        const std::uint64_t next = i + 1 < places.size() ? places[i + 1].first : stored.size();
        const std::uint64_t room = most_file_bytes - places[i].offset;
        const byte_view content = stored.clipped(places[i].first, std::min(next - places[i].first, room));
        if (!content.empty()) {
            pieces.push_back({places[i].offset, content});
        }
    }
    return pieces;
}

[[nodiscard]] inline std::uint64_t length_of(const sparse_input& input) {
    std::uint64_t length = input.length;
    for (const file_piece& piece : pieces_of(input)) {
        length = std::max(length, piece.offset + piece.content.size());
    }
    return length;
}

// The file is this input from here on, and stores nothing but its pieces.
inline void hold(const test::memory_file& file, const sparse_input& input) {
    file.hold({});
    for (const file_piece& piece : pieces_of(input)) {
        file.put(piece.offset, piece.content);
    }
    file.set_length(length_of(input));
}

}  // namespace quarry::fuzz
