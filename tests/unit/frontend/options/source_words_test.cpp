#include "frontend/options/source_words.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using words = std::vector<std::string>;

TEST(source_words, a_source_option_is_exact_in_any_case_of_its_letters) {
    EXPECT_EQ(likeness_of("-image").exact, &option_of(source_kind::image));
    EXPECT_EQ(likeness_of("-VMDK").exact, &option_of(source_kind::virtual_disk));
    EXPECT_EQ(likeness_of("-Partition").exact, &option_of(source_kind::partition));
    EXPECT_EQ(likeness_of("-drivenum").exact, &option_of(source_kind::drive));
    EXPECT_FALSE(likeness_of("-image").alike);
}

TEST(source_words, two_edits_are_alike_and_three_are_not) {
    for (const char* word : {"--image", "-img", "-imgae", "-image=x", "-vmd", "-partitions", "-drivenumber",
                             "\u2014image", "---vmdk", "-diskimage", "-drivenu"}) {
        const bool three_edits = word == std::string("-drivenumber") || word == std::string("-diskimage");
        EXPECT_EQ(likeness_of(word).exact, nullptr) << word;
        EXPECT_EQ(likeness_of(word).alike, !three_edits) << word;
    }
}

TEST(source_words, a_word_without_a_dash_and_an_option_of_the_program_are_not_alike) {
    for (const char* word : {"image", "vmdk", "", "-", "--", "-md5", "-mft", "-meta", "-dst", "-src", "-out",
                             "-diags", "-offset", "-cluster", "-pipe", "-xml", "-v", "-l2", "/?"}) {
        EXPECT_FALSE(likeness_of(word).alike) << word;
    }
}

TEST(source_words, the_value_of_an_option_is_the_next_word_that_nobody_takes_first) {
    const arg_list args = {"quarry", "-image", "-raw", "-out", "o", "disk", "-meta"};
    EXPECT_EQ(possible_values(args, 1), (words{"-raw", "-out", "disk"}));
    EXPECT_EQ(possible_values(args, 4), words{"disk"});
    EXPECT_EQ(possible_values(args, 5), words{"-meta"});
    EXPECT_TRUE(possible_values(args, 6).empty());
}

TEST(source_words, a_name_of_a_source_option_that_lost_its_dash_has_two_edits_at_most) {
    for (const char* word :
         {"image", "IMAGE", "img", "imgae", "/image", "vmdk", "partition", "drivenu", "image=x"}) {
        EXPECT_TRUE(is_like_a_source_name(word)) << word;
    }
    for (const char* word : {"", "/a.txt", "/b", "readme.txt", "imagined", "c:\\a"}) {
        EXPECT_FALSE(is_like_a_source_name(word)) << word;
    }
}

TEST(source_words, the_words_after_the_files_of_a_source_are_those_that_no_option_is_before) {
    EXPECT_EQ(words_after_source_files({"quarry", "-image", "d.1", "d.2", "d.3", "-raw"}), words{"d.2"});
    EXPECT_EQ(words_after_source_files({"quarry", "-VMDK", "-raw", "a", "b", "-image", "c", "-md5"}),
              (words{"b", "-md5"}));
    EXPECT_EQ(
        words_after_source_files({"quarry", "-drivenum", "0", "a", "--image", "d.1", "d.2", "-image", "d"}),
        words());
}

TEST(source_words, dashes_are_those_that_a_text_program_makes_too) {
    for (const char* word : {"-x", "--", "\u2010x", "\u2013x", "\u2014", "\u2212x"}) {
        EXPECT_TRUE(begins_with_dash(word)) << word;
    }
    EXPECT_FALSE(begins_with_dash("x-"));
    EXPECT_FALSE(begins_with_dash(""));
}

}  // namespace
}  // namespace quarry::test
