// What a fuzz target holds to be true, whatever its input is.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace quarry::fuzz {

// Ends the program, and names the place, unless `holds`.
inline void expect(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    if (!holds) {
        std::fprintf(stderr, "%s:%d: expectation failed\n", file, line);
        std::abort();
    }
}

}  // namespace quarry::fuzz
