#include "frontend/options/ignored_options.h"

#include <gtest/gtest.h>

namespace quarry {
namespace {

TEST(ignored_options, options_without_a_value_leave_the_word_after_them) {
    for (const char* option : {"-csv", "-csvgen", "-csvl2t", "-bodyfile", "-xml", "-multiline",
                               "-enable_quoted_csv_fields", "-no_whitespace", "-gzip", "-zlib", "-zlibex",
                               "-split_pathfile", "-cpu", "-cpuinst", "-fragment_files", "-separate_files"}) {
        arg_list args = {"quarry", option, "src"};
        drop_ignored_options(args);
        EXPECT_EQ(args, (arg_list{"quarry", "src"})) << option;
    }
}

TEST(ignored_options, options_with_a_value_take_it_along) {
    for (const char* option :
         {"-csv_separator", "-alias", "-aliaspath", "-threads", "-hostname", "-username", "-outdir"}) {
        arg_list args = {"quarry", option, "value", "src"};
        drop_ignored_options(args);
        EXPECT_EQ(args, (arg_list{"quarry", "src"})) << option;
    }
}

TEST(ignored_options, letter_case_does_not_matter_and_other_words_stay) {
    arg_list args = {"quarry", "-CSV", "-Threads", "4", "-mft", "5", "-unknown"};
    drop_ignored_options(args);
    EXPECT_EQ(args, (arg_list{"quarry", "-mft", "5", "-unknown"}));
}

TEST(ignored_options, one_with_a_value_that_is_last_stays) {
    arg_list args = {"quarry", "-outdir"};
    drop_ignored_options(args);
    EXPECT_EQ(args, (arg_list{"quarry", "-outdir"}));
}

}  // namespace
}  // namespace quarry
