#include "frontend/run.h"

#include <cstdio>
#include <exception>

// An exception that nobody expected, such as for want of memory, ends the run, but only once every object has
// cleaned up behind itself: no temporary file stays.
int main(int argc, char** argv) {
    try {
        return quarry::run(argc, argv);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "quarry: %s\n", failure.what());
    }
    return -1;
}
