// What a directory, a tree or the unused records hold, line by line.
//
// A directory is listed in the order of its index, a tree depth first: after the line of a directory come
// those of what it holds. Links have a line and are not followed. Of each file there is a line for every long
// name; a short name has none, unless it is the only one.
//
//     26-1  d  0  ...  /docs
//     27-1  f  2  ...  /docs/b.txt
//
// Damage is reported and the listing goes on. It ends on any disk, and soon: each directory is entered once,
// where its own name says that it belongs, and none whose path is longer than any that the system knows; and
// what is read of indexes and of attribute lists in all has bounds (index_budget.h, list_budget.h), beyond
// which the listing fails. The memory it takes depends neither on how many names there are nor, beyond a few
// bytes for each level, on how deep the tree is.
#pragma once

#include "exact/exact_volume.h"
#include "exact/failure.h"
#include "exact/listing_line.h"
#include "exact/path_walk.h"

namespace quarry::exact {

// The names in the directory that a path led to, with `recurse` all names below it; its own named streams
// first. Of anything else its own lines. Fails if a line cannot be written, with index if the directories
// have more blocks than the source has room for, and with list if attribute lists cost more than on a sound
// volume.
[[nodiscard]] result<void> list_path(exact_volume& volume, walked_path start, bool recurse,
                                     const listing_outputs& outputs, notices& told);

// Every base record that is not in use and verifies, in order of entry, under each of its long names. The
// path is worked out upwards; "/?" is in place of the part that is lost. An entry that never held a file has
// no line. Fails if a line cannot be written, and with list as above.
[[nodiscard]] result<void> list_deleted(exact_volume& volume, const listing_outputs& outputs, notices& told);

}  // namespace quarry::exact
