// A copy from a virtual disk, an image, a partition, or a path that carries its own volume.
#pragma once

#include "frontend/quarry_opts.h"
#include "volume/ntfs.h"

#include <memory>

namespace quarry {

// Copies what the options ask for: a path, an entry, or else clusters. `check_dst` has the destination tried
// out first. `opts.m_src` is rewritten when it names its own volume. False after a message, or after lines in
// the status log where the driver failed.
[[nodiscard]] bool copy_from_volume(std::unique_ptr<CNtfs>& ntfs, quarry_opts& opts, bool check_dst);

}  // namespace quarry
