// One condition of the program, negated on demand.
//
// mutants.py wraps conditions of a copy of the tree in calls of this function, each with a number of its own.
// QUARRY_MUTANT in the environment names the one whose result is negated. With QUARRY_MUTANTS_REACHED, the
// path of a file that exists, nothing is negated, and each number is appended to the file, as a line, the
// first time that the process gets to its condition.
#pragma once

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace quarry_mutants {

inline constexpr std::size_t most = 10000;

inline const std::size_t chosen = [] {
    const char* const number = std::getenv("QUARRY_MUTANT");
    return number == nullptr ? 0 : std::strtoul(number, nullptr, 10);
}();

// Opened before the program gives up its rights, and out of the way of the descriptors that it hands out.
inline const int reached_file = [] {
    const char* const path = std::getenv("QUARRY_MUTANTS_REACHED");
    const int opened = path == nullptr ? -1 : ::open(path, O_WRONLY | O_APPEND | O_CLOEXEC);
    if (opened == -1) {
        return -1;
    }
    constexpr int far_away = 200;
    const int moved = ::fcntl(opened, F_DUPFD_CLOEXEC, far_away);
    ::close(opened);
    return moved;
}();

inline std::array<bool, most> is_reached{};

inline void note(std::size_t number) {
    is_reached[number] = true;
    std::array<char, 24> line{};
    const int length = std::snprintf(line.data(), line.size(), "%zu\n", number);
    static_cast<void>(!::write(reached_file, line.data(), static_cast<std::size_t>(length)));
}

}  // namespace quarry_mutants

inline bool quarry_mutant(std::size_t number, bool value) {
    if (quarry_mutants::reached_file != -1 && !quarry_mutants::is_reached[number]) {
        quarry_mutants::note(number);
    }
    return value != (number == quarry_mutants::chosen);
}
