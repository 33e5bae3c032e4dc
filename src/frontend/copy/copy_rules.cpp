#include "frontend/copy/copy_rules.h"

namespace quarry {

namespace {

constexpr copy_rules rules_of_volumes = {
    .no_destination = "err: -dst <filename> was not specified",
    .keeps_absolute_destination = false,
    .path_may_name_volume = true,
    .logs_partition = true,
    // Deliberate: a path or an entry wins over clusters, which are then dropped without a word.
    .clusters_come_first = false,
    .reports_clusters = true,
    .says_that_driver_failed = false,
};

constexpr copy_rules rules_of_drives = {
    .no_destination = "err: -dst <filename> was not specified, aborting",
    .keeps_absolute_destination = true,
    .path_may_name_volume = false,
    .logs_partition = false,
    // Deliberate: on a drive clusters come before a path and an entry, where every other source has them
    // last.
    .clusters_come_first = true,
    // Deliberate: a copy of clusters from a drive has no report, whatever -meta says.
    .reports_clusters = false,
    // Deliberate: a failure of the driver is reported on the console, not only in the log as for any other
    // source. The user sees it without a log.
    .says_that_driver_failed = true,
};

}  // namespace

const copy_rules& rules_of(source_kind kind) {
    return kind == source_kind::drive ? rules_of_drives : rules_of_volumes;
}

}  // namespace quarry
