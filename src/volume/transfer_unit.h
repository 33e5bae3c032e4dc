// How much of a stream moves at a time.
//
// Streams move in units of 16 clusters. That is also what a compressed stream is made of.
#pragma once

#include "volume/ntfs.h"

#include <cstdint>

namespace quarry {

// Deliberate: one would expect a compressed stream to move in the units that its attribute tells. It moves in
// units of 16 clusters whatever the attribute says; NTFS makes no others, and where damage made the field
// another number the user still gets the file.
inline constexpr std::uint64_t clusters_per_unit = 16;

// Bytes of a unit. A boot sector may claim clusters of many megabytes, so a unit of more than 1 MiB is cut to
// the size of the source, rounded up to a whole cluster. 0 for a volume without a usable cluster size.
[[nodiscard]] std::uint64_t transfer_unit(const CNtfs& ntfs);

}  // namespace quarry
