// What fuzz targets and the damage campaign hold to be true, whatever their input is.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace quarry::test {

// Ends the program, and names the place, unless `holds`.
inline void expect(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    if (!holds) {
        std::fprintf(stderr, "%s:%d: expectation failed\n", file, line);
        std::abort();
    }
}

}  // namespace quarry::test
