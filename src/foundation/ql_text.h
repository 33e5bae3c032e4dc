// Small text routines: trim, split, join, replace.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace quarry {

bool trim(std::string& text);
bool trim(std::wstring& text);

struct split_rules {
    bool trim_each = false;
    bool keep_empty = false;
    bool append = false;  // narrow form only
};
bool split(std::vector<std::string>& out, std::string_view text, char separator, split_rules rules = {});
bool split(std::vector<std::wstring>& out, std::wstring_view text, wchar_t separator, split_rules rules = {});
void join(std::string& out, const std::vector<std::string>& list, std::string_view separator, bool skip_empty);

bool drop_tail(std::string& text, std::size_t count);
std::size_t remove_char(std::string& text, char character);
void replace_char(std::string& text, char old_char, char new_char, bool ignore_case);
void replace_char(std::wstring& text, wchar_t old_char, wchar_t new_char, bool ignore_case);
bool replace_first(std::string& text, std::string& pattern, std::string_view replacement, bool ignore_case);
bool cut_at(std::string& text, std::string_view pattern, bool ignore_case);

}  // namespace quarry
