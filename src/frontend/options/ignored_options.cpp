#include "frontend/options/ignored_options.h"

#include <array>

namespace quarry {

namespace {

struct ignored_option {
    std::string_view name;
    bool takes_value;
};

constexpr std::array<ignored_option, 23> ignored_options = {{
    {"-csv", false},
    {"-csvgen", false},
    {"-csvl2t", false},
    {"-bodyfile", false},
    {"-xml", false},
    {"-multiline", false},
    {"-csv_separator", true},
    {"-enable_quoted_csv_fields", false},
    {"-no_whitespace", false},
    {"-alias", true},
    {"-aliaspath", true},
    {"-gzip", false},
    {"-zlib", false},
    {"-zlibex", false},
    {"-threads", true},
    {"-hostname", true},
    {"-username", true},
    {"-split_pathfile", false},
    {"-cpu", false},
    {"-cpuinst", false},
    {"-fragment_files", false},
    {"-separate_files", false},
    {"-outdir", true},
}};

}  // namespace

void drop_ignored_options(arg_list& args) {
    std::string value;
    for (const ignored_option& option : ignored_options) {
        if (option.takes_value) {
            find_value(option.name, value, args);
        } else {
            find_flag(option.name, args);
        }
    }
}

std::size_t words_of_ignored_option(std::string_view word) {
    for (const ignored_option& option : ignored_options) {
        if (option.name == word) {
            return option.takes_value ? 2 : 1;
        }
    }
    return 0;
}

}  // namespace quarry
