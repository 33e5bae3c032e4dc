// The update sequence: how a block shows that it was written whole.
//
// Before a record or an index block is written, the last two bytes of each 512 are moved to an array in its
// head, and a number that changes with every write takes their place. If a sector end does not hold that
// number when the block is read, a write was cut off or a sector decayed: the block is torn.
//
//     offset 4: where the array begins; offset 6: its words
//
//     | head | number, a, b |  ...  number | ...  number |       on the disk, the array protecting 1,024
//     bytes
//                                      ^510         ^1022
//     | head | number, a, b |  ...       a | ...       b |       restored
//
// The stride is 512 bytes on every volume, also where sectors have 4,096.
#pragma once

#include "exact/block_place.h"
#include "exact/failure.h"
#include "foundation/byte_view.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace quarry::exact {

inline constexpr std::size_t fixup_stride = 512;

// Whether a block begins with the four characters of its kind. Fails with signature, which shows the bytes.
[[nodiscard]] result<void> expect_signature(byte_view block, std::string_view characters,
                                            const block_place& place);

// Compares all sector ends with the update sequence number, then restores them. Fails with array if the array
// is not in the block's first 510 bytes or not made for its size, and with torn at the first sector end that
// differs; the block is then as it was.
[[nodiscard]] result<void> restore_fixups(std::span<std::uint8_t> block, const block_place& place);

}  // namespace quarry::exact
