#include "exact/number_set.h"

#include <gtest/gtest.h>

namespace quarry::test {

using exact::number_set;
using answer = exact::number_set::answer;

TEST(number_set, knows_each_number_from_its_second_time_on) {
    number_set met;
    for (const std::uint64_t number : {0ull, 1ull, 63ull, 64ull, 511ull, 512ull, 0xFFFFFFFFFFFFFFFFull}) {
        EXPECT_EQ(met.add(number), answer::added) << number;
    }
    for (const std::uint64_t number : {0ull, 1ull, 63ull, 64ull, 511ull, 512ull, 0xFFFFFFFFFFFFFFFFull}) {
        EXPECT_EQ(met.add(number), answer::known) << number;
    }
    EXPECT_EQ(met.add(65), answer::added);
}

TEST(number_set, is_full_at_its_last_page) {
    number_set met(2);
    EXPECT_EQ(met.add(0), answer::added);
    EXPECT_EQ(met.add(512), answer::added);
    EXPECT_EQ(met.add(1024), answer::full);
    EXPECT_EQ(met.add(1024), answer::full);
    EXPECT_EQ(met.add(511), answer::added);
    EXPECT_EQ(met.add(512), answer::known);
}

}  // namespace quarry::test
