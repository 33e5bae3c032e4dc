// Text, numbers and times.
//
// The first byte of the input chooses what the rest is: UTF-16 or UTF-8, compared with converters that look
// up nothing and go code point by code point; a number in one of the forms that users type; text for a
// number; calendar fields or a FILETIME, taken there and back; text for a date; text to trim, to split and to
// join; a path.
#include "foundation/ql_hex_view.h"
#include "foundation/ql_number.h"
#include "foundation/ql_portable_dir.h"
#include "foundation/ql_string.h"
#include "foundation/ql_text.h"
#include "foundation/ql_time.h"
#include "foundation/ql_time_format.h"
#include "foundation/ql_time_parse.h"
#include "frontend/options/filter.h"
#include "fuzz/input_bytes.h"
#include "namespace/path_segments.h"
#include "support/expect.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace {

using quarry::byte_view;
using quarry::fuzz::input_bytes;
using quarry::fuzz::lone_bytes;
using quarry::test::expect;

std::u32string plain_utf16(byte_view bytes, bool& good) {
    std::u32string out;
    good = true;
    for (std::size_t i = 0; i + 2 <= bytes.size() && good; i += 2) {
        const char32_t unit = bytes.u16_or_zero(i);
        if (unit / 0x400 != 0x36) {
            out += unit;
            continue;
        }
        i += 2;
        const char32_t low = bytes.u16_or_zero(i);
        good = i + 2 <= bytes.size() && low / 0x400 == 0x37;
        if (good) {
            out += 0x10000 + (unit % 0x400) * 0x400 + low % 0x400;
        }
    }
    return out;
}

std::string plain_utf8(const std::u32string& text) {
    std::string out;
    for (const char32_t point : text) {
        const auto tail = [&](unsigned shift) { out += static_cast<char>(0x80 + ((point >> shift) & 0x3F)); };
        if (point < 0x80) {
            out += static_cast<char>(point);
        } else if (point < 0x800) {
            out += static_cast<char>(0xC0 + (point >> 6));
            tail(0);
        } else if (point < 0x10000) {
            out += static_cast<char>(0xE0 + (point >> 12));
            tail(6), tail(0);
        } else {
            out += static_cast<char>(0xF0 + (point >> 18));
            tail(12), tail(6), tail(0);
        }
    }
    return out;
}

void convert_utf16(byte_view bytes) {
    bool good = false;
    const std::u32string plain = plain_utf16(bytes, good);
    std::string utf8 = "before";
    expect(quarry::utf16_to_utf8(utf8, bytes) == (good && bytes.size() >= 2));
    expect(utf8 == (bytes.size() < 2 ? "before" : plain_utf8(plain)));
    std::wstring wide;
    const auto length = static_cast<std::int64_t>(bytes.size());
    const std::size_t taken = quarry::read_utf16_wide(wide, bytes, length);
    expect(taken <= bytes.size() && taken % 2 == 0 && wide.empty() == (taken == 0));
    expect(wide.find(L'\0') == std::wstring::npos);
    std::string narrow;
    expect(quarry::read_utf16_narrow(narrow, bytes, length, false) == taken &&
           narrow == quarry::narrow(wide));
    const bool ends_early = taken + 2 <= bytes.size();
    const std::size_t after = taken != 0 && ends_early ? 2 : 0;
    expect(quarry::read_utf16_narrow(narrow, bytes, length, true) == taken + after);
    expect(quarry::widen(narrow) == wide);
    static_cast<void>(quarry::read_utf16_wide(wide, bytes, quarry::terminated_text));
    expect(wide.size() <= quarry::terminated_text_limit_in_units);
}

void convert_utf8(const std::string& text) {
    std::wstring wide;
    const bool good = quarry::utf8_to_wide(wide, text);
    expect(quarry::widen(text) == (good ? wide : std::wstring()));
    const bool in_range = std::all_of(wide.begin(), wide.end(), [](wchar_t c) { return c <= 0x10FFFF; });
    // What was converted comes back as it is, at most shorter where its form was overlong.
    const std::string back = quarry::narrow(wide);
    expect(!in_range || (back.size() <= text.size() && quarry::widen(back) == wide));
    std::string lowered = text;
    quarry::lower_narrow(lowered);
    std::string copy = text;
    expect(quarry::equal_ignore_case(copy, lowered) && copy == lowered && lowered.size() == text.size());
}

template <typename Number>
std::string printed(const char* format, Number number) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), format, static_cast<unsigned long long>(number));
    return text.data();
}

// Each form that the documents name gives the number that was written.
void parse_written_number(std::uint64_t number) {
    const auto low = static_cast<std::uint32_t>(number);
    for (const char* format : {"%llu", "0x%llx", "0X%llX", "x%llx", "o%llo"}) {
        std::uint64_t u64 = 0;
        const std::string written = printed(format, number);
        // A single hexadecimal digit after an "x" is too short a text.
        expect(written.size() == 2 || (quarry::parse_u64(u64, written) && u64 == number));
        std::uint32_t u32 = 0;
        expect(quarry::parse_u32(u32, printed(format, low)) && u32 == low);
        std::string text = " " + printed(format, low) + " ";
        std::int64_t i64 = 0;
        expect(quarry::parse_i64(i64, text) && i64 == static_cast<std::int32_t>(low));
        std::int32_t i32 = 0;
        expect(quarry::parse_int(i32, printed(format, low)) && i32 == static_cast<std::int32_t>(low));
    }
}

void parse_any_number(const std::string& text) {
    std::uint32_t u32 = 1;
    expect(quarry::parse_u32(u32, text) || u32 == 0);
    std::uint64_t u64 = 1;
    const bool taken = quarry::parse_u64(u64, text);
    expect(taken ? text.size() <= 30 : u64 == 0);
    std::string trimmed = text;
    std::int64_t i64 = 77;
    const bool is_number = quarry::parse_i64(i64, trimmed);
    expect(is_number ? i64 == static_cast<std::int32_t>(i64) : i64 == 77);
    std::int32_t i32 = 1;
    expect(quarry::parse_int(i32, text) == is_number && (is_number || i32 == 0));
}

bool same_fields(const ql::_windows_systemtime& a, const ql::_windows_systemtime& b) {
    return a.wYear == b.wYear && a.wMonth == b.wMonth && a.wDay == b.wDay && a.wHour == b.wHour &&
           a.wMinute == b.wMinute && a.wSecond == b.wSecond && a.wMilliseconds == b.wMilliseconds;
}

// The day of the week is counted on its own, by the formula of Zeller.
unsigned plain_day_of_week(unsigned year, unsigned month, unsigned day) {
    const unsigned shifted = month < 3 ? month + 12 : month;
    const unsigned y = month < 3 ? year - 1 : year;
    return (day + 13 * (shifted + 1) / 5 + y + y / 4 - y / 100 + y / 400 + 6) % 7;
}

void take_filetime(std::uint64_t ticks) {
    const ql::time value(ticks, ql::type_time::filetime);
    expect(value.filetime == ticks);
    std::string date;
    std::string time_of_day;
    ql::format_date_time(date, time_of_day, value, true);
    expect(value.valid ? date.size() >= 10 && time_of_day.size() == 12 : date.empty() && time_of_day.empty());
    if (!value.valid) {
        return;
    }
    const ql::_windows_systemtime& fields = value.system_time;
    std::uint64_t back = 0;
    ql::system_time_to_filetime(back, fields);
    expect(back == ticks - ticks % 10000);
    expect(fields.wDayOfWeek == plain_day_of_week(fields.wYear, fields.wMonth, fields.wDay));
    // What a report prints is read again as the same time, down to the millisecond.
    ql::_windows_systemtime read;
    expect(ql::parse_date_time(read, date, time_of_day, "YMD", '-') && same_fields(read, fields));
}

void parse_any_date(input_bytes& input) {
    static constexpr std::array<const char*, 4> orders = {"YMD", "MDY", "DMY", "YM"};
    const char* order = orders[input.u8() % orders.size()];
    const char separator = input.u8() % 2 == 0 ? '-' : '/';
    const std::string date = input.text(input.u8() % 32);
    const std::string time_of_day = input.text(64);
    ql::_windows_systemtime fields;
    const bool read = ql::parse_date_time(fields, date, time_of_day, order, separator);
    expect(read ? fields.wMonth <= 12 && fields.wDay <= 31 : same_fields(fields, {}));
    std::uint64_t ticks = 0;
    ql::system_time_to_filetime(ticks, fields);
    ql::time_layout layout;
    static_cast<void>(ql::validate_patterns(layout, date, time_of_day, false));
    expect(layout.fraction_digits <= 9);
    std::string formatted_date;
    std::string formatted_time;
    const ql::time value(132224078450000000, ql::type_time::filetime);
    expect(ql::format_with_patterns(formatted_date, formatted_time, value, date, time_of_day));
}

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

void work_on_text(const std::string& text) {
    std::string trimmed = text;
    expect(quarry::trim(trimmed) == !trimmed.empty());
    expect(trimmed.empty() || (!is_blank(trimmed.front()) && !is_blank(trimmed.back())));
    expect(text.find(trimmed) != std::string::npos);
    std::wstring wide_trimmed = quarry::widen_bytes(text);
    expect(quarry::trim(wide_trimmed) == !wide_trimmed.empty());

    std::vector<std::string> pieces;
    expect(quarry::split(pieces, text, '|', {.keep_empty = true}) == !text.empty());
    std::string joined;
    quarry::join(joined, pieces, "|", false);
    expect(joined == text);
    std::vector<std::wstring> wide_pieces;
    quarry::split(wide_pieces, quarry::widen_bytes(text), L'|');
    expect(std::none_of(wide_pieces.begin(), wide_pieces.end(),
                        [](const auto& piece) { return piece.empty(); }));

    std::string removed = text;
    const std::size_t count = quarry::remove_char(removed, 'a');
    expect(removed.size() + count == text.size() && removed.find('a') == std::string::npos);
    quarry::filter_list filter;
    expect(quarry::make_filter(filter, text) == !filter.empty());
    bool open_failed = false;
    uni::fileio_stats stats;
    static_cast<void>(quarry::filter_match(nullptr, open_failed, L"/dir/name.txt:stream", filter, &stats));
}

void take_path_apart(const std::string& path) {
    std::string directory;
    std::string name;
    expect(quarry::split_path_narrow(directory, name, path) == !path.empty());
    const std::string absolute = quarry::canonical_path(path, '/');
    expect(!path.empty() || absolute.empty());
    std::wstring on_volume = quarry::widen_bytes(path);
    quarry::strip_snapshot_prefix(on_volume);
    const quarry::path_segments segments = quarry::split_volume_path(on_volume);
    for (const std::wstring& segment : segments.names) {
        expect(!segment.empty() && segment.find(L'/') == std::wstring::npos);
        const std::string lowered = quarry::lowered_file_name(segment);
        expect(lowered.find(':') == std::string::npos);
    }
    // The text of the segments is a path of the same segments again, unless slashes stood around backslashes.
    if (on_volume.find(L'/') == std::wstring::npos) {
        expect(quarry::split_volume_path(quarry::canonical_text(segments)).names == segments.names);
    }
}

void dump(input_bytes& input) {
    const std::uint32_t first = input.u8();
    const std::uint32_t count = input.u16();
    const std::uint64_t address = input.u64();
    const std::vector<std::uint8_t> content = input.rest().to_vector();
    const ql::binary_data bytes(content, address % 2 == 0);
    std::ostringstream out;
    ql::hex_dump(out, bytes, first, count, address);
    const std::size_t shown =
        std::min<std::size_t>(content.size() - std::min<std::size_t>(first, content.size()), count);
    const std::string text = out.str();
    expect(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) == (shown + 15) / 16);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    input_bytes input(data, size);
    switch (input.u8() % 9) {
        case 0:
            convert_utf16(lone_bytes(input.rest()).view());
            break;
        case 1:
            convert_utf8(input.text(size));
            break;
        case 2:
            parse_written_number(input.u64());
            break;
        case 3:
            parse_any_number(input.text(size));
            break;
        case 4:
            take_filetime(input.u64());
            break;
        case 5:
            parse_any_date(input);
            break;
        case 6:
            work_on_text(input.text(size));
            break;
        case 7:
            take_path_apart(input.text(size));
            break;
        default:
            dump(input);
            break;
    }
    return 0;
}
