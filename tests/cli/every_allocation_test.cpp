// Each allocation fails in turn: there is no wrong copy, and none that the manifest does not know.
//
// Not built with sanitizers, which have allocations of their own.
#include "cli/every_failure.h"

#include <fstream>

namespace quarry::test {
namespace {

class every_allocation : public every_failure {
  protected:
    [[nodiscard]] static settings failing(const char* which, int number) {
        return {{"LD_PRELOAD", QUARRY_FAILING_MEMORY}, {which, std::to_string(number)}};
    }
    // The allocations of a run in which none fails.
    [[nodiscard]] int allocations(const words& line, const std::string& input = {}) const {
        // The program may not write where it has nothing to write, so the file is open from the start.
        const temp_dir place;
        const std::string count = (place / "count").string();
        EXPECT_EQ(
            afresh(line, {{"LD_PRELOAD", QUARRY_FAILING_MEMORY}, {"ALLOCATION_COUNT", count}}, input).status,
            0);
        int number = 0;
        std::ifstream(count) >> number;
        return number;
    }
    // What a run of the exact mode says and logs after one allocation failed.
    void expect_honest(const program_result& result) const {
        ASSERT_TRUE(result.exited) << result.signal;
        const std::string log = text_or_nothing("log");
        if (result.status == 0) {
            EXPECT_TRUE(log.ends_with("->exit: 0\n")) << log;
            return;
        }
        if (says(result, "err: log log: cannot be opened")) {
            EXPECT_EQ(result.status, 2);
            return;
        }
        EXPECT_EQ(result.status, 255) << result.err;
        EXPECT_TRUE(says(result, "memory ran out") || says(result, "quarry: std::bad_alloc")) << result.err;
        if (log.find("->") != std::string::npos) {
            EXPECT_TRUE(log.ends_with("->exit: 255\n")) << log << result.err;
        }
    }
    [[nodiscard]] static bool says(const program_result& result, const std::string& text) {
        return result.err.find(text) != std::string::npos;
    }
};

TEST_F(every_allocation, that_fails_leaves_an_exact_copy_with_its_line_or_none_and_a_line_of_that) {
    const int count = allocations(m_exact_copy);
    ASSERT_GT(count, 300);
    int without_copy = 0;
    int with_copy = 0;
    for (int number = 1; number <= count; number += step()) {
        SCOPED_TRACE(number);
        const program_result result = afresh(m_exact_copy, failing("FAIL_ALLOCATION", number));
        expect_honest(result);
        const words copies = right_copies();
        if (result.status == 0) {
            EXPECT_EQ(copies, words{"first.bin"});
        }
        if (copies == words{"first.bin"}) {
            EXPECT_EQ(lines_with("complete"), 1U) << result.err;
            EXPECT_TRUE(says(result, "ok: /first.bin") || says(result, "; the copy stands")) << result.err;
            with_copy += result.status == 0 ? 0 : 1;
        } else if (text_or_nothing("log").find("info: exact source") != std::string::npos) {
            // From the source on each run has its line.
            EXPECT_EQ(lines_with("failed"), 1U) << result.err;
            ++without_copy;
        }
    }
    EXPECT_GT(without_copy, 20);
    EXPECT_GT(with_copy, 0);
}

TEST_F(every_allocation, that_fails_ends_an_exact_list_with_its_last_line) {
    const int count = allocations(m_exact_list, m_list);
    int after_first = 0;
    for (int number = 1; number <= count; number += step()) {
        SCOPED_TRACE(number);
        const program_result result = afresh(m_exact_list, failing("FAIL_ALLOCATION", number), m_list);
        expect_honest(result);
        const words copies = right_copies();
        EXPECT_EQ(lines_with("complete"), copies.size()) << result.err;
        if (says(result, "path \"/first.bin\": memory ran out")) {
            EXPECT_TRUE(says(result, "\nlist: 1 asked, ")) << result.err;
        }
        if (copies == words{"first.bin"} && says(result, "path \"/second.bin\": memory ran out")) {
            EXPECT_TRUE(says(result, "\nlist: 2 asked, 1 complete, 0 in doubt, 1 failed, 0 kept\n"))
                << result.err;
            EXPECT_EQ(lines_with("failed"), 1U);
            ++after_first;
        }
    }
    EXPECT_GT(after_first, 2);
}

// Memory that is gone for good: nothing can be promised to be said, but no copy is wrong or has no line.
TEST_F(every_allocation, that_fails_for_good_leaves_no_wrong_copy_and_none_without_its_line) {
    const int count = allocations(m_exact_list, m_list);
    std::size_t stand = 0;
    for (int number = 1; number <= count; number += 3 * step()) {
        SCOPED_TRACE(number);
        const program_result result = afresh(m_exact_list, failing("FAIL_ALLOCATIONS_FROM", number), m_list);
        EXPECT_TRUE(result.exited) << result.signal;
        EXPECT_NE(result.status, 0);
        const words copies = right_copies();
        EXPECT_EQ(lines_with("complete"), copies.size()) << result.err;
        stand += copies.size();
    }
    EXPECT_GT(stand, 2U);
}

TEST_F(every_allocation, that_fails_in_a_run_that_goes_on_changes_no_copy_and_no_line) {
    words line = m_exact_list;
    line.emplace_back("-resume");
    // A run with nothing to go on from has more to do than one that keeps the first copy.
    const int count = allocations(line, m_list);
    ASSERT_EQ(afresh(m_exact_copy, {}).status, 0);
    const std::string first_line = text("manifest");
    int broken_off = 0;
    for (const char* which : {"FAIL_ALLOCATION", "FAIL_ALLOCATIONS_FROM"}) {
        for (int number = 1; number <= count; number += 2 * step()) {
            SCOPED_TRACE(which + (" " + std::to_string(number)));
            std::filesystem::remove(m_dir / "out/second.bin");
            write_file(m_dir / "manifest", to_bytes(first_line));
            const program_result result =
                run(line, {.standard_input = m_list, .environment = failing(which, number)});
            EXPECT_TRUE(result.exited) << result.signal;
            const words copies = right_copies();
            EXPECT_TRUE(copies == words{"first.bin"} || copies == (words{"first.bin", "second.bin"}));
            EXPECT_EQ(lines_with("complete"), copies.size()) << result.err;
            EXPECT_TRUE(text("manifest").starts_with(first_line));
            broken_off += result.status == 255 ? 1 : 0;
        }
    }
    EXPECT_GT(broken_off, 20);
}

TEST_F(every_allocation, that_fails_leaves_a_copy_with_a_digest_or_none_without_the_exact_mode) {
    const words line = {"-image", "volume", "-src", "/first.bin", "-dst", "out/copy", "-md5"};
    const int count = allocations(line);
    ASSERT_GT(count, 100);
    int without_copy = 0;
    for (int number = 1; number <= count; number += step()) {
        SCOPED_TRACE(number);
        const program_result result = afresh(line, failing("FAIL_ALLOCATION", number));
        EXPECT_TRUE(result.exited) << result.signal;
        EXPECT_TRUE(result.status == 0 || result.status == 255) << result.status;
        std::size_t copies = 0;
        for (const auto& entry : std::filesystem::directory_iterator(m_dir / "out")) {
            ++copies;
            EXPECT_TRUE(text("out/" + entry.path().filename().string()) == m_first);
        }
        EXPECT_LE(copies, 1U);
        EXPECT_TRUE(result.status != 0 || copies == 1);
        without_copy += copies == 0 ? 1 : 0;
    }
    EXPECT_GT(without_copy, 10);
}

}  // namespace
}  // namespace quarry::test
