// Holds a piece of work to an amount of memory, whatever its input claims.
#pragma once

#include "support/expect.h"
#include "support/memory_peak/memory_peak.h"

#include <cstddef>

namespace quarry::test {

// What one volume, virtual disk or run may take beyond the 64 MiB that the caches of any volume may have.
inline constexpr std::size_t most_memory = std::size_t{128} << 20;

class memory_limit {
  public:
    memory_limit() { start_memory_peak(); }
    memory_limit(const memory_limit&) = delete;
    memory_limit& operator=(const memory_limit&) = delete;
    // Ends the program if more than `most_memory` was in use at once.
    ~memory_limit() { expect(memory_peak() <= most_memory); }
};

}  // namespace quarry::test
