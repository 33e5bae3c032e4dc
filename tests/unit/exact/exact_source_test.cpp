#include "exact/exact_source.h"

#include "support/memory_source.h"

#include <gtest/gtest.h>

namespace quarry::test {

TEST(exact_source, fills_the_whole_buffer) {
    memory_source disk({1, 2, 3, 4, 5});
    const exact::exact_source source(disk, "disk.dd");
    std::vector<std::uint8_t> buffer(3);
    ASSERT_TRUE(source.read(buffer, 2));
    EXPECT_EQ(buffer, (std::vector<std::uint8_t>{3, 4, 5}));
}

TEST(exact_source, names_the_first_byte_after_the_end) {
    memory_source disk(std::vector<std::uint8_t>(10));
    const exact::exact_source source(disk, "disk.dd");
    std::vector<std::uint8_t> buffer(4);
    const exact::result<void> read = source.read(buffer, 8);
    ASSERT_FALSE(read);
    EXPECT_EQ(read.error().code, exact::failure_code::source_end);
    EXPECT_EQ(read.error().text(), "source disk.dd: ends at byte 0xA, byte 0xA is needed");
    EXPECT_EQ(source.read(buffer, 100).error().why, "ends at byte 0xA, byte 0x64 is needed");
}

TEST(exact_source, names_the_first_byte_that_an_error_kept) {
    memory_source disk(std::vector<std::uint8_t>(100));
    disk.unreadable(50, 1);
    const exact::exact_source source(disk, "disk.dd");
    std::vector<std::uint8_t> buffer(30);
    const exact::result<void> read = source.read(buffer, 40);
    ASSERT_FALSE(read);
    EXPECT_EQ(read.error().code, exact::failure_code::source_read);
    EXPECT_EQ(read.error().text(),
              "source disk.dd: 20 bytes cannot be read: Input/output error (source byte 0x32)");
}

}  // namespace quarry::test
