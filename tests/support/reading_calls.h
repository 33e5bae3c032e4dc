// How many system calls a piece of work needs for its reads, and what they bring.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>

namespace quarry::test {

// A number that the system counts for this process; 0 where it does not.
[[nodiscard]] inline std::uint64_t io_counter(std::string_view wanted) {
    std::ifstream file("/proc/self/io");
    std::string label;
    std::uint64_t number = 0;
    while (file >> label >> number) {
        if (label == wanted) {
            return number;
        }
    }
    return 0;
}

// System calls of this process that read, the one that asks for their number included. 0 where the system
// does not count them.
[[nodiscard]] inline std::uint64_t reading_calls() {
    return io_counter("syscr:");
}

// Bytes that they brought. 0 where the system does not count them.
[[nodiscard]] inline std::uint64_t bytes_read() {
    return io_counter("rchar:");
}

}  // namespace quarry::test
