// The clusters of a stream announced ahead of the reads that will need them.
//
// A stream in thousands of fragments is read piece by piece, and a disk whose contents are not in memory
// would be waited for as many times. The system is told of the pieces ahead, so that it reads many of them at
// once:
//
//     runs      | 0 | 1 | 2 | 3 | 4 | ... | 63 | 64 | 65 |
//                 ^ read now                ^ announced up to here, one more with each run that is read
//
// A stream in one piece needs none of this: the system reads ahead of its own accord there. Announcing
// changes nothing of what is read, and where the system cannot do it nothing happens.
#pragma once

#include "exact/stored_stream.h"
#include "exact/volume_bytes.h"

#include <cstddef>
#include <cstdint>
#include <deque>

namespace quarry::exact {

class run_announcer {
  public:
    // What is announced and not yet read is so many pieces and so many bytes at most.
    static constexpr std::size_t most_pieces = 64;
    static constexpr std::uint64_t most_bytes = 0x400000;

    // Both must outlive the object.
    run_announcer(const volume_bytes& volume, const stored_stream& stream)
        : m_volume(&volume), m_stream(&stream) {}

    // The stream is going to be read from byte `offset` on. Offsets that fall are passed over.
    void reading(std::uint64_t offset);

  private:
    struct piece {
        std::size_t run;
        std::uint64_t bytes;
    };

    const volume_bytes* m_volume;
    const stored_stream* m_stream;
    std::size_t m_at = 0;       // the run that is read
    std::size_t m_next = 1;     // the first run that was not looked at
    std::deque<piece> m_ahead;  // announced, after the run that is read
    std::uint64_t m_bytes_ahead = 0;
};

}  // namespace quarry::exact
