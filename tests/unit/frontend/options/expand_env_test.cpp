#include "frontend/options/expand_env.h"

#include <cstdlib>

#include <gtest/gtest.h>

namespace quarry {
namespace {

class expand_env_test : public testing::Test {
  protected:
    void SetUp() override {
        setenv("QUARRY_A", "alpha", 1);
        setenv("QUARRY_B", "<%QUARRY_A%>", 1);
        setenv("QUARRY_EMPTY", "", 1);
        setenv("QUARRY_SELF", "x%QUARRY_SELF%", 1);
        unsetenv("NOSUCH");
        unsetenv("VSS");
        unsetenv("vss");
    }
};

TEST_F(expand_env_test, a_known_reference_is_replaced_with_both_of_its_percent_signs) {
    EXPECT_EQ(expand_env("/x/%QUARRY_A%/y", true), "/x/alpha/y");
    EXPECT_EQ(expand_env("%QUARRY_A%%QUARRY_A%", false), "alphaalpha");
    EXPECT_EQ(expand_env("a%QUARRY_EMPTY%b", false), "ab");
}

TEST_F(expand_env_test, a_reference_in_a_value_is_replaced_in_turn) {
    EXPECT_EQ(expand_env("%QUARRY_B%", true), "<alpha>");
}

TEST_F(expand_env_test, what_is_unknown_or_no_reference_stays) {
    EXPECT_EQ(expand_env("%NOSUCH%", true), "%NOSUCH%");
    EXPECT_EQ(expand_env("100%", true), "100%");
    EXPECT_EQ(expand_env("%%", true), "%%");
    EXPECT_EQ(expand_env("", true), "");
}

TEST_F(expand_env_test, the_second_percent_sign_of_an_unknown_reference_does_not_begin_the_next_one) {
    EXPECT_EQ(expand_env("%NOSUCH%QUARRY_A%", true), "%NOSUCH%QUARRY_A%");
    EXPECT_EQ(expand_env("%NOSUCH%%QUARRY_A%", true), "%NOSUCH%alpha");
}

TEST_F(expand_env_test, vss_is_for_the_shadow_copy_prefix_where_it_is_allowed) {
    EXPECT_EQ(expand_env("%vss%3\\x", true), R"(\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy3\x)");
    EXPECT_EQ(expand_env("%VsS%", true), R"(\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy)");
    EXPECT_EQ(expand_env("%vss%", false), "%vss%");
}

TEST_F(expand_env_test, an_environment_variable_called_vss_goes_first) {
    setenv("vss", "mine", 1);
    EXPECT_EQ(expand_env("%vss%", true), "mine");
    unsetenv("vss");
}

TEST_F(expand_env_test, a_text_of_513_bytes_is_left_as_it_is_and_one_of_512_is_not) {
    const std::string reference = "%QUARRY_A%";
    const std::string longest = std::string(512 - reference.size(), '-') + reference;
    EXPECT_EQ(expand_env(longest, true), std::string(502, '-') + "alpha");
    EXPECT_EQ(expand_env("-" + longest, true), "-" + longest);
}

TEST_F(expand_env_test, a_variable_that_refers_to_itself_is_replaced_512_times) {
    EXPECT_EQ(expand_env("%QUARRY_SELF%", true), std::string(512, 'x') + "%QUARRY_SELF%");
}

}  // namespace
}  // namespace quarry
