#include "foundation/uni_streams.h"

#include "support/standard_input.h"
#include "support/temp_dir.h"

#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <pthread.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utime.h>
#include <vector>

#include <gtest/gtest.h>

namespace uni {
namespace {

using quarry::test::standard_input;
using quarry::test::temp_dir;

std::wstring wide(const std::filesystem::path& path) {
    return path.wstring();  // the scratch directory's name is ASCII
}

void put(const std::filesystem::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::string content(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The lines that standard input gives for a file of these bytes.
std::vector<std::string> lines_of(const std::string& input, bool trim) {
    const temp_dir dir;
    put(dir / "input", input);
    const int descriptor = ::open((dir / "input").c_str(), O_RDONLY);
    const standard_input redirected(descriptor);
    ::close(descriptor);
    stdin_stream in;
    std::vector<std::string> lines;
    std::string line;
    while (in.getline(line, trim)) {
        lines.push_back(line);
    }
    EXPECT_EQ(line, "");
    return lines;
}

using texts = std::vector<std::string>;

TEST(output_file_stream, a_wide_path_reaches_the_system_as_utf8) {
    const temp_dir dir;
    {
        ofstream out(wide(dir / "") + L"\u00E9\U0001F600.txt", std::ios::out | std::ios::binary);
        out << "text\n";
        EXPECT_TRUE(out.good());
    }
    EXPECT_EQ(content(dir / "\xC3\xA9\xF0\x9F\x98\x80.txt"), "text\n");
}

TEST(output_file_stream, a_path_that_cannot_be_converted_reaches_the_system_as_the_text_made_so_far) {
    const temp_dir dir;
    {
        ofstream out(wide(dir / "cut") + static_cast<wchar_t>(0x110000) + L"rest", std::ios::out);
        EXPECT_TRUE(out.good());
    }
    EXPECT_TRUE(std::filesystem::exists(dir / "cut"));
}

TEST(output_file_stream, open_empties_the_file) {
    const temp_dir dir;
    put(dir / "f", "long content");
    {
        ofstream out;
        out.open(wide(dir / "f"));
        out << "new";
    }
    EXPECT_EQ(content(dir / "f"), "new");
}

TEST(output_file_stream, a_folder_that_is_missing_leaves_the_stream_failed) {
    const temp_dir dir;
    const ofstream out(wide(dir / "no" / "such" / "file"), std::ios::out);
    EXPECT_TRUE(out.fail());
    ofstream later;
    later.open(wide(dir / "no" / "such" / "file"));
    EXPECT_TRUE(later.fail());
}

TEST(output_file_stream, positions_have_64_bits) {
    const temp_dir dir;
    {
        ofstream out(wide(dir / "sparse"), std::ios::out | std::ios::binary);
        out.seekp(0x180000000);
        out << "x";
        EXPECT_TRUE(out.good());
    }
    EXPECT_EQ(std::filesystem::file_size(dir / "sparse"), 0x180000001u);
}

TEST(input_file_stream, a_stream_is_read_back_by_its_wide_path) {
    const temp_dir dir;
    put(dir / "\xC3\xA9", std::string("a\0\r\nb", 5));
    ifstream in(wide(dir / "") + L"\u00E9", std::ios::in | std::ios::binary);
    const std::string read{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    EXPECT_EQ(read, std::string("a\0\r\nb", 5));
    EXPECT_TRUE(ifstream(wide(dir / "missing"), std::ios::in).fail());
}

TEST(standard_input, lines_come_one_by_one) {
    EXPECT_EQ(lines_of("one\ntwo\n", true), (texts{"one", "two"}));
    EXPECT_EQ(lines_of("one\ntwo\n", false), (texts{"one\n", "two\n"}));
}

TEST(standard_input, the_last_line_needs_no_line_feed) {
    EXPECT_EQ(lines_of("one\ntwo", true), (texts{"one", "two"}));
    EXPECT_EQ(lines_of("one\ntwo", false), (texts{"one\n", "two"}));
}

TEST(standard_input, trim_removes_carriage_returns_and_line_feeds_only_from_the_end) {
    EXPECT_EQ(lines_of("one\r\n\rtwo \t\r\r\n", true), (texts{"one", "\rtwo \t"}));
    EXPECT_EQ(lines_of("\r\n\n", true), (texts{"", ""}));
    EXPECT_EQ(lines_of("one\r\n", false), (texts{"one\r\n"}));
}

TEST(standard_input, no_bytes_are_no_line) {
    EXPECT_EQ(lines_of("", true), texts{});
}

TEST(standard_input, a_long_line_arrives_in_pieces_of_4095_bytes) {
    EXPECT_EQ(lines_of(std::string(4095, 'x') + "\n", true), (texts{std::string(4095, 'x'), ""}));
    EXPECT_EQ(lines_of(std::string(4094, 'x') + "\n", true), (texts{std::string(4094, 'x')}));
    EXPECT_EQ(lines_of(std::string(5000, 'x') + "\nnext\n", true),
              (texts{std::string(4095, 'x'), std::string(905, 'x'), "next"}));
    EXPECT_EQ(lines_of(std::string(10000, 'x'), false),
              (texts{std::string(4095, 'x'), std::string(4095, 'x'), std::string(1810, 'x')}));
}

TEST(standard_input, the_text_of_a_line_ends_at_its_first_zero_byte) {
    EXPECT_EQ(lines_of(std::string("one\0lost\ntwo\n", 13), true), (texts{"one", "two"}));
    EXPECT_EQ(lines_of(std::string("\0\n\0", 3), true), (texts{"", ""}));
    EXPECT_EQ(lines_of(std::string(5000, '\0') + "x", false), (texts{"", ""}));
}

TEST(standard_input, lines_across_the_buffers_ends_are_whole) {
    std::string input;
    texts expected;
    for (int i = 0; i < 100000; ++i) {
        expected.push_back("/folder/file " + std::to_string(i));
        input += expected.back() + "\n";
    }
    EXPECT_EQ(lines_of(input, true), expected);
}

TEST(standard_input, wide_lines_are_decoded_as_utf8) {
    const temp_dir dir;
    put(dir / "input", "\xC3\xA9\r\n\xFF\nx\n");
    const int descriptor = ::open((dir / "input").c_str(), O_RDONLY);
    const standard_input redirected(descriptor);
    ::close(descriptor);
    stdin_stream in;
    std::wstring line;
    EXPECT_TRUE(in.getline(line, true));
    EXPECT_EQ(line, L"\u00E9");
    EXPECT_TRUE(in.getline(line, true));
    EXPECT_EQ(line, L"");
    EXPECT_TRUE(in.getline(line, false));
    EXPECT_EQ(line, L"x\n");
    EXPECT_FALSE(in.getline(line, true));
    EXPECT_EQ(line, L"");
}

TEST(standard_input, a_closed_one_has_no_lines) {
    const temp_dir dir;
    const int descriptor = ::open(dir.path().c_str(), O_RDONLY);
    const standard_input redirected(descriptor);
    ::close(descriptor);
    ::close(STDIN_FILENO);
    stdin_stream in;
    EXPECT_TRUE(in.open_stdin(true));
    std::string line = "before";
    EXPECT_FALSE(in.getline(line, true));
    EXPECT_EQ(line, "");
}

TEST(standard_input, a_directory_has_no_lines) {
    const temp_dir dir;
    const int descriptor = ::open(dir.path().c_str(), O_RDONLY);
    const standard_input redirected(descriptor);
    ::close(descriptor);
    stdin_stream in;
    std::string line;
    EXPECT_FALSE(in.getline(line, true));
}

TEST(standard_input, the_stream_reports_open_once_it_was_opened) {
    stdin_stream in;
    EXPECT_FALSE(in.is_open());
    EXPECT_TRUE(in.open_stdin(false));
    EXPECT_TRUE(in.is_open());
}

std::atomic<int> signals_taken = 0;
void take_signal(int) {
    ++signals_taken;
}

TEST(standard_input, an_interrupted_read_is_repeated) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe(ends), 0);
    const standard_input redirected(ends[0]);
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = take_signal;  // without SA_RESTART, so that a read in progress fails with EINTR
    ASSERT_EQ(::sigaction(SIGUSR1, &action, &before), 0);
    const pthread_t reader = ::pthread_self();
    // The line is written only after many signals, so the reader waits in its read while they arrive.
    std::thread interrupter([&] {
        while (signals_taken < 200) {
            const int taken = signals_taken;
            ::pthread_kill(reader, SIGUSR1);
            while (signals_taken == taken) {
                std::this_thread::yield();
            }
        }
        EXPECT_EQ(::write(ends[1], "line\n", 5), 5);
        ::close(ends[1]);
    });
    stdin_stream in;
    std::string line;
    EXPECT_TRUE(in.getline(line, true));
    EXPECT_EQ(line, "line");
    EXPECT_FALSE(in.getline(line, true));
    interrupter.join();
    ::close(ends[0]);
    ::sigaction(SIGUSR1, &before, nullptr);
}

TEST(standard_output, wide_text_is_written_as_narrow_bytes) {
    testing::internal::CaptureStdout();
    stdout_stream out;
    out.write(std::string_view("a\0b ", 4));
    out.write(L"\u00E9\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string("a\0b \xC3\xA9\n", 7));
}

TEST(file_statistics, a_host_file_gives_size_mode_and_times_in_unix_seconds) {
    const temp_dir dir;
    put(dir / "\xC3\xA9", "twelve bytes");
    ASSERT_EQ(::chmod((dir / "\xC3\xA9").c_str(), 0640), 0);
    ::utimbuf times = {};
    times.actime = 1000000001;
    times.modtime = 1551982961;
    ASSERT_EQ(::utime((dir / "\xC3\xA9").c_str(), &times), 0);
    fileio_stats stats;
    stats.m_entry = 7;
    stats.m_mask = 7;
    ASSERT_TRUE(stats.fill_from_host(wide(dir / "") + L"\u00E9"));
    EXPECT_EQ(stats.m_size, 12u);
    EXPECT_EQ(stats.m_mode, 0100640u);
    EXPECT_EQ(stats.m_modified, 1551982961u);
    EXPECT_EQ(stats.m_accessed, 1000000001u);
    EXPECT_GT(stats.m_created, 1551982961u);  // the status changed just now
    EXPECT_EQ(stats.m_time_kind, ql::type_time::unix_time);
    EXPECT_TRUE(stats.m_valid);
    EXPECT_EQ(stats.m_entry, 0u);
    EXPECT_EQ(stats.m_mask, 0u);
}

TEST(file_statistics, a_path_to_nothing_is_false_and_clears) {
    fileio_stats stats;
    stats.m_size = 5;
    stats.m_valid = true;
    stats.m_time_kind = ql::type_time::unix_time;
    EXPECT_FALSE(stats.fill_from_host(L"/no/such/file"));
    EXPECT_EQ(stats.m_size, 0u);
    EXPECT_FALSE(stats.m_valid);
    EXPECT_EQ(stats.m_time_kind, ql::type_time::filetime);
}

TEST(file_statistics, clear_forgets_everything) {
    fileio_stats stats;
    stats.m_entry = stats.m_size = stats.m_modified = stats.m_created = 1;
    stats.m_accessed = stats.m_mft_changed = 1;
    stats.m_mode = stats.m_mask = 1;
    stats.m_valid = true;
    stats.clear();
    EXPECT_EQ(stats.m_entry + stats.m_size + stats.m_modified + stats.m_created, 0u);
    EXPECT_EQ(stats.m_accessed + stats.m_mft_changed, 0u);
    EXPECT_EQ(stats.m_mode + stats.m_mask, 0u);
    EXPECT_FALSE(stats.m_valid);
}

TEST(null_stream, all_text_is_swallowed_with_success) {
    quarry::null_out_stream out;
    out << "text " << 42 << std::string(100000, 'x') << '\n' << std::flush;
    out.put('c');
    EXPECT_TRUE(out.good());
}

}  // namespace
}  // namespace uni
