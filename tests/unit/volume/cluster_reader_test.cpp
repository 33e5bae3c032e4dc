#include "volume/cluster_reader.h"

#include "support/opened_volume.h"
#include "support/reading_calls.h"
#include "volume/ntfs.h"

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

constexpr std::size_t cluster = 4096;

// A volume of 64 clusters whose clusters from 40 on hold a pattern up to the end of the image.
bytes patterned_image() {
    volume_builder builder({.total_clusters = 64});
    builder.write_clusters(40, pattern(24 * cluster));
    return builder.image();
}

bytes part(const bytes& whole, std::size_t from, std::size_t size) {
    return {whole.begin() + static_cast<std::ptrdiff_t>(from),
            whole.begin() + static_cast<std::ptrdiff_t>(from + size)};
}

TEST(read_at, bytes_come_from_after_the_start_of_the_volume) {
    const temp_dir dir;
    write_file(dir / "source", to_bytes("0123456789"));
    RAW_DISK_IO disk((dir / "source").wstring(), false, 0);
    bytes buffer(4);
    std::uint64_t length = 4;
    EXPECT_TRUE(read_at(&disk, 2, 3, buffer.data(), length));
    EXPECT_EQ(buffer, to_bytes("5678"));
    EXPECT_EQ(length, 4u);
}

TEST(read_at, a_read_across_the_end_reports_its_length_and_the_rest_is_zeros) {
    const temp_dir dir;
    write_file(dir / "source", to_bytes("0123456789"));
    RAW_DISK_IO disk((dir / "source").wstring(), false, 0);
    bytes buffer(4, 0xEE);
    std::uint64_t length = 4;
    EXPECT_TRUE(read_at(&disk, 8, 0, buffer.data(), length));
    EXPECT_EQ(length, 2u);
    EXPECT_EQ(buffer, from_hex("38 39 00 00"));
}

TEST(read_at, a_null_disk_a_null_buffer_and_a_zero_length_are_refused) {
    const temp_dir dir;
    write_file(dir / "source", to_bytes("0123456789"));
    RAW_DISK_IO disk((dir / "source").wstring(), false, 0);
    bytes buffer(4);
    std::uint64_t length = 4;
    EXPECT_FALSE(read_at(nullptr, 0, 0, buffer.data(), length));
    EXPECT_FALSE(read_at(&disk, 0, 0, nullptr, length));
    EXPECT_FALSE(read_at(&disk, 10, 0, buffer.data(), length)) << "the end";
    length = 0;
    EXPECT_FALSE(read_at(&disk, 0, 0, buffer.data(), length));
}

TEST(read_at, a_position_that_63_bits_cannot_hold_is_refused) {
    const temp_dir dir;
    write_file(dir / "source", to_bytes("0123456789"));
    RAW_DISK_IO disk((dir / "source").wstring(), false, 0);
    constexpr std::uint64_t all_ones = ~std::uint64_t{0};
    bytes buffer(4);
    for (const auto& [position, offset] : {std::pair(all_ones, std::uint64_t{1}),
                                           {all_ones / 2 + 1, 0},
                                           {all_ones / 2, 1},
                                           {0, all_ones},
                                           {all_ones - 5, 8}}) {
        std::uint64_t length = 4;
        EXPECT_FALSE(read_at(&disk, position, offset, buffer.data(), length))
            << "a wrap would be on the source";
    }
}

TEST(read_clusters, one_or_many_clusters_are_read_by_their_lcn) {
    const bytes image = patterned_image();
    opened_volume volume(image);
    for (const std::size_t count : {1u, 2u, 24u}) {
        bytes buffer(count * cluster);
        std::uint64_t length = buffer.size();
        EXPECT_TRUE(volume->read_clusters(40, buffer.data(), length));
        EXPECT_EQ(length, buffer.size());
        EXPECT_EQ(buffer, part(image, 40 * cluster, count * cluster));
    }
}

TEST(read_clusters, the_volumes_own_offset_counts) {
    volume_builder builder;
    builder.write_clusters(40, pattern(cluster));
    const temp_dir dir;
    write_file(dir / "image", builder.image_at(1000));
    std::unique_ptr<CNtfs> volume;
    ASSERT_TRUE(open_by_image((dir / "image").wstring(), 1000, volume, false, nullptr));
    bytes buffer(cluster);
    std::uint64_t length = cluster;
    EXPECT_TRUE(volume->read_clusters(40, buffer.data(), length));
    EXPECT_EQ(buffer, pattern(cluster));
}

TEST(read_clusters, a_length_that_is_no_multiple_of_the_cluster_fails) {
    opened_volume volume(patterned_image());
    bytes buffer(2 * cluster);
    for (const std::uint64_t wanted : {0u, 1u, 512u, 4095u, 4097u, 8191u}) {
        std::uint64_t length = wanted;
        EXPECT_FALSE(volume->read_clusters(40, buffer.data(), length)) << wanted;
    }
}

TEST(read_clusters, beyond_the_source_nothing_is_read_and_across_its_end_the_rest_is_zeros) {
    bytes image = patterned_image();
    image.resize(63 * cluster + 100);
    opened_volume volume(image);
    bytes buffer(2 * cluster, 0xEE);
    std::uint64_t length = buffer.size();
    EXPECT_TRUE(volume->read_clusters(62, buffer.data(), length));
    EXPECT_EQ(length, cluster + 100);
    bytes expected = part(image, 62 * cluster, cluster + 100);
    expected.resize(2 * cluster);
    EXPECT_EQ(buffer, expected);
    length = cluster;
    EXPECT_FALSE(volume->read_clusters(64, buffer.data(), length));
}

TEST(read_clusters, an_lcn_whose_position_63_bits_cannot_hold_is_a_failed_read) {
    opened_volume volume(patterned_image());
    bytes buffer(cluster);
    for (const std::uint64_t lcn :
         {std::uint64_t{1} << 51, std::uint64_t{1} << 52, (std::uint64_t{1} << 52) + 40,
          std::uint64_t{1} << 60, ~std::uint64_t{0}}) {
        std::uint64_t length = cluster;
        EXPECT_FALSE(volume->read_clusters(lcn, buffer.data(), length)) << lcn;
        EXPECT_EQ(volume->clusters().cluster_position(lcn), std::nullopt);
    }
    EXPECT_EQ(volume->clusters().cluster_position(40), 40u * cluster);
    EXPECT_EQ(volume->clusters().cluster_position((std::uint64_t{1} << 51) - 1),
              (std::uint64_t{1} << 63) - cluster);
}

TEST(read_clusters, an_object_that_is_not_valid_reads_nothing) {
    CNtfs volume;
    bytes buffer(cluster);
    std::uint64_t length = cluster;
    std::uint64_t position = 0;
    EXPECT_FALSE(volume.read_clusters(0, buffer.data(), length));
    EXPECT_FALSE(volume.read_cluster_alloc(0, buffer, length, position));
    EXPECT_EQ(volume.clusters().read_leading_clusters(0, 1, buffer.data()), 0u);
    EXPECT_FALSE(volume.clusters().read_all_clusters({{0, 0, false, 1}}, buffer));
    EXPECT_TRUE(buffer.empty());
}

TEST(read_cluster_alloc, at_least_one_cluster_is_read) {
    const bytes image = patterned_image();
    opened_volume volume(image);
    for (const std::uint64_t wanted : {0u, 1u, 4096u}) {
        bytes buffer;
        std::uint64_t length = wanted;
        std::uint64_t position = 0;
        EXPECT_TRUE(volume->read_cluster_alloc(41, buffer, length, position));
        EXPECT_EQ(position, 41u * cluster);
        EXPECT_EQ(length, cluster);
        EXPECT_EQ(buffer, part(image, 41 * cluster, cluster));
    }
    bytes buffer;
    std::uint64_t length = 5000;
    std::uint64_t position = 0;
    EXPECT_TRUE(volume->read_cluster_alloc(41, buffer, length, position));
    EXPECT_EQ(buffer, part(image, 41 * cluster, 5000)) << "more need not be whole clusters";
}

TEST(read_cluster_alloc, a_failed_read_reports_its_position_and_leaves_zeros) {
    opened_volume volume(patterned_image());
    bytes buffer;
    std::uint64_t length = 0;
    std::uint64_t position = 0;
    EXPECT_FALSE(volume->read_cluster_alloc(64, buffer, length, position));
    EXPECT_EQ(position, 64u * cluster);
    EXPECT_EQ(buffer, bytes(cluster));
    EXPECT_FALSE(volume->read_cluster_alloc(~std::uint64_t{0}, buffer, length, position));
}

TEST(read_cluster_alloc, a_length_beyond_the_source_costs_nothing_and_fails) {
    opened_volume volume(patterned_image());
    for (const std::uint64_t wanted : {std::uint64_t{1} << 20, std::uint64_t{1} << 40, ~std::uint64_t{0}}) {
        bytes buffer;
        std::uint64_t length = wanted;
        std::uint64_t position = 0;
        EXPECT_FALSE(volume->read_cluster_alloc(40, buffer, length, position));
        EXPECT_TRUE(buffer.empty());
    }
}

// The clusters before the first that cannot be read.
std::pair<std::uint64_t, bytes> leading(opened_volume& volume, std::uint64_t lcn, std::size_t count) {
    bytes buffer(count * cluster, 0xEE);
    const std::uint64_t read = volume->clusters().read_leading_clusters(lcn, count, buffer.data());
    buffer.resize(read * cluster);
    return {read, buffer};
}

TEST(read_leading_clusters, neighbours_are_read_together) {
    const bytes image = patterned_image();
    opened_volume volume(image);
    EXPECT_EQ(leading(volume, 40, 24), std::pair(std::uint64_t{24}, part(image, 40 * cluster, 24 * cluster)));
    EXPECT_EQ(leading(volume, 40, 1), std::pair(std::uint64_t{1}, part(image, 40 * cluster, cluster)));
    EXPECT_EQ(leading(volume, 40, 0).first, 0u);
}

TEST(read_leading_clusters, the_first_cluster_that_cannot_be_read_ends_it) {
    bytes image = patterned_image();
    image.resize(62 * cluster);
    opened_volume volume(image);
    for (std::size_t count = 2; count < 40; ++count) {
        EXPECT_EQ(leading(volume, 60, count),
                  std::pair(std::uint64_t{2}, part(image, 60 * cluster, 2 * cluster)));
        EXPECT_EQ(leading(volume, 41, count + 20),
                  std::pair(std::uint64_t{21}, part(image, 41 * cluster, 21 * cluster)));
    }
    EXPECT_EQ(leading(volume, 62, 8), std::pair(std::uint64_t{0}, bytes()));
    EXPECT_EQ(leading(volume, ~std::uint64_t{0} - 1, 8), std::pair(std::uint64_t{0}, bytes()));
}

TEST(read_leading_clusters, the_place_where_the_source_ends_costs_few_reads_however_small_clusters_are) {
    volume_builder built({.bytes_per_sector = 16, .sectors_per_cluster = 1, .stride = 4096});
    built.force_boot(64, 1, 0xF6);
    opened_volume volume(built);
    const bytes image = read_file(volume.path());
    ASSERT_EQ(image.size() % 16, 0u);
    ASSERT_GT(image.size(), 70000u);
    bytes buffer(4 << 20);
    const std::uint64_t before = reading_calls();
    EXPECT_EQ(
        volume->clusters().read_leading_clusters(image.size() / 16 - 4000, buffer.size() / 16, buffer.data()),
        4000u);
    const std::uint64_t calls = reading_calls() - before;
    EXPECT_TRUE(std::equal(image.end() - 64000, image.end(), buffer.begin()));
    if (before != 0) {
        EXPECT_LT(calls, 60u);
    }
}

TEST(read_leading_clusters, a_cluster_that_the_source_cuts_counts_as_read) {
    bytes image = patterned_image();
    image.resize(61 * cluster + 10);
    opened_volume volume(image);
    bytes expected = part(image, 60 * cluster, cluster + 10);
    expected.resize(2 * cluster);
    EXPECT_EQ(leading(volume, 60, 4), std::pair(std::uint64_t{2}, expected));
}

TEST(read_leading_clusters, a_file_that_has_shrunk_gives_what_single_reads_give) {
    const bytes image = patterned_image();
    opened_volume volume(image);
    std::filesystem::resize_file(volume.path(), 42 * cluster);
    // Behind the end of the file the source still claims bytes, which read as zeros.
    bytes expected = part(image, 40 * cluster, 2 * cluster);
    expected.resize(4 * cluster);
    EXPECT_EQ(leading(volume, 40, 4), std::pair(std::uint64_t{4}, expected));
}

TEST(read_leading_clusters, more_than_one_read_may_hold_are_read_one_read_after_the_other) {
    // 2500 clusters are 9.8 MiB; the image ends 100 bytes into the last of 2400.
    const temp_dir dir;
    bytes image = patterned_image();
    const bytes content = pattern(2400 * cluster);
    image.insert(image.end(), content.begin(), content.end());
    image.resize(image.size() - cluster + 100);
    opened_volume volume(image);
    bytes expected = content;
    std::fill(expected.begin() + 2399 * cluster + 100, expected.end(), std::uint8_t{0});
    const auto [read, buffer] = leading(volume, 64, 2500);
    EXPECT_EQ(read, 2400u);
    EXPECT_TRUE(buffer == expected);
}

TEST(read_all_clusters, the_runs_follow_one_another) {
    const bytes image = patterned_image();
    opened_volume volume(image);
    bytes out(3, 0xEE);
    EXPECT_TRUE(volume->clusters().read_all_clusters({{50, 0, false, 2}, {40, 2, false, 1}}, out));
    bytes expected = part(image, 50 * cluster, 2 * cluster);
    const bytes second = part(image, 40 * cluster, cluster);
    expected.insert(expected.end(), second.begin(), second.end());
    EXPECT_EQ(out, expected);
}

TEST(read_all_clusters, no_runs_give_nothing_and_nothing_is_missing) {
    opened_volume volume(patterned_image());
    bytes out(3);
    EXPECT_TRUE(volume->clusters().read_all_clusters({}, out));
    EXPECT_TRUE(out.empty());
    EXPECT_TRUE(volume->clusters().read_all_clusters({{40, 0, false, 0}}, out));
    EXPECT_TRUE(out.empty());
}

TEST(read_all_clusters, a_failed_cluster_ends_its_run_and_the_next_run_goes_on_at_the_same_place) {
    const bytes image = patterned_image();
    opened_volume volume(image);
    bytes out;
    // Of the first run clusters 62 and 63 exist.
    EXPECT_FALSE(volume->clusters().read_all_clusters({{62, 0, false, 5}, {40, 5, false, 1}}, out));
    bytes expected = part(image, 62 * cluster, 2 * cluster);
    const bytes second = part(image, 40 * cluster, cluster);
    expected.insert(expected.end(), second.begin(), second.end());
    expected.resize(6 * cluster);
    EXPECT_EQ(out, expected) << "zeros make up the rest";
}

TEST(read_all_clusters, a_sparse_run_is_read_from_the_start_of_the_volume) {
    const bytes image = patterned_image();
    opened_volume volume(image);
    bytes out;
    EXPECT_TRUE(volume->clusters().read_all_clusters({{40, 0, false, 1}, {0, 1, true, 2}}, out));
    EXPECT_EQ(part(out, cluster, 2 * cluster), part(image, 0, 2 * cluster));
}

TEST(read_all_clusters, the_buffer_is_no_larger_than_the_source) {
    bytes image = patterned_image();
    image.resize(image.size() - 5);
    opened_volume volume(image);
    bytes out;
    EXPECT_FALSE(
        volume->clusters().read_all_clusters({{0, 0, true, 0xFFFFFFFF}, {0, 0, true, 0xFFFFFFFF}}, out));
    ASSERT_EQ(out.size(), 64 * cluster) << "rounded up to a cluster";
    out.resize(image.size());
    EXPECT_EQ(out, image);
    EXPECT_TRUE(volume->clusters().read_all_clusters({{0, 0, false, 64}}, out));
    EXPECT_FALSE(volume->clusters().read_all_clusters({{0, 0, false, 65}}, out));
}

TEST(read_all_clusters, no_attribute_list_is_longer_than_2_mebibytes) {
    const temp_dir dir;
    write_file(dir / "image", volume_builder().image());
    std::filesystem::resize_file(dir / "image", std::uintmax_t{1} << 36);
    std::unique_ptr<CNtfs> volume;
    ASSERT_TRUE(open_by_image((dir / "image").wstring(), 0, volume, false, nullptr));
    bytes out;
    EXPECT_FALSE(volume->clusters().read_all_clusters({{0, 0, true, 0xFFFFFFFF}}, out));
    EXPECT_EQ(out.size(), 2u * 1024 * 1024);
}

}  // namespace
}  // namespace quarry::test
