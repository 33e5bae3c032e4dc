// What path lookups learn of a directory: its children and their names, kept in the volume's path cache.
//
// The index gives only the numbers of the children. Their names are read from each child's own record,
// lowered, and kept for the life of the volume, so the first lookup in a directory costs a read for each
// child and every later one a search in a table. What could not be read the first time stays missing; it is
// not tried again.
#pragma once

#include "foundation/status_log.h"
#include "volume/ntfs.h"

#include <cstdint>

namespace quarry {

// The tables of a directory, read if the cache does not have them yet; null if it has no children, or none
// that has a name. Each step is told to the log. The tables belong to the volume's cache and stay where they
// are.
[[nodiscard]] const dir_cache_entry* directory_tables(CNtfs& ntfs, std::uint64_t directory, status_log& log);

}  // namespace quarry
