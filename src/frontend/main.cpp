#include "frontend/confinement.h"
#include "frontend/run.h"

#include <cstdio>
#include <exception>

namespace {

// Sanitizers look at the process from outside of it.
#ifdef QUARRY_CONFINE
constexpr bool gives_up_rights = true;
#else
constexpr bool gives_up_rights = false;
#endif

}  // namespace

// An unexpected exception, such as for want of memory, ends the run, but only after every object has cleaned
// up: no temporary file stays.
int main(int argc, char** argv) {
    try {
        quarry::kernel_calls kernel;
        return quarry::run(argc, argv, gives_up_rights ? &kernel : nullptr);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "quarry: %s\n", failure.what());
    }
    return -1;
}
