// From a path on the volume to an MFT entry.
//
// The walk goes down from the root directory, entry 5. Each segment is looked up among the lowered names of
// the directory's children; only the letters A to Z fold. Neither the in-use bit nor the sequence number of a
// child is looked at, so a deleted file that an index still names is found. A junction or symbolic link is
// followed from the root of this volume, whatever volume it names.
//
// Every step is written to the status log; nothing is ever printed.
#pragma once

#include "foundation/status_log.h"
#include "volume/ntfs.h"

#include <cstdint>
#include <string>

namespace quarry {

// Finds the entry that a path names. True: `entry` is its number, `parent_entry` that of the directory that
// holds it (all ones for the root given as a bare separator), and `canonical_path` the segments that were
// walked, as they were typed, with "\" between them. False: they hold how far the walk came. The path loses
// the device of a shadow copy at its front, so callers pass a copy. With `follow_links`, links on the way and
// at the end lead to their target.
[[nodiscard]] bool resolve_path(std::uint64_t& entry, std::uint64_t& parent_entry,
                                std::wstring& canonical_path, CNtfs* ntfs, std::wstring& path,
                                bool follow_links, status_log& log);

}  // namespace quarry
