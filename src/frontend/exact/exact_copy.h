// One stream copied to one destination: whole and under its name, or not at all.
#pragma once

#include "exact/exact_volume.h"
#include "exact/failure.h"
#include "frontend/exact/destination_path.h"
#include "frontend/exact/exact_messages.h"
#include "frontend/exact/exact_options.h"
#include "frontend/output/output_guard.h"

#include <cstdint>
#include <string>

namespace quarry::exact {

struct finished_copy {
    std::string source;       // the stream, as messages have it
    std::string destination;  // the file that was made
    std::uint64_t bytes = 0;
    std::string md5;  // with -md5 only
};

// Copies an object to `target`, where the guard lets it; the options say how. Fails as find_object,
// check_destination, streams and sealed_file do; nothing is left at the destination then. Warns (times) if
// the file does not take its times.
[[nodiscard]] result<finished_copy> copy_to_destination(exact_volume& volume, const exact_options& options,
                                                        const copy_object& asked, destination target,
                                                        const output_guard& guard, exact_messages& messages,
                                                        notices& told);

}  // namespace quarry::exact
