// The status line: how far a copy is, for a person who waits at the terminal.
//
//     45 % of 12.5 GiB, 310 MiB/s, 0:23 left, copy 138
//
// It is shown when the run has lasted a second, and anew a few times in a second. It is the last line of the
// terminal and none of the messages: each of these takes its place. The rate is that of the whole run, the
// time left only that of the copy.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace quarry::exact {

class progress {
  public:
    using time = std::chrono::steady_clock::time_point;
    // What the line is written with. Tests have a clock and a terminal of their own.
    struct terminal {
        std::function<time()> now;
        std::function<void(const std::string& line)> show;  // in place of the line before
        std::function<void()> clear;
    };

    static constexpr std::chrono::milliseconds until_shown{1000};
    static constexpr std::chrono::milliseconds between_lines{200};

    // Shows nothing until it has a terminal.
    progress() = default;
    // From here on the line is shown; the second begins. With `numbered` the copies are counted.
    void start(terminal shown_on, bool numbered);
    // The next copy begins. It will have `size` bytes.
    void begin_copy(std::uint64_t size);
    // More bytes of the copy are written.
    void advance(std::uint64_t bytes);
    // Takes the line away if it is there, for a message.
    void clear();

  private:
    void show_if_due();
    [[nodiscard]] std::string line(std::chrono::duration<double> elapsed) const;

    terminal m_terminal;  // without functions: nothing is shown
    bool m_numbered = false;
    bool m_shown = false;
    time m_started;
    time m_next;               // no line earlier
    std::uint64_t m_copy = 0;  // counted from 1
    std::uint64_t m_size = 0;  // bytes of the copy
    std::uint64_t m_done = 0;  // bytes of the copy
    std::uint64_t m_run = 0;   // bytes of all copies so far
};

// The terminal that is standard error, or nothing that could be shown on if it is none.
[[nodiscard]] progress::terminal terminal_of_messages();

// "999 bytes", "540 KiB", "12.5 GiB": rounded down.
[[nodiscard]] std::string amount_text(std::uint64_t bytes);
// "0:23", "12:05", "3:12:05" of seconds.
[[nodiscard]] std::string duration_text(std::uint64_t seconds);

}  // namespace quarry::exact
