// Both output streams in one file, as a batch job has them: what was said first is read first, and a signal
// takes no words away.
#include "cli/command_line.h"

#include <csignal>

namespace quarry::test {
namespace {

using words = std::vector<std::string>;

// A disk whose table is found by a search, which the run says on standard output before it copies.
const words copy = {"-image", "damaged", "-offset", "0x100000", "-src", "/Windows/notepad.exe", "-dst", "o"};
const std::string questionable = "disk is corrupted, partition info questionable\n";

class joined_streams : public command_line_test {
  protected:
    void SetUp() override { source("damaged"); }
    // Standard output and standard error of a run, in one file, without the header.
    [[nodiscard]] std::string joined(const words& more, const std::string& input = {}) const {
        words line = {"/bin/sh", "-c", "exec \"$0\" \"$@\" >both 2>&1", QUARRY_PROGRAM};
        line.insert(line.end(), copy.begin(), copy.end());
        line.insert(line.end(), more.begin(), more.end());
        static_cast<void>(run_program(line, {.standard_input = input, .directory = m_dir.path()}));
        return behind_header(text("both"));
    }
};

TEST_F(joined_streams, show_words_about_the_source_before_the_outcome) {
    EXPECT_EQ(joined({}), questionable + "copy successful\n" + emptied_status_line);
}

TEST_F(joined_streams, show_each_message_of_a_list_before_the_outcome_of_its_line) {
    std::filesystem::create_directory(m_dir / "o");
    const std::string refusal = "err: can't create the file: o\n";
    EXPECT_EQ(joined({"-pipe"}, "/a.txt\n/b.txt\n"), questionable + refusal + "failed: /a.txt\n" + refusal +
                                                         "failed: /b.txt\n" + emptied_status_line);
}

TEST_F(joined_streams, keep_words_about_the_source_when_a_signal_ends_the_run) {
    const program_result result = run(copy, {.environment = {{"LD_PRELOAD", QUARRY_FAILING_HOST},
                                                             {"SIGNAL_AT", "0"},
                                                             {"SIGNAL", std::to_string(SIGKILL)}}});
    EXPECT_EQ(result.signal, SIGKILL);
    EXPECT_EQ(behind_header(result.out), questionable);
}

}  // namespace
}  // namespace quarry::test
