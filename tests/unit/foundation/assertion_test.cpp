#include "foundation/assertion.h"

#include <csignal>

#include <gtest/gtest.h>

namespace quarry {
namespace {

TEST(require, what_holds_lets_the_program_go_on) {
    require(true, "x < y", "room");
    SUCCEED();
}

TEST(require_death, what_does_not_hold_stops_the_program_with_the_expression_and_its_source) {
    EXPECT_EXIT(require(false, "x < y", "room"), testing::KilledBySignal(SIGABRT),
                "assertion failed: x < y, in room");
}

}  // namespace
}  // namespace quarry
