#include "volume/stream_pump.h"

#include "unit/volume/pumped.h"
#include "volume/attribute.h"

namespace quarry::test {
namespace {

// Resident values.

TEST_F(pump_stream_test, writes_a_resident_stream_of_100_bytes_at_once) {
    attr_item item = resident_item(pattern(100));
    counting_buffer buffer;
    std::ostream out(&buffer);
    capturing_log log;
    pump_context context{.log = log};
    std::string md5;
    EXPECT_TRUE(pump_stream(&m_volume.ntfs(), item, out, {}, md5, context));
    EXPECT_EQ(buffer.writes, (std::vector<std::size_t>{100}));
    EXPECT_EQ(context.bytes_copied, 100u);
    EXPECT_EQ(log.lines, (lines{"info: data size 0x64"}));
}

TEST_F(pump_stream_test, writes_a_resident_stream_the_same_whatever_the_rules) {
    for (const pump_rules& rules : {pump_rules{.raw = true}, pump_rules{.skip_sparse = true},
                                    pump_rules{.raw = true, .skip_sparse = true, .include_slack = true}}) {
        const pumped got = pump(resident_item(pattern(100)), rules);
        EXPECT_TRUE(got.ok);
        EXPECT_EQ(got.out, pattern(100));
        EXPECT_EQ(got.bytes_copied, 100u);
    }
}

TEST_F(pump_stream_test, fails_for_an_empty_resident_value_and_reports_its_size) {
    const pumped got = pump(resident_item({}), {.want_md5 = true});
    EXPECT_FALSE(got.ok);
    EXPECT_EQ(got.bytes_copied, 0u);
    EXPECT_EQ(got.log, (lines{"info: data size 0x0"}));
    EXPECT_EQ(got.md5, "00000000000000000000000000000000");
}

TEST_F(pump_stream_test, has_no_data_in_a_value_that_was_not_kept) {
    attr_item item = resident_item({});
    item.value_size = 1024;
    const pumped got = pump(item, {.want_md5 = true});
    EXPECT_FALSE(got.ok);
    EXPECT_EQ(got.log, (lines{"err: no data"}));
    EXPECT_EQ(got.md5, "");
}

TEST_F(pump_stream_test, has_no_data_in_a_stream_without_runs) {
    const pumped got = pump(stored_item({}, 100));
    EXPECT_FALSE(got.ok);
    EXPECT_EQ(got.log, (lines{"err: no data"}));
}

// What it begins with.

TEST_F(pump_stream_test, refuses_a_null_volume_without_a_word) {
    attr_item item = resident_item(pattern(10));
    const pumped got = test::pump(nullptr, item, {.want_md5 = true});
    EXPECT_FALSE(got.ok);
    EXPECT_TRUE(got.log.empty());
    EXPECT_EQ(got.bytes_copied, 0u);
    EXPECT_EQ(got.md5, "");
}

TEST_F(pump_stream_test, reports_of_no_data_ahead_of_a_null_volume) {
    attr_item item = stored_item({});
    EXPECT_EQ(test::pump(nullptr, item).log, (lines{"err: no data"}));
}

TEST_F(pump_stream_test, refuses_a_stream_that_is_not_good_without_a_word) {
    attr_item item = resident_item(pattern(10));
    std::ostream out(nullptr);
    capturing_log log;
    pump_context context{.log = log};
    std::string md5;
    EXPECT_FALSE(pump_stream(&m_volume.ntfs(), item, out, {}, md5, context));
    EXPECT_TRUE(log.lines.empty());
}

TEST_F(pump_stream_test, clears_an_old_error_of_the_stream) {
    attr_item item = resident_item(pattern(10));
    std::ostringstream out;
    out.setstate(std::ios::failbit | std::ios::badbit);
    capturing_log log;
    pump_context context{.log = log};
    std::string md5;
    EXPECT_TRUE(pump_stream(&m_volume.ntfs(), item, out, {}, md5, context));
    EXPECT_EQ(out.str().size(), 10u);
}

// Streams in clusters.

TEST_F(pump_stream_test, ends_inside_the_last_cluster_at_the_real_size) {
    attr_item item = stored_item({{50, 2}}, 5000);
    counting_buffer buffer;
    std::ostream out(&buffer);
    capturing_log log;
    pump_context context{.log = log};
    std::string md5;
    EXPECT_TRUE(pump_stream(&m_volume.ntfs(), item, out, {}, md5, context));
    EXPECT_EQ(buffer.writes, (std::vector<std::size_t>{5000}));
    EXPECT_EQ(context.bytes_copied, 5000u);
    EXPECT_EQ(log.lines, (lines{"info: data size 0x1388"}));
    EXPECT_EQ(pump(stored_item({{50, 2}}, 5000)).out, part(clusters(50, 2), 0, 5000));
}

TEST_F(pump_stream_test, writes_the_allocated_size_with_raw) {
    const pumped got = pump(stored_item({{50, 2}}, 5000), {.raw = true});
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.out, clusters(50, 2));
    EXPECT_EQ(got.bytes_copied, 8192u);
    EXPECT_EQ(got.log, (lines{"info: data size 0x2000"}));
}

// Clusters beyond the initialized size go out as they are on the disk.
TEST_F(pump_stream_test, writes_what_the_clusters_hold_beyond_the_initialized_size) {
    attr_item item = stored_item({{50, 3}}, 10000);
    item.initialized = 5000;
    const pumped got = pump(item);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.out, part(clusters(50, 3), 0, 10000));
}

TEST_F(pump_stream_test, takes_the_larger_of_the_real_and_the_initialized_size) {
    attr_item item = stored_item({{50, 3}}, 10000);
    item.real = 5000;
    EXPECT_EQ(pump(item).out.size(), 10000u);
}

TEST_F(pump_stream_test, fails_for_an_empty_stream_with_runs_and_reports_its_size) {
    const pumped got = pump(stored_item({{50, 2}}, 0), {.want_md5 = true});
    EXPECT_FALSE(got.ok);
    EXPECT_TRUE(got.out.empty());
    EXPECT_EQ(got.log, (lines{"info: data size 0x0"}));
    EXPECT_EQ(got.md5, "00000000000000000000000000000000");
}

TEST_F(pump_stream_test, ends_with_the_runs_where_they_are_shorter_than_the_size) {
    const pumped got = pump(stored_item({{50, 2}}, 100000));
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.out, clusters(50, 2));
    EXPECT_EQ(got.log, (lines{"info: data size 0x186a0"})) << "the size, not what there is of it";
}

TEST_F(pump_stream_test, writes_zeros_for_a_hole) {
    const pumped got = pump(stored_item({{50, 1}, {hole, 1}, {51, 3}}, 20000));
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.out, part(concat({clusters(50, 1), bytes(4096, 0), clusters(51, 3)}), 0, 20000));
}

// 15,904 bytes up to the cut of the range's end, then the 480 bytes of the last cluster after it.
TEST_F(pump_stream_test, leaves_a_hole_out_and_takes_the_slack_of_the_last_cluster_for_it) {
    attr_item item = stored_item({{50, 1}, {hole, 1}, {51, 3}}, 20000);
    counting_buffer buffer;
    std::ostream out(&buffer);
    capturing_log log;
    pump_context context{.log = log};
    std::string md5;
    EXPECT_TRUE(pump_stream(&m_volume.ntfs(), item, out, {.skip_sparse = true}, md5, context));
    EXPECT_EQ(buffer.writes, (std::vector<std::size_t>{15904, 480}));
    EXPECT_EQ(context.bytes_copied, 16384u);
    EXPECT_EQ(pump(stored_item({{50, 1}, {hole, 1}, {51, 3}}, 20000), {.skip_sparse = true}).out,
              clusters(50, 4));
}

TEST_F(pump_stream_test, takes_the_holes_out_of_the_items_runs) {
    attr_item item = stored_item({{50, 1}, {hole, 1}, {51, 3}}, 20000);
    ASSERT_TRUE(test::pump(&m_volume.ntfs(), item, {.skip_sparse = true}).ok);
    EXPECT_EQ(item.runs.size(), 2u);
    EXPECT_EQ(test::pump(&m_volume.ntfs(), item).out, clusters(50, 4))
        << "a second pump sees the shorter list";
}

TEST_F(pump_stream_test, writes_the_stored_clusters_of_the_allocated_size_with_raw_and_holes_left_out) {
    const pumped got =
        pump(stored_item({{50, 1}, {hole, 1}, {51, 3}}, 100), {.raw = true, .skip_sparse = true});
    EXPECT_EQ(got.out, clusters(50, 4));
    const pumped zeros = pump(stored_item({{50, 1}, {hole, 1}, {51, 3}}, 100), {.raw = true});
    EXPECT_EQ(zeros.out, concat({clusters(50, 1), bytes(4096, 0), clusters(51, 3)}));
}

TEST_F(pump_stream_test, writes_nothing_of_a_stream_that_is_all_holes_when_they_are_left_out) {
    const pumped got = pump(stored_item({{hole, 4}}), {.skip_sparse = true});
    EXPECT_TRUE(got.ok);
    EXPECT_TRUE(got.out.empty());
    EXPECT_EQ(pump(stored_item({{hole, 4}})).out, bytes(4 * cluster, 0));
}

TEST_F(pump_stream_test, ends_ahead_of_a_cluster_that_cannot_be_read_and_counts_as_done) {
    // The run leaves the volume after its second cluster.
    const pumped got = pump(stored_item({{volume_clusters - 2, 100}}), {.want_md5 = true});
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.out, clusters(volume_clusters - 2, 2));
    EXPECT_EQ(got.bytes_copied, 8192u);
    EXPECT_EQ(got.log, (lines{"info: data size 0x64000"}));
    EXPECT_NE(got.md5, "00000000000000000000000000000000");
}

TEST_F(pump_stream_test, writes_nothing_where_the_first_cluster_cannot_be_read_and_counts_as_done) {
    const pumped got = pump(stored_item({{volume_clusters + 5, 4}}), {.want_md5 = true});
    EXPECT_TRUE(got.ok);
    EXPECT_TRUE(got.out.empty());
    EXPECT_EQ(got.md5, "d41d8cd98f00b204e9800998ecf8427e") << "the digest of no bytes";
}

TEST_F(pump_stream_test, ends_at_a_vcn_without_a_run) {
    attr_item item = stored_item({{50, 2}, {60, 2}});
    item.runs[1].vcn = 3;
    const pumped got = pump(item);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.out, clusters(50, 2));
}

TEST_F(pump_stream_test, adds_the_slack_of_the_allocated_size_when_asked_to) {
    const pumped got = pump(stored_item({{50, 3}}, 5000), {.include_slack = true});
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.out, clusters(50, 3));
    EXPECT_EQ(got.bytes_copied, 3 * cluster);
    attr_item large = stored_item({{45, 100}}, 65536 + 10);
    EXPECT_EQ(pump(large, {.include_slack = true}).out, clusters(45, 100));
}

// Flags.

TEST_F(pump_stream_test, copies_the_stored_bytes_of_a_stream_flagged_compressed_and_sparse) {
    attr_item item = stored_item({{50, 4}, {hole, 12}});
    item.flags = attr_flag_compressed | attr_flag_sparse;
    item.unit = 4;
    item.compressed = 4 * cluster;
    EXPECT_EQ(pump(item).out, concat({clusters(50, 4), bytes(12 * cluster, 0)}));
}

TEST_F(pump_stream_test, copies_the_stored_bytes_of_an_encrypted_stream) {
    attr_item item = stored_item({{50, 4}});
    item.flags = attr_flag_encrypted;
    EXPECT_EQ(pump(item).out, clusters(50, 4));
}

TEST_F(pump_stream_test, takes_a_stream_for_compressed_by_flag_unit_and_compressed_size_together) {
    // Sixteen clusters that begin with a chunk header: made plain they give one chunk of zeros.
    bytes image = m_image;
    std::fill_n(image.begin() + 50 * cluster, 4096, std::uint8_t{0});
    image[50 * cluster] = 0x00;
    image[50 * cluster + 1] = 0xB0;
    opened_volume volume(image);
    attr_item item = stored_item({{50, 1}, {hole, 15}});
    item.flags = attr_flag_compressed;
    item.unit = 4;
    item.compressed = cluster;
    const auto size_of = [&](const attr_item& given, const pump_rules& rules) {
        attr_item copy = given;
        return test::pump(&volume.ntfs(), copy, rules).out.size();
    };
    EXPECT_EQ(size_of(item, {}), 4096u);
    EXPECT_EQ(size_of(item, {.skip_sparse = true}), 4096u) << "holes are part of a compressed stream";
    EXPECT_EQ(size_of(item, {.raw = true}), 65536u);
    EXPECT_EQ(size_of(item, {.raw = true, .skip_sparse = true}), 4096u) << "the stored cluster";
    attr_item no_unit = item;
    no_unit.unit = 0;
    EXPECT_EQ(size_of(no_unit, {}), 65536u);
    attr_item no_size = item;
    no_size.compressed = 0;
    EXPECT_EQ(size_of(no_size, {}), 65536u);
    attr_item encrypted = item;
    encrypted.flags = attr_flag_compressed | attr_flag_encrypted;
    EXPECT_EQ(size_of(encrypted, {}), 65536u) << "as it is stored";
    attr_item marked = item;
    marked.flags = 0x0002;
    EXPECT_EQ(size_of(marked, {}), 65536u);
}

TEST_F(pump_stream_test, moves_a_compressed_stream_in_units_of_16_clusters_whatever_its_attribute_says) {
    // Two units of 16 clusters, each one chunk of zeros.
    bytes image = m_image;
    std::fill_n(image.begin() + 50 * cluster, 4096, std::uint8_t{0});
    image[50 * cluster + 1] = 0xB0;
    opened_volume volume(image);
    attr_item item = stored_item({{50, 1}, {hole, 15}, {50, 1}, {hole, 15}});
    item.flags = attr_flag_compressed;
    item.compressed = 2 * cluster;
    for (const unsigned unit : {1u, 3u, 4u, 5u, 9u, 255u}) {
        item.unit = static_cast<std::uint8_t>(unit);
        EXPECT_EQ(test::pump(&volume.ntfs(), item).out, bytes(8192, 0)) << unit;
    }
}

// Digest.

TEST_F(pump_stream_test, digests_what_it_writes) {
    EXPECT_EQ(pump(resident_item(to_bytes("abc")), {.want_md5 = true}).md5,
              "900150983cd24fb0d6963f7d28e17f72");
    // The MD5 of 4096 zeros.
    EXPECT_EQ(pump(stored_item({{hole, 1}}), {.want_md5 = true}).md5, "620f0b67a91f7f74151bc5be745b7110");
    EXPECT_EQ(pump(resident_item(to_bytes("abc"))).md5, "") << "not wanted";
}

TEST_F(pump_stream_test, copies_with_the_rules_of_its_thin_forms) {
    std::ostringstream out;
    capturing_log log;
    pump_context context{.log = log};
    attr_item item = stored_item({{50, 1}, {hole, 1}, {51, 3}}, 5000);
    EXPECT_TRUE(copy_to_stream(&m_volume.ntfs(), item, out, true, true, context));
    EXPECT_EQ(to_bytes(out.str()), clusters(50, 4));
    std::ostringstream hashed;
    std::string md5;
    attr_item abc = resident_item(to_bytes("abc"));
    EXPECT_TRUE(copy_hashed(&m_volume.ntfs(), abc, hashed, false, false, true, md5, context));
    EXPECT_EQ(md5, "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_TRUE(copy_hashed(&m_volume.ntfs(), abc, hashed, false, false, false, md5, context));
    EXPECT_EQ(md5, "");
}

// A stream that takes no more.

TEST_F(pump_stream_test, counts_as_done_when_the_stream_takes_no_more) {
    attr_item item = stored_item({{hole, 10000}});
    counting_buffer buffer(100000);
    std::ostream out(&buffer);
    capturing_log log;
    pump_context context{.log = log};
    std::string md5;
    EXPECT_TRUE(pump_stream(&m_volume.ntfs(), item, out, {}, md5, context));
    EXPECT_FALSE(out.good());
    EXPECT_EQ(buffer.taken, 100000u);
    EXPECT_LE(buffer.writes.size(), 2u) << "nothing more can arrive, so nothing more is read";
}

}  // namespace
}  // namespace quarry::test
