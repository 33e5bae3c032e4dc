// The text of a path on the volume: its prefix, its separators, its segments.
//
// Users name files as they are named on a running system, in a shadow copy, or with slashes. All of these
// become a list of segments that is walked from the root directory of the volume.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace quarry {

// A path in its parts. Segments are as they were typed, drive letter and stream suffixes included; none is
// empty.
struct path_segments {
    std::vector<std::wstring> names;
    bool rooted = false;  // the path begins with its separator
};

// Takes the device of a shadow copy off the front of a path, so that what is left is a path on the volume.
// The two forms are "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy<n>\..." and "\\.\SNAPID_<id>\...", in any
// case. A path of another kind, or with nothing after the device, stays as it is.
void strip_snapshot_prefix(std::wstring& path);

// Takes a path apart at "/" if it holds one, otherwise at "\". So a path with both has backslashes in its
// segments.
[[nodiscard]] path_segments split_volume_path(const std::wstring& path);

// Index of the segment at which the walk begins: 1 if the first one has ":" as its second character, else 0.
[[nodiscard]] std::size_t first_walked_segment(const std::vector<std::wstring>& names);

// What of a segment names the file: the text ahead of its first ":", trimmed, lowered, in narrow form.
[[nodiscard]] std::string lowered_file_name(const std::wstring& segment);

// The segments with "\" between them, and ahead of them if the path was rooted, in the case in which they
// are.
[[nodiscard]] std::wstring canonical_text(const path_segments& segments);

// The segments of a link's target, followed by those after segment `link` of the path.
[[nodiscard]] std::vector<std::wstring> segments_after_link(const std::vector<std::wstring>& names,
                                                            std::size_t link, const std::wstring& target);

}  // namespace quarry
