#include "foundation/ql_text.h"

#include "foundation/ql_string.h"

#include <algorithm>

namespace quarry {

namespace {

// Where a pattern first occurs; npos if it does not. With `ignore_case` it is looked for in lowered text.
std::size_t find_pattern(const std::string& text, std::string_view pattern, bool ignore_case) {
    if (pattern.empty()) {
        return std::string::npos;
    }
    if (!ignore_case) {
        return text.find(pattern);
    }
    std::string lowered = text;
    lower_narrow(lowered);
    return lowered.find(pattern);
}

void strip_end(std::wstring& text, wchar_t character) {
    const std::size_t last = text.find_last_not_of(character);
    text.erase(last == std::wstring::npos ? 0 : last + 1);
}

void strip_both_ends(std::wstring& text, wchar_t character) {
    strip_end(text, character);
    text.erase(0, text.find_first_not_of(character));
}

template <typename String>
void add_piece(std::vector<String>& out, String piece, split_rules rules) {
    if (rules.trim_each) {
        trim(piece);
    }
    if (rules.keep_empty || !piece.empty()) {
        out.push_back(std::move(piece));
    }
}

template <typename String, typename View>
void add_pieces(std::vector<String>& out, View text, typename View::value_type separator, split_rules rules) {
    for (std::size_t end = text.find(separator); end != View::npos; end = text.find(separator)) {
        add_piece(out, String(text.substr(0, end)), rules);
        text.remove_prefix(end + 1);
    }
    add_piece(out, String(text), rules);
}

void lower(std::string& text) {
    lower_narrow(text);
}

void lower(std::wstring& text) {
    lower_wide(text);
}

template <typename String, typename Char>
void replace_letter(String& text, Char old_char, Char new_char, bool ignore_case) {
    String compared = text;
    String wanted(1, old_char);
    if (ignore_case) {
        lower(compared);
        lower(wanted);
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (compared[i] == wanted.front()) {
            text[i] = new_char;
        }
    }
}

}  // namespace

bool trim(std::string& text) {
    constexpr std::string_view stripped = " \t\r\n";
    const std::size_t last = text.find_last_not_of(stripped);
    if (last == std::string::npos) {
        text.clear();
        return false;
    }
    text.erase(last + 1);
    text.erase(0, text.find_first_not_of(stripped));
    return true;
}

// Deliberate: each character is stripped in a pass of its own; a mixture does not go as in the narrow form.
// The user sees a leading line feed stay, and a blank with a tab outside of it.
bool trim(std::wstring& text) {
    strip_both_ends(text, L' ');
    strip_both_ends(text, L'\t');
    strip_end(text, L'\r');
    strip_end(text, L'\n');
    if (text.find_first_not_of(L" \t") == std::wstring::npos) {
        text.clear();
        return false;
    }
    return true;
}

bool split(std::vector<std::string>& out, std::string_view text, char separator, split_rules rules) {
    if (!rules.append) {
        out.clear();
    }
    if (text.empty()) {
        return false;
    }
    add_pieces(out, text, separator, rules);
    return true;
}

// Deliberate: a separator at the very start gives no empty first piece even if empty pieces are kept, not one
// as in the narrow form. The user sees "/a" split as "a" is.
bool split(std::vector<std::wstring>& out, std::wstring_view text, wchar_t separator, split_rules rules) {
    out.clear();
    if (text.empty()) {
        return false;
    }
    if (text.front() == separator) {
        text.remove_prefix(1);
    }
    add_pieces(out, text, separator, rules);
    return true;
}

void join(std::string& out, const std::vector<std::string>& list, std::string_view separator,
          bool skip_empty) {
    out.clear();
    bool first = true;
    for (const std::string& entry : list) {
        if (skip_empty && entry.empty()) {
            continue;
        }
        if (!first) {
            out += separator;
        }
        out += entry;
        first = false;
    }
}

bool drop_tail(std::string& text, std::size_t count) {
    if (text.empty() || count == 0) {
        return false;
    }
    text.erase(text.size() - std::min(count, text.size()));
    return true;
}

std::size_t remove_char(std::string& text, char character) {
    return std::erase(text, character);
}

void replace_char(std::string& text, char old_char, char new_char, bool ignore_case) {
    if (old_char != new_char) {
        replace_letter(text, old_char, new_char, ignore_case);
    }
}

void replace_char(std::wstring& text, wchar_t old_char, wchar_t new_char, bool ignore_case) {
    replace_letter(text, old_char, new_char, ignore_case);
}

bool replace_first(std::string& text, std::string& pattern, std::string_view replacement, bool ignore_case) {
    if (ignore_case) {
        lower_narrow(pattern);
    }
    const std::size_t found = find_pattern(text, pattern, ignore_case);
    if (found == std::string::npos) {
        return false;
    }
    text.replace(found, pattern.size(), replacement);
    return true;
}

bool cut_at(std::string& text, std::string_view pattern, bool ignore_case) {
    const std::size_t found = find_pattern(text, pattern, ignore_case);
    if (found == std::string::npos) {
        return false;
    }
    text.erase(found);
    return true;
}

}  // namespace quarry
