// A file that is at the destination already when a run goes on where another has ended.
//
// A run that is killed between the moment in which a copy gets its name and the line of the manifest leaves a
// copy that no line knows. The next run makes the copy again under a temporary name; if the file that is
// there holds the same bytes, it is that copy, and gets its line.
#pragma once

#include "exact/failure.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace quarry::exact {

// The size in bytes of the regular file at `path`, which may not be a link. Fails with exists for anything
// else, also if there is nothing.
[[nodiscard]] result<std::uint64_t> size_of_earlier_file(const std::string& path);

// Expects a regular file at `path` that has the bytes of this SHA-256 (small hexadecimal digits), and brings
// it and its name to the disk. Fails with exists if it has others, and with sync or create where the host
// refuses.
[[nodiscard]] result<void> expect_same_bytes(const std::string& path, std::string_view sha256);

}  // namespace quarry::exact
