#include "volume/limits.h"

#include "disk/limits.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

constexpr std::uint64_t mebibyte = 1ULL << 20;
constexpr std::uint64_t gibibyte = 1ULL << 30;
constexpr std::uint64_t largest = ~std::uint64_t{0};

TEST(limits, follow_a_small_source) {
    EXPECT_EQ(limits::attribute_list_bytes(100'000), 100'000u);
    EXPECT_EQ(limits::entry_memory(mebibyte), 2 * mebibyte + 2);
    EXPECT_EQ(limits::system_attribute_bytes(mebibyte), 524'288u + 8192 + 1);
    EXPECT_EQ(limits::cache_memory(mebibyte), 65 * mebibyte);
    EXPECT_EQ(limits::descriptor_memory(2 * mebibyte), 33 * mebibyte);
    EXPECT_EQ(limits::children_of_directory(840), 10u);
    EXPECT_EQ(limits::lookup_bytes(mebibyte), 96 * mebibyte);
    EXPECT_EQ(limits::directory_entries(4096), 65'536u);
    EXPECT_EQ(limits::directory_entries(4 * mebibyte), mebibyte);
}

TEST(limits, are_not_lifted_by_a_source_of_any_size) {
    for (const std::uint64_t source : {std::uint64_t{1} << 40, std::uint64_t{1} << 62, largest}) {
        EXPECT_EQ(limits::attribute_list_bytes(source), 2 * mebibyte);
        EXPECT_EQ(limits::entry_memory(source), 128 * mebibyte);
        EXPECT_EQ(limits::system_attribute_bytes(source), 32 * mebibyte + 1);
        EXPECT_EQ(limits::cache_memory(source), 256 * mebibyte);
        EXPECT_EQ(limits::descriptor_memory(source), 160 * mebibyte);
        EXPECT_EQ(limits::children_of_directory(source), 4'000'000u);
        EXPECT_EQ(limits::directory_entries(source), 2 * mebibyte);
    }
    EXPECT_EQ(limits::one_lookup_record_bytes, 16 * gibibyte);
    EXPECT_EQ(limits::one_lookup_listed_bytes, 4 * gibibyte);
    EXPECT_EQ(limits::one_lookup_index_bytes, 4 * gibibyte);
}

TEST(limits, following_a_source_do_not_wrap) {
    EXPECT_EQ(limits::following(10, 5, 3, 1000), 35u);
    EXPECT_EQ(limits::following(331, 5, 3, 1000), 998u);
    EXPECT_EQ(limits::following(332, 5, 3, 1000), 1000u);
    EXPECT_EQ(limits::following(0, 2000, 3, 1000), 1000u);
    EXPECT_EQ(limits::following(largest, 0, 32, largest), largest);
}

}  // namespace
}  // namespace quarry::test
