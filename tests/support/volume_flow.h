// Everything that a run can do with an open volume: look paths up, list the attributes of every entry, copy
// every stream as it is stored and as it is meant, write every report, list every directory, and find the
// paths of every entry.
//
// Beside that nothing breaks, no copy is longer than what the log announces, and the short streams are copied
// by the plain reader of the tests too, which takes a cluster at a time: both must give the same bytes.
#pragma once

#include "volume/ntfs.h"

namespace quarry::test {

// Ends the program if anything is wrong.
void look_at_volume(CNtfs& ntfs);

}  // namespace quarry::test
