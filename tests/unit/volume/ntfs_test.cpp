#include "volume/ntfs.h"

#include "support/opened_volume.h"
#include "support/reading_calls.h"

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

TEST(entry_position, an_entry_is_found_through_the_runs_of_mft) {
    volume_builder builder({.mft_runs = {{4, 4}, {100, 4}, {50, 8}}});
    opened_volume volume(builder);
    for (const std::uint64_t entry : {0u, 1u, 15u, 16u, 31u, 32u, 63u}) {
        EXPECT_EQ(volume->entry_position(entry), builder.record_position(entry)) << entry;
    }
    std::uint64_t lcn = 0;
    std::uint32_t offset = 0;
    EXPECT_TRUE(volume->get_lcn_for_inode(17, lcn, offset));
    EXPECT_EQ(lcn, 100u);
    EXPECT_EQ(offset, 1024u);
}

TEST(entry_position, an_entry_beyond_the_last_run_is_not_found) {
    opened_volume volume{volume_builder()};
    for (const std::uint64_t entry : {std::uint64_t{64}, std::uint64_t{1} << 47, std::uint64_t{1} << 54,
                                      std::uint64_t{1} << 60, ~std::uint64_t{0}}) {
        std::uint64_t lcn = 77;
        std::uint32_t offset = 77;
        EXPECT_FALSE(volume->get_lcn_for_inode(entry, lcn, offset)) << entry;
        EXPECT_EQ(lcn, 0u);
        EXPECT_EQ(offset, 0u);
        EXPECT_EQ(volume->entry_position(entry), 0u);
    }
}

TEST(entry_position, a_record_larger_than_a_cluster_begins_in_its_own) {
    volume_builder builder({.sectors_per_cluster = 1, .mft_runs = {{40, 3}, {90, 125}}});
    opened_volume volume(builder);
    // Record 1 has the clusters 2 and 3 of $MFT, the second of which is elsewhere.
    EXPECT_EQ(volume->entry_position(1), 42u * 512);
    EXPECT_EQ(volume->entry_position(2), 91u * 512);
}

// A volume whose $MFT has these runs for the entries behind the first 16.
std::uint64_t position_of_entry_16(const char* pairs) {
    volume_builder builder;
    record_builder mft = builder.new_record(0);
    bytes all = from_hex("11 04 04");
    const bytes more = from_hex(pairs);
    all.insert(all.end(), more.begin(), more.end());
    mft.add(attribute_builder::with_pairs(0x80, all).real(65536));
    builder.replace_record(0, mft.build());
    opened_volume volume(builder);
    return volume->entry_position(16);
}

TEST(entry_position, a_sparse_run_holds_no_entry_but_counts) {
    EXPECT_EQ(position_of_entry_16("11 04 04 00"), 8u * cluster);
    EXPECT_EQ(position_of_entry_16("01 04 11 04 04 00"), 0u);
    EXPECT_EQ(position_of_entry_16("01 04 01 04 00"), 0u);
}

TEST(entry_position, the_first_entry_in_a_sparse_run_has_no_lcn) {
    volume_builder builder;
    builder.replace_record(0, builder.new_record(0)
                                  .add(attribute_builder::with_pairs(0x80, from_hex("11 04 04 01 04 00")))
                                  .build());
    opened_volume volume(builder);
    for (const std::uint64_t entry : {16u, 20u}) {
        std::uint64_t lcn = 77;
        std::uint32_t offset = 77;
        EXPECT_FALSE(volume->get_lcn_for_inode(entry, lcn, offset));
        EXPECT_EQ(lcn, 0u);
    }
}

TEST(entry_position, an_empty_run_holds_no_entry) {
    EXPECT_EQ(position_of_entry_16("11 00 04 11 04 04 00"), 12u * cluster);
}

TEST(entry_position, an_lcn_that_no_position_can_hold_is_not_found) {
    EXPECT_EQ(position_of_entry_16("81 04 00 00 00 00 00 00 08 00 00"), 0u) << "2^51 clusters of 2^12 bytes";
    EXPECT_EQ(position_of_entry_16("81 04 00 00 00 00 00 00 10 00 00"), 0u)
        << "2^64 bytes would be byte 0 again";
    EXPECT_EQ(position_of_entry_16("81 04 FB FF FF FF FF FF FF FF 00"), 0u) << "an LCN of -1";
}

TEST(entry_position, an_lcn_that_wraps_inside_of_a_run_is_not_found) {
    volume_builder builder;
    // Four clusters at 4, then 16 from LCN -2 on, the third of which would be cluster 0.
    builder.replace_record(0, builder.new_record(0)
                                  .add(attribute_builder::with_pairs(0x80, from_hex("11 04 04 11 10 FA 00")))
                                  .build());
    opened_volume volume(builder);
    for (const std::uint64_t entry : {16u, 20u, 24u, 28u, 32u}) {
        std::uint64_t lcn = 77;
        std::uint32_t offset = 77;
        EXPECT_EQ(volume->get_lcn_for_inode(entry, lcn, offset), entry < 24) << entry;
        EXPECT_EQ(volume->entry_position(entry), 0u) << entry;
    }
}

TEST(entry_position, an_object_that_is_not_valid_knows_no_entry) {
    CNtfs volume;
    EXPECT_EQ(volume.entry_position(0), 0u);
    std::uint64_t lcn = 1;
    std::uint32_t offset = 1;
    EXPECT_FALSE(volume.get_lcn_for_inode(0, lcn, offset));
    opened_volume opened{volume_builder()};
    ASSERT_NE(opened->entry_position(5), 0u);
    opened->m_Validated = false;
    EXPECT_EQ(opened->entry_position(5), 0u) << "whatever it holds";
    EXPECT_EQ(opened->get_num_entries(), 0u);
}

TEST(index_blocks, blocks_and_clusters_fit_into_each_other) {
    struct row {
        std::int32_t cluster_size;
        std::uint32_t clusters_per_block;
        std::uint32_t blocks_per_cluster;
    };
    for (const row& each : {row{512, 8, 0},
                            {1024, 4, 0},
                            {2048, 2, 0},
                            {4096, 1, 1},
                            {4095, 1, 0},
                            {8192, 1, 2},
                            {65536, 1, 16},
                            {16711425, 1, 4079},
                            {3, 1365, 0},
                            {0, 1, 0}}) {
        CNtfs volume;
        volume.m_cluster_size = each.cluster_size;
        EXPECT_EQ(volume.clusters_per_block(), each.clusters_per_block) << each.cluster_size;
        EXPECT_EQ(volume.blocks_per_cluster(), each.blocks_per_cluster) << each.cluster_size;
    }
}

TEST(source, a_disk_that_cannot_be_used_is_none) {
    opened_volume volume{volume_builder()};
    ASSERT_NE(volume->get_disk(), nullptr);
    volume->m_disk->m_ok = false;
    EXPECT_EQ(volume->get_disk(), nullptr);
    EXPECT_EQ(volume->source_size(), 0u);
    EXPECT_TRUE(volume->is_valid()) << "what was learned stays";
    bytes buffer(cluster);
    std::uint64_t length = cluster;
    std::uint64_t position = 0;
    EXPECT_FALSE(volume->read_clusters(4, buffer.data(), length));
    EXPECT_FALSE(volume->read_cluster_alloc(4, buffer, length, position));
    EXPECT_FALSE(volume->read_record(5, buffer, position, length));
    EXPECT_FALSE(volume->read_record(0, buffer, position, length));
    volume->m_disk->set_origin(0, 512, 0);
    EXPECT_EQ(volume->disk_origin(), 0u);
    volume->m_disk->m_ok = true;
    EXPECT_EQ(volume->disk_origin(), 512u);
}

struct record_read {
    bool result = false;
    bytes record;
    std::uint64_t position = 77;
    std::uint64_t length = 77;
};

record_read raw(CNtfs& volume, std::uint64_t entry) {
    record_read read;
    read.result = volume.read_record_raw(entry, read.record, read.position, read.length);
    return read;
}

record_read restored(CNtfs& volume, std::uint64_t entry) {
    record_read read;
    read.result = volume.read_record(entry, read.record, read.position, read.length);
    return read;
}

record_read in_place(CNtfs& volume, std::uint64_t entry, std::size_t room) {
    record_read read;
    read.record.assign(room, 0xEE);
    read.result = volume.read_record(entry, std::span(read.record), read.position, read.length);
    return read;
}

TEST(read_record, the_raw_form_gives_the_bytes_as_they_stand_on_disk) {
    volume_builder builder;
    builder.add_file("a").data("content");
    opened_volume volume(builder);
    const record_read read = raw(volume.ntfs(), 24);
    EXPECT_TRUE(read.result);
    EXPECT_EQ(read.record, builder.record_on_disk(24));
    EXPECT_EQ(read.position, 16384u + 24 * 1024);
    EXPECT_EQ(read.length, 1024u);
}

TEST(read_record, the_sector_ends_are_put_back) {
    volume_builder builder;
    builder.add_file("a").resident_data(pattern(700));
    opened_volume volume(builder);
    bytes expected = builder.record_on_disk(24);
    // The saved words stand at 0x32 and 0x34.
    apply(expected, {{510, 2, byte_view(expected).u16_or_zero(0x32)},
                     {1022, 2, byte_view(expected).u16_or_zero(0x34)}});
    ASSERT_NE(expected, builder.record_on_disk(24));
    EXPECT_EQ(restored(volume.ntfs(), 24).record, expected);
    EXPECT_EQ(in_place(volume.ntfs(), 24, 1024).record, expected);
    bytes vector;
    std::uint64_t position = 0;
    record_kind kind = record_kind::unknown;
    EXPECT_TRUE(volume->read_record_checked(vector, position, kind, 24));
    EXPECT_EQ(kind, record_kind::file);
    EXPECT_EQ(vector, expected);
    EXPECT_EQ(position, 16384u + 24 * 1024);
    EXPECT_TRUE(volume->read_record_vector(vector, position, 24));
    EXPECT_EQ(vector, builder.record_on_disk(24));
}

TEST(read_record, a_count_of_9_in_1024_bytes_restores_two_words) {
    volume_builder builder;
    record_builder record = builder.new_record(24);
    record.update_sequence_count(9).first_attribute_offset(0x48);
    for (std::size_t word = 3; word < 9; ++word) {
        record.force(0x30 + 2 * word, 2, 0xBAD);
    }
    builder.replace_record(24, record.build());
    opened_volume volume(builder);
    const record_read read = restored(volume.ntfs(), 24);
    EXPECT_TRUE(read.result);
    EXPECT_EQ(byte_view(read.record).u16(510), 0);
    EXPECT_EQ(byte_view(read.record).u16(1022), 0);
}

TEST(read_record, with_sectors_larger_than_the_record_nothing_is_restored) {
    volume_builder builder({.bytes_per_sector = 4096, .sectors_per_cluster = 1, .record_size = 1024});
    builder.add_file("a");
    opened_volume volume(builder);
    EXPECT_EQ(restored(volume.ntfs(), 24).record, builder.record_on_disk(24));
    EXPECT_EQ(byte_view(builder.record_on_disk(24)).u16(6), 3);
    bytes vector;
    std::uint64_t position = 0;
    record_kind kind = record_kind::unknown;
    EXPECT_FALSE(volume->read_record_checked(vector, position, kind, 24))
        << "two sectors of 4096 bytes are more than this record has";
    EXPECT_EQ(kind, record_kind::file);
}

TEST(read_record, a_torn_record_is_read_like_any_other) {
    volume_builder builder;
    builder.add_file("a");
    builder.force_record(24, 510, 2, 0xDEAD);
    opened_volume volume(builder);
    const record_read read = restored(volume.ntfs(), 24);
    EXPECT_TRUE(read.result);
    EXPECT_EQ(byte_view(read.record).u16(510), 0);
}

TEST(read_record, counts_of_0_and_1_are_accepted_and_restore_nothing) {
    for (const std::uint64_t count : {0u, 1u}) {
        volume_builder builder;
        builder.add_file("a");
        builder.force_record(24, 6, 2, count);
        opened_volume volume(builder);
        const record_read read = restored(volume.ntfs(), 24);
        EXPECT_TRUE(read.result);
        EXPECT_EQ(read.record, builder.record_on_disk(24));
        record_kind kind = record_kind::unknown;
        bytes vector;
        std::uint64_t position = 0;
        EXPECT_TRUE(volume->read_record_checked(vector, position, kind, 24));
        EXPECT_EQ(vector, builder.record_on_disk(24));
    }
}

// What each reader makes of a record whose first bytes were changed.
struct verdict {
    bool read_record;
    bool read_in_place;
    bool read_checked;
    record_kind kind;
    bool operator==(const verdict&) const = default;
};

verdict verdict_on(const forced_number& change) {
    volume_builder builder;
    builder.add_file("a");
    builder.force_record(24, change.offset, change.width, change.value);
    opened_volume volume(builder);
    verdict result{};
    const record_read allocated = restored(volume.ntfs(), 24);
    result.read_record = allocated.result;
    EXPECT_EQ(allocated.record.empty(), !allocated.result);
    result.read_in_place = in_place(volume.ntfs(), 24, 1024).result;
    bytes vector;
    std::uint64_t position = 0;
    result.read_checked = volume->read_record_checked(vector, position, result.kind, 24);
    return result;
}

TEST(read_record, a_record_marked_baad_is_refused_but_told_by_the_checked_reader) {
    EXPECT_EQ(verdict_on({0, 4, 0x44414142}), (verdict{false, false, true, record_kind::baad}));
}

TEST(read_record, an_index_block_in_the_place_of_a_record_is_accepted) {
    EXPECT_EQ(verdict_on({0, 4, 0x58444E49}), (verdict{true, true, true, record_kind::indx}));
}

TEST(read_record, any_other_signature_is_refused) {
    EXPECT_EQ(verdict_on({0, 4, 0}), (verdict{false, false, false, record_kind::unknown}));
    EXPECT_EQ(verdict_on({0, 4, 0x454C4948}), (verdict{false, false, false, record_kind::unknown}));
}

TEST(read_record, a_file_record_that_fails_the_header_test_is_refused) {
    for (const forced_number& change : {forced_number{4, 2, 0x2A}, {6, 2, 10}, {20, 2, 0x49}}) {
        EXPECT_EQ(verdict_on(change), (verdict{false, false, false, record_kind::unknown})) << change.offset;
    }
}

TEST(read_record, a_record_of_512_bytes_is_read_but_the_checked_reader_refuses_it) {
    volume_builder builder({.record_size = 512});
    builder.replace_record(24, builder.new_record(24).add(attribute_builder::resident(0x80, {})).build());
    opened_volume volume(builder);
    ASSERT_EQ(volume->get_mft_record_size(), 512u);
    EXPECT_TRUE(restored(volume.ntfs(), 24).result);
    EXPECT_TRUE(in_place(volume.ntfs(), 24, 512).result);
    bytes vector;
    std::uint64_t position = 0;
    record_kind kind = record_kind::file;
    EXPECT_FALSE(volume->read_record_checked(vector, position, kind, 24));
    EXPECT_EQ(kind, record_kind::unknown);
    EXPECT_TRUE(volume->read_record_vector(vector, position, 24));
}

TEST(read_record, a_slot_that_was_never_used_is_refused) {
    opened_volume volume{volume_builder()};
    const record_read read = restored(volume.ntfs(), 24);
    EXPECT_FALSE(read.result);
    EXPECT_TRUE(read.record.empty());
    EXPECT_TRUE(raw(volume.ntfs(), 24).result) << "its bytes can be read";
}

TEST(read_record, an_index_block_whose_array_lies_anywhere_is_survived) {
    for (const std::uint64_t offset : {0u, 1020u, 1021u, 1023u, 1024u, 65535u}) {
        for (const std::uint64_t count : {0u, 1u, 2u, 3u, 4u, 65535u}) {
            volume_builder builder;
            builder.replace_record(24, byte_writer(1024).text(0, "INDX").u16(4, offset).u16(6, count).take());
            opened_volume volume(builder);
            EXPECT_TRUE(restored(volume.ntfs(), 24).result);
        }
    }
}

TEST(read_record, entry_0_is_read_from_where_the_boot_sector_says_though_there_are_no_runs) {
    volume_builder builder;
    builder.replace_record(0, builder.new_record(0).build());
    opened_volume volume(builder);
    ASSERT_EQ(volume->get_num_entries(), 0u);
    const record_read read = restored(volume.ntfs(), 0);
    EXPECT_TRUE(read.result);
    EXPECT_EQ(read.position, 16384u);
    bytes vector;
    std::uint64_t position = 0;
    record_kind kind = record_kind::unknown;
    EXPECT_TRUE(volume->read_record_checked(vector, position, kind, 0));
    EXPECT_EQ(position, 16384u);
}

TEST(read_record, only_entry_0_is_read_before_the_volume_is_valid) {
    volume_builder builder;
    builder.add_file("a");
    opened_volume volume(builder);
    volume->m_Validated = false;
    EXPECT_TRUE(restored(volume.ntfs(), 0).result);
    EXPECT_FALSE(raw(volume.ntfs(), 24).result);
    EXPECT_FALSE(restored(volume.ntfs(), 24).result);
    EXPECT_FALSE(in_place(volume.ntfs(), 24, 1024).result);
    bytes vector;
    std::uint64_t position = 0;
    record_kind kind = record_kind::file;
    EXPECT_FALSE(volume->read_record_vector(vector, position, 0))
        << "this form needs a valid volume for it as well";
    EXPECT_FALSE(volume->read_record_checked(vector, position, kind, 0));
    EXPECT_EQ(kind, record_kind::unknown);
}

TEST(read_record, an_entry_that_no_run_holds_is_refused) {
    opened_volume volume{volume_builder()};
    for (const std::uint64_t entry : {std::uint64_t{64}, std::uint64_t{1} << 47, ~std::uint64_t{0}}) {
        EXPECT_FALSE(restored(volume.ntfs(), entry).result);
        bytes vector;
        std::uint64_t position = 0;
        record_kind kind = record_kind::file;
        EXPECT_FALSE(volume->read_record_checked(vector, position, kind, entry));
        EXPECT_EQ(kind, record_kind::unknown);
        // An entry without a place reads from the start of the volume, where the boot sector is no record.
        const record_read nowhere = raw(volume.ntfs(), entry);
        EXPECT_TRUE(nowhere.result);
        EXPECT_EQ(nowhere.position, 0u);
        EXPECT_TRUE(byte_view(nowhere.record).text_at(3, "NTFS    "));
    }
}

TEST(read_record, the_callers_buffer_must_hold_the_whole_record) {
    volume_builder builder;
    builder.add_file("a");
    opened_volume volume(builder);
    for (const std::size_t room : {0u, 1u, 1023u}) {
        const record_read read = in_place(volume.ntfs(), 24, room);
        EXPECT_FALSE(read.result);
        EXPECT_EQ(read.length, 1024u) << "the room that is needed";
        EXPECT_EQ(read.record, bytes(room, 0xEE)) << "nothing was read";
    }
    const record_read larger = in_place(volume.ntfs(), 24, 1030);
    EXPECT_TRUE(larger.result);
    EXPECT_EQ(larger.length, 1024u);
    EXPECT_EQ(part(larger.record, 1024, 6), bytes(6, 0xEE));
}

TEST(read_record, a_record_length_of_any_size_is_refused_for_a_smaller_buffer_whatever_its_sign) {
    for (const std::uint64_t size : {1025u, 0x40000000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        volume_builder builder;
        builder.add_file("a");
        builder.force_record(0, 28, 4, size);
        opened_volume volume(builder);
        const record_read read = in_place(volume.ntfs(), 24, 1024);
        EXPECT_FALSE(read.result);
        EXPECT_EQ(read.record, bytes(1024, 0xEE)) << size;
    }
}

TEST(read_record, entry_0_has_the_boot_sectors_length_and_the_others_have_that_of_record_0) {
    volume_builder builder;
    builder.force_record(0, 28, 4, 512);
    opened_volume volume(builder);
    EXPECT_EQ(raw(volume.ntfs(), 0).length, 1024u);
    EXPECT_EQ(raw(volume.ntfs(), 2).length, 512u);
    bytes vector;
    std::uint64_t position = 0;
    EXPECT_TRUE(volume->read_record_vector(vector, position, 2));
    EXPECT_EQ(vector.size(), 1024u) << "this form takes the boot sector's for all";
}

TEST(read_record, records_that_overlap_are_read_at_their_step) {
    volume_builder builder;
    builder.force_record(0, 28, 4, 512);
    opened_volume volume(builder);
    EXPECT_EQ(raw(volume.ntfs(), 1).position, 16384u + 512);
    EXPECT_TRUE(restored(volume.ntfs(), 10).result) << "the root's record, 5 times 1024 bytes in";
    EXPECT_FALSE(restored(volume.ntfs(), 5).result);
}

TEST(read_record, a_step_that_no_attribute_fits_into_leaves_record_0_alone) {
    volume_builder builder;
    builder.force_record(0, 28, 4, 16);
    opened_volume volume(builder);
    EXPECT_TRUE(restored(volume.ntfs(), 0).result);
    EXPECT_FALSE(restored(volume.ntfs(), 5).result);
}

TEST(read_record, a_record_at_the_end_of_the_source_is_cut_and_the_rest_is_zeros) {
    volume_builder builder({.mft_runs = {{100, 16}}});
    builder.add_file_at(63, "last").resident_data(pattern(600));
    builder.force_record(63, 0x34, 2, 0x5A5A);  // the saved word of the second sector, whose end is not there
    bytes image = builder.image();
    image.resize(100 * 4096 + 63 * 1024 + 600);
    opened_volume volume(image);
    const record_read read = restored(volume.ntfs(), 63);
    EXPECT_TRUE(read.result);
    EXPECT_EQ(read.length, 600u);
    ASSERT_EQ(read.record.size(), 1024u);
    EXPECT_EQ(part(read.record, 600, 424), bytes(424));
    EXPECT_NE(byte_view(read.record).u16(510), 0x0101) << "the one sector end that was read is put back";
    bytes vector(5, 0xEE);
    std::uint64_t position = 0;
    EXPECT_TRUE(volume->read_record_vector(vector, position, 63));
    EXPECT_EQ(part(vector, 600, 424), bytes(424));
    const record_read kept = in_place(volume.ntfs(), 63, 1024);
    EXPECT_EQ(kept.length, 600u);
    EXPECT_EQ(kept.record, read.record);
}

TEST(read_record, a_record_that_begins_at_the_end_of_a_piece_of_mft_is_read_on_where_it_is) {
    // Clusters of 512 bytes: record 1 begins in the last cluster of the first piece.
    volume_builder builder({.sectors_per_cluster = 1, .mft_runs = {{40, 3}, {90, 125}}});
    builder.write_clusters(43, bytes(512, 0x43));
    opened_volume volume(builder);
    const record_read read = raw(volume.ntfs(), 1);
    EXPECT_TRUE(read.result);
    EXPECT_EQ(read.length, 1024u);
    EXPECT_EQ(part(read.record, 512, 512), bytes(512, 0x43))
        << "from the cluster behind it on disk, not from 90";
}

TEST(read_record, a_failed_read_is_told_by_every_reader) {
    volume_builder builder({.mft_runs = {{4, 8}, {1000, 8}}});
    bytes image = builder.image();
    image.resize(100 * 4096);
    opened_volume volume(image);
    EXPECT_FALSE(raw(volume.ntfs(), 40).result);
    EXPECT_TRUE(raw(volume.ntfs(), 40).record.empty());
    EXPECT_EQ(raw(volume.ntfs(), 40).position, 1000u * 4096 + 8 * 1024);
    EXPECT_FALSE(in_place(volume.ntfs(), 40, 1024).result);
    bytes vector;
    std::uint64_t position = 0;
    record_kind kind = record_kind::file;
    EXPECT_FALSE(volume->read_record_checked(vector, position, kind, 40));
    EXPECT_EQ(kind, record_kind::unknown);
}

}  // namespace
}  // namespace quarry::test
