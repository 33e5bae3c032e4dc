// Words of a command line that name a source, or were meant to.
//
// A source option that is mistyped is an unknown word, and what follows it may then be taken for a
// destination, which is removed before it is written. So the words around anything that looks like a source
// option count as sources too, when it comes to what no output may touch.
#pragma once

#include "frontend/arg_list.h"
#include "frontend/options/source_table.h"

#include <string>
#include <string_view>
#include <vector>

namespace quarry {

// True for a word that begins like an option: with "-", or with one of the dashes that a text program makes
// of it.
[[nodiscard]] bool begins_with_dash(std::string_view word);

// How a word relates to the source options. `exact` is the one that it is, or null; `alike` is true if it is
// none but would be one after at most two edits (a letter added, left out or replaced), whatever dashes it
// begins with and whatever follows a "=". Other options of the program are not alike.
struct source_likeness {
    const source_option* exact = nullptr;
    bool alike = false;
};
[[nodiscard]] source_likeness likeness_of(std::string_view word);

// True for a word that would be the name of a source option, without a dash, after at most two edits,
// whatever follows a "=": what an option is that lost its dash.
[[nodiscard]] bool is_like_a_source_name(std::string_view word);

// The words that the option at an index can get as its value: the next one, and the one after each option
// that is taken off the command line before the source options are looked at.
[[nodiscard]] std::vector<std::string> possible_values(const arg_list& args, std::size_t index);

// The words that come directly after the value of an option that names files. A shell that expands
// "disk.00*" puts the second piece of an image there.
[[nodiscard]] std::vector<std::string> words_after_source_files(const arg_list& args);

}  // namespace quarry
