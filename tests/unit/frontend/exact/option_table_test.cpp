#include "frontend/exact/option_table.h"

#include <set>
#include <string>

#include <gtest/gtest.h>

namespace quarry::test {

namespace {

using namespace exact;

std::string guess(std::string_view word) {
    const option_row* const row = nearest_option(word);
    return row == nullptr ? "none" : std::string(row->name);
}

}  // namespace

TEST(option_table, an_option_is_found_in_any_letter_case) {
    for (const std::string_view word : {"-image", "-IMAGE", "-iMaGe"}) {
        const option_row* const row = find_option(word);
        ASSERT_NE(row, nullptr) << word;
        EXPECT_EQ(row->id, option::disk_source);
    }
}

TEST(option_table, a_word_that_is_no_option_has_no_row) {
    for (const std::string_view word : {"", "-", "image", "-imag", "-images", "a.txt", "--image"}) {
        EXPECT_EQ(find_option(word), nullptr) << word;
    }
}

TEST(option_table, no_name_is_in_it_twice) {
    std::set<std::string_view> names;
    for (const option_row& row : option_rows()) {
        EXPECT_TRUE(names.insert(row.name).second) << row.name;
        EXPECT_EQ(find_option(row.name), &row);
    }
}

TEST(option_table, each_refused_option_says_what_to_do_and_no_other_does) {
    for (const option_row& row : option_rows()) {
        EXPECT_EQ(row.hint.empty(), row.state != option_state::refused) << row.name;
    }
}

TEST(option_table, only_letters_and_disk_files_may_be_repeated) {
    std::set<std::string_view> repeatable;
    for (const option_row& row : option_rows()) {
        if (row.repeatable) {
            repeatable.insert(row.name);
        }
    }
    EXPECT_EQ(repeatable, (std::set<std::string_view>{"-letter", "-vmdk"}));
}

TEST(option_table, a_guess_is_at_most_two_edits_away) {
    EXPECT_EQ(guess("-imgae"), "-image");   // two letters in each other's place
    EXPECT_EQ(guess("-imag"), "-image");    // a letter less
    EXPECT_EQ(guess("-immage"), "-image");  // a letter more
    EXPECT_EQ(guess("-IMAGO"), "-image");   // another letter, in capitals
    EXPECT_EQ(guess("--image"), "-image");
    EXPECT_EQ(guess("-ofset"), "-offset");
    EXPECT_EQ(guess("-zero_unreadabel"), "-zero_unreadable");
    EXPECT_EQ(guess("-imxxxe"), "none");  // three
    EXPECT_EQ(guess("-nothing_like_it"), "none");
}

TEST(option_table, the_nearest_of_several_is_guessed) {
    EXPECT_EQ(guess("-md"), "-md5");   // one edit; -mft is two away
    EXPECT_EQ(guess("-mf"), "-mft");   // one edit; -md5 is two away
    EXPECT_EQ(guess("-rw"), "-raw");   // one edit; -src is two away
    EXPECT_EQ(guess("-srt"), "-src");  // one edit; -dst is two away
    EXPECT_EQ(guess("-lists"), "-list");
}

TEST(option_table, an_option_of_the_default_mode_is_never_guessed) {
    EXPECT_EQ(guess("-metta"), "none");
    EXPECT_EQ(guess("-drivenumm"), "none");
}

TEST(option_table, a_guess_keeps_a_letter_of_what_was_typed) {
    EXPECT_EQ(guess("-x"), "none");
    EXPECT_EQ(guess("-"), "none");
    EXPECT_EQ(guess(""), "none");
}

}  // namespace quarry::test
