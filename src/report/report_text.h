// The pieces that both reports are put together from: numbers in their fixed forms, and the words for file
// attributes.
#pragma once

#include "foundation/hexadecimal.h"

#include <cstdint>
#include <string>

namespace quarry {

// A number as hexadecimal text of at least `digits` digits, then as a decimal one: "0010 [16]".
[[nodiscard]] std::string hex_and_decimal(std::uint64_t value, unsigned digits);
// A place on the source in bytes and in sectors: twelve digits, then " bytes [0x800 sectors]".
[[nodiscard]] std::string bytes_and_sectors(std::uint64_t bytes, std::uint32_t bytes_per_sector);

// The words for the attribute bits of a file with ", " between them; "none set" for no bit, "unk" if no bit
// has a word.
[[nodiscard]] std::string file_attribute_words(std::uint32_t attributes);

}  // namespace quarry
