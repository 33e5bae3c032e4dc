#include "frontend/arg_list.h"

#include "foundation/ql_string.h"

namespace quarry {

namespace {

constexpr std::size_t not_found = static_cast<std::size_t>(-1);

std::size_t index_of(std::string_view name, const arg_list& args, std::size_t skip) {
    for (std::size_t index = skip; index < args.size(); ++index) {
        // Copies only of words that may be it: each option is looked for among all words.
        if (args[index].size() == name.size()) {
            std::string wanted(name);
            std::string candidate = args[index];
            if (equal_ignore_case(candidate, wanted)) {
                return index;
            }
        }
    }
    return not_found;
}

// The index of an option that has at least `count` words after it.
std::size_t index_with_values(std::string_view name, const arg_list& args, std::size_t skip,
                              std::size_t count) {
    const std::size_t index = index_of(name, args, skip);
    return index != not_found && args.size() - index > count ? index : not_found;
}

void remove_words(arg_list& args, std::size_t index, std::size_t count) {
    const auto first = args.begin() + static_cast<std::ptrdiff_t>(index);
    args.erase(first, first + static_cast<std::ptrdiff_t>(count));
}

}  // namespace

bool find_flag(std::string_view name, arg_list& args, bool keep) {
    const std::size_t index = index_of(name, args, 0);
    if (index == not_found) {
        return false;
    }
    if (!keep) {
        remove_words(args, index, 1);
    }
    return true;
}

bool find_value(std::string_view name, std::string& value, arg_list& args) {
    const std::size_t index = index_with_values(name, args, 0, 1);
    if (index == not_found) {
        return false;
    }
    value = args[index + 1];
    remove_words(args, index, 2);
    return true;
}

bool find_two_values(std::string_view name, std::string& first, std::string& second, arg_list& args) {
    const std::size_t index = index_with_values(name, args, 0, 2);
    if (index == not_found) {
        return false;
    }
    first = args[index + 1];
    second = args[index + 2];
    remove_words(args, index, 3);
    return true;
}

bool peek_flag(std::string_view name, const arg_list& args, std::size_t skip) {
    return index_of(name, args, skip) != not_found;
}

bool peek_value(std::string_view name, std::string& value, const arg_list& args, std::size_t skip) {
    const std::size_t index = index_with_values(name, args, skip, 1);
    if (index == not_found) {
        return false;
    }
    value = args[index + 1];
    return true;
}

std::string joined_arguments(const arg_list& args, char quote) {
    std::string text;
    for (const std::string& argument : args) {
        if (&argument != args.data()) {
            text += ' ';
        }
        if (argument.find(' ') == std::string::npos) {
            text += argument;
        } else {
            text += quote + argument + quote;
        }
    }
    return text;
}

}  // namespace quarry
