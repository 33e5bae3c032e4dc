// What a test needs and a machine may lack. Where it is missing the test is skipped and says why; with CI set
// in the environment nothing may be missing, and the test fails.
#pragma once

#include <cstdlib>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry::test {

// True if a program of this name is on the PATH or in the directories of system programs.
[[nodiscard]] bool has_program(const std::string& name);

}  // namespace quarry::test

#define QUARRY_NEEDS(condition, reason)            \
    do {                                           \
        if (!(condition)) {                        \
            if (std::getenv("CI") != nullptr) {    \
                FAIL() << "missing: " << (reason); \
            }                                      \
            GTEST_SKIP() << (reason);              \
        }                                          \
    } while (false)

#define QUARRY_NEEDS_PROGRAM(name) \
    QUARRY_NEEDS(quarry::test::has_program(name), std::string(name) + " is not installed")
#define QUARRY_NEEDS_ROOT() QUARRY_NEEDS(geteuid() == 0, "this test needs root")
