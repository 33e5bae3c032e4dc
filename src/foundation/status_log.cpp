#include "foundation/status_log.h"

#include "foundation/ql_string.h"
#include "foundation/visible_text.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <optional>
#include <string_view>

namespace quarry {

namespace {

// A message may be this much longer than its format.
constexpr std::size_t room_beyond_format = 254;
// The longest message if there is no memory for one of the usual length.
constexpr std::size_t room_without_memory = 255;

enum class length_modifier { none, hh, h, l, ll, j, z, t, big_l };

// One conversion of a format: "%-5.3llx" has flags "-", width 5, precision 3, modifier ll and letter x.
struct conversion {
    std::string flags;
    std::optional<int> width;
    std::optional<int> precision;
    length_modifier modifier = length_modifier::none;
    char letter = 0;
};

constexpr std::array<std::string_view, 9> modifier_texts = {"", "hh", "h", "l", "ll", "j", "z", "t", "L"};

// A va_list is an array on some platforms; in a struct it can be handed on by reference everywhere.
struct argument_list {
    std::va_list list;
};

int decimal_number(std::string_view& rest) {
    int value = 0;
    while (!rest.empty() && rest.front() >= '0' && rest.front() <= '9') {
        value = std::min(value * 10 + (rest.front() - '0'), 100'000'000);
        rest.remove_prefix(1);
    }
    return value;
}

// A width or precision: digits, or a star that takes it from the arguments.
int number_or_argument(std::string_view& rest, argument_list& arguments) {
    if (!rest.empty() && rest.front() == '*') {
        rest.remove_prefix(1);
        return va_arg(arguments.list, int);
    }
    return decimal_number(rest);
}

length_modifier take_modifier(std::string_view& rest) {
    // The two-letter modifiers come before the one-letter ones that they begin with.
    for (const length_modifier modifier :
         {length_modifier::hh, length_modifier::ll, length_modifier::h, length_modifier::l,
          length_modifier::j, length_modifier::z, length_modifier::t, length_modifier::big_l}) {
        const std::string_view text = modifier_texts[static_cast<std::size_t>(modifier)];
        if (rest.starts_with(text)) {
            rest.remove_prefix(text.size());
            return modifier;
        }
    }
    return length_modifier::none;
}

// Takes what follows a "%", up to and with the conversion letter. The letter is 0 if the format ends before
// it.
conversion take_conversion(std::string_view& rest, argument_list& arguments) {
    conversion result;
    while (!rest.empty() && std::string_view("-+ #0'").find(rest.front()) != std::string_view::npos) {
        result.flags += rest.front();
        rest.remove_prefix(1);
    }
    const int width = number_or_argument(rest, arguments);
    if (width != 0) {
        result.width = width;
    }
    if (!rest.empty() && rest.front() == '.') {
        rest.remove_prefix(1);
        result.precision = number_or_argument(rest, arguments);
    }
    result.modifier = take_modifier(rest);
    if (!rest.empty()) {
        result.letter = rest.front();
        rest.remove_prefix(1);
    }
    return result;
}

// The conversion as a format of its own, with width and precision as stars.
std::string single_format(const conversion& what) {
    std::string format = "%" + what.flags + "*";
    if (what.precision) {
        format += ".*";
    }
    format += modifier_texts[static_cast<std::size_t>(what.modifier)];
    return format + what.letter;
}

// Adds one formatted argument, as far as `limit` bytes of `out` allow.
template <typename Argument>
void append_formatted(std::string& out, std::size_t limit, const conversion& what, Argument argument) {
    const std::string format = single_format(what);
    const std::size_t before = out.size();
    const std::size_t room = limit - before;
    out.resize(limit + 1);  // snprintf ends its text with a zero
    const int width = what.width.value_or(0);
    const int length =
        what.precision
            ? std::snprintf(&out[before], room + 1, format.c_str(), width, *what.precision, argument)
            : std::snprintf(&out[before], room + 1, format.c_str(), width, argument);
    out.resize(before + std::min(room, static_cast<std::size_t>(std::max(length, 0))));
}

// Signed and unsigned numbers alike: they have the same width, and the conversion letter settles how it is
// read.
void append_integer(std::string& out, std::size_t limit, const conversion& what, argument_list& arguments) {
    switch (what.modifier) {
        case length_modifier::l:
            append_formatted(out, limit, what, va_arg(arguments.list, long));
            break;
        case length_modifier::ll:
        case length_modifier::big_l:
            append_formatted(out, limit, what, va_arg(arguments.list, long long));
            break;
        case length_modifier::j:
            append_formatted(out, limit, what, va_arg(arguments.list, std::intmax_t));
            break;
        case length_modifier::none:
        case length_modifier::hh:
        case length_modifier::h:
            append_formatted(out, limit, what, va_arg(arguments.list, int));
            break;
        case length_modifier::z:
        case length_modifier::t:
            append_formatted(out, limit, what, va_arg(arguments.list, std::ptrdiff_t));
            break;
    }
}

void append_floating(std::string& out, std::size_t limit, const conversion& what, argument_list& arguments) {
    if (what.modifier == length_modifier::big_l) {
        append_formatted(out, limit, what, va_arg(arguments.list, long double));
    } else {
        append_formatted(out, limit, what, va_arg(arguments.list, double));
    }
}

void append_wide_text(std::string& out, std::size_t limit, conversion what, argument_list& arguments) {
    const auto* const text = va_arg(arguments.list, const wchar_t*);
    const std::string utf8 = text == nullptr ? "(null)" : visible_text(narrow(text));
    what.letter = 's';
    what.modifier = length_modifier::none;
    append_formatted(out, limit, what, utf8.c_str());
}

void append_narrow_text(std::string& out, std::size_t limit, const conversion& what,
                        argument_list& arguments) {
    const auto* const text = va_arg(arguments.list, const char*);
    const std::string utf8 = text == nullptr ? "(null)" : visible_text(text);
    append_formatted(out, limit, what, utf8.c_str());
}

// Adds the argument that a conversion asks for. False if nothing is known about that argument, so that the
// arguments after it cannot be found either.
bool append_argument(std::string& out, std::size_t limit, const conversion& what, argument_list& arguments) {
    switch (what.letter) {
        case '%':
            append_formatted(out, limit, {{}, {}, {}, length_modifier::none, 'c'}, static_cast<int>('%'));
            break;
        case 'd':
        case 'i':
        case 'u':
        case 'o':
        case 'x':
        case 'X':
            append_integer(out, limit, what, arguments);
            break;
        case 'a':
        case 'A':
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
            append_floating(out, limit, what, arguments);
            break;
        case 'c':
            append_formatted(out, limit, what, va_arg(arguments.list, int));
            break;
        case 'p':
            append_formatted(out, limit, what, va_arg(arguments.list, const void*));
            break;
        case 'S':
            append_wide_text(out, limit, what, arguments);
            break;
        case 's':
            if (what.modifier == length_modifier::l) {
                append_wide_text(out, limit, what, arguments);
            } else {
                append_narrow_text(out, limit, what, arguments);
            }
            break;
        default:
            return false;
    }
    return true;
}

void format_message(std::string& out, std::size_t limit, std::string_view format, argument_list& arguments) {
    while (!format.empty()) {
        const std::size_t literal = std::min(format.find('%'), format.size());
        out.append(format.substr(0, std::min(literal, limit - out.size())));
        format.remove_prefix(literal);
        if (format.empty()) {
            return;
        }
        format.remove_prefix(1);
        const conversion what = take_conversion(format, arguments);
        if (!append_argument(out, limit, what, arguments)) {
            return;
        }
    }
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
    std::size_t limit = std::strlen(format) + room_beyond_format;
    try {
        text.reserve(limit + 1);
    } catch (const std::bad_alloc&) {
        limit = room_without_memory;
    }
    argument_list arguments;
    va_start(arguments.list, format);
    format_message(text, limit, format, arguments);
    va_end(arguments.list);
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
