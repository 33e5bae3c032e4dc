// One unit of an LZNT1 stream, decoded strictly.
//
// A compressed stream is cut into units of a fixed number of clusters, 16 as a rule. A unit whose chunks take
// fewer clusters than its bytes would is stored in those, and the rest of it is a hole:
//
//     VCN 0                                 16
//     | stored clusters | hole ............ |       chunks, each for 4,096 bytes
//     | stored clusters ................... |       the bytes as they are
//     | hole .............................. |       zeros
//
//     chunk: | header | payload |   header: bits 0 to 11 size of the payload - 1
//                                           bits 12 to 14 always 3
//                                           bit 15        set: compressed; clear: 4,096 bytes as they are
//
// A header of 0 ends the unit early; zeros follow. The items of a payload are explained in volume/lznt1.h.
// What the driver of the volume would repair in one way or another fails here.
#pragma once

#include "exact/failure.h"
#include "foundation/byte_view.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace quarry::exact {

// Decodes the chunks in the stored clusters of unit `unit` of the stream `where` into `plain`, which has as
// many bytes as are wanted from the start of the unit; chunks beyond them are not looked at. The result is
// the first chunk that ends before its 4,096th byte although later bytes of it are wanted: those are zeros,
// and other readers may differ. Fails with unit, at the chunk that breaks a rule.
[[nodiscard]] result<std::optional<std::uint64_t>> decode_lznt1_unit(byte_view stored,
                                                                     std::span<std::uint8_t> plain,
                                                                     const std::string& where,
                                                                     std::uint64_t unit);

}  // namespace quarry::exact
