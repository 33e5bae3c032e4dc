// Volumes that hold something of everything: what fuzzers start from and what the damage campaign damages.
#pragma once

#include "support/volume_builder.h"

namespace quarry::test {

// A volume with files in one piece and in several, sparse, with named streams, links and short names, with
// lists of attributes inside and outside of their records, security descriptors, $MFT in two pieces and a
// directory of so many files in index blocks. `everything` adds an attribute of each type, a compressed file
// and reparse points. Where $MFT lies is chosen here; the rest of the geometry is the caller's.
[[nodiscard]] bytes rich_volume(const geometry& wanted, int files, bool everything);

// A volume of few kilobytes with a file, a named stream and a sparse file on it: entries 10 to 12.
[[nodiscard]] bytes small_volume();
// Its geometry: clusters of one sector, 14 records from cluster 2 on.
[[nodiscard]] geometry small_geometry();

}  // namespace quarry::test
