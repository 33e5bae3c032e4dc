// A volume with one large directory, for whatever must not grow with the number of names.
//
//     /many/file0000000.txt    entry 100, its own name as content
//     /many/file0000001.txt    entry 101
//     ...
#pragma once

#include "support/byte_writer.h"

#include <cstdint>

namespace quarry::test {

inline constexpr std::uint64_t first_of_many = 100;

// The image of a volume with so many files in /many, up to ten million. It takes some 1,150 bytes for each.
[[nodiscard]] bytes volume_of_many_names(std::uint64_t count);

}  // namespace quarry::test
