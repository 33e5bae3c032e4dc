// From an MFT entry to its paths, by walking up.
//
// Each name of a file says which directory it is in, so following the parents up to the root gives one path
// for each hard link. The sequence numbers of the references are not looked at.
//
// Reserved: no report prints the paths of an entry, so no flow of the program comes here.
#pragma once

#include "volume/ntfs.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quarry {

// Adds the paths of an entry to `results`, each with "\" after every element and none before the first.
// `components` are the elements below the entry, the lowest first; an element "." shows in no path. A sole
// component that equals a name on the way up is taken for that name. False, with nothing added, if the record
// or its names cannot be read; a parent for which that is so, or which leads back to a directory below it,
// ends its path.
[[nodiscard]] bool paths_of_entry(CNtfs& ntfs, std::uint64_t entry,
                                  const std::vector<std::wstring>& components,
                                  std::vector<std::wstring>& results);

// The same for a report, in narrow text: `leaf_name` is the name of the entry itself, "." if it is empty.
// `paths` is replaced. False if there is no path.
[[nodiscard]] bool narrow_paths_of_entry(CNtfs& ntfs, std::uint64_t entry, const std::string& leaf_name,
                                         std::vector<std::string>& paths);

}  // namespace quarry
