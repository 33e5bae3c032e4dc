#include "frontend/options/source_words.h"

#include "foundation/edit_distance.h"
#include "foundation/ql_string.h"
#include "frontend/options/early_words.h"

#include <algorithm>
#include <array>
#include <span>

namespace quarry {

namespace {

constexpr std::size_t most_edits = 2;

// "-", and in UTF-8 the hyphens and dashes U+2010 to U+2015 and the minus sign.
constexpr std::array<std::string_view, 8> dashes = {"-",
                                                    "\xE2\x80\x90",
                                                    "\xE2\x80\x91",
                                                    "\xE2\x80\x92",
                                                    "\xE2\x80\x93",
                                                    "\xE2\x80\x94",
                                                    "\xE2\x80\x95",
                                                    "\xE2\x88\x92"};

// The one option that is like a source option and is none.
constexpr std::string_view digest_option = "-md5";

std::size_t dash_length(std::string_view word) {
    for (const std::string_view dash : dashes) {
        if (word.starts_with(dash)) {
            return dash.size();
        }
    }
    return 0;
}

std::string lowered(std::string_view word) {
    std::string text(word);
    lower_narrow(text);
    return text;
}

// The number of words that an option takes off the command line before the source options are looked at,
// itself included; 0 for any other word.
std::size_t words_taken_early(const std::string& word) {
    const std::string option = lowered(word);
    for (const std::span<const early_word> table :
         {std::span<const early_word>(early_words), std::span<const early_word>(ignored_words)}) {
        const auto found = std::find_if(table.begin(), table.end(),
                                        [&option](const early_word& known) { return known.word == option; });
        if (found != table.end()) {
            return 1 + found->values;
        }
    }
    return 0;
}

// Whether a word, in small letters, is the name of a source option after at most two edits, whatever follows
// a "=".
bool is_like_a_name(std::string_view word) {
    const std::string_view name = word.substr(0, word.find('='));
    return std::any_of(source_options.begin(), source_options.end(), [name](const source_option& known) {
        const std::string_view source = known.word_without_dash();
        const std::size_t longer = std::max(name.size(), source.size());
        return longer - std::min(name.size(), source.size()) <= most_edits &&
               edit_distance(name, source) <= most_edits;
    });
}

// The index of the word that the option at an index gets as its value once the early options are gone; that
// of the end if there is none.
std::size_t value_index(const arg_list& args, std::size_t index) {
    for (++index; index < args.size();) {
        const std::size_t taken = words_taken_early(args[index]);
        if (taken == 0) {
            return index;
        }
        index += taken;
    }
    return args.size();
}

}  // namespace

bool begins_with_dash(std::string_view word) {
    return dash_length(word) != 0;
}

source_likeness likeness_of(std::string_view word) {
    const std::string option = lowered(word);
    source_likeness likeness;
    if (!begins_with_dash(option) || option == digest_option) {
        return likeness;
    }
    std::string_view name = option;
    while (const std::size_t length = dash_length(name)) {
        name.remove_prefix(length);
    }
    for (const source_option& known : source_options) {
        if (option == known.word) {
            return {&known, false};
        }
    }
    likeness.alike = is_like_a_name(name);
    return likeness;
}

bool is_like_a_source_name(std::string_view word) {
    return is_like_a_name(lowered(word));
}

std::vector<std::string> possible_values(const arg_list& args, std::size_t index) {
    std::vector<std::string> values;
    for (++index; index < args.size();) {
        values.push_back(args[index]);
        const std::size_t taken = words_taken_early(args[index]);
        if (taken == 0) {
            break;
        }
        index += taken;
    }
    return values;
}

std::vector<std::string> words_after_source_files(const arg_list& args) {
    std::vector<std::string> words;
    for (std::size_t index = 0; index < args.size(); ++index) {
        const source_option* const source = likeness_of(args[index]).exact;
        if (source != nullptr && source->value != source_value::number) {
            if (const std::size_t next = value_index(args, index) + 1; next < args.size()) {
                words.push_back(args[next]);
            }
        }
    }
    return words;
}

}  // namespace quarry
