// The pump: the content of one attribute, moved to a stream.
//
// A resident value is written in one piece. A stream in clusters goes transfer by transfer, zeros for its
// holes; one that NTFS has compressed is decompressed on the way. A cluster that cannot be read ends the copy
// there, and the copy counts as done: the examiner gets what the disk still gives.
#pragma once

#include "foundation/status_log.h"
#include "volume/attr_item.h"
#include "volume/ntfs.h"

#include <cstdint>
#include <ostream>
#include <string>

namespace quarry {

struct pump_context {
    status_log& log;
    std::uint64_t bytes_copied = 0;  // by the last pump: bytes given to the stream
};

struct pump_rules {
    bool raw = false;            // clusters as they are stored, up to the allocated size
    bool skip_sparse = false;    // holes are left out
    bool include_slack = false;  // after the data, what the last clusters hold up to the allocated size
    bool want_md5 = false;
};

// Writes the content of `item` to `out`, whose error state is cleared first. The log hears "info: data size
// 0x%llx" or "err: no data". With `skip_sparse` the holes leave the item's run list for good. True if there
// was anything to write and the first of it could be had; that the stream took it is not looked at, but a
// pump may stop once it takes nothing more. False for no data, a null volume, a stream that is not good, a
// size of 0. `md5_text`, if wanted: the digest of what was written as 32 digits; 32 zeros after a pump that
// came to nothing; empty where it did not begin.
[[nodiscard]] bool pump_stream(CNtfs* ntfs, attr_item& item, std::ostream& out, const pump_rules& rules,
                               std::string& md5_text, pump_context& context);
// Without the slack and without a digest.
[[nodiscard]] bool copy_to_stream(CNtfs* ntfs, attr_item& item, std::ostream& out, bool raw, bool skip_sparse,
                                  pump_context& context);
// Without the slack.
[[nodiscard]] bool copy_hashed(CNtfs* ntfs, attr_item& item, std::ostream& out, bool raw, bool skip_sparse,
                               bool want_md5, std::string& md5_text, pump_context& context);

}  // namespace quarry
