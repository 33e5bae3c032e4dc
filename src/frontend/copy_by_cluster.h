// Copies from a physical drive by number, and copies of clusters as they stand on a volume.
//
// Each cluster copy opens a volume of its own. Its output is the content of one cluster after the other, with
// no regard to files.
#pragma once

#include "frontend/output/output_guard.h"
#include "frontend/quarry_opts.h"
#include "volume/ntfs.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace quarry {

// As copy_from_volume, from the drive that -drivenum names. Clusters come first here: a path or an entry
// beside -cluster is passed over.
[[nodiscard]] bool copy_from_drive(std::unique_ptr<CNtfs>& ntfs, quarry_opts& opts, bool check_dst);

// Copies `count` clusters from `start_lcn` on out of a virtual disk, or of an image or partition by path,
// whose volume begins at byte `volume_offset`. `meta` may be empty for no report. False if no volume could be
// opened; a cluster that cannot be read shows in the report alone.
[[nodiscard]] bool copy_clusters(const std::vector<std::wstring>& vmdk_list, const std::wstring& source_text,
                                 std::uint64_t volume_offset, std::uint64_t start_lcn, std::uint64_t count,
                                 const std::wstring& dst, const std::wstring& meta, output_guard& guard);

// The same from a drive by number.
[[nodiscard]] bool copy_clusters_from_drive(std::int32_t drive, std::uint64_t volume_offset,
                                            std::uint64_t start_lcn, std::uint64_t count,
                                            const std::wstring& dst, const std::wstring& meta,
                                            output_guard& guard);

}  // namespace quarry
