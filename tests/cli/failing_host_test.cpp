// What is on disk when the machine lets the program down in the middle of a copy: bad sectors, reads and
// writes that come short or are interrupted, a disk that fills up, a file that somebody removes, a signal.
#include "cli/command_line.h"
#include "support/requirements.h"

#include <csignal>

namespace quarry::test {
namespace {

using words = std::vector<std::string>;
using settings = std::map<std::string, std::string>;

constexpr std::size_t cluster = 4096;
const std::string notepad = "/Windows/notepad.exe";
// Its time of modification, its name and the digest of its bytes.
const std::string named_copy = "01d5c1194ac40080_o_";

class failing_host : public command_line_test {
  protected:
    void SetUp() override {
        source("disk");
        m_position = text("disk").find(notepad_content().substr(0, cluster));
        ASSERT_NE(m_position, std::string::npos);
    }
    [[nodiscard]] program_result copy(settings host, const words& more = {}) const {
        words line = {"-image", "disk", "-src", notepad, "-dst", "o"};
        line.insert(line.end(), more.begin(), more.end());
        return on(std::move(host), line);
    }
    [[nodiscard]] program_result on(settings host, const words& line, const std::string& input = {}) const {
        host["LD_PRELOAD"] = QUARRY_FAILING_HOST;
        return run(line, {.standard_input = input, .environment = std::move(host)});
    }
    // A bad sector of 512 bytes in the file's third cluster, or wherever it is wanted.
    [[nodiscard]] static settings bad_sector(std::size_t position) {
        return {{"FAIL_READS_FROM", std::to_string(position)},
                {"FAIL_READS_TO", std::to_string(position + 512)}};
    }
    // The only file beside the source, or no name if there is none or there are several.
    [[nodiscard]] std::string only_file() const {
        words names = files();
        std::erase(names, "disk");
        return names.size() == 1 ? names.front() : std::string();
    }

    std::size_t m_position = 0;
};

TEST_F(failing_host, that_is_well_changes_nothing) {
    EXPECT_EQ(copy({}).status, 0);
    EXPECT_TRUE(text("o") == notepad_content());
}

TEST_F(failing_host, with_short_reads_and_writes_gives_the_same_copy) {
    EXPECT_EQ(copy({{"LONGEST_TRANSFER", "1000"}}).status, 0);
    EXPECT_TRUE(text("o") == notepad_content());
    EXPECT_EQ(copy({{"LONGEST_TRANSFER", "1000"}}, {"-md5"}).status, 0);
    EXPECT_TRUE(text(only_file()) == notepad_content());
}

TEST_F(failing_host, that_interrupts_every_other_call_gives_the_same_copy) {
    EXPECT_EQ(copy({{"INTERRUPTED", "1"}}, {"-diags", "log"}).status, 0);
    EXPECT_TRUE(text("o") == notepad_content());
    EXPECT_NE(text("log").find("exit: 0"), std::string::npos);
    EXPECT_EQ(copy({{"INTERRUPTED", "1"}}, {"-md5"}).status, 0);
}

// A read that begins ahead of a bad sector delivers what lies ahead of it, and counts as read.
TEST_F(failing_host, with_a_bad_sector_inside_of_a_cluster_leaves_zeros_from_there_to_its_end) {
    const program_result result = copy(bad_sector(m_position + 2 * cluster + 1024));
    EXPECT_EQ(result.status, 0);
    std::string expected = notepad_content();
    expected.replace(2 * cluster + 1024, cluster - 1024, cluster - 1024, '\0');
    EXPECT_TRUE(text("o") == expected);
}

TEST_F(failing_host, with_a_cluster_that_cannot_be_read_ends_the_copy_there_which_counts_as_done) {
    const program_result result = copy(bad_sector(m_position + 2 * cluster));
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(text("o") == notepad_content().substr(0, 2 * cluster));
}

// The reason for it is only in the report.
TEST_F(failing_host, with_a_cluster_that_cannot_be_read_leaves_no_gap_and_the_clusters_after_it_move_up) {
    QUARRY_NEEDS_ROOT();
    const std::size_t lcn = m_position / cluster;
    const program_result result =
        on(bad_sector(m_position + cluster),
           {"-image", "disk", "-cluster", std::to_string(lcn), "3", "-dst", "o", "-meta"});
    EXPECT_EQ(result.status, 0);
    const std::string content = notepad_content();
    EXPECT_TRUE(text("o") == content.substr(0, cluster) + content.substr(2 * cluster, cluster));
    const std::string report = text("o.meta.txt");
    const std::string lines = report.substr(report.find("\n\n") + 2);
    std::size_t from = 0;
    for (const char* ending : {" [ok]", " [failed]", " [ok]"}) {
        const std::size_t end = lines.find('\n', from);
        EXPECT_TRUE(lines.substr(from, end - from).ends_with(ending)) << report;
        from = end + 1;
    }
    EXPECT_EQ(from, lines.size()) << report;
}

TEST_F(failing_host, with_a_bad_boot_sector_holds_no_volume) {
    const program_result result = copy(bad_sector(0));
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(only_file(), "");
}

TEST_F(failing_host, with_a_bad_sector_in_one_file_of_a_list_goes_on_to_the_next) {
    const program_result result =
        on(bad_sector(m_position), {"-image", "disk", "-pipe", "-dst", "./"}, notepad + "\n/a.txt\n");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(text("a.txt"), "hello world\n");
    EXPECT_EQ(text("notepad.exe"), "");
}

TEST_F(failing_host, that_fills_up_makes_a_copy_named_by_its_digest_fail_and_leaves_no_file) {
    for (const char* room : {"0", "1", "65536", "99999"}) {
        EXPECT_EQ(copy({{"ROOM", room}}, {"-md5"}).status, 255) << room;
        EXPECT_EQ(files(), words{"disk"}) << room;
    }
}

TEST_F(failing_host, that_fills_up_cuts_any_other_copy_which_still_counts_as_done) {
    EXPECT_EQ(copy({{"ROOM", "50000"}}).status, 0);
    EXPECT_TRUE(text("o") == notepad_content().substr(0, 50000));
}

TEST_F(failing_host, whose_file_is_removed_under_the_copy_makes_a_copy_named_by_its_digest_fail) {
    EXPECT_EQ(copy({{"VANISH_AT", "50000"}}, {"-md5"}).status, 255);
    EXPECT_EQ(files(), words{"disk"});
}

TEST_F(failing_host, whose_file_is_removed_under_any_other_copy_has_no_copy_which_still_counts_as_done) {
    EXPECT_EQ(copy({{"VANISH_AT", "0"}}).status, 0);
    EXPECT_EQ(files(), words{"disk"});
}

TEST_F(failing_host, that_sends_a_signal_leaves_no_temporary_file) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const program_result result =
            copy({{"SIGNAL_AT", "50000"}, {"SIGNAL", std::to_string(signal)}}, {"-md5"});
        EXPECT_FALSE(result.exited);
        EXPECT_EQ(result.signal, signal) << "the shell sees what ended it";
        EXPECT_EQ(files(), words{"disk"});
    }
}

// The file is there and nobody has noted yet that it must go.
TEST_F(failing_host, that_sends_a_signal_as_soon_as_the_temporary_file_is_made_leaves_none) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const program_result result = copy({{"SIGNAL_AT_CREATION", std::to_string(signal)}}, {"-md5"});
        EXPECT_EQ(result.signal, signal);
        EXPECT_EQ(files(), words{"disk"}) << signal;
    }
}

// Whether a file can be made at the destination is tried first, with -md5 too.
TEST_F(failing_host, that_sends_a_signal_while_the_destination_is_tried_leaves_no_file) {
    for (const words& more : {words{}, words{"-md5"}}) {
        EXPECT_EQ(copy({{"SIGNAL_AT_TRIAL", std::to_string(SIGTERM)}}, more).signal, SIGTERM);
        EXPECT_EQ(files(), words{"disk"});
    }
}

TEST_F(failing_host, that_sends_a_second_signal_before_the_temporary_file_is_removed_leaves_none) {
    const program_result result = copy({{"SIGNAL_AT", "50000"},
                                        {"SIGNAL", std::to_string(SIGTERM)},
                                        {"SIGNAL_AT_REMOVAL", std::to_string(SIGINT)}},
                                       {"-md5"});
    EXPECT_FALSE(result.exited);
    EXPECT_EQ(files(), words{"disk"});
}

TEST_F(failing_host, that_sends_any_signal_that_can_be_caught_leaves_no_temporary_file) {
    for (const int signal : {SIGQUIT, SIGUSR1, SIGUSR2, SIGALRM, SIGXCPU, SIGABRT, SIGSYS, SIGRTMIN}) {
        const program_result result =
            copy({{"SIGNAL_AT", "50000"}, {"SIGNAL", std::to_string(signal)}}, {"-md5"});
        EXPECT_EQ(result.signal, signal);
        EXPECT_EQ(files(), words{"disk"}) << signal;
    }
}

TEST_F(failing_host, that_sends_a_signal_leaves_what_was_copied_under_its_own_name) {
    const program_result result = copy({{"SIGNAL_AT", "0"}, {"SIGNAL", std::to_string(SIGINT)}});
    EXPECT_EQ(result.signal, SIGINT);
    EXPECT_EQ(only_file(), "o");
}

TEST_F(failing_host, that_sends_a_signal_keeps_an_earlier_copy_of_the_same_name) {
    ASSERT_EQ(copy({}, {"-md5"}).status, 0);
    const std::string earlier = only_file();
    ASSERT_TRUE(earlier.starts_with(named_copy)) << earlier;
    EXPECT_EQ(copy({{"SIGNAL_AT", "0"}, {"SIGNAL", std::to_string(SIGTERM)}}, {"-md5"}).signal, SIGTERM);
    EXPECT_EQ(only_file(), earlier);
    EXPECT_TRUE(text(earlier) == notepad_content());
}

// A run under nohup, say, is meant to go on.
TEST_F(failing_host, whose_signals_are_ignored_is_no_reason_to_stop) {
    words line = {"-c",
                  "trap '' HUP; exec \"$0\" \"$@\"",
                  QUARRY_PROGRAM,
                  "-image",
                  "disk",
                  "-src",
                  notepad,
                  "-dst",
                  "o",
                  "-md5"};
    line.insert(line.begin(), "/bin/bash");
    const program_result result = run_program(line, {.directory = m_dir.path(),
                                                     .environment = {{"LD_PRELOAD", QUARRY_FAILING_HOST},
                                                                     {"SIGNAL_AT", "0"},
                                                                     {"SIGNAL", std::to_string(SIGHUP)}}});
    EXPECT_TRUE(result.exited);
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(only_file().starts_with(named_copy));
}

}  // namespace
}  // namespace quarry::test
