// How much of a stream moves at a time.
//
// Streams move in units of 16 clusters. That is also what a compressed stream is made of.
#pragma once

#include "volume/ntfs.h"

#include <cstdint>

namespace quarry {

// Deliberate: a compressed stream moves in units of 16 clusters, not in the units that its attribute names.
// NTFS makes no others, and where damage made the field another number the user still gets the file.
inline constexpr std::uint64_t clusters_per_unit = 16;

// Bytes of a unit, whatever the size of the source. 0 for a volume without a usable cluster size.
[[nodiscard]] std::uint64_t transfer_unit(const CNtfs& ntfs);

// Bytes of a buffer for transfers. A boot sector may claim clusters of many megabytes, so of a unit of more
// than 1 MiB it holds as much as the source has, rounded up to a whole cluster, and 64 MiB at most. 0 where
// the unit is.
[[nodiscard]] std::uint64_t transfer_buffer_size(const CNtfs& ntfs);

}  // namespace quarry
