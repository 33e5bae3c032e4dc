#include "foundation/hexadecimal.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

TEST(hexadecimal, is_lower_case_and_filled_with_zeros) {
    EXPECT_EQ(hex(0, 8), "00000000");
    EXPECT_EQ(hex(0xABCDEF, 8), "00abcdef");
    EXPECT_EQ(hex(0x12345678, 8), "12345678");
    EXPECT_EQ(hex(0, 1), "0");
    EXPECT_EQ(hex(0x1F, 1), "1f");
}

TEST(hexadecimal, a_longer_value_has_more_digits) {
    EXPECT_EQ(hex(0x123456789, 8), "123456789");
    EXPECT_EQ(hex(0xFFFFFFFFFFFFFFFF, 4), "ffffffffffffffff");
    EXPECT_EQ(hex(0xFFFFFFFFFFFFFFFF, 16), "ffffffffffffffff");
}

}  // namespace
}  // namespace quarry::test
