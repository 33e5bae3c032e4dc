// The pieces that both reports are put together from: numbers in their fixed forms, and the words for file
// attributes.
#pragma once

#include <cstdint>
#include <string>

namespace quarry {

// Lower-case hexadecimal with at least `digits` digits (at most 16), zeros in front, without "0x".
[[nodiscard]] std::string hex(std::uint64_t value, unsigned digits);
// The same, and behind it the decimal number: "0010 [16]".
[[nodiscard]] std::string hex_and_decimal(std::uint64_t value, unsigned digits);
// A place on the source: its bytes, and what they are in sectors. " bytes [0x800 sectors]" behind twelve
// digits.
[[nodiscard]] std::string bytes_and_sectors(std::uint64_t bytes, std::uint32_t bytes_per_sector);

// The words for the attribute bits of a file with ", " between them; "none set" for no bit, "unk" if no bit
// has a word.
[[nodiscard]] std::string file_attribute_words(std::uint32_t attributes);

}  // namespace quarry
