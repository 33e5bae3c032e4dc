// Copies of clusters as they are on a volume: the content of one cluster after the other, with no regard to
// files.
#pragma once

#include "frontend/copy/copy_request.h"
#include "frontend/output/output_guard.h"

namespace quarry {

// Copies the clusters of a request out of a volume of its own, with a report if the request names one and
// `with_report` is true. False if no volume could be opened; a cluster that cannot be read shows only in the
// report.
[[nodiscard]] bool copy_clusters(const copy_request& request, bool with_report, output_guard& guard);

}  // namespace quarry
