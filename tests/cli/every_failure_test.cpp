// One thing after the other fails, everywhere it can: each allocation, each read, each write, and the source
// shrinks after each read. Whatever fails, there is no wrong copy, and the run says that it failed.
//
// Of many places every seventh is tried; with QUARRY_EVERY_FAILURE in the environment, each.
#include "cli/command_line.h"
#include "support/requirements.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace quarry::test {
namespace {

namespace fs = std::filesystem;
using words = std::vector<std::string>;
using settings = std::map<std::string, std::string>;

std::string content_of(std::uint32_t seed, std::size_t length) {
    const bytes content = pattern(length, seed);
    return {content.begin(), content.end()};
}

const std::string first_content = content_of(7, 30000);
const std::string second_content = content_of(9, 9000);

class every_failure : public command_line_test {
  protected:
    void SetUp() override {
        volume_builder volume({.system_files = true});
        volume.add_file("first.bin").stored_data(to_bytes(first_content));
        volume.add_file("second.bin").stored_data(to_bytes(second_content));
        write_file(m_dir / "volume", volume.image());
    }

    [[nodiscard]] static int step() { return std::getenv("QUARRY_EVERY_FAILURE") == nullptr ? 7 : 1; }

    // Runs a line on an empty place. "out" is the directory of copies.
    [[nodiscard]] program_result afresh(const words& line, settings environment,
                                        const std::string& input = {}) const {
        for (const char* name : {"out", "log", "manifest"}) {
            fs::remove_all(m_dir / name);
        }
        fs::create_directory(m_dir / "out");
        return run(line, {.standard_input = input, .environment = std::move(environment)});
    }
    [[nodiscard]] std::string text_or_nothing(const std::string& name) const {
        return fs::exists(m_dir / name) ? text(name) : std::string();
    }
    // The allocations of a run in which none fails.
    [[nodiscard]] int allocations(const words& line, const std::string& input = {}) const {
        const std::string count =
            (fs::temp_directory_path() / (m_dir.path().filename().string() + ".n")).string();
        EXPECT_EQ(
            afresh(line, {{"LD_PRELOAD", QUARRY_FAILING_MEMORY}, {"ALLOCATION_COUNT", count}}, input).status,
            0);
        int number = 0;
        std::ifstream(count) >> number;
        fs::remove(count);
        return number;
    }
    // The names in "out", each of which must hold just what it should.
    [[nodiscard]] words right_copies() const {
        words names;
        for (const auto& entry : fs::directory_iterator(m_dir / "out")) {
            const std::string name = entry.path().filename().string();
            names.push_back(name);
            const std::string copy = text("out/" + name);
            EXPECT_TRUE((name == "first.bin" && copy == first_content) ||
                        (name == "second.bin" && copy == second_content))
                << name;
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    const words m_exact_copy = {"-exact", "-image", "volume", "-src",      "/first.bin", "-dst",
                                "out/",   "-diags", "log",    "-manifest", "manifest"};
    const words m_unrecorded_list = {"-exact", "-image", "volume", "-pipe", "-dst", "out/", "-diags", "log"};
    const words m_exact_list = {"-exact", "-image", "volume", "-pipe",     "-dst",
                                "out/",   "-diags", "log",    "-manifest", "manifest"};
    const std::string m_list = "/first.bin\n/second.bin\n";
};

// What memory that ran out leaves of an exact run.
struct remains {
    program_result result;
    words copies;
    std::string log;
    std::string manifest;

    [[nodiscard]] bool says(const std::string& words_said) const {
        return result.err.find(words_said) != std::string::npos;
    }
    [[nodiscard]] bool has_line(const std::string& outcome) const {
        return manifest.find("\"result\":\"" + outcome + "\"") != std::string::npos;
    }
};

void expect_honest(const remains& left) {
    ASSERT_TRUE(left.result.exited) << left.result.signal;
    if (left.result.status == 0) {
        EXPECT_TRUE(left.log.ends_with("->exit: 0\n")) << left.log;
        return;
    }
    if (left.says("err: log log: cannot be opened")) {
        EXPECT_EQ(left.result.status, 2);
        return;
    }
    EXPECT_EQ(left.result.status, 255) << left.result.err;
    EXPECT_TRUE(left.says("memory ran out") || left.says("quarry: std::bad_alloc")) << left.result.err;
    if (left.log.find("->") != std::string::npos) {
        EXPECT_TRUE(left.log.ends_with("->exit: 255\n")) << left.log;
    }
}

// Up to where the copy gets its name. What is said of a copy after that is looked at in a list below.
TEST_F(every_failure, of_an_allocation_leaves_no_exact_copy_and_is_recorded) {
    if (leak_check_is_built_in()) {
        GTEST_SKIP() << "AddressSanitizer has allocations of its own";
    }
    const int count = allocations(m_exact_copy);
    ASSERT_GT(count, 300);
    int broken_off = 0;
    for (int number = 1; number <= count; number += step()) {
        SCOPED_TRACE(number);
        remains left;
        left.result = afresh(m_exact_copy, {{"LD_PRELOAD", QUARRY_FAILING_MEMORY},
                                            {"NONE_AFTER_NAME", "1"},
                                            {"FAIL_ALLOCATION", std::to_string(number)}});
        left.copies = right_copies();
        left.log = text_or_nothing("log");
        left.manifest = text_or_nothing("manifest");
        expect_honest(left);
        EXPECT_EQ(left.result.status == 0, left.copies == words{"first.bin"});
        if (left.result.status == 0) {
            EXPECT_TRUE(left.has_line("complete"));
        } else if (left.log.find("info: exact source") != std::string::npos) {
            // From the source on each run has its line.
            EXPECT_TRUE(left.has_line("failed")) << left.manifest << left.result.err;
            ++broken_off;
        }
    }
    EXPECT_GT(broken_off, 20);
}

TEST_F(every_failure, of_an_allocation_ends_an_exact_list_with_its_last_line) {
    if (leak_check_is_built_in()) {
        GTEST_SKIP() << "AddressSanitizer has allocations of its own";
    }
    const int count = allocations(m_unrecorded_list, m_list);
    int after_first = 0;
    for (int number = 1; number <= count; number += step()) {
        SCOPED_TRACE(number);
        remains left;
        left.result = afresh(
            m_unrecorded_list,
            {{"LD_PRELOAD", QUARRY_FAILING_MEMORY}, {"FAIL_ALLOCATION", std::to_string(number)}}, m_list);
        left.copies = right_copies();
        left.log = text_or_nothing("log");
        expect_honest(left);
        if (left.says("path \"/first.bin\": memory ran out")) {
            EXPECT_TRUE(left.says("\nlist: 1 asked, ")) << left.result.err;
        }
        if (left.copies == words{"first.bin"} && left.says("path \"/second.bin\": memory ran out")) {
            EXPECT_TRUE(left.says("\nlist: 2 asked, 1 complete, 0 in doubt, 1 failed, 0 kept\n"))
                << left.result.err;
            ++after_first;
        }
    }
    EXPECT_GT(after_first, 2);
}

// Memory that is gone for good: nothing can be promised to be said, but no copy is wrong.
TEST_F(every_failure, of_all_allocations_from_one_on_leaves_no_wrong_copy) {
    if (leak_check_is_built_in()) {
        GTEST_SKIP() << "AddressSanitizer has allocations of its own";
    }
    const int count = allocations(m_unrecorded_list, m_list);
    for (int number = 1; number <= count; number += 3 * step()) {
        SCOPED_TRACE(number);
        const program_result result =
            afresh(m_unrecorded_list,
                   {{"LD_PRELOAD", QUARRY_FAILING_MEMORY}, {"FAIL_ALLOCATIONS_FROM", std::to_string(number)}},
                   m_list);
        EXPECT_TRUE(result.exited) << result.signal;
        EXPECT_NE(result.status, 0);
        static_cast<void>(right_copies());
    }
}

TEST_F(every_failure, of_an_allocation_leaves_a_copy_with_a_digest_or_none_without_the_exact_mode) {
    if (leak_check_is_built_in()) {
        GTEST_SKIP() << "AddressSanitizer has allocations of its own";
    }
    const words line = {"-image", "volume", "-src", "/first.bin", "-dst", "out/copy", "-md5"};
    const int count = allocations(line);
    ASSERT_GT(count, 100);
    int without_copy = 0;
    for (int number = 1; number <= count; number += step()) {
        SCOPED_TRACE(number);
        const program_result result = afresh(
            line, {{"LD_PRELOAD", QUARRY_FAILING_MEMORY}, {"FAIL_ALLOCATION", std::to_string(number)}});
        EXPECT_TRUE(result.exited) << result.signal;
        EXPECT_TRUE(result.status == 0 || result.status == 255) << result.status;
        std::size_t copies = 0;
        for (const auto& entry : fs::directory_iterator(m_dir / "out")) {
            ++copies;
            EXPECT_TRUE(text("out/" + entry.path().filename().string()) == first_content);
        }
        EXPECT_LE(copies, 1u);
        EXPECT_TRUE(result.status != 0 || copies == 1);
        without_copy += copies == 0 ? 1 : 0;
    }
    EXPECT_GT(without_copy, 10);
}

// What an exact copy has become after one call of a kind failed; true if it is complete.
class every_call : public every_failure {
  protected:
    [[nodiscard]] bool is_complete_with(const std::string& injected) const {
        for (const char* name : {"out", "log", "manifest"}) {
            fs::remove_all(m_dir / name);
        }
        fs::create_directory(m_dir / "out");
        words line = {"strace", "-o", "/dev/null", "-e", "inject=" + injected, QUARRY_PROGRAM};
        line.insert(line.end(), m_exact_copy.begin(), m_exact_copy.end());
        const program_result result = run_program(line, {.directory = m_dir.path(), .leaks_allowed = true});
        EXPECT_TRUE(result.exited) << result.signal;
        const words copies = right_copies();
        if (result.status == 0) {
            EXPECT_EQ(copies, words{"first.bin"}) << injected;
        }
        return result.status == 0;
    }
    // Lets the call of each number fail, up to one that there is not. Returns how many made the copy fail.
    [[nodiscard]] int failures_of(const std::string& call, const std::string& error, int most) const {
        int failed = 0;
        for (int number = 1; number <= most; ++number) {
            failed += is_complete_with(call + ":error=" + error + ":when=" + std::to_string(number)) ? 0 : 1;
        }
        return failed;
    }
};

TEST_F(every_call, that_fails_to_read_leaves_an_exact_copy_or_none) {
    QUARRY_NEEDS_PROGRAM("strace");
    EXPECT_GT(failures_of("pread64", "EIO", 24), 5);
}

TEST_F(every_call, that_fails_to_write_leaves_an_exact_copy_or_none) {
    QUARRY_NEEDS_PROGRAM("strace");
    EXPECT_GT(failures_of("write", "ENOSPC", 24), 1);
    EXPECT_GT(failures_of("write", "EIO", 24), 1);
    EXPECT_GT(failures_of("fsync", "EIO", 3), 1);
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
    EXPECT_EQ(afresh({"-image", "volume", "-src", "/first.bin", "-dst", "out/first.bin"}, jumps).status, 0);
    EXPECT_EQ(right_copies(), words{"first.bin"});
}

TEST_F(every_failure, of_a_destination_that_vanishes_leaves_no_exact_copy) {
    const program_result result =
        afresh(m_exact_copy, {{"LD_PRELOAD", QUARRY_FAILING_HOST}, {"VANISH_AT", "0"}});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("err: destination out/first.bin: No such file or directory\n"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(right_copies(), words{});
    EXPECT_NE(text("manifest").find("\"result\":\"failed\""), std::string::npos);
}

}  // namespace
}  // namespace quarry::test
