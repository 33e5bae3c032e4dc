#include "foundation/assertion.h"

#include <cstdio>
#include <cstdlib>

namespace quarry {

void require(bool holds, const char* expression, const char* source) {
    if (!holds) {
        std::fprintf(stderr, "assertion failed: %s, in %s\n", expression, source);
        std::abort();
    }
}

}  // namespace quarry
