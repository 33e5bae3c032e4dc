// $Bitmap: which clusters of the volume are in use.
//
// Entry 6 holds one bit for each cluster, the lowest bit of a byte first. Only the bits of the clusters that
// a stream uses are looked at. They say whether a stream of a deleted file was overwritten since, and show a
// contradiction where a file in use has clusters that the volume calls free.
//
//     byte 0: clusters 7 6 5 4 3 2 1 0 | byte 1: clusters 15 ... 8 | ...
#pragma once

#include "exact/failure.h"
#include "exact/mft.h"
#include "exact/run_map.h"
#include "exact/stored_stream.h"

#include <cstdint>

namespace quarry::exact {

class allocation {
  public:
    // Finds the bitmap; its bits are read when they are asked for. Fails with sizes if it has fewer bits than
    // the volume has clusters.
    [[nodiscard]] static result<allocation> open(const mft& table, notices& told);

    struct count {
        std::uint64_t used = 0;
        std::uint64_t free = 0;
    };
    // What the bitmap says of the stored clusters of a stream.
    [[nodiscard]] result<count> of(const run_map& runs) const;

  private:
    allocation(const volume_bytes& volume, stored_stream bitmap)
        : m_volume(volume), m_bitmap(std::move(bitmap)) {}
    [[nodiscard]] result<std::uint64_t> used_in(std::uint64_t lcn, std::uint64_t length) const;

    volume_bytes m_volume;
    stored_stream m_bitmap;
};

}  // namespace quarry::exact
