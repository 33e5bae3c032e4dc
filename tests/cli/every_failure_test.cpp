// Each read and each write fails in turn, the source shrinks after each read, a kill comes at each system
// call, clocks jump, and names go away. Whatever fails, there is no wrong copy, and the run says that it
// failed.
#include "cli/every_failure.h"

#include "support/requirements.h"

#include <csignal>
#include <fstream>
#include <iterator>

namespace quarry::test {
namespace {

// An exact copy in which something happens at one system call.
class every_call : public every_failure {
  protected:
    [[nodiscard]] program_result traced(words options, const words& line,
                                        const std::string& input = {}) const {
        options.insert(options.begin(), "strace");
        options.emplace_back(QUARRY_PROGRAM);
        options.insert(options.end(), line.begin(), line.end());
        return run_program(options,
                           {.standard_input = input, .directory = m_dir.path(), .leaks_allowed = true});
    }
    // The system calls of a run, or some of them, each as "NAME:when=NUMBER". Each name is counted for
    // itself.
    [[nodiscard]] words calls_of(const words& line, const std::string& input = {}) const {
        clear_outputs();
        const temp_dir place;
        EXPECT_EQ(traced({"-o", (place / "calls").string()}, line, input).status, 0);
        std::ifstream trace(place / "calls");
        std::map<std::string, int> counts;
        words calls;
        for (std::string call; std::getline(trace, call);) {
            const std::string name = call.substr(0, call.find('('));
            // The last line is no call, and the first call is strace's own.
            if (name.size() < call.size() && name != "execve") {
                calls.push_back(name + ":when=" + std::to_string(++counts[name]));
            }
        }
        words some;
        for (std::size_t i = 0; i < calls.size(); i += static_cast<std::size_t>(step())) {
            some.push_back(calls[i]);
        }
        return some;
    }
    // False if the run ended before, as it may where it waits for a thread or not.
    [[nodiscard]] bool is_killed_at(const std::string& call, const words& line,
                                    const std::string& input = {}) const {
        const std::size_t colon = call.find(':');
        const program_result result =
            traced({"-o", "/dev/null", "-e",
                    "inject=" + call.substr(0, colon) + ":signal=SIGKILL" + call.substr(colon)},
                   line, input);
        return !result.exited && result.signal == SIGKILL;
    }
    [[nodiscard]] int temporary_files_removed() const {
        int removed = 0;
        for (const auto& entry : std::filesystem::directory_iterator(m_dir / "out")) {
            const std::string name = entry.path().filename().string();
            if (name.size() == 6 && name.front() == '_') {
                removed += std::filesystem::remove(entry.path()) ? 1 : 0;
            }
        }
        return removed;
    }
    // Lets the call of each number fail. Returns how many made the copy fail.
    [[nodiscard]] int failures_of(const std::string& call, const std::string& error, int most) const {
        int failed = 0;
        for (int number = 1; number <= most; ++number) {
            SCOPED_TRACE(call + " " + error + " " + std::to_string(number));
            clear_outputs();
            const program_result result =
                traced({"-f", "-o", "/dev/null", "-e",
                        "inject=" + call + ":error=" + error + ":when=" + std::to_string(number)},
                       m_exact_copy);
            EXPECT_TRUE(result.exited) << result.signal;
            const words copies = right_copies();
            if (result.status == 0) {
                EXPECT_EQ(copies, words{"first.bin"});
            } else {
                ++failed;
            }
        }
        return failed;
    }
};

TEST_F(every_call, that_fails_to_read_leaves_an_exact_copy_or_none) {
    QUARRY_NEEDS_PROGRAM("strace");
    EXPECT_GT(failures_of("pread64", "EIO", 24), 5);
}

// A sanitizer's own write that fails is tried again for ever, so there is no such test beside one.
#ifndef QUARRY_SANITIZED
TEST_F(every_call, that_fails_to_write_leaves_an_exact_copy_or_none) {
    QUARRY_NEEDS_PROGRAM("strace");
    EXPECT_GT(failures_of("write", "ENOSPC", 24), 1);
    EXPECT_GT(failures_of("write", "EIO", 24), 1);
    EXPECT_GT(failures_of("fsync", "EIO", 3), 1);
}
#endif

TEST_F(every_call, at_which_a_kill_comes_leaves_the_earlier_file_or_the_new_one) {
    QUARRY_NEEDS_PROGRAM("strace");
    words line = m_exact_copy;
    line.emplace_back("-overwrite");
    int killed = 0;
    int with_earlier_file = 0;
    int with_new_file = 0;
    for (const std::string& call : calls_of(line)) {
        SCOPED_TRACE(call);
        clear_outputs();
        write_file(m_dir / "out/first.bin", to_bytes("earlier"));
        killed += is_killed_at(call, line) ? 1 : 0;
        const std::string left = text("out/first.bin");
        ASSERT_TRUE(left == "earlier" || left == m_first);
        (left == "earlier" ? with_earlier_file : with_new_file) += 1;
        EXPECT_LE(temporary_files_removed(), 1);
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_dir / "out"), {}), 1);
    }
    EXPECT_GT(killed, 30);
    EXPECT_GT(with_earlier_file, 20);
    EXPECT_GT(with_new_file, 1);
}

TEST_F(every_call, at_which_a_kill_comes_leaves_whole_copies_and_a_manifest_to_go_on_from) {
    QUARRY_NEEDS_PROGRAM("strace");
    words again = m_exact_list;
    again.emplace_back("-resume");
    int killed = 0;
    int with_one_copy = 0;
    for (const std::string& call : calls_of(m_exact_list, m_list)) {
        SCOPED_TRACE(call);
        clear_outputs();
        killed += is_killed_at(call, m_exact_list, m_list) ? 1 : 0;
        EXPECT_LE(temporary_files_removed(), 1);
        with_one_copy += right_copies() == words{"first.bin"} ? 1 : 0;
        EXPECT_EQ(run(again, {.standard_input = m_list}).status, 0);
        EXPECT_EQ(right_copies(), (words{"first.bin", "second.bin"}));
        EXPECT_EQ(lines_with("complete"), 2U);
    }
    EXPECT_GT(killed, 30);
    EXPECT_GT(with_one_copy, 1);
}

TEST_F(every_failure, of_a_source_that_shrinks_leaves_an_exact_copy_or_none) {
    int failed = 0;
    for (int reads = 1; reads <= 24; ++reads) {
        for (const char* end : {"0", "9000", "40000"}) {
            const program_result result = afresh(m_exact_copy, {{"LD_PRELOAD", QUARRY_FAILING_HOST},
                                                                {"SHRINKS_AFTER", std::to_string(reads)},
                                                                {"SHRINKS_TO", end}});
            ASSERT_TRUE(result.exited) << result.signal;
            const words copies = right_copies();
            EXPECT_EQ(result.status == 0, copies == words{"first.bin"}) << reads << " " << result.err;
            EXPECT_TRUE(result.status == 0 || result.err.find("err: ") != std::string::npos) << reads;
            failed += result.status == 0 ? 0 : 1;
        }
    }
    EXPECT_GT(failed, 10);
}

TEST_F(every_failure, of_clocks_changes_no_copy) {
    const settings jumps = {{"LD_PRELOAD", QUARRY_FAILING_HOST}, {"CLOCK_JUMPS", "1"}};
    const program_result result = afresh(m_exact_list, jumps, m_list);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(right_copies(), (words{"first.bin", "second.bin"}));
    // The record has the clock as it was read: one of the two years is next year's, the other last year's.
    const auto year_of = [manifest = text("manifest")](const std::string& name) {
        return manifest.substr(manifest.find("\"" + name + "\":\"") + name.size() + 4, 4);
    };
    EXPECT_EQ(std::abs(std::stoi(year_of("finished")) - std::stoi(year_of("started"))), 2);
    EXPECT_EQ(afresh({"-image", "volume", "-src", "/first.bin", "-dst", "out/first.bin"}, jumps).status, 0);
    EXPECT_EQ(right_copies(), words{"first.bin"});
}

// The log and the manifest are shorter, and keep their names.
TEST_F(every_failure, of_a_destination_that_vanishes_leaves_no_exact_copy) {
    const program_result result =
        afresh(m_exact_copy, {{"LD_PRELOAD", QUARRY_FAILING_HOST}, {"VANISH_AT", "20000"}});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("err: destination out/first.bin: No such file or directory\n"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(right_copies(), words{});
    EXPECT_EQ(lines_with("failed"), 1U);
}

}  // namespace
}  // namespace quarry::test
