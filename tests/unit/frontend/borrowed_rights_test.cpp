#include "frontend/borrowed_rights.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

TEST(borrowed_rights, are_those_of_another_user_or_group_than_the_callers) {
    EXPECT_FALSE(are_borrowed({1000, 100}, {1000, 100}));
    EXPECT_FALSE(are_borrowed({0, 0}, {0, 0}));
    EXPECT_TRUE(are_borrowed({1000, 100}, {0, 100})) << "setuid to root";
    EXPECT_TRUE(are_borrowed({0, 0}, {65534, 0})) << "setuid to somebody with fewer rights";
    EXPECT_TRUE(are_borrowed({1000, 100}, {1000, 6})) << "setgid";
}

}  // namespace
}  // namespace quarry::test
