// What a copy does otherwise for one kind of source than for another.
#pragma once

#include "disk/source.h"

namespace quarry {

struct copy_rules {
    const char* no_destination;
    bool keeps_absolute_destination;
    // A path on the volume may name the volume, and where it is a path of this host it is made absolute.
    bool path_may_name_volume;
    bool logs_partition;
    bool clusters_come_first;
    bool reports_clusters;
    bool says_that_driver_failed;
};

// The rules of a kind of source that the user named, or none.
[[nodiscard]] const copy_rules& rules_of(source_kind kind);

}  // namespace quarry
