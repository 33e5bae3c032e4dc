#include "volume/record_read_ahead.h"

#include "support/opened_volume.h"

#include <numeric>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using numbers = std::vector<std::uint64_t>;

struct answer {
    bool result;
    std::uint64_t length;
    bytes record;
    [[nodiscard]] bool operator==(const answer&) const = default;
};

// Nothing of a failed read is of use, so that nothing of it is compared.
answer answer_of(bool result, std::uint64_t length, const bytes& record) {
    return result ? answer{true, length, record} : answer{false, 0, {}};
}

answer read_alone(CNtfs& ntfs, std::uint64_t entry, std::size_t room) {
    bytes record(room, 0xEE);
    std::uint64_t position = 0;
    std::uint64_t length = 0;
    const bool result = ntfs.read_record(entry, std::span(record), position, length);
    return answer_of(result, length, record);
}

void expect_same_as_alone(CNtfs& ntfs, const numbers& entries, std::size_t room = 1024) {
    record_read_ahead reader(ntfs.records());
    for (std::size_t i = 0; i < entries.size(); ++i) {
        bytes record(room, 0xEE);
        std::uint64_t length = 0;
        const bool result = reader.read(std::span(entries).subspan(i), record, length);
        EXPECT_EQ(answer_of(result, length, record), read_alone(ntfs, entries[i], room)) << entries[i];
    }
}

numbers all_entries(std::uint64_t count) {
    numbers entries(count);
    std::iota(entries.begin(), entries.end(), 0);
    return entries;
}

void add_files(volume_builder& volume, int count) {
    for (int i = 0; i < count; ++i) {
        volume.add_file("file " + std::to_string(i))
            .resident_data(pattern(400, static_cast<std::uint32_t>(i)));
    }
}

TEST(record_read_ahead, gives_the_records_of_single_reads) {
    volume_builder volume({.mft_entries = 900});
    add_files(volume, 800);
    opened_volume opened(volume);
    ASSERT_TRUE(read_alone(opened.ntfs(), 823, 1024).result);
    expect_same_as_alone(opened.ntfs(), all_entries(910));
}

TEST(record_read_ahead, makes_fewer_reads_than_there_are_records) {
    volume_builder volume({.mft_entries = 300});
    add_files(volume, 200);
    opened_volume opened(volume);
    const numbers entries = all_entries(224);
    record_read_ahead reader(opened->records());
    bytes record(1024);
    std::uint64_t length = 0;
    ASSERT_TRUE(reader.read(std::span(entries).subspan(24), record, length));
    // What was read together stays at hand when the source is gone.
    std::filesystem::resize_file(opened.path(), 0);
    EXPECT_TRUE(reader.read(std::span(entries).subspan(25), record, length));
    EXPECT_TRUE(reader.read(std::span(entries).subspan(223), record, length));
}

TEST(record_read_ahead, follows_the_fragments_of_the_mft) {
    volume_builder volume(
        {.mft_entries = 64, .mft_runs = runs({{40, 3}, {20, 2}, {60, 1}, {61, 2}, {10, 4}, {200, 4}})});
    add_files(volume, 30);
    opened_volume opened(volume);
    expect_same_as_alone(opened.ntfs(), all_entries(70));
    expect_same_as_alone(opened.ntfs(), {0, 11, 12, 13, 19, 20, 27, 28, 31, 32, 47, 48, 63});
}

TEST(record_read_ahead, keeps_records_apart_that_lie_over_each_other) {
    // Clusters of half a record, each a run of its own.
    run_list clusters;
    for (std::int64_t lcn = 64; lcn < 128; ++lcn) {
        clusters.push_back({lcn, 1});
    }
    volume_builder volume({.sectors_per_cluster = 1, .mft_entries = 32, .mft_runs = clusters});
    add_files(volume, 4);
    clusters[50].lcn = 64 + 49;
    volume.replace_record(0,
                          volume.new_record(0).add(attribute_builder::non_resident(0x80, clusters)).build());
    bytes image = volume.image();
    // The record of entry 25 over the second half of that of entry 24, where $MFT says it is.
    const auto from = image.begin() + static_cast<std::ptrdiff_t>(volume.record_position(25));
    std::copy_n(bytes(from, from + 1024).begin(), 1024, from - 512);
    opened_volume opened(image);
    ASSERT_EQ(opened->entry_position(25), opened->entry_position(24) + 512);
    ASSERT_TRUE(read_alone(opened.ntfs(), 24, 1024).result);
    ASSERT_TRUE(read_alone(opened.ntfs(), 25, 1024).result);
    expect_same_as_alone(opened.ntfs(), {24, 25, 26});
}

TEST(record_read_ahead, reads_each_record_on_its_own_where_the_source_ends) {
    volume_builder volume({.mft_entries = 64, .mft_runs = runs({{40, 16}})});
    add_files(volume, 36);
    const bytes image = volume.image();
    for (const std::size_t missing : {1u, 511u, 512u, 1023u, 1024u, 5000u, 30000u}) {
        bytes cut = image;
        cut.resize(volume.record_position(63) + 1024 - missing);
        opened_volume opened(cut);
        expect_same_as_alone(opened.ntfs(), all_entries(64));
    }
}

TEST(record_read_ahead, shows_the_damage_that_single_reads_show) {
    volume_builder volume({.mft_entries = 128, .mft_runs = runs({{40, 20}, {10, 12}})});
    add_files(volume, 90);
    const bytes image = volume.image();
    std::mt19937 random(11);
    opened_volume opened(volume);
    for (int round = 0; round < 40; ++round) {
        bytes damaged = image;
        for (int i = 0; i < 60; ++i) {
            const std::uint64_t entry = 24 + random() % 100;
            damaged[volume.record_position(entry) + random() % 64] = static_cast<std::uint8_t>(random());
        }
        if (round % 3 == 0) {
            damaged.resize(volume.record_position(24 + random() % 50));
        }
        write_file(opened.path(), damaged);
        numbers entries;
        for (std::uint64_t entry = 0; entry < 130; entry += 1 + random() % 4) {
            entries.push_back(entry);
        }
        expect_same_as_alone(opened.ntfs(), entries);
    }
}

TEST(record_read_ahead, takes_entry_0_from_where_the_boot_sector_says) {
    volume_builder volume;
    add_files(volume, 4);
    // Six clusters further than the boot sector says: where entry 24 is.
    volume.replace_record(
        0, volume.new_record(0).add(attribute_builder::non_resident(0x80, runs({{10, 16}}))).build());
    opened_volume opened(volume);
    ASSERT_NE(opened->entry_position(0), static_cast<std::uint64_t>(opened->m_mft_file_pos));
    ASSERT_TRUE(read_alone(opened.ntfs(), 0, 1024).result);
    expect_same_as_alone(opened.ntfs(), {0, 1, 2});
}

TEST(record_read_ahead, refuses_a_buffer_that_is_too_short) {
    volume_builder volume;
    add_files(volume, 4);
    opened_volume opened(volume);
    expect_same_as_alone(opened.ntfs(), all_entries(28), 1023);
    expect_same_as_alone(opened.ntfs(), all_entries(28), 2048);
    EXPECT_FALSE(read_alone(opened.ntfs(), 24, 1023).result);
}

TEST(record_read_ahead, of_numbers_beyond_the_mft_fails) {
    volume_builder volume;
    add_files(volume, 4);
    opened_volume opened(volume);
    expect_same_as_alone(opened.ntfs(), {24, 25, 1000000, 0x7FFFFFFFFFFF, 0xFFFFFFFFFFFFFFFF});
}

TEST(record_read_ahead, of_a_volume_inside_of_a_larger_source_reads_at_its_place) {
    volume_builder volume;
    add_files(volume, 4);
    temp_dir dir;
    write_file(dir / "disk", volume.image_at(1 << 20));
    std::unique_ptr<CNtfs> ntfs;
    ASSERT_TRUE(open_by_image((dir / "disk").wstring(), 1 << 20, ntfs, false, nullptr));
    ASSERT_TRUE(read_alone(*ntfs, 24, 1024).result);
    expect_same_as_alone(*ntfs, all_entries(30));
}

}  // namespace
}  // namespace quarry::test
