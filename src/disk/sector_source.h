// What the rules of partition tables read from: a disk and a buffer look the same to them.
#pragma once

#include "foundation/byte_view.h"

#include <cstdint>
#include <functional>
#include <optional>

namespace quarry {

// Gives `length` bytes from byte `offset` of the source on, fewer where a disk ends, nothing when they cannot
// be had. The view is good until the next call.
using sector_source = std::function<std::optional<byte_view>(std::uint64_t offset, std::uint64_t length)>;

}  // namespace quarry
