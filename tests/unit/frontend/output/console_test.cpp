#include "frontend/output/console.h"

#include <gtest/gtest.h>

namespace quarry {
namespace {

template <typename Action>
std::string standard_error_of(Action action) {
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

TEST(console, a_status_overwrites_its_line_and_returns_to_its_start) {
    EXPECT_EQ(standard_error_of([] { console_status("chunk: %4d [%llx : %llx]", 7, 0x10ULL, 0xabcULL); }),
              "\x1b[2K\r    \rchunk:    7 [10 : abc]\r");
}

TEST(console, a_status_keeps_60_characters_and_then_loses_its_line_feeds) {
    const std::string sixty(60, 'x');
    EXPECT_EQ(standard_error_of([&] { console_status("%s!", sixty.c_str()); }),
              "\x1b[2K\r    \r" + sixty + "\r");
    EXPECT_EQ(standard_error_of([&] { console_status("a\n%s", sixty.c_str()); }),
              "\x1b[2K\r    \ra" + std::string(58, 'x') + "\r");
}

TEST(console, a_status_beyond_the_buffer_of_256_bytes_is_cut) {
    const std::string long_text(1000, 'y');
    EXPECT_EQ(standard_error_of([&] { console_status("%s", long_text.c_str()); }),
              "\x1b[2K\r    \r" + std::string(60, 'y') + "\r");
}

TEST(console, clearing_writes_27_blanks_over_the_line) {
    EXPECT_EQ(standard_error_of(clear_console_status), "\x1b[2K\r                           \r");
}

TEST(console, messages_reach_standard_error_as_they_are) {
    EXPECT_EQ(standard_error_of([] { print_error("100%s\n,"); }), "100%s\n,");
}

}  // namespace
}  // namespace quarry
