#include "exact/gpt.h"

#include "support/memory_source.h"

#include <gtest/gtest.h>

namespace quarry::test {

TEST(gpt, in_a_sector_without_the_signature_is_refused) {
    memory_source bytes_of_disk(bytes(2048));
    const exact::exact_source source(bytes_of_disk, "disk.dd");
    EXPECT_FALSE(exact::has_gpt_signature(source, 2, 512));
    const auto found = exact::read_gpt(source, 2, 512);
    ASSERT_FALSE(found);
    EXPECT_EQ(found.error().code, exact::failure_code::table);
    EXPECT_EQ(found.error().text(), "partition table: GPT header has no signature (source byte 0x400)");
}

}  // namespace quarry::test
