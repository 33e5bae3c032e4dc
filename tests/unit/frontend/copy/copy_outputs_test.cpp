#include "frontend/copy/copy_outputs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using ::testing::ElementsAre;

TEST(copy_outputs, a_report_has_the_path_of_its_copy_and_an_ending) {
    const copy_outputs outputs = outputs_with_reports(L"out/\u00E4.txt");
    EXPECT_EQ(outputs.copy, L"out/\u00E4.txt");
    ASSERT_EQ(outputs.reports.size(), 1U);
    EXPECT_EQ(outputs.report_path(text_report), L"out/\u00E4.txt.meta.txt");
}

TEST(copy_outputs, a_report_that_is_not_made_has_no_path) {
    EXPECT_EQ(copy_outputs{L"out/a"}.report_path(text_report), L"");
}

TEST(copy_outputs, what_a_copy_may_make_is_the_copy_and_a_report_in_each_form) {
    EXPECT_THAT(files_of_copy("out/a"), ElementsAre("out/a", "out/a.meta.txt"));
}

TEST(copy_outputs, a_name_with_a_digest_has_sixteen_digits_of_the_time_before_it) {
    EXPECT_EQ(path_with_digest("out", 0x1D0C1A2B3C4D5E6, "a.txt", "900150983cd24fb0d6963f7d28e17f72"),
              "out/01d0c1a2b3c4d5e6_a.txt_900150983cd24fb0d6963f7d28e17f72");
}

}  // namespace
}  // namespace quarry::test
