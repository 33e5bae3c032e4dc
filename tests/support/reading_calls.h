// How many system calls a piece of work needs for its reads.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>

namespace quarry::test {

// System calls of this process that read, the one that asks for their number included. 0 where the system
// does not count them.
[[nodiscard]] inline std::uint64_t reading_calls() {
    std::ifstream file("/proc/self/io");
    std::string label;
    std::uint64_t number = 0;
    while (file >> label >> number) {
        if (label == "syscr:") {
            return number;
        }
    }
    return 0;
}

}  // namespace quarry::test
