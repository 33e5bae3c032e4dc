// Names as the volume stores them and as people type and read them.
//
// NTFS stores a name as 16-bit units, which are UTF-16 only by custom: a unit may be half of a surrogate pair
// or a control character. On the command line, in messages and in the manifest a name is UTF-8 in canonical
// form: a backslash is written `\\`, a colon `\:`, and whatever cannot be written as it is, or would act on a
// terminal, as `\uXXXX`, one unit each. What is shown can be given back.
#pragma once

#include "foundation/byte_view.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quarry::exact {

// The units of UTF-8 text; nothing if the text is not valid UTF-8.
[[nodiscard]] std::optional<std::u16string> units_of_utf8(std::string_view text);

// The little-endian units of a name on the disk; a last odd byte is left out.
[[nodiscard]] std::u16string units_of_bytes(byte_view bytes);

// A name in canonical form. Control characters, DEL, separators of lines and paragraphs, bidirectional
// controls, characters without a width, unpaired surrogates and "/" are written as \uXXXX.
[[nodiscard]] std::string shown_name(std::u16string_view units);

// Text that somebody typed, for a message: as it is, but for characters that would act on a terminal, which
// become \uXXXX, and bytes that are not UTF-8, which become \xXX.
[[nodiscard]] std::string shown_typed(std::string_view text);

}  // namespace quarry::exact
