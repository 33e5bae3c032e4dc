// Files with holes: a length for which the disk stores nothing.
#pragma once

#include "support/byte_writer.h"

#include <cstdint>
#include <filesystem>
#include <map>

namespace quarry::test {

// Writes pieces, by their byte positions, into a new file of `size` bytes. What is not written, and blocks of
// zeros, are holes. Throws std::runtime_error if the system refuses.
void write_sparse_file(const std::filesystem::path& path, const std::map<std::uint64_t, bytes>& pieces,
                       std::uint64_t size);

// True if the file system of a directory keeps holes, and so long a file.
[[nodiscard]] bool keeps_holes(const std::filesystem::path& directory, std::uint64_t size);

}  // namespace quarry::test
