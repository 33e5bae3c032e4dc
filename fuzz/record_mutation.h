// Mutations of NTFS structures inside of larger bytes.
//
// A file record or an index block is protected: the last two bytes of each of its sectors are stored
// elsewhere. A change at random hits the protected words, or a field that a reader looks at before all else.
// So a block is first brought into the form in which readers work on it, then one of its fields changes, and
// at last it is protected again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <span>

namespace quarry::fuzz {

using random_numbers = std::minstd_rand;

// Changes one block in place, in one to three fields. False if there is none.
bool mutate_block(std::span<std::uint8_t> image, random_numbers& random);

// Changes one field of the boot sector at the start.
void mutate_boot_sector(std::span<std::uint8_t> image, random_numbers& random);

// A number that tends to break something: near a limit, a power of two, or small.
[[nodiscard]] std::uint64_t odd_number(random_numbers& random);

}  // namespace quarry::fuzz
