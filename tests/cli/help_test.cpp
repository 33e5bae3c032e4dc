// Requests for help, and the header of a run.

#include "cli/command_line.h"

#include <gmock/gmock.h>

namespace quarry::test {
namespace {

class help : public command_line_test {};
class header : public command_line_test {};

void expect_usage(const program_result& result) {
    EXPECT_TRUE(result.exited);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(
        result.err.starts_with("-----------------------------------------------------------------------------"
                               "\n\nquarry ver: 1.14\n\nUsage:\n\n a. copying by filename\n"))
        << result.err;
    EXPECT_TRUE(result.err.ends_with("filters stdin data from -pipe option\n\n")) << result.err;
}

TEST_F(help, is_what_a_run_without_arguments_gives) {
    expect_usage(run({}));
}

TEST_F(help, is_asked_for_by_four_options_in_any_case_wherever_they_are) {
    for (const char* option : {"-h", "-help", "/?", "--help", "-H", "-HELP", "--Help"}) {
        SCOPED_TRACE(option);
        expect_usage(run({option}));
        expect_usage(run({"a", "b", option}));
        expect_usage(run({"-quiet", "-diags", "log", "-image", option, "x"}));
        EXPECT_TRUE(files().empty());
    }
}

TEST_F(help, is_not_what_similar_words_ask_for) {
    for (const char* word : {"-?", "/h", "help", "-helpme"}) {
        EXPECT_EQ(run({word}).status, 255) << word;
    }
}

TEST_F(header, comes_first_also_when_the_options_cannot_be_parsed) {
    const program_result result = run({"-out", "/no/such/dir/x", "-src", "a b"});
    EXPECT_EQ(result.status, 255);
    EXPECT_THAT(result.out,
                testing::MatchesRegex("quarry ver: 1\\.14\nrun time: .*\n\"command: .*quarry -out "
                                      "/no/such/dir/x -src 'a b'\"\n\n"));
}

TEST_F(header, takes_its_date_from_dateformat_even_one_that_is_then_refused) {
    EXPECT_THAT(run({"-dateformat", "yyyy-mm-dd", "x"}).out, testing::HasSubstr("\nrun time: 20"));
    const program_result result = run({"x", "-dateformat", "yy/mm/dd and more"});
    EXPECT_THAT(result.out, testing::ContainsRegex("\nrun time: [0-9][0-9]/[0-9][0-9]/[0-9][0-9] "));
    EXPECT_THAT(result.err, testing::HasSubstr("invalid yy/mm/dd and more, using default format\n"));
}

TEST_F(header, has_a_date_by_a_pattern_that_is_then_said_to_be_none) {
    const program_result result = run({"-quiet", "-dateformat", "yymmdd", "x"});
    EXPECT_THAT(result.out, testing::ContainsRegex("\nrun time: [0-9][0-9]/[0-9][0-9]/[0-9][0-9] "));
    EXPECT_EQ(result.err, "invalid yymmdd, using default format\n");
    EXPECT_EQ(run({"-quiet", "-dateformat", "yyyy/mm/dd", "x"}).err, "");
}

TEST_F(header, keeps_its_own_pattern_when_dateformat_has_no_value) {
    EXPECT_THAT(run({"x", "-dateformat"}).out,
                testing::ContainsRegex("\nrun time: [0-9][0-9]/[0-9][0-9]/[0-9][0-9][0-9][0-9] [0-9][0-9]:"));
}

TEST_F(header, of_a_program_on_a_local_disk_bears_no_mark) {
    EXPECT_THAT(run({"x"}).out, testing::ContainsRegex("; platform: [^;]*;[^;]*;[^;]*;(64|32)\n"));
}

}  // namespace
}  // namespace quarry::test
