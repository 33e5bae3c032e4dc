// Streams read the plain way, one cluster at a time, for comparison with the readers that join reads.
#pragma once

#include "support/byte_writer.h"
#include "volume/attr_item.h"
#include "volume/ntfs.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quarry::test {

struct slow_read {
    bool ok = false;
    bytes delivered;
    std::uint32_t flags = 0;
};
// A byte range of a stream; `flags` as they go in.
[[nodiscard]] slow_read slow_read_stream(CNtfs& ntfs, const cluster_run_list& runs, std::uint64_t offset,
                                         std::uint64_t length, std::uint32_t flags);

struct slow_copy {
    bool ok = false;
    bytes out;
    std::uint64_t bytes_copied = 0;
    std::vector<std::string> log;
};
// A stream that is not compressed, in transfers of 16 clusters, as pump_stream moves it.
[[nodiscard]] slow_copy slow_pump(CNtfs& ntfs, const attr_item& item, bool raw, bool skip_sparse,
                                  bool include_slack);
// A compressed stream, unit after unit.
[[nodiscard]] slow_copy slow_pump_compressed(CNtfs& ntfs, const attr_item& item);

}  // namespace quarry::test
