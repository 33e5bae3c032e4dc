#include "support/run_program.h"

#include "support/requirements.h"
#include "support/temp_dir.h"

#include <csignal>
#include <filesystem>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

TEST(run_program, both_streams_and_the_status_are_kept_apart) {
    const program_result result = run_program({"sh", "-c", "echo out; echo err >&2; exit 3"});
    EXPECT_TRUE(result.exited);
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "out\n");
    EXPECT_EQ(result.err, "err\n");
    EXPECT_GT(result.peak_memory_kib, 0);
}

TEST(run_program, standard_input_is_fed_however_long_it_is) {
    const std::string long_text(1000000, 'x');
    const program_result result = run_program({"cat"}, {.standard_input = long_text});
    EXPECT_EQ(result.out, long_text);
}

TEST(run_program, arguments_arrive_as_they_are_given) {
    const program_result result = run_program({"printf", "%s|", "a b", "", "$HOME"});
    EXPECT_EQ(result.out, "a b||$HOME|");
}

TEST(run_program, the_environment_and_the_directory_can_be_set) {
    const program_result result = run_program({"sh", "-c", "pwd; echo $QUARRY_PROBE"},
                                              {.directory = "/", .environment = {{"QUARRY_PROBE", "7"}}});
    EXPECT_EQ(result.out, "/\n7\n");
}

TEST(run_program, a_signal_is_no_exit) {
    const program_result result = run_program({"sh", "-c", "kill -TERM $$"});
    EXPECT_FALSE(result.exited);
    EXPECT_EQ(result.signal, SIGTERM);
}

TEST(run_program, a_program_that_does_not_end_is_killed_at_its_time_limit) {
    const program_result result =
        run_program({"tail", "-f", "/dev/null"}, {.time_limit = std::chrono::milliseconds(100)});
    EXPECT_TRUE(result.timed_out);
    EXPECT_EQ(result.signal, SIGKILL);
}

TEST(run_program, a_memory_limit_bounds_what_a_program_can_allocate) {
    const std::vector<std::string> command = {"dd", "if=/dev/zero", "of=/dev/null", "bs=256M", "count=1"};
    EXPECT_EQ(run_program(command).status, 0);
    const program_result limited = run_program(command, {.memory_limit = std::uint64_t{64} << 20});
    EXPECT_EQ(limited.status != 0, memory_limit_works());
}

TEST(run_program, a_program_that_does_not_exist_has_status_127) {
    EXPECT_EQ(run_program({"/nowhere/program"}).status, 127);
}

TEST(run_program, an_output_can_be_closed) {
    const program_result result = run_program({"sh", "-c", "echo out 2>/dev/null || echo refused >&2"},
                                              {.standard_output = output_end::closed});
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "refused\n");
}

TEST(run_program, an_output_that_nobody_reads_ends_a_program_that_does_not_expect_it) {
    const program_result result =
        run_program({"sh", "-c", "echo out; echo still here >&2"}, {.standard_output = output_end::broken});
    EXPECT_EQ(result.signal, SIGPIPE);
    EXPECT_EQ(result.err, "");
}

TEST(run_program, the_size_of_files_can_be_limited) {
    const temp_dir dir;
    const program_result result = run_program({"sh", "-c", "head -c 5000 /dev/zero >x; wc -c <x"},
                                              {.directory = dir.path(), .file_size_limit = 1000});
    EXPECT_EQ(result.out, "1000\n");
}

TEST(run_program, an_ordinary_user_runs_a_program_that_only_root_can_reach) {
    QUARRY_NEEDS_ROOT();
    const temp_dir dir;
    std::filesystem::copy_file("/usr/bin/id", dir / "id");
    EXPECT_EQ(run_program({dir / "id", "-u"}, {.as_nobody = true}).out, "65534\n");
    EXPECT_EQ(run_program({dir / "id", "-G"}, {.as_nobody = true}).out, "65534\n");
}

}  // namespace
}  // namespace quarry::test
