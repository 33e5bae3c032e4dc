#include "foundation/status_log.h"

#include "support/run_program.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

namespace quarry {
namespace {

class kept_log : public status_log {
  public:
    bool m_on = true;
    std::vector<std::string> m_lines;

  protected:
    [[nodiscard]] bool log_is_on() const override { return m_on; }
    void write_log_line(const std::string& text) override { m_lines.push_back(text); }
};

// The one line that a call writes.
template <typename... Arguments>
std::string line(const char* format, Arguments... arguments) {
    kept_log log;
    log.log(format, arguments..., 0);  // the unused last argument quiets the compiler about a lone format
    return log.m_lines.size() == 1 ? log.m_lines.front() : "not one line";
}

TEST(status_log_lines, plain_text_is_the_line) {
    EXPECT_EQ(line("exit: 0"), "exit: 0");
    EXPECT_EQ(line(""), "");
}

TEST(status_log_lines, nothing_is_written_while_the_log_is_off) {
    kept_log log;
    log.m_on = false;
    log.log("info: %s", "copy successful");
    log.log_text("header");
    EXPECT_TRUE(log.m_lines.empty());
}

TEST(status_log_lines, the_silent_log_takes_everything) {
    no_log().log("info: %s", "unheard");
    no_log().log_text("unheard");
    EXPECT_EQ(&no_log(), &no_log());
}

TEST(status_log_lines, narrow_text_is_written_byte_for_byte) {
    EXPECT_EQ(line("info: %s",
                   "Gr\xC3\xB6\xC3\x9F"
                   "e"),
              "info: Gr\xC3\xB6\xC3\x9F"
              "e");
    EXPECT_EQ(line("[%8s|%-8s|%.2s]", "abc", "abc", "abc"), "[     abc|abc     |ab]");
    EXPECT_EQ(line("[%*s|%-*s|%.*s]", 5, "abc", 5, "abc", 1, "abc"), "[  abc|abc  |a]");
}

TEST(status_log_lines, no_name_begins_a_line_or_acts_on_the_terminal) {
    EXPECT_EQ(line("seg: %s", "a\n->info: copy successful"), "seg: a\\u000A->info: copy successful");
    EXPECT_EQ(line("anal: %s", "/a\xE2\x80\xAE\x1b[2J\xC2\x85"), "anal: /a\\u202E\\u001B[2J\\u0085");
    // The cut counts the text as it is shown.
    const std::string many(100, '\n');
    EXPECT_EQ(line("%s", many.c_str()).size(), 256U);
}

TEST(status_log_lines, numbers_of_every_width_are_written) {
    EXPECT_EQ(line("%d %i", -1, 2), "-1 2");
    EXPECT_EQ(line("%u", 4294967295u), "4294967295");
    EXPECT_EQ(line("%ld %lu", -3L, 4UL), "-3 4");
    EXPECT_EQ(line("0x%llx", 0xFEDCBA9876543210ULL), "0xfedcba9876543210");
    EXPECT_EQ(line("%lld", std::numeric_limits<long long>::min()), "-9223372036854775808");
    EXPECT_EQ(line("%zu %td", std::size_t{5}, std::ptrdiff_t{-6}), "5 -6");
    EXPECT_EQ(line("%jd %ju", std::intmax_t{-7}, std::uintmax_t{8}), "-7 8");
    EXPECT_EQ(line("%hhd %hhu", 0x1FF, 0x1FF), "-1 255");
    EXPECT_EQ(line("%hd %hu", 0x1FFFF, 0x1FFFF), "-1 65535");
    EXPECT_EQ(line("%o %X", 8u, 0xABCu), "10 ABC");
}

TEST(status_log_lines, flags_width_and_precision_of_numbers_are_kept) {
    EXPECT_EQ(line("[%4d|%-4d|%04d|%+d|% d]", 7, 7, 7, 7, 7), "[   7|7   |0007|+7| 7]");
    EXPECT_EQ(line("[%#x|%.3d|%6.3d]", 255u, 7, 7), "[0xff|007|   007]");
    EXPECT_EQ(line("[%*d|%.*d]", 4, 7, 2, 7), "[   7|07]");
    EXPECT_EQ(line("[%*d]", -4, 7), "[7   ]");
}

TEST(status_log_lines, floating_numbers_characters_and_pointers_are_written) {
    EXPECT_EQ(line("%.2f %g %.1Lf", 1.5, 0.25, 2.5L), "1.50 0.25 2.5");
    EXPECT_EQ(line("%c%c", 'o', 'k'), "ok");
    const void* const none = nullptr;
    EXPECT_EQ(line("%p", none), "(nil)");
}

TEST(status_log_lines, two_percent_signs_are_one) {
    EXPECT_EQ(line("100%% of %d", 3), "100% of 3");
}

TEST(status_log_lines, a_message_is_cut_at_the_formats_length_plus_254_bytes) {
    // "err: %s" has 7 characters.
    EXPECT_EQ(line("err: %s", std::string(256, 'x').c_str()), "err: " + std::string(256, 'x'));
    EXPECT_EQ(line("err: %s", std::string(257, 'x').c_str()), "err: " + std::string(256, 'x'));
    EXPECT_EQ(line("err: %s", std::string(100000, 'x').c_str()), "err: " + std::string(256, 'x'));
}

TEST(status_log_lines, text_after_an_argument_that_fills_the_line_is_cut_off) {
    EXPECT_EQ(line("%s%d!", std::string(1000, 'x').c_str(), 5), std::string(259, 'x'));
    EXPECT_EQ(line("%s%d!", std::string(258, 'x').c_str(), 57), std::string(258, 'x') + "5");
    EXPECT_EQ(line("%s%d!", std::string(257, 'x').c_str(), 57), std::string(257, 'x') + "57");
}

TEST(status_log_lines, a_field_wider_than_the_line_is_cut) {
    EXPECT_EQ(line("%9999d", 1), std::string(260, ' '));
}

TEST(status_log_lines, a_format_longer_than_any_buffer_is_written_whole) {
    const std::string format(10000, 'y');
    EXPECT_EQ(line(format.c_str()), format);
}

// From here on the process gets no more memory than this, where it can be limited.
void limit_further_memory(std::uint64_t bytes) {
    if (!test::memory_limit_works()) {
        return;
    }
    std::uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlim_t most = pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)) + bytes;
    const rlimit limit{most, most};
    ::setrlimit(RLIMIT_AS, &limit);
}

// Runs in a process of its own, which exits with 0 if the line has the length.
[[noreturn]] void log_with_little_memory(const std::string& format, std::size_t expected_length) {
    kept_log log;
    limit_further_memory(8U << 20);
    log.log(format.c_str(), 0);  // the unused argument quiets the compiler about a lone format
    std::_Exit(log.m_lines.size() == 1 && log.m_lines.front().size() == expected_length ? 0 : 1);
}

TEST(status_log_death_test, a_line_for_which_there_is_no_memory_is_cut_at_255_bytes) {
    // A thread of an earlier test may have left an arena with 64 MiB of reserved addresses.
    const std::string format(65U << 20, 'y');
    EXPECT_EXIT(log_with_little_memory("short", 5), testing::ExitedWithCode(0), "");
    // Without a limit the line is whole.
    const std::size_t length = test::memory_limit_works() ? 255 : format.size();
    EXPECT_EXIT(log_with_little_memory(format, length), testing::ExitedWithCode(0), "");
}

TEST(status_log_lines, ready_text_is_written_at_any_length_and_with_its_line_feeds) {
    kept_log log;
    const std::string text = "first\n" + std::string(100000, 'z') + "%s\n";
    log.log_text(text);
    ASSERT_EQ(log.m_lines.size(), 1u);
    EXPECT_EQ(log.m_lines.front(), text);
}

}  // namespace
}  // namespace quarry
