#include "foundation/edit_distance.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

TEST(edit_distance, edits_are_letters_added_left_out_and_replaced) {
    EXPECT_EQ(edit_distance("image", "image"), 0U);
    EXPECT_EQ(edit_distance("", "vmdk"), 4U);
    EXPECT_EQ(edit_distance("vmdk", ""), 4U);
    EXPECT_EQ(edit_distance("img", "image"), 2U);
    EXPECT_EQ(edit_distance("imgae", "image"), 2U) << "two letters that changed places are two edits";
    EXPECT_EQ(edit_distance("images", "image"), 1U);
    EXPECT_EQ(edit_distance("drive", "drivenum"), 3U);
}

}  // namespace
}  // namespace quarry::test
