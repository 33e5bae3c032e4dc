// Which paths of a list are copied: filters made from option values, and the check of a path against them.
//
// A filter is a list of alternatives; one that matches is enough. Letters match in either case. An
// alternative says how the file name looks ("a.txt", "*.txt", "note*", "*part*"), or names a directory
// ("/dir") below which the file must lie.
#pragma once

#include "foundation/uni_streams.h"
#include "frontend/options/filter_entry.h"
#include "frontend/options/time_range.h"

#include <string>
#include <string_view>

namespace quarry {

// Builds a filter from one option value, whose alternatives are separated by "|" or ",". False, with an empty
// list, if there is none.
bool make_filter(filter_list& out, std::string_view text);

// An alternative that compares bytes of the file: a pattern of hexadecimal digits in pairs, then, after a "|"
// or a ",", the byte offset at which they are looked for. A pattern that is none matches no file.
[[nodiscard]] filter_entry make_signature_filter(std::string_view value);

// True if a path passes. `range` may be null; a range that is on is held against the times in `stats`, which
// are taken from the host's file of that path if they are zero. `open_failed` says whether a file could not
// be opened for the comparison of its bytes; nothing but an ordinary file is opened for it.
[[nodiscard]] bool filter_match(const time_range* range, bool& open_failed, const std::wstring& path,
                                const filter_list& list, uni::fileio_stats* stats);

}  // namespace quarry
