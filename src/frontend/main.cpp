#include "frontend/confinement.h"
#include "frontend/output/leftover.h"
#include "frontend/run.h"

#include <cstdio>
#include <exception>
#include <malloc.h>
#include <string_view>
#include <tuple>
#include <unistd.h>

namespace {

constexpr int broken_off_status = 255;

// Sanitizers look at the process from outside of it.
#ifdef QUARRY_CONFINE
constexpr bool gives_up_rights = true;
#else
constexpr bool gives_up_rights = false;
#endif

// Most buffers of a run are of 64 or 128 KiB and needed one after the other. The C library would ask the
// system for each and give it back, and the system clears every page of it anew.
void keep_freed_memory() {
    constexpr int kept_bytes = 1 << 20;
    ::mallopt(M_MMAP_THRESHOLD, kept_bytes);
    ::mallopt(M_TRIM_THRESHOLD, kept_bytes);
    ::mallopt(M_TOP_PAD, kept_bytes / 4);
}

// Memory that runs out while objects are destroyed leaves no way back. The run ends at once, with what it can
// still say, and without a temporary file.
[[noreturn]] void end_at_once() {
    constexpr std::string_view text =
        "quarry: memory ran out, or the program has a fault, at a place from where it cannot go on\n";
    quarry::remove_leftover_now();
    // Nobody may be there to read it.
    std::ignore = ::write(STDERR_FILENO, text.data(), text.size());
    ::_exit(broken_off_status);
}

}  // namespace

// An unexpected exception, such as for want of memory, ends the run, but only after every object has cleaned
// up: no temporary file stays.
int main(int argc, char** argv) {
    keep_freed_memory();
    std::set_terminate(end_at_once);
    try {
        quarry::kernel_calls kernel;
        return quarry::run(argc, argv, gives_up_rights ? &kernel : nullptr);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "quarry: %s\n", failure.what());
    }
    return -1;
}
