#include "exact/allocation.h"

#include "support/opened_exact_volume.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {

namespace {

// $Bitmap of these many bytes in cluster 700, in place of the one that the builder makes.
void put_bitmap(volume_builder& volume, std::uint64_t size) {
    volume.replace_record(
        6, volume.new_record(6).add(attribute_builder::non_resident(0x80, {{700, 1}}).real(size)).build());
}

// What a bitmap of so many bytes says of runs on a volume of 1,000 clusters.
exact::allocation::count counted(const bytes& bitmap, const run_list& where) {
    volume_builder volume({.total_clusters = 1000});
    volume.write_clusters(700, bitmap);
    put_bitmap(volume, bitmap.size());
    opened_exact_volume opened(volume);
    exact::notices told;
    const auto open = exact::allocation::open(opened.volume().table(), told);
    if (!open) {
        ADD_FAILURE() << open.error().text();
        return {};
    }
    const bytes stored = attribute_builder::non_resident(0x80, where).build();
    exact::run_map map(1000, 4096);
    EXPECT_TRUE(map.add(attribute(byte_view(stored)), "it", std::nullopt));
    return open->of(map).value_or(exact::allocation::count{});
}

}  // namespace

TEST(allocation, counts_the_bits_of_the_clusters_alone) {
    bytes bitmap(125);
    bitmap[10] = 0xF0;  // clusters 84 to 87
    bitmap[11] = 0x81;  // clusters 88 and 95
    const auto count = [&](std::int64_t lcn, std::uint64_t length) {
        return counted(bitmap, {{lcn, length}});
    };
    EXPECT_EQ(count(80, 16).used, 6u);
    EXPECT_EQ(count(80, 16).free, 10u);
    EXPECT_EQ(count(84, 4).used, 4u);
    EXPECT_EQ(count(83, 2).used, 1u);
    EXPECT_EQ(count(87, 1).used, 1u);
    EXPECT_EQ(count(87, 2).used, 2u);
    EXPECT_EQ(count(89, 6).used, 0u);
    EXPECT_EQ(count(0, 1000).used, 6u);
    EXPECT_EQ(count(999, 1).free, 1u);
}

TEST(allocation, counts_a_cluster_once_however_often_it_is_used) {
    bytes bitmap(125);
    bitmap[10] = 0xF0;  // clusters 84 to 87
    const exact::allocation::count count = counted(bitmap, {{80, 16}, {84, 4}, {90, 10}});
    EXPECT_EQ(count.used, 4u);
    EXPECT_EQ(count.free, 16u);
}

TEST(allocation, leaves_holes_out) {
    const exact::allocation::count count = counted(bytes(125, 0xFF), {{10, 3}, {hole, 50}, {900, 2}});
    EXPECT_EQ(count.used, 5u);
    EXPECT_EQ(count.free, 0u);
}

TEST(allocation, reads_no_bits_of_clusters_that_the_source_has_not) {
    // A volume that claims 2^47 clusters, a bitmap for them that is a hole, and a run of half of them.
    volume_builder volume({.total_clusters = 400});
    volume.force_boot(40, 8, std::uint64_t{1} << 50);
    volume.replace_record(
        6, volume.new_record(6)
               .add(attribute_builder::non_resident(0x80, {{hole, std::uint64_t{1} << 32}}).flags(0x8000))
               .build());
    bytes image = volume.image();
    image.resize(400 * 4096);
    opened_exact_volume opened(std::move(image));
    exact::notices told;
    const auto open = exact::allocation::open(opened.volume().table(), told);
    ASSERT_TRUE(open.has_value()) << text_of(open.error());
    const bytes stored = attribute_builder::non_resident(0x80, {{100, std::uint64_t{1} << 46}}).build();
    exact::run_map map(std::uint64_t{1} << 47, 4096);
    ASSERT_TRUE(map.add(attribute(byte_view(stored)), "it", std::nullopt));
    const auto count = open->of(map);
    ASSERT_TRUE(count.has_value());
    EXPECT_EQ(count->used, 0u);
    EXPECT_EQ(count->free, 300u);
}

TEST(allocation, reads_the_bits_of_runs_near_each_other_at_once) {
    // A volume of 100,000 clusters, whose bitmap has four blocks; bits of even clusters are set.
    volume_builder volume({.total_clusters = 100'000});
    volume.write_clusters(700, bytes(12'500, 0x55));
    volume.replace_record(
        6, volume.new_record(6).add(attribute_builder::non_resident(0x80, {{700, 4}}).real(12'500)).build());
    opened_exact_volume opened(volume);
    exact::notices told;
    const auto open = exact::allocation::open(opened.volume().table(), told);
    ASSERT_TRUE(open.has_value()) << text_of(open.error());
    run_list where;
    for (std::int64_t i = 0; i < 90; ++i) {
        where.push_back({2 * i, 1});
        where.push_back({90'000 - 2 * i + 1, 1});
    }
    const bytes stored = attribute_builder::non_resident(0x80, where).build();
    exact::run_map map(100'000, 4096);
    ASSERT_TRUE(map.add(attribute(byte_view(stored)), "it", std::nullopt));
    const std::size_t before = opened.source().reads();
    const auto count = open->of(map);
    ASSERT_TRUE(count.has_value()) << text_of(count.error());
    EXPECT_EQ(count->used, 90u);
    EXPECT_EQ(count->free, 90u);
    EXPECT_EQ(opened.source().reads() - before, 2u);
}

TEST(allocation, needs_only_the_bits_that_are_asked_for) {
    volume_builder volume({.total_clusters = 100'000});
    volume.write_clusters(700, bytes(12'500, 0xFF));
    volume.replace_record(
        6, volume.new_record(6).add(attribute_builder::non_resident(0x80, {{700, 4}}).real(12'500)).build());
    opened_exact_volume opened(volume);
    exact::notices told;
    const auto open = exact::allocation::open(opened.volume().table(), told);
    ASSERT_TRUE(open.has_value()) << text_of(open.error());
    const auto count = [&](std::int64_t lcn, std::uint64_t length) {
        const bytes stored = attribute_builder::non_resident(0x80, {{lcn, length}}).build();
        exact::run_map map(100'000, 4096);
        EXPECT_TRUE(map.add(attribute(byte_view(stored)), "it", std::nullopt));
        const auto counted = open->of(map);
        return counted ? std::to_string(counted->used) : text_of(counted.error());
    };
    // The bits of clusters 4,096 to 8,191.
    opened.source().unreadable(700 * 4096 + 512, 512);
    EXPECT_EQ(count(4000, 96), "96");
    EXPECT_EQ(count(8192, 10), "10");
    EXPECT_THAT(count(4000, 97), testing::StartsWith("source-read record 6, $DATA \"\": "));
}

TEST(allocation, has_a_bit_for_each_cluster) {
    volume_builder volume({.total_clusters = 1000});
    put_bitmap(volume, 124);
    opened_exact_volume opened(volume);
    exact::notices told;
    const auto& bitmap = opened.volume().bitmap(told);
    ASSERT_FALSE(bitmap);
    EXPECT_THAT(
        text_of(bitmap.error()),
        testing::StartsWith("sizes record 6, $DATA \"\": has 124 bytes for 1000 clusters (source byte 0x58"));
}

}  // namespace quarry::test
