#include "volume/stream_reader.h"

#include "support/opened_volume.h"
#include "support/reading_calls.h"
#include "support/requirements.h"
#include "support/slow_stream.h"
#include "unit/volume/allocation_counter.h"

#include <filesystem>
#include <random>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

constexpr std::uint64_t cluster = 4096;
constexpr std::uint64_t volume_clusters = 120;

// A volume whose clusters from 40 on hold a pattern by which each is known.
bytes patterned_image(std::uint32_t sectors_per_cluster = 8) {
    geometry shape;
    shape.sectors_per_cluster = sectors_per_cluster;
    shape.mft_entries = 8;
    shape.total_clusters = volume_clusters;
    volume_builder volume(shape);
    volume.write_clusters(40, pattern((volume_clusters - 40) * sectors_per_cluster * 512, 17));
    return volume.image();
}

class stream_reader_test : public ::testing::Test {
  protected:
    bytes m_image = patterned_image();
    opened_volume m_volume{m_image};

    [[nodiscard]] bytes clusters(std::uint64_t lcn, std::uint64_t count) const {
        const auto at = m_image.begin() + static_cast<std::ptrdiff_t>(lcn * cluster);
        return {at, at + static_cast<std::ptrdiff_t>(count * cluster)};
    }
};

cluster_run_list stream_of(const run_list& runs) {
    cluster_run_list out;
    std::uint64_t vcn = 0;
    for (const run& each : runs) {
        const bool sparse = each.lcn == hole;
        out.push_back({.lcn = sparse ? 0 : static_cast<std::uint64_t>(each.lcn),
                       .vcn = vcn,
                       .sparse = sparse,
                       .length = static_cast<std::uint32_t>(each.length)});
        vcn += each.length;
    }
    return out;
}

slow_read read(CNtfs& ntfs, const cluster_run_list& runs, std::uint64_t offset, std::uint64_t length,
               std::uint32_t flags = 0) {
    slow_read out;
    bytes buffer(length + 16, 0xEE);
    std::uint64_t delivered = length;
    out.flags = flags;
    out.ok = ntfs.read_stream_bytes(runs, offset, buffer.data(), delivered, out.flags);
    EXPECT_EQ(bytes(buffer.begin() + static_cast<std::ptrdiff_t>(length), buffer.end()), bytes(16, 0xEE));
    if (out.ok) {
        EXPECT_LE(delivered, length);
        out.delivered.assign(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(delivered));
    } else {
        EXPECT_EQ(delivered, length);
    }
    return out;
}

bytes part(const bytes& text, std::uint64_t from, std::uint64_t count) {
    const auto at = text.begin() + static_cast<std::ptrdiff_t>(from);
    return {at, at + static_cast<std::ptrdiff_t>(count)};
}

TEST_F(stream_reader_test, reads_whole_clusters_across_runs) {
    const slow_read got = read(m_volume.ntfs(), stream_of({{40, 3}, {90, 2}}), 0, 5 * cluster);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.delivered, concat({clusters(40, 3), clusters(90, 2)}));
}

TEST_F(stream_reader_test, cuts_the_first_and_the_last_cluster) {
    const bytes whole = concat({clusters(40, 3), clusters(90, 2)});
    for (const auto& [offset, length] : {std::pair{100u, 50u},
                                         {100u, 4096u},
                                         {4095u, 2u},
                                         {1u, 16000u},
                                         {8192u, 4096u},
                                         {0u, 1u},
                                         {20479u, 1u},
                                         {5u, 20475u}}) {
        const slow_read got = read(m_volume.ntfs(), stream_of({{40, 3}, {90, 2}}), offset, length);
        EXPECT_TRUE(got.ok);
        EXPECT_EQ(got.delivered, part(whole, offset, length)) << offset << " " << length;
    }
}

TEST_F(stream_reader_test, gives_zeros_for_holes_and_says_so) {
    const cluster_run_list runs = stream_of({{40, 1}, {hole, 2}, {41, 1}});
    const slow_read got = read(m_volume.ntfs(), runs, 0, 4 * cluster);
    EXPECT_EQ(got.delivered, concat({clusters(40, 1), bytes(2 * cluster, 0), clusters(41, 1)}));
    EXPECT_EQ(got.flags & stream_met_sparse, stream_met_sparse);
    EXPECT_EQ(read(m_volume.ntfs(), runs, 100, 300).flags & stream_met_sparse, 0u);
    EXPECT_EQ(read(m_volume.ntfs(), runs, cluster + 100, 300).delivered, bytes(300, 0));
    EXPECT_EQ(read(m_volume.ntfs(), runs, 3 * cluster, cluster).flags & stream_met_sparse, 0u);
    EXPECT_EQ(read(m_volume.ntfs(), runs, 0, cluster).flags & stream_met_sparse, 0u)
        << "the next cluster is not met";
    EXPECT_EQ(read(m_volume.ntfs(), runs, 0, cluster + 1).flags & stream_met_sparse, stream_met_sparse);
}

TEST_F(stream_reader_test, leaves_holes_out_when_asked_to) {
    const cluster_run_list runs = stream_of({{40, 1}, {hole, 2}, {41, 1}});
    const slow_read got = read(m_volume.ntfs(), runs, 0, 4 * cluster, stream_skip_sparse);
    EXPECT_EQ(got.delivered, concat({clusters(40, 1), clusters(41, 1)}));
    EXPECT_EQ(got.flags & stream_met_sparse, 0u);
}

TEST_F(stream_reader_test, takes_the_cut_of_an_end_away_with_a_hole_that_is_left_out) {
    // The range begins 100 bytes into the hole; the cluster after it comes from its start.
    const cluster_run_list begins = stream_of({{hole, 1}, {41, 2}});
    EXPECT_EQ(read(m_volume.ntfs(), begins, 100, 2 * cluster, stream_skip_sparse).delivered,
              concat({clusters(41, 1), part(clusters(42, 1), 0, 100)}));
    // It ends 100 bytes into the hole; the cluster ahead comes whole.
    const cluster_run_list ends = stream_of({{41, 2}, {hole, 1}});
    EXPECT_EQ(read(m_volume.ntfs(), ends, 0, 2 * cluster + 100, stream_skip_sparse).delivered,
              clusters(41, 2));
}

TEST_F(stream_reader_test, finds_nothing_in_a_hole_that_is_left_out) {
    EXPECT_FALSE(read(m_volume.ntfs(), stream_of({{hole, 4}}), 0, 2 * cluster, stream_skip_sparse).ok);
}

TEST_F(stream_reader_test, sets_the_flags_of_the_first_vcn) {
    const cluster_run_list runs{{.lcn = 40, .vcn = 0, .sparse = false, .length = 16},
                                {.lcn = 0, .vcn = 16, .sparse = true, .length = 200000}};
    const auto flags_at = [&](std::uint64_t vcn, std::uint64_t length) {
        return read(m_volume.ntfs(), runs, vcn * cluster, length).flags & ~stream_met_sparse;
    };
    EXPECT_EQ(flags_at(0, 16 * cluster), 0x38u);
    EXPECT_EQ(flags_at(0, 16 * cluster + 4095), 0x38u);
    EXPECT_EQ(flags_at(0, 16 * cluster - 1), 0x18u);
    EXPECT_EQ(flags_at(0, 17 * cluster), 0x18u);
    EXPECT_EQ(flags_at(0, 1), 0x18u);
}

// The flag is set at every 65,536th cluster only, not at each unit of 16.
TEST_F(stream_reader_test, sets_the_unit_flag_at_every_65536_th_cluster_only) {
    const cluster_run_list runs{{.lcn = 0, .vcn = 0, .sparse = true, .length = 200000}};
    const auto flags_at = [&](std::uint64_t vcn) {
        return read(m_volume.ntfs(), runs, vcn * cluster, 16 * cluster).flags & ~stream_met_sparse;
    };
    EXPECT_EQ(flags_at(16), 0x08u);
    EXPECT_EQ(flags_at(4096), 0x08u);
    EXPECT_EQ(flags_at(65535), 0x08u);
    EXPECT_EQ(flags_at(65536), 0x38u);
    EXPECT_EQ(flags_at(131072), 0x38u);
}

TEST_F(stream_reader_test, sets_the_flags_also_where_it_finds_nothing) {
    const slow_read got = read(m_volume.ntfs(), {}, 5 * cluster, 10, 0xFFFFFFFF);
    EXPECT_FALSE(got.ok);
    EXPECT_EQ(got.flags, 0x08u);
}

TEST_F(stream_reader_test, stops_at_a_vcn_without_a_run) {
    cluster_run_list runs = stream_of({{40, 2}, {42, 2}});
    runs[1].vcn = 3;
    const slow_read got = read(m_volume.ntfs(), runs, 0, 5 * cluster);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.delivered, clusters(40, 2));
    EXPECT_FALSE(read(m_volume.ntfs(), runs, 2 * cluster, cluster).ok);
    EXPECT_FALSE(read(m_volume.ntfs(), runs, 6 * cluster, cluster).ok);
}

// The cut of the range's end applies to the last cluster that was found; the next read gives the rest of it.
TEST_F(stream_reader_test, cuts_the_last_cluster_that_was_found_where_the_runs_end_early) {
    const cluster_run_list runs = stream_of({{40, 4}});
    const slow_read first = read(m_volume.ntfs(), runs, 0, 20000);
    EXPECT_EQ(first.delivered, part(clusters(40, 4), 0, 15904));
    const slow_read second = read(m_volume.ntfs(), runs, 15904, 4096);
    EXPECT_EQ(second.delivered, part(clusters(40, 4), 15904, 480));
    EXPECT_FALSE(read(m_volume.ntfs(), runs, 16384, 65536).ok);
}

TEST_F(stream_reader_test, ends_ahead_of_a_cluster_that_cannot_be_read) {
    // The run leaves the volume after its second cluster.
    const cluster_run_list runs = stream_of({{40, 2}, {volume_clusters - 2, 6}});
    const slow_read got = read(m_volume.ntfs(), runs, 0, 8 * cluster);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.delivered, concat({clusters(40, 2), clusters(volume_clusters - 2, 2)}));
    EXPECT_FALSE(read(m_volume.ntfs(), runs, 4 * cluster, 4 * cluster).ok);
    EXPECT_FALSE(read(m_volume.ntfs(), runs, 4 * cluster + 5, 10).ok);
}

TEST_F(stream_reader_test, leaves_zeros_after_what_it_delivered) {
    bytes buffer(8 * cluster, 0xEE);
    std::uint64_t length = buffer.size();
    std::uint32_t flags = 0;
    ASSERT_TRUE(
        m_volume->read_stream_bytes(stream_of({{volume_clusters - 2, 8}}), 0, buffer.data(), length, flags));
    EXPECT_EQ(length, 2 * cluster);
    EXPECT_EQ(part(buffer, 2 * cluster, 6 * cluster), bytes(6 * cluster, 0));
}

TEST_F(stream_reader_test, reads_nothing_for_a_length_of_zero) {
    EXPECT_FALSE(read(m_volume.ntfs(), stream_of({{40, 4}}), 0, 0).ok);
}

TEST_F(stream_reader_test, survives_offsets_at_the_end_of_64_bits) {
    const std::uint64_t highest = ~std::uint64_t{0};
    EXPECT_FALSE(read(m_volume.ntfs(), stream_of({{40, 4}}), highest, 1).ok);
    EXPECT_FALSE(read(m_volume.ntfs(), stream_of({{40, 4}}), highest - 5, 3).ok);
    const cluster_run_list far{{.lcn = 40, .vcn = highest / cluster, .sparse = false, .length = 4}};
    EXPECT_EQ(read(m_volume.ntfs(), far, highest / cluster * cluster, 10).delivered,
              part(clusters(40, 1), 0, 10));
    const cluster_run_list beyond{{.lcn = highest, .vcn = 0, .sparse = false, .length = 4}};
    EXPECT_FALSE(read(m_volume.ntfs(), beyond, 0, 3 * cluster).ok);
}

TEST_F(stream_reader_test, reads_nothing_of_a_volume_that_is_not_valid) {
    CNtfs cleared;
    EXPECT_FALSE(read(cleared, stream_of({{40, 4}}), 0, 100).ok);
}

TEST_F(stream_reader_test, range_read_refuses_no_buffer_no_length_and_no_runs) {
    bytes buffer(100);
    std::uint64_t length = 100;
    const cluster_run_list runs = stream_of({{40, 1}, {hole, 1}});
    EXPECT_FALSE(m_volume->read_stream_range(runs, 0, nullptr, length, false));
    EXPECT_FALSE(m_volume->read_stream_range({}, 0, buffer.data(), length, false));
    std::uint64_t none = 0;
    EXPECT_FALSE(m_volume->read_stream_range(runs, 0, buffer.data(), none, false));
    ASSERT_TRUE(m_volume->read_stream_range(runs, 0, buffer.data(), length, false));
    EXPECT_EQ(buffer, part(clusters(40, 1), 0, 100));
    EXPECT_TRUE(m_volume->read_stream_range(runs, cluster, buffer.data(), length, false));
    EXPECT_FALSE(m_volume->read_stream_range(runs, cluster, buffer.data(), length, true));
}

// Reads that the clusters of these runs cost.
std::uint64_t reads_for(CNtfs& ntfs, const cluster_run_list& runs, std::uint64_t count) {
    stream_reader reader(ntfs, runs);
    bytes buffer(count * cluster);
    std::uint64_t length = buffer.size();
    std::uint32_t flags = 0;
    const std::uint64_t before = reading_calls();
    const std::uint64_t asking = reading_calls() - before;
    EXPECT_TRUE(reader.read(0, buffer.data(), length, flags));
    EXPECT_EQ(length, buffer.size());
    return reading_calls() - before - 2 * asking;
}

TEST_F(stream_reader_test, reads_short_runs_close_after_each_other_together) {
    QUARRY_NEEDS(reading_calls() != 0, "the system does not count reads");
    CNtfs& ntfs = m_volume.ntfs();
    EXPECT_EQ(reads_for(ntfs, stream_of({{40, 1}, {42, 1}, {45, 2}, {49, 1}}), 5), 1u);
    EXPECT_EQ(reads_for(ntfs, stream_of({{40, 1}, {44, 1}}), 2), 2u) << "three clusters between them";
    EXPECT_EQ(reads_for(ntfs, stream_of({{42, 1}, {40, 1}}), 2), 2u) << "backwards";
    EXPECT_EQ(reads_for(ntfs, stream_of({{40, 3}, {44, 1}}), 4), 2u) << "three clusters are worth a read";
    EXPECT_EQ(reads_for(ntfs, stream_of({{40, 1}, {hole, 1}, {42, 1}}), 3), 2u);
}

// Runs anywhere within and past the volume, with holes; every third list goes up in small steps, every fourth
// has VCNs that overlap or leave gaps.
cluster_run_list random_runs(std::mt19937& random) {
    cluster_run_list runs;
    std::uint64_t vcn = 0;
    const bool odd = random() % 4 == 0;
    const bool close = random() % 3 == 0;
    std::uint64_t next_lcn = 40 + random() % 70;
    for (std::uint_fast32_t i = 1 + random() % (close ? 16 : 8); i > 0; --i) {
        const bool sparse = random() % (close ? 12 : 4) == 0;
        const auto length = static_cast<std::uint32_t>(close ? 1 + random() % 2 : random() % 9);
        const std::uint64_t anywhere =
            random() % 12 == 0 ? volume_clusters - 3 : random() % (volume_clusters + 1);
        next_lcn += random() % 4;
        const std::uint64_t lcn = close ? next_lcn : anywhere;
        next_lcn += length;
        runs.push_back({.lcn = sparse ? 0 : lcn, .vcn = vcn, .sparse = sparse, .length = length});
        vcn = odd && random() % 3 == 0 ? random() % 30 : vcn + length;
    }
    return runs;
}

void expect_same_as_slow(CNtfs& ntfs, std::mt19937& random, int rounds) {
    const auto size = static_cast<std::uint64_t>(ntfs.m_cluster_size);
    for (int round = 0; round < rounds; ++round) {
        const cluster_run_list runs = random_runs(random);
        stream_reader reader(ntfs, runs);
        for (int ranges = 0; ranges < 6; ++ranges) {
            const std::uint64_t offset = random() % 2 == 0 ? random() % 30 * size : random() % (30 * size);
            const std::uint64_t length =
                random() % 3 == 0 ? (1 + random() % 20) * size : random() % (20 * size);
            // Left out holes pull clusters into the range, which a range that begins in a hole has no room
            // for.
            const std::uint32_t flags = random() % 4 == 0 && offset % size == 0 ? stream_skip_sparse : 0;
            const slow_read expected = slow_read_stream(ntfs, runs, offset, length, flags);
            bytes buffer(length + size, 0xEE);
            std::uint64_t delivered = length;
            std::uint32_t got_flags = flags;
            const bool ok = reader.read(offset, buffer.data(), delivered, got_flags);
            ASSERT_EQ(ok, expected.ok);
            ASSERT_EQ(got_flags, expected.flags);
            if (ok) {
                ASSERT_EQ(delivered, expected.delivered.size());
                ASSERT_EQ(part(buffer, 0, delivered), expected.delivered);
            }
            // The same in parts.
            const std::size_t part_size = 1 + random() % (3 * size);
            bytes in_parts;
            std::uint32_t part_flags = flags;
            std::uint64_t got = part_size;
            if (reader.begin(offset, length, part_flags)) {
                while (got == part_size) {
                    bytes piece(part_size, 0xEE);
                    got = reader.read_part(in_parts.size(), piece.data(), part_size, part_flags);
                    in_parts.insert(in_parts.end(), piece.begin(),
                                    piece.begin() + static_cast<std::ptrdiff_t>(got));
                }
            }
            ASSERT_EQ(in_parts, expected.delivered);
            ASSERT_EQ(part_flags, expected.flags);
        }
    }
}

TEST(stream_reader_beside_the_plain_one, gives_the_same_on_random_runs) {
    std::mt19937 random(1);
    for (const std::uint32_t sectors : {1u, 2u, 8u}) {
        opened_volume volume(patterned_image(sectors));
        expect_same_as_slow(volume.ntfs(), random, 400);
    }
}

TEST(stream_reader_beside_the_plain_one, gives_the_same_on_an_image_cut_short) {
    std::mt19937 random(2);
    for (int cut = 0; cut < 30; ++cut) {
        bytes image = patterned_image(2);
        image.resize(40 * 1024 + random() % (image.size() - 40 * 1024));
        opened_volume volume(image);
        expect_same_as_slow(volume.ntfs(), random, 40);
    }
}

TEST(stream_reader_beside_the_plain_one, gives_the_same_on_an_image_that_shrinks_while_it_is_read) {
    std::mt19937 random(3);
    for (int cut = 0; cut < 30; ++cut) {
        opened_volume volume(patterned_image(2));
        std::filesystem::resize_file(volume.path(), 40 * 1024 + random() % (60 * 1024));
        expect_same_as_slow(volume.ntfs(), random, 40);
    }
}

TEST(stream_reader_memory, a_read_for_which_there_is_no_memory_fails_and_serves_the_next_time) {
    const bytes image = patterned_image();
    const cluster_run_list runs = stream_of({{50, 2}, {60, 2}});
    const bytes expected(image.begin() + 50 * cluster + 100, image.begin() + 52 * cluster);
    std::size_t failed = 0;
    // Ends where so many pieces are not asked for.
    for (std::size_t count = 0;; ++count) {
        opened_volume volume(image);
        bytes buffer(2 * cluster - 100);
        std::uint64_t length = buffer.size();
        std::uint32_t flags = 0;
        bool missed = false;
        {
            const missing_memory memory(count);
            const bool ok = volume->read_stream_bytes(runs, 100, buffer.data(), length, flags);
            missed = memory.was_missed();
            EXPECT_NE(ok, missed) << count;
        }
        if (!missed) {
            break;
        }
        ++failed;
        length = buffer.size();
        EXPECT_TRUE(volume->read_stream_bytes(runs, 100, buffer.data(), length, flags)) << count;
        EXPECT_EQ(buffer, expected) << count;
    }
    EXPECT_GT(failed, 0u);
}

}  // namespace
}  // namespace quarry::test
