#include "frontend/exact/progress.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using namespace std::chrono_literals;
using exact::amount_text;
using exact::duration_text;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint64_t mib = 1048576;

// A terminal that keeps what was written, "" for a line that was cleared, and a clock that the test moves.
class status_line : public testing::Test {
  protected:
    void start(bool numbered = false) {
        m_line.start({[this] { return m_now; }, [this](const std::string& line) { m_shown.push_back(line); },
                      [this] { m_shown.emplace_back(); }},
                     numbered);
    }
    void advance_after(std::chrono::milliseconds wait, std::uint64_t bytes) {
        m_now += wait;
        m_line.advance(bytes);
    }

    exact::progress m_line;
    exact::progress::time m_now;
    std::vector<std::string> m_shown;
};

TEST_F(status_line, is_shown_after_a_second_and_then_five_times_in_one) {
    start();
    m_line.begin_copy(1000 * mib);
    advance_after(999ms, 100 * mib);
    EXPECT_THAT(m_shown, IsEmpty());
    advance_after(1ms, 100 * mib);
    advance_after(199ms, 40 * mib);
    advance_after(801ms, 160 * mib);
    EXPECT_THAT(m_shown, ElementsAre("20 % of 1000 MiB, 200 MiB/s, 0:04 left",
                                     "40 % of 1000 MiB, 200 MiB/s, 0:03 left"));
}

TEST_F(status_line, of_a_list_counts_the_copies_and_has_the_rate_of_the_run) {
    start(true);
    m_line.begin_copy(300 * mib);
    advance_after(500ms, 300 * mib);
    m_line.begin_copy(200 * mib);
    advance_after(500ms, 100 * mib);
    EXPECT_THAT(m_shown, ElementsAre("50 % of 200 MiB, 400 MiB/s, 0:00 left, copy 2"));
}

TEST_F(status_line, gives_way_to_a_message_once) {
    start();
    m_line.begin_copy(10 * mib);
    m_line.clear();
    EXPECT_THAT(m_shown, IsEmpty());
    advance_after(1000ms, 5 * mib);
    m_line.clear();
    m_line.clear();
    EXPECT_THAT(m_shown, ElementsAre("50 % of 10.0 MiB, 5.0 MiB/s, 0:01 left", ""));
    advance_after(200ms, 1 * mib);
    EXPECT_EQ(m_shown.size(), 3u);
}

TEST_F(status_line, of_no_byte_and_of_no_rate_divides_by_nothing) {
    start();
    m_now += 1000ms;
    m_line.begin_copy(0);
    m_now += 200ms;
    m_line.begin_copy(5);
    m_now += 200ms;
    m_line.advance(1);
    EXPECT_THAT(m_shown, ElementsAre("100 % of 0 bytes", "0 % of 5 bytes", "20 % of 5 bytes"));
}

TEST_F(status_line, leaves_out_a_time_that_is_a_guess) {
    start();
    m_line.begin_copy(~std::uint64_t{0});
    advance_after(1000ms, 1 * mib);
    EXPECT_THAT(m_shown, ElementsAre("0 % of 15.9 EiB, 1.0 MiB/s"));
}

TEST_F(status_line, fits_into_sixty_letters) {
    start(true);
    for (int copy = 0; copy < 100000; ++copy) {
        m_line.begin_copy(99 * 1024 * mib);
    }
    m_now += 1000ms;
    m_line.advance(1023 * 1024);
    EXPECT_THAT(m_shown, ElementsAre("0 % of 99.0 GiB, 1023 KiB/s, 28:11:14 left, copy 100000"));
    EXPECT_LE(m_shown.front().size(), 60u);
}

TEST_F(status_line, is_nothing_without_a_terminal) {
    m_line.begin_copy(5);
    m_line.advance(5);
    m_line.clear();
    m_line.start({}, true);
    m_line.begin_copy(5);
    m_line.advance(5);
    m_line.clear();
    EXPECT_THAT(m_shown, IsEmpty());
}

TEST(amount_text, has_a_tenth_below_a_hundred) {
    EXPECT_EQ(amount_text(0), "0 bytes");
    EXPECT_EQ(amount_text(1), "1 byte");
    EXPECT_EQ(amount_text(1023), "1023 bytes");
    EXPECT_EQ(amount_text(1024), "1.0 KiB");
    EXPECT_EQ(amount_text(1536), "1.5 KiB");
    EXPECT_EQ(amount_text(102399), "99.9 KiB");
    EXPECT_EQ(amount_text(102400), "100 KiB");
    EXPECT_EQ(amount_text(1048575), "1023 KiB");
    EXPECT_EQ(amount_text(13421772800), "12.5 GiB");
    EXPECT_EQ(amount_text(18446744073709551615u), "15.9 EiB");
}

TEST(duration_text, has_hours_only_where_there_are_some) {
    EXPECT_EQ(duration_text(0), "0:00");
    EXPECT_EQ(duration_text(65), "1:05");
    EXPECT_EQ(duration_text(3599), "59:59");
    EXPECT_EQ(duration_text(11525), "3:12:05");
}

}  // namespace
}  // namespace quarry::test
