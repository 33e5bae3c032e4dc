// The source of a run, opened for reading.
#pragma once

#include "disk/byte_source.h"
#include "disk/file_source.h"
#include "exact/failure.h"
#include "frontend/exact/exact_options.h"

#include <memory>
#include <string>
#include <vector>

namespace quarry::exact {

struct opened_source {
    std::unique_ptr<file_source> bytes;
    std::string shown_path;
};

// Opens what the user named. Warns (source-mounted) of a block device that is mounted. Fails with source-open
// for what cannot be opened and for containers, with not-yet for a chain of virtual disk files.
[[nodiscard]] result<opened_source> open_source(const source_choice& choice, notices& told);

}  // namespace quarry::exact
