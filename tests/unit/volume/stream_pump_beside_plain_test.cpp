#include "support/slow_stream.h"
#include "unit/volume/allocation_counter.h"
#include "unit/volume/pumped.h"
#include "volume/attribute.h"
#include "volume/stream_pump.h"

#include <filesystem>
#include <random>

namespace quarry::test {
namespace {

void expect_same_as_slow(CNtfs& ntfs, const attr_item& item, const pump_rules& rules) {
    const slow_copy expected = slow_pump(ntfs, item, rules.raw, rules.skip_sparse, rules.include_slack);
    attr_item copy = item;
    const pumped got = pump(&ntfs, copy, rules);
    ASSERT_EQ(got.ok, expected.ok);
    ASSERT_EQ(got.out, expected.out);
    ASSERT_EQ(got.bytes_copied, expected.bytes_copied);
    ASSERT_EQ(got.log, expected.log);
}

attr_item random_item(std::mt19937& random, std::uint64_t cluster_size) {
    attr_item item;
    item.type = random() % 4 == 0 ? attr_index_allocation : attr_data;
    item.non_resident = true;
    std::uint64_t vcn = 0;
    for (auto i = 1 + random() % 10; i > 0; --i) {
        const bool sparse = random() % 4 == 0;
        const auto length = static_cast<std::uint32_t>(random() % (random() % 4 == 0 ? 60 : 12));
        const std::uint64_t lcn =
            random() % 20 == 0 ? volume_clusters - 3 : random() % (volume_clusters - 20);
        item.runs.push_back({.lcn = sparse ? 0 : lcn, .vcn = vcn, .sparse = sparse, .length = length});
        vcn += length;
    }
    item.runs.push_back({.lcn = 45, .vcn = vcn, .sparse = false, .length = 2});
    vcn += 2;
    item.allocated = vcn * cluster_size;
    item.real = random() % 3 == 0 ? item.allocated + random() % 9000 : 1 + random() % item.allocated;
    item.initialized = random() % (item.real + 1);
    return item;
}

void expect_same_on_random_items(CNtfs& ntfs, std::mt19937& random, int rounds) {
    for (int round = 0; round < rounds; ++round) {
        const attr_item item = random_item(random, static_cast<std::uint64_t>(ntfs.m_cluster_size));
        expect_same_as_slow(ntfs, item, {});
        expect_same_as_slow(ntfs, item, {.raw = true});
        expect_same_as_slow(ntfs, item, {.skip_sparse = true});
        expect_same_as_slow(ntfs, item, {.raw = true, .skip_sparse = true});
        expect_same_as_slow(ntfs, item, {.include_slack = true});
    }
}

TEST(pump_beside_the_plain_one, gives_the_same_on_random_runs) {
    std::mt19937 random(1);
    for (const std::uint32_t sectors : {1u, 2u, 8u}) {
        opened_volume volume(patterned_image(sectors));
        expect_same_on_random_items(volume.ntfs(), random, 60);
    }
}

TEST(pump_beside_the_plain_one, gives_the_same_on_an_image_cut_short) {
    std::mt19937 random(2);
    for (int cut = 0; cut < 12; ++cut) {
        bytes image = patterned_image(1);
        image.resize(20 * 1024 + random() % (image.size() - 20 * 1024));
        opened_volume volume(image);
        expect_same_on_random_items(volume.ntfs(), random, 12);
    }
}

TEST(pump_beside_the_plain_one, gives_the_same_on_an_image_that_shrinks_while_it_is_read) {
    std::mt19937 random(3);
    for (int cut = 0; cut < 12; ++cut) {
        opened_volume volume(patterned_image(1));
        std::filesystem::resize_file(volume.path(), 20 * 1024 + random() % (50 * 1024));
        expect_same_on_random_items(volume.ntfs(), random, 12);
    }
}

// Index blocks are restored transfer by transfer of 16 clusters, also where the source has fewer.
TEST(pump_beside_the_plain_one,
     gives_the_same_index_blocks_on_clusters_whose_unit_is_longer_than_the_source) {
    std::mt19937 random(4);
    for (const std::uint32_t bytes_per_sector : {512u, 1023u, 1024u}) {
        const std::size_t size = std::size_t{255} * bytes_per_sector;
        volume_builder volume({.bytes_per_sector = bytes_per_sector,
                               .sectors_per_cluster = 255,
                               .mft_entries = 8,
                               .stride = bytes_per_sector});
        bytes content = random_bytes(4 * size, bytes_per_sector);
        for (std::size_t block = 0; block + 8 <= content.size(); block += 512) {
            content[block + 5] = 0;
            content[block + 6] = static_cast<std::uint8_t>(random() % 12);
            content[block + 7] = 0;
        }
        volume.write_clusters(4, content);
        bytes image = volume.image();
        for (int round = 0; round < 6; ++round) {
            attr_item item;
            item.type = attr_index_allocation;
            item.non_resident = true;
            std::uint64_t vcn = 0;
            for (auto i = 2 + random() % 6; i > 0; --i) {
                const bool sparse = random() % 3 == 0;
                const auto length = static_cast<std::uint32_t>(1 + random() % (sparse ? 9 : 4));
                item.runs.push_back(
                    {.lcn = sparse ? 0 : 3 + random() % 3, .vcn = vcn, .sparse = sparse, .length = length});
                vcn += length;
            }
            item.allocated = vcn * size;
            item.real = item.initialized = 1 + random() % item.allocated;
            opened_volume opened(image);
            ASSERT_LT(opened->source_size(), 16 * size);
            expect_same_as_slow(opened.ntfs(), item, {});
            expect_same_as_slow(opened.ntfs(), item, {.raw = true});
            expect_same_as_slow(opened.ntfs(), item, {.skip_sparse = true});
        }
    }
}

TEST(pump_in_many_runs, asks_for_no_memory_for_a_transfer) {
    opened_volume opened(patterned_image(1));
    const auto allocations_for = [&](std::uint64_t count) {
        attr_item item = stored_item({{45, 20}});
        item.runs.clear();
        for (std::uint64_t i = 0; i < count; ++i) {
            item.runs.push_back({.lcn = 45 + i % 7, .vcn = i, .sparse = i % 5 == 0, .length = 1});
        }
        item.real = item.initialized = item.allocated = count * 512 - 100;
        counting_buffer buffer;
        buffer.writes.reserve(1000);
        std::ostream out(&buffer);
        capturing_log log;
        pump_context context{.log = log};
        const std::size_t before = allocations_so_far();
        const bool ok = copy_to_stream(&opened.ntfs(), item, out, false, false, context);
        const std::size_t after = allocations_so_far();
        EXPECT_TRUE(ok);
        EXPECT_EQ(buffer.taken, count * 512 - 100);
        return after - before;
    };
    // A transfer has 512 clusters of 512 bytes.
    EXPECT_EQ(allocations_for(20 * 512), allocations_for(2 * 512));
}

TEST(pump_in_many_runs, copies_a_file_of_a_million_runs) {
    volume_builder volume({.sectors_per_cluster = 1, .mft_entries = 8, .total_clusters = 400});
    volume.write_clusters(200, pattern(200 * 512, 5));
    opened_volume opened(volume);
    attr_item item;
    item.type = attr_data;
    item.non_resident = true;
    for (std::uint64_t i = 0; i < 1000000; ++i) {
        item.runs.push_back({.lcn = 200 + i * 7 % 200, .vcn = i, .sparse = false, .length = 1});
    }
    item.real = item.initialized = item.allocated = 512 * std::uint64_t{1000000};
    counting_buffer buffer;
    std::ostream out(&buffer);
    capturing_log log;
    pump_context context{.log = log};
    EXPECT_TRUE(copy_to_stream(&opened.ntfs(), item, out, false, false, context));
    EXPECT_EQ(buffer.taken, 512000000u);
}

TEST(pump_memory, a_stream_for_which_there_is_no_memory_is_a_failed_copy) {
    std::size_t failed = 0;
    // Ends where so many pieces are not asked for.
    for (std::size_t count = 0;; ++count) {
        opened_volume opened(patterned_image());
        attr_item item = stored_item({{45, 2}, {60, 2}}, 4 * cluster);
        counting_buffer buffer;
        buffer.writes.reserve(10);
        std::ostream out(&buffer);
        pump_context context{.log = no_log()};
        const missing_memory memory(count);
        const bool ok = copy_to_stream(&opened.ntfs(), item, out, false, false, context);
        EXPECT_NE(ok, memory.was_missed()) << count;
        if (!memory.was_missed()) {
            EXPECT_EQ(buffer.taken, 4 * cluster);
            break;
        }
        EXPECT_EQ(buffer.taken, 0u) << count;
        ++failed;
    }
    EXPECT_GT(failed, 0u);
}

}  // namespace
}  // namespace quarry::test
