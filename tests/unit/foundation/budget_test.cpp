#include "foundation/budget.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

TEST(budget, is_spent_when_all_of_it_is_taken) {
    budget bytes(10);
    EXPECT_EQ(bytes.take(4), 4u);
    EXPECT_EQ(bytes.left(), 6u);
    EXPECT_FALSE(bytes.spent());
    EXPECT_EQ(bytes.take(6), 6u);
    EXPECT_TRUE(bytes.spent());
}

TEST(budget, gives_what_is_left_where_more_is_asked_for) {
    budget bytes(10);
    EXPECT_EQ(bytes.take(~std::uint64_t{0}), 10u);
    EXPECT_TRUE(bytes.spent());
    EXPECT_EQ(bytes.take(1), 0u);
    EXPECT_TRUE(budget(0).spent());
}

TEST(budget, that_is_a_share_of_another_is_spent_with_either) {
    budget whole(10);
    budget first(6, whole);
    EXPECT_EQ(first.take(6), 6u);
    EXPECT_TRUE(first.spent());
    EXPECT_EQ(whole.left(), 4u);
    budget second(6, whole);
    EXPECT_EQ(second.left(), 4u);
    EXPECT_EQ(second.take(5), 4u);
    EXPECT_TRUE(second.spent());
    EXPECT_TRUE(whole.spent());
}

}  // namespace
}  // namespace quarry::test
