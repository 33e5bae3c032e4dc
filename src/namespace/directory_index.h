// The children of a directory, from its $I30 index.
#pragma once

#include <cstdint>

#include "volume/ntfs.h"

namespace quarry {

[[nodiscard]] bool get_directory_children(CNtfs& ntfs, std::uint64_t entry, _inode_collection& collection,
                                          bool keep_going);

}  // namespace quarry
