// The arguments of a run as a list from which each option takes what is its own.
//
// An option is one word, its values are the words after it. A lookup finds the first place of an option
// whatever the case of its letters, and removes what it used, so that the words without an option are left in
// the end. A value may look like an option: lookups do not read it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace quarry {

// The program's name is at index 0.
using arg_list = std::vector<std::string>;

// True if the option is there. Removes it unless `keep`.
bool find_flag(std::string_view name, arg_list& args, bool keep = false);

// Takes the word after an option. False, with `value` and `args` as they were, if the option is not there or
// is the last word.
bool find_value(std::string_view name, std::string& value, arg_list& args);

// Takes the two words after an option. False, with nothing changed, unless there are two.
bool find_two_values(std::string_view name, std::string& first, std::string& second, arg_list& args);

// The same without removing anything, from the index `skip` on.
[[nodiscard]] bool peek_flag(std::string_view name, const arg_list& args, std::size_t skip);
bool peek_value(std::string_view name, std::string& value, const arg_list& args, std::size_t skip);

// The arguments with a blank between them, those that hold a blank in quotes of the given kind.
[[nodiscard]] std::string joined_arguments(const arg_list& args, char quote);

}  // namespace quarry
