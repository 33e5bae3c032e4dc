#include "exact/match_copy.h"

#include "support/byte_writer.h"

#include <gtest/gtest.h>

namespace quarry::test {

TEST(match_copy, repeats_bytes_one_by_one_whatever_the_distance_and_the_room) {
    for (const std::size_t size : {std::size_t{40}, std::size_t{41}, std::size_t{100}}) {
        for (std::size_t distance = 1; distance <= 20; ++distance) {
            for (std::size_t length = 2; length <= size - 20; ++length) {
                bytes plain = pattern(size);
                bytes expected = plain;
                for (std::size_t i = 20; i < 20 + length; ++i) {
                    expected[i] = expected[i - distance];
                }
                exact::copy_match(plain, 20, distance, length);
                plain.resize(20 + length);
                expected.resize(20 + length);
                ASSERT_EQ(plain, expected) << size << ", " << distance << ", " << length;
            }
        }
    }
}

}  // namespace quarry::test
