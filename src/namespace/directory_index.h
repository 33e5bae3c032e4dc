// The children of a directory, from its $I30 index.
//
// The index is stored in the directory's file record ($INDEX_ROOT, $INDEX_ALLOCATION), or, when the record is
// full, in extension records that its $ATTRIBUTE_LIST names. All nodes are read and flattened into one set of
// entry numbers; the names in the index are not looked at. A child is found only if an index entry for it
// exists.
#pragma once

#include "foundation/budget.h"
#include "volume/ntfs.h"

#include <cstdint>

namespace quarry {

// Adds the entry numbers of the children of directory `entry` to the collection. `entry` may also be one of
// the directory's extension records. With `keep_going`, what lies after the last entry of each index block is
// taken too. `reads` holds how many bytes reading indexes may still cost. False if a record cannot be read,
// there is no usable index, or memory ran out; the collection keeps what was found until then. True with
// fewer children if part of the index is damaged, or if `reads` runs out.
[[nodiscard]] bool get_directory_children(CNtfs& ntfs, std::uint64_t entry, _inode_collection& collection,
                                          bool keep_going, budget& reads);
// The same for a single directory.
[[nodiscard]] bool get_directory_children(CNtfs& ntfs, std::uint64_t entry, _inode_collection& collection,
                                          bool keep_going);

}  // namespace quarry
