// The status line of the exact mode on a pseudo terminal.
#include "cli/command_line.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace quarry::test {
namespace {

using namespace std::chrono_literals;
using words = std::vector<std::string>;

class exact_status_line : public command_line_test {
  protected:
    void SetUp() override {
        volume_builder volume({.system_files = true});
        volume.add_file("a").stored_data(to_bytes("hello\n"));
        volume.add_file("b").stored_data(to_bytes("other\n"));
        write_file(m_dir / "volume", volume.image());
        std::filesystem::create_directory(m_dir / "out");
    }

    // Runs a list of two lines, of which the second comes when the run has lasted more than a second. Gives
    // what standard error has shown: a terminal, or a pipe.
    [[nodiscard]] std::string shown_of_a_slow_list(bool on_a_terminal, const words& more = {}) const {
        words line = {QUARRY_PROGRAM, "-exact", "-image", "volume", "-pipe", "-dst", "out/"};
        line.insert(line.end(), more.begin(), more.end());
        std::array<int, 2> list{};
        std::array<int, 2> error{};
        EXPECT_EQ(::pipe2(list.data(), O_CLOEXEC), 0);
        if (on_a_terminal) {
            error[0] = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
            EXPECT_TRUE(error[0] >= 0 && ::grantpt(error[0]) == 0 && ::unlockpt(error[0]) == 0);
            error[1] = ::open(::ptsname(error[0]), O_RDWR | O_NOCTTY | O_CLOEXEC);
        } else {
            EXPECT_EQ(::pipe2(error.data(), O_CLOEXEC), 0);
        }
        const ::pid_t child = start(line, list[0], error[1]);
        ::close(list[0]);
        ::close(error[1]);
        std::thread writer([end = list[1]] {
            static_cast<void>(::write(end, "/a\n", 3));
            std::this_thread::sleep_for(1300ms);
            static_cast<void>(::write(end, "/b\n", 3));
            ::close(end);
        });
        std::string shown;
        std::array<char, 4096> buffer{};
        // Ends when the program does: the terminal answers EIO then.
        for (::ssize_t count = 0; (count = ::read(error[0], buffer.data(), buffer.size())) > 0;) {
            shown.append(buffer.data(), static_cast<std::size_t>(count));
        }
        writer.join();
        ::close(error[0]);
        int status = 0;
        ::waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << shown;
        return shown;
    }

  private:
    [[nodiscard]] ::pid_t start(const words& line, int input, int error) const {
        const ::pid_t child = ::fork();
        if (child == 0) {
            std::vector<char*> arguments;
            for (const std::string& word : line) {
                arguments.push_back(const_cast<char*>(word.c_str()));
            }
            arguments.push_back(nullptr);
            const int nothing = ::open("/dev/null", O_WRONLY);
            if (::chdir(m_dir.path().c_str()) == 0 && ::dup2(input, 0) >= 0 && ::dup2(nothing, 1) >= 0 &&
                ::dup2(error, 2) >= 0) {
                ::execv(arguments[0], arguments.data());
            }
            ::_exit(127);
        }
        return child;
    }
};

constexpr const char* ends = "list: 2 asked, 2 complete, 0 in doubt, 0 failed, 0 kept";

TEST_F(exact_status_line, is_on_a_terminal_after_a_second_and_gives_way_to_messages) {
    const std::string shown = shown_of_a_slow_list(true);
    const std::size_t line = shown.find("0 % of 6 bytes, ");
    const std::size_t message = shown.find("ok: /b -> out/b (6 bytes)");
    ASSERT_NE(line, std::string::npos) << shown;
    ASSERT_NE(message, std::string::npos) << shown;
    EXPECT_LT(shown.find("ok: /a -> out/a (6 bytes)"), line);
    EXPECT_NE(shown.find(", copy 2", line), std::string::npos);
    EXPECT_EQ(shown.substr(message - 1, 1), "\r");
    EXPECT_LT(shown.find(emptied_status_line, line), message);
    EXPECT_NE(shown.find(ends), std::string::npos);
}

TEST_F(exact_status_line, is_in_no_file_and_not_in_a_quiet_run) {
    const std::string in_a_pipe = shown_of_a_slow_list(false);
    EXPECT_EQ(in_a_pipe.find('%'), std::string::npos);
    EXPECT_EQ(in_a_pipe.find('\x1b'), std::string::npos);
    EXPECT_NE(in_a_pipe.find(ends), std::string::npos);
    std::filesystem::remove_all(m_dir / "out");
    std::filesystem::create_directory(m_dir / "out");
    EXPECT_EQ(shown_of_a_slow_list(true, {"-quiet"}), "");
}

}  // namespace
}  // namespace quarry::test
