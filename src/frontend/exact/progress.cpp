#include "frontend/exact/progress.h"

#include "frontend/output/console.h"

#include <array>
#include <cstdio>
#include <unistd.h>
#include <utility>

namespace quarry::exact {

namespace {

// Longer times are guesses of no use.
constexpr std::uint64_t longest_time_left = 360000;  // seconds
constexpr std::uint64_t step = 1024;

std::string two_digits(std::uint64_t number) {
    return (number < 10 ? "0" : "") + std::to_string(number);
}

}  // namespace

std::string amount_text(std::uint64_t bytes) {
    if (bytes < step) {
        return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
    }
    constexpr std::array<const char*, 6> units = {" KiB", " MiB", " GiB", " TiB", " PiB", " EiB"};
    std::size_t unit = 0;
    std::uint64_t below = bytes % step;
    bytes /= step;
    for (; bytes >= step; ++unit) {
        below = bytes % step;
        bytes /= step;
    }
    const std::string tenth = bytes < 100 ? "." + std::to_string(below * 10 / step) : "";
    return std::to_string(bytes) + tenth + units[unit];
}

std::string duration_text(std::uint64_t seconds) {
    const std::uint64_t hours = seconds / 3600;
    const std::uint64_t minutes = seconds / 60 % 60;
    const std::string end = ":" + two_digits(seconds % 60);
    return hours > 0 ? std::to_string(hours) + ":" + two_digits(minutes) + end
                     : std::to_string(minutes) + end;
}

void progress::start(terminal shown_on, bool numbered) {
    m_terminal = std::move(shown_on);
    m_numbered = numbered;
    if (m_terminal.now) {
        m_started = m_terminal.now();
        m_next = m_started + until_shown;
    }
}

void progress::begin_copy(std::uint64_t size) {
    ++m_copy;
    m_size = size;
    m_done = 0;
    show_if_due();
}

void progress::advance(std::uint64_t bytes) {
    m_done += bytes;
    m_run += bytes;
    show_if_due();
}

void progress::clear() {
    if (std::exchange(m_shown, false)) {
        m_terminal.clear();
    }
}

void progress::show_if_due() {
    if (!m_terminal.now) {
        return;
    }
    const time now = m_terminal.now();
    if (now < m_next) {
        return;
    }
    m_next = now + between_lines;
    m_shown = true;
    m_terminal.show(line(now - m_started));
}

std::string progress::line(std::chrono::duration<double> elapsed) const {
    const double part = m_size == 0 ? 1.0 : static_cast<double>(m_done) / static_cast<double>(m_size);
    std::string text = std::to_string(static_cast<int>(part * 100)) + " % of " + amount_text(m_size);
    const double rate = elapsed.count() > 0 ? static_cast<double>(m_run) / elapsed.count() : 0;
    if (rate >= 1) {
        text += ", " + amount_text(static_cast<std::uint64_t>(rate)) + "/s";
        const double left = static_cast<double>(m_size - m_done) / rate;
        if (left < static_cast<double>(longest_time_left)) {
            text += ", " + duration_text(static_cast<std::uint64_t>(left)) + " left";
        }
    }
    return text + (m_numbered ? ", copy " + std::to_string(m_copy) : "");
}

progress::terminal terminal_of_messages() {
    if (::isatty(STDERR_FILENO) == 0) {
        return {};
    }
    return {[] { return std::chrono::steady_clock::now(); },
            [](const std::string& line) { console_status("%s", line.c_str()); }, clear_console_status};
}

}  // namespace quarry::exact
