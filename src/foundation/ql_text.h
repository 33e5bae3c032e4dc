// Small text routines: trim, split, join, replace, cut.
//
// Narrow and wide forms bear the same names. They are not twins to the letter: `trim` and `split` treat some
// edges differently in the two forms, and what users typed has come to depend on it. The comments name these
// places.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace quarry {

// Strips blanks, tabs, carriage returns and line feeds at both ends. False if nothing is left, or nothing was
// there.
bool trim(std::string& text);

// Strips blanks at both ends, then tabs at both ends, then carriage returns at the end, then line feeds at
// the end, each once. False, with empty text, if nothing but blanks and tabs is left, or nothing was there.
bool trim(std::wstring& text);

struct split_rules {
    bool trim_each = false;   // trim every piece
    bool keep_empty = false;  // keep pieces that are empty (after trimming)
    bool append = false;      // add to the list instead of clearing it; narrow form only
};

// The pieces between separators. False for empty text. A separator at the very start of the text gives an
// empty first piece under `keep_empty` in the narrow form and never in the wide form; one at the end gives an
// empty last piece under `keep_empty` in both.
bool split(std::vector<std::string>& out, std::string_view text, char separator, split_rules rules = {});
bool split(std::vector<std::wstring>& out, std::wstring_view text, wchar_t separator, split_rules rules = {});

// The entries with the separator between them. With `skip_empty`, empty entries and their separators are left
// out.
void join(std::string& out, const std::vector<std::string>& list, std::string_view separator,
          bool skip_empty);

// Removes the last `count` characters, or all if there are fewer. False for empty text or a count of 0.
bool drop_tail(std::string& text, std::size_t count);

// Removes every occurrence and returns how many there were.
std::size_t remove_char(std::string& text, char character);

// Replaces every occurrence, in both cases of the letter with `ignore_case`. The narrow form does nothing if
// both characters are the same.
void replace_char(std::string& text, char old_char, char new_char, bool ignore_case);
void replace_char(std::wstring& text, wchar_t old_char, wchar_t new_char, bool ignore_case);

// Replaces the first occurrence of the pattern. With `ignore_case` the pattern is lowered in place; text
// around the occurrence keeps its case. False if it does not occur, and for an empty pattern.
bool replace_first(std::string& text, std::string& pattern, std::string_view replacement, bool ignore_case);

// Erases the text from the first occurrence of the pattern on. With `ignore_case` the pattern must be in
// lower case already. False if it does not occur, and for an empty pattern.
bool cut_at(std::string& text, std::string_view pattern, bool ignore_case);

}  // namespace quarry
