// Which text goes to which stream, and when -quiet silences it.

#include "cli/command_line.h"

namespace quarry::test {
namespace {

enum class place { standard_output, standard_error };

struct shown_text {
    const char* name;
    std::string text;
    std::vector<std::string> words;
    place stream;
    bool silenced_by_quiet;
    std::string input = {};
};

const std::vector<shown_text> texts = {
    {"the_header",
     "quarry ver: 1.14\nrun time: ",
     {"-image", "disk", "-src", "/a.txt", "-dst", "o"},
     place::standard_output,
     false},
    {"the_usage", "Usage:\n", {"-h"}, place::standard_error, false},
    {"a_message_of_a_missing_destination",
     "option [-dst <destination file>] needed for this option\n",
     {"-image", "disk", "-pipe"},
     place::standard_error,
     false},
    {"a_message_about_the_image",
     "prob understanding image [ ] aborting\n,",
     {"-image", " "},
     place::standard_error,
     false},
    {"the_table_of_an_image_without_an_offset",
     "use option [-offset 0x100000]\n",
     {"-image", "mbr"},
     place::standard_error,
     false},
    {"the_table_of_an_image_with_an_offset",
     "use option [-offset 0x100000]\n",
     {"-image", "mbr", "-offset", "512"},
     place::standard_output,
     false},
    {"a_message_about_a_virtual_disk",
     "suggested array: -vmdk \"disk\"\n",
     {"-vmdk", "disk"},
     place::standard_error,
     false},
    {"a_message_of_a_generic_option",
     "invalid x, using default format\n",
     {"-dateformat", "x", "-image", "disk"},
     place::standard_error,
     false},
    {"a_message_about_the_time_format",
     "invalid hh.mm.ss, using default format\n",
     {"-timeformat", "hh.mm.ss", "-image", "disk"},
     place::standard_error,
     false},
    {"a_message_about_the_start_time",
     "invalid start time, ignoring\n",
     {"-cmd_start_time", "2020/13/01", "-image", "disk"},
     place::standard_error,
     false},
    {"a_message_about_the_stop_time",
     "invalid stop time, ignoring\n",
     {"-cmd_stop_time", "2020/13/01", "-image", "disk"},
     place::standard_error,
     false},
    {"a_message_about_cluster_numbers",
     "invalid: should be: -cluster <cluster num> [<num clusters>]\n",
     {"-image", "disk", "-cluster"},
     place::standard_error,
     false},
    {"a_message_about_an_offset_out_of_bounds",
     "volume offset 0x7fffffff is not within image bounds\n",
     {"-image", "disk", "-offset", "0x7fffffff"},
     place::standard_output,
     false},
    {"a_message_about_an_image_without_a_volume",
     "couldn't find any partitions on disk\n\n",
     {"-image", "missing"},
     place::standard_error,
     false},
    {"a_message_about_the_out_file",
     "prob opening file /no/such/dir/x for output, aborting\n",
     {"-out", "/no/such/dir/x"},
     place::standard_error,
     false},
    {"a_message_of_a_copy_routine",
     "err: -dst <filename> was not specified\n",
     {"-image", "disk", "-src", "/a.txt"},
     place::standard_output,
     true},
    {"a_failed_check_of_the_destination",
     "err: can't create the file: /no/such/dir/x\n",
     {"-image", "disk", "-src", "/a.txt", "-dst", "/no/such/dir/x"},
     place::standard_output,
     true},
    {"a_message_about_the_source",
     "err: prob understanding source of \"\"\n",
     {"-src", "\"\"", "-dst", "o"},
     place::standard_output,
     true},
    {"a_message_about_the_destination",
     "err: prob understanding destination of \"\"\n",
     {"-image", "disk", "-src", "/a.txt", "-dst", "\"\""},
     place::standard_output,
     true},
    {"a_message_about_a_destination_that_is_the_source",
     "err: source and destination are the same\n",
     {"-image", "disk", "-src", "/a.txt", "-dst", "disk"},
     place::standard_output,
     true},
    {"a_message_about_a_failed_copy",
     "err: copy failed:  -> ",
     {"-image", "disk", "-dst", "o"},
     place::standard_output,
     true},
    {"the_final_line",
     "copy successful\n",
     {"-image", "disk", "-src", "/a.txt", "-dst", "o"},
     place::standard_error,
     true},
    {"a_line_of_a_pipe_run_that_succeeded",
     "success: /a.txt\n",
     {"-image", "disk", "-pipe", "-dst", "o"},
     place::standard_error,
     true,
     "/a.txt\n"},
    {"a_line_of_a_pipe_run_that_failed",
     "failed: /x\n",
     {"-image", "disk", "-pipe", "-dst", "o"},
     place::standard_error,
     true,
     "/x\n"},
    {"the_emptying_of_the_status_line",
     emptied_status_line,
     {"-image", "disk", "-src", "/a.txt", "-dst", "o"},
     place::standard_error,
     true},
    {"the_elapsed_time",
     " secs\n",
     {"-image", "disk", "-src", "/a.txt", "-dst", "o", "-profile"},
     place::standard_error,
     false},
};

class shown_texts : public command_line_test, public testing::WithParamInterface<shown_text> {};

TEST_P(shown_texts, reach_their_stream_and_no_other) {
    source("disk");
    source("mbr");
    const shown_text& what = GetParam();
    const program_result result = run(what.words, {.standard_input = what.input});
    const bool on_output = what.stream == place::standard_output;
    EXPECT_EQ(result.out.find(what.text) != std::string::npos, on_output) << result.out;
    EXPECT_EQ(result.err.find(what.text) != std::string::npos, !on_output) << result.err;
}

TEST_P(shown_texts, are_silenced_by_quiet_or_not) {
    source("disk");
    source("mbr");
    const shown_text& what = GetParam();
    std::vector<std::string> words = what.words;
    words.insert(words.begin(), "-quiet");
    const program_result result = run(words, {.standard_input = what.input});
    const std::string& stream = what.stream == place::standard_output ? result.out : result.err;
    EXPECT_EQ(stream.find(what.text) == std::string::npos, what.silenced_by_quiet) << stream;
}

INSTANTIATE_TEST_SUITE_P(streams, shown_texts, testing::ValuesIn(texts),
                         [](const auto& shown) { return std::string(shown.param.name); });

class quiet : public command_line_test {};

TEST_F(quiet, with_diags_shows_only_the_header_and_the_log_is_complete) {
    source("disk");
    const program_result result =
        run({"-quiet", "-diags", "log", "-image", "disk", "-src", "/x", "-dst", "o"});
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(behind_header(result.out), "");
    EXPECT_EQ(result.err, "");
    const std::string log = text("log");
    EXPECT_NE(log.find("->err: find inode\n->err: copy failed\n->exit: -1\n->"), std::string::npos) << log;
}

TEST_F(quiet, without_diags_a_failing_driver_shows_the_header_and_the_exit_status_and_nothing_else) {
    source("disk");
    const program_result result = run({"-quiet", "-image", "disk", "-src", "/x", "-dst", "o"});
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(behind_header(result.out), "");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(files(), std::vector<std::string>{"disk"});
}

class status_log : public command_line_test {};

TEST_F(status_log, that_cannot_be_opened_is_absent_without_a_word_and_the_copy_runs) {
    source("disk");
    for (const char* log : {"/no/such/dir/x", "", ".", "\xFF"}) {
        const program_result result = run({"-diags", log, "-image", "disk", "-src", "/a.txt", "-dst", "o"});
        EXPECT_EQ(result.status, 0) << log;
        EXPECT_EQ(behind_header(result.out), "") << log;
        EXPECT_EQ(result.err, std::string("copy successful\n") + emptied_status_line) << log;
        EXPECT_EQ(files(), (std::vector<std::string>{"disk", "o"})) << log;
        std::filesystem::remove(m_dir / "o");
    }
}

class elapsed_time : public command_line_test {};

TEST_F(elapsed_time, is_printed_with_profile_and_logged_with_diags) {
    source("disk");
    const program_result result =
        run({"-profile", "-diags", "log", "-image", "disk", "-src", "/a.txt", "-dst", "o"});
    const std::string log = text("log");
    const std::size_t at = log.rfind("->");
    const std::string last_line = log.substr(at);
    EXPECT_TRUE(last_line.ends_with(" secs\n")) << log;
    EXPECT_EQ(result.err, std::string("copy successful\n") + emptied_status_line + last_line);
}

TEST_F(elapsed_time, is_not_shown_by_a_run_whose_options_were_refused) {
    const program_result result = run({"-profile", "-diags", "log", "-image", "missing"});
    EXPECT_EQ(result.err, "couldn't find any partitions on disk\n\n");
    EXPECT_TRUE(text("log").ends_with("->err: cmdline\n->exit: -1\n"));
}

}  // namespace
}  // namespace quarry::test
