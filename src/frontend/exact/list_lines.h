// The lines of a list, each an order to copy.
//
// A line is a path, an entry, or a line of a listing, which has five fields with tabs between them:
//
//     /docs/a.txt:Note                                               a path, in canonical or Windows form
//     365   365-1   365-1:Note                                       an entry, its sequence, its stream
//     365-1<TAB>s<TAB>26<TAB>2026-...Z<TAB>/docs/a.txt:Note          entry and sequence, ..., path
//
// Of a line of a listing the first field says which entry is copied, and the last one which of its names and
// streams; "cut -f1,5" leaves all that is needed. A path that looks like an entry is written with its
// separator ahead: "/365".
//
// Lines end in LF or CR LF; the last one may have no end. Empty lines are passed over but counted. The text
// is UTF-8, with or without a byte order mark.
#pragma once

#include "exact/failure.h"
#include "frontend/exact/exact_options.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::exact {

// Bytes of a line without its end. The longest path of a volume has far less.
inline constexpr std::size_t longest_list_line = 262144;

// Understands one line, given without its end. Fails with name for text that is no path, no entry and no line
// of a listing, or not UTF-8.
[[nodiscard]] result<copy_object> parse_list_line(std::string_view text);

// Lines out of a stream of bytes. The memory it takes does not depend on how many there are.
class list_lines {
  public:
    // Fills a buffer: the number of bytes that came, 0 at the end, or less than 0 with the reason in errno.
    using reader = std::function<std::ptrdiff_t(std::span<char> buffer)>;

    struct line {
        std::uint64_t number = 0;  // counted from 1, empty lines too
        std::string text;          // without its end; the beginning of a line that is too long
        bool too_long = false;
    };

    explicit list_lines(reader read);

    // Reads the beginning, and passes a byte order mark over. Fails with name for text in UTF-16, and with
    // source-read if nothing can be read. To be called once, ahead of next().
    [[nodiscard]] result<void> begin();
    // The next line that is not empty; nothing at the end. Fails with source-read.
    [[nodiscard]] result<std::optional<line>> next();
    // The lines after line `after` and up to line `last` that were read already and not given out. Nothing is
    // waited for; a line that is empty or too long is left out.
    [[nodiscard]] std::vector<line> at_hand(std::uint64_t after, std::uint64_t last) const;

  private:
    [[nodiscard]] result<void> fill();
    [[nodiscard]] result<std::optional<line>> take_line();

    reader m_read;
    std::string m_buffer;
    std::size_t m_at = 0;  // of the buffer: what is before was given out
    bool m_at_end = false;
    std::uint64_t m_number = 0;
};

// Reads standard input, again after an interruption.
[[nodiscard]] std::ptrdiff_t read_standard_input(std::span<char> buffer);

// The place of a line in messages: "list, line 12".
[[nodiscard]] std::string where_line(std::uint64_t number);

}  // namespace quarry::exact
