// A run that lists instead of copying: lines on standard output, all else on standard error.
//
// Standard output has the lines and nothing more, no header either, so that it can be sorted, searched and
// given to a copying run. What is damaged is reported beside it.
#pragma once

#include "exact/exact_volume.h"
#include "exact/failure.h"
#include "frontend/exact/exact_messages.h"
#include "frontend/exact/exact_options.h"
#include "frontend/exact/exact_status.h"

namespace quarry::exact {

// Refuses, before anything is read, what cannot be listed: text that is no path, a stream, and the deleted
// files of anything but the whole volume.
[[nodiscard]] result<void> check_listing(const exact_options& options);

// Prints the listing. Gives `failed` if the path leads nowhere or standard output does not take the lines,
// `some_failed` if something is damaged.
[[nodiscard]] exit_status print_listing(exact_volume& volume, const exact_options& options,
                                        exact_messages& messages);

}  // namespace quarry::exact
