#include "foundation/crc32.h"

#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {

namespace {

std::vector<std::uint8_t> octets(std::string_view text) {
    return {text.begin(), text.end()};
}

}  // namespace

TEST(crc32, gives_the_published_check_value) {
    EXPECT_EQ(crc32(octets("123456789")), 0xCBF43926u);
}

TEST(crc32, of_nothing_is_zero) {
    EXPECT_EQ(crc32({}), 0u);
}

TEST(crc32, of_one_byte_of_zeros_and_of_ones) {
    // The remainder of 0xFF, and of 0x00 after the initial inversion.
    EXPECT_EQ(crc32(std::vector<std::uint8_t>{0x00}), 0xD202EF8Du);
    EXPECT_EQ(crc32(std::vector<std::uint8_t>{0xFF}), 0xFF000000u);
}

TEST(crc32, takes_its_bytes_in_any_pieces) {
    const auto text = octets("123456789");
    for (std::size_t cut = 0; cut <= text.size(); ++cut) {
        const std::span<const std::uint8_t> all(text);
        EXPECT_EQ(crc32(all.subspan(cut), crc32(all.first(cut))), 0xCBF43926u);
    }
}

}  // namespace quarry::test
