// Runs a program from outside, as a shell would: arguments, standard input, both output streams, exit status.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace quarry::test {

// What one of the output streams of a program leads to.
enum class output_end {
    captured,
    closed,  // the program starts without the descriptor
    broken   // a pipe that nobody reads from
};

// False in a build with AddressSanitizer, whose shadow takes terabytes of address space: there no limit is
// set.
[[nodiscard]] bool memory_limit_works();

// True in a build with AddressSanitizer, which holds LeakSanitizer.
[[nodiscard]] bool leak_check_is_built_in();

// How many times longer than usual work may take before a test calls it slow: 1, and 20 in a build with
// AddressSanitizer.
[[nodiscard]] double time_allowance();

struct program_options {
    std::string standard_input = {};
    std::filesystem::path directory = {};                 // where it runs; empty: where the test runs
    std::map<std::string, std::string> environment = {};  // added to this process's own
    std::chrono::milliseconds time_limit{60000};          // then it is killed; instrumented, much later
    // Bytes of address space, 0 for no limit; see memory_limit_works.
    std::uint64_t memory_limit = 0;
    // No file may grow beyond this many bytes; 0 for no limit.
    std::uint64_t file_size_limit = 0;
    bool close_standard_input = false;
    output_end standard_output = output_end::captured;
    output_end standard_error = output_end::captured;
    // As the ordinary user "nobody", for which the tests must run as root. The program's own file need not be
    // in a place that this user can reach.
    bool as_nobody = false;
    // Leaks are not looked for, in a build that does so: LeakSanitizer ends a program under strace with a
    // status of its own.
    bool leaks_allowed = false;
};

struct program_result {
    bool exited = false;  // false: ended by a signal, or not started
    int status = -1;      // exit status, 0 to 255
    int signal = 0;       // what ended it
    bool timed_out = false;
    std::string out;
    std::string err;
    // Largest resident size. No less than the test's own at the start, which counts until the child has
    // become the program: good for "no more than", and only where the test is small itself.
    std::int64_t peak_memory_kib = 0;
};

[[nodiscard]] program_result run_program(const std::vector<std::string>& arguments,
                                         const program_options& options = {});

}  // namespace quarry::test
