// Mutations of a file with holes: its length changes, a piece moves, or the stored bytes break apart at a
// sector.
#pragma once

#include "fuzz/record_mutation.h"
#include "fuzz/sparse_input.h"

namespace quarry::fuzz {

// Places that structures claim: whole sectors, often a power of two of them.
[[nodiscard]] inline std::uint64_t odd_place(random_numbers& random) {
    constexpr std::uint64_t sector = 512;
    switch (random() % 3) {
        case 0:
            return (std::uint64_t{1} << (9 + random() % 35)) % most_file_bytes;
        case 1:
            return random() % 65536 * sector;
        default:
            return (std::uint64_t{random()} << 12) % most_file_bytes;
    }
}

inline void mutate_places(sparse_input& input, random_numbers& random) {
    const std::size_t count = input.places.size();
    const std::uint64_t choice = random() % 6;
    if (choice == 0 || (count == 0 && choice > 2)) {
        input.length = std::uint64_t{1} << (12 + random() % 33);
    } else if (choice == 1) {
        input.length = odd_place(random);
    } else if (choice == 2 && count < most_pieces && input.stored.size() > 512) {
        const auto first = static_cast<std::uint32_t>(random() % (input.stored.size() / 512) * 512);
        input.places.push_back({first, odd_place(random)});
    } else if (choice == 3 && count != 0) {
        input.places.erase(input.places.begin() + static_cast<std::ptrdiff_t>(random() % count));
    } else if (count != 0) {
        input.places[random() % count].offset = odd_place(random);
    }
}

}  // namespace quarry::fuzz
