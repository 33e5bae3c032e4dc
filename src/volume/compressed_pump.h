// Compressed streams on their way to a sink: unit after unit is read, made plain and written.
#pragma once

#include "volume/ntfs.h"
#include "volume/runs.h"
#include "volume/stream_sink.h"

#include <cstdint>

namespace quarry {

// Writes the decompressed bytes of a compressed stream to `sink`. `offset` is where in the stream to begin, a
// whole number of units; `limit` ends the stream; `allocated` is what its clusters hold, sparse ones
// included; all in bytes. True if at least one unit was delivered. A unit that cannot be read or decompressed
// ends the stream there.
[[nodiscard]] bool pump_compressed(CNtfs& ntfs, const cluster_run_list& runs, stream_sink& sink,
                                   std::uint64_t offset, std::uint64_t limit, std::uint64_t allocated);

}  // namespace quarry
