#include "frontend/options/cmdline_ctx.h"

#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry {
namespace {

using test::temp_dir;

constexpr const char* cleared_line = "\x1b[2K\r                           \r";

std::string called_with;
int remember(const std::string& text) {
    called_with = text;
    return 0;
}

// What the end of a run with these options writes to standard error.
std::string end_of_run(const cmd_params& opts, cmdline_ctx::callback at_end = remember) {
    called_with.clear();
    testing::internal::CaptureStderr();
    {
        cmdline_ctx run;
        run.configure(opts, at_end);
    }
    return testing::internal::GetCapturedStderr();
}

TEST(cmdline_ctx, one_that_was_not_configured_does_nothing) {
    testing::internal::CaptureStderr();
    { const cmdline_ctx run; }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(cmdline_ctx, clears_the_status_line_unless_the_run_is_quiet) {
    cmd_params opts;
    EXPECT_EQ(end_of_run(opts), cleared_line);
    opts.m_console = false;
    EXPECT_EQ(end_of_run(opts), "");
}

TEST(cmdline_ctx, reads_the_clock_only_for_those_who_need_it) {
    cmd_params opts;
    opts.m_console = false;
    cmdline_ctx run;
    run.configure(opts, nullptr);
    EXPECT_EQ(run.m_start.seconds, 0U);
    opts.m_profile = true;
    run.configure(opts, nullptr);
    EXPECT_NE(run.m_start.seconds, 0U);
    run.m_profile = false;
}

TEST(cmdline_ctx, profile_prints_the_elapsed_seconds) {
    cmd_params opts;
    opts.m_profile = true;
    EXPECT_THAT(end_of_run(opts), testing::MatchesRegex("\x1b\\[2K\r +\r->[0-9].* secs\n"));
    opts.m_console = false;
    EXPECT_THAT(end_of_run(opts), testing::MatchesRegex("->[0-9].* secs\n"));
}

// A minute is far more than the two lines in between take.
TEST(cmdline_ctx, the_elapsed_seconds_are_counted_from_the_configuration) {
    cmd_params opts;
    opts.m_console = false;
    opts.m_profile = true;
    const std::string said = end_of_run(opts);
    EXPECT_LT(std::stod(said.substr(2)), 60.0) << said;
}

TEST(cmdline_ctx, an_open_log_gets_the_elapsed_seconds_as_its_last_line) {
    const temp_dir dir;
    std::string said;
    {
        cmdline_ctx run;
        cmd_params opts;
        arg_list args = {"quarry", "-quiet", "-diags", dir / "log"};
        ASSERT_TRUE(opts.parse(args));
        run.configure(opts, nullptr);
        opts.m_log.log("exit: 0");
        testing::internal::CaptureStderr();
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    const test::bytes log = test::read_file(dir / "log");
    EXPECT_THAT(std::string(log.begin(), log.end()),
                testing::MatchesRegex("->quarry -quiet -diags .*\n->exit: 0\n->[0-9].* secs\n"));
}

TEST(cmdline_ctx, a_log_that_has_failed_gets_nothing_more) {
    cmd_params opts;
    arg_list args = {"quarry", "-diags", "/dev/full"};
    ASSERT_TRUE(opts.parse(args));
    cmdline_ctx run;
    run.configure(opts, nullptr);
    EXPECT_EQ(run.m_log_path, "");
    run.m_console = false;
}

TEST(cmdline_ctx, calls_back_with_the_signal_text_if_there_are_both) {
    cmd_params opts;
    end_of_run(opts);
    EXPECT_EQ(called_with, "");
    opts.m_signal = "done";
    end_of_run(opts);
    EXPECT_EQ(called_with, "done");
    end_of_run(opts, nullptr);
    EXPECT_EQ(called_with, "");
}

}  // namespace
}  // namespace quarry
