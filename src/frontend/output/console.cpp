#include "frontend/output/console.h"

#include "foundation/ql_text.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace quarry {

namespace {

constexpr std::size_t message_buffer_bytes = 256;
constexpr std::size_t longest_message = 60;
constexpr std::size_t blanks_over_status = 27;
constexpr std::size_t blanks_before_status = 4;

// The terminal's own way to erase a line, and blanks for a terminal that does not know it.
std::string erased_line(std::size_t blanks) {
    return "\x1b[2K\r" + std::string(blanks, ' ') + "\r";
}

void write_at_once(const std::string& text) {
    print_error(text);
    std::fflush(stderr);
}

}  // namespace

void flush_output() {
    std::fflush(stdout);
}

void print_error(const std::string& text) {
    flush_output();
    std::fwrite(text.data(), 1, text.size(), stderr);
}

void console_status(const char* format, ...) {
    std::array<char, message_buffer_bytes> buffer{};
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
    va_end(arguments);
    if (length < 0) {
        return;
    }
    std::string message(buffer.data());
    message.resize(std::min(message.size(), longest_message));
    remove_char(message, '\n');
    write_at_once(erased_line(blanks_before_status) + message + "\r");
}

void clear_console_status() {
    write_at_once(erased_line(blanks_over_status));
}

}  // namespace quarry
