// A copy from any source, as the options ask for it.
#pragma once

#include "frontend/options/quarry_opts.h"
#include "volume/ntfs.h"

#include <memory>
#include <string>

namespace quarry {

// Copies a path on the volume, or without one the entry or the clusters of the options. `ntfs` is opened if
// it is null and stays open for the next copy; clusters are read through a volume of their own. `check_dst`
// has the destination tried out first. False after a message, or after lines in the status log where the
// driver failed.
[[nodiscard]] bool copy(std::unique_ptr<CNtfs>& ntfs, quarry_opts& opts, const std::wstring& path,
                        bool check_dst);

}  // namespace quarry
