// A part of a source that a partition table names.
#pragma once

#include <cstdint>

namespace quarry::exact {

struct partition {
    std::uint64_t offset = 0;  // bytes from the start of the source
    std::uint64_t length = 0;  // bytes, by the table
};

}  // namespace quarry::exact
