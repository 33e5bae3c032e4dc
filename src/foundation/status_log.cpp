#include "foundation/status_log.h"

#include "foundation/visible_text.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>

namespace quarry {

namespace {

// A message may be this much longer than its format.
constexpr std::size_t room_beyond_format = 254;
// The longest message if there is no memory for one of the usual length.
constexpr std::size_t room_without_memory = 255;

[[gnu::format(printf, 1, 0)]] std::string formatted(const char* format, std::va_list arguments) {
    std::va_list measured;
    va_copy(measured, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    std::string text(static_cast<std::size_t>(std::max(length, 0)) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();  // the zero that ends it
    return text;
}

[[gnu::format(printf, 1, 0)]] std::string formatted_without_memory(const char* format,
                                                                   std::va_list arguments) {
    std::array<char, room_without_memory + 1> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    return visible_text(text.data()).substr(0, room_without_memory);
}

class silent_log : public status_log {
  protected:
    [[nodiscard]] bool log_is_on() const override { return false; }
    void write_log_line(const std::string&) override {}
};

}  // namespace

void status_log::log(const char* format, ...) {
    if (!log_is_on()) {
        return;
    }
    std::string text;
    std::va_list arguments;
    va_start(arguments, format);
    try {
        text = visible_text(formatted(format, arguments));
        text.resize(std::min(text.size(), std::strlen(format) + room_beyond_format));
    } catch (const std::bad_alloc&) {
        va_end(arguments);
        va_start(arguments, format);
        text = formatted_without_memory(format, arguments);
    }
    va_end(arguments);
    write_log_line(text);
}

void status_log::log_text(const std::string& text) {
    if (log_is_on()) {
        write_log_line(text);
    }
}

status_log& no_log() {
    static silent_log log;
    return log;
}

}  // namespace quarry
