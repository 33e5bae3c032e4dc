#include "volume/stream_pump.h"

#include "support/capturing_log.h"
#include "support/opened_volume.h"
#include "support/sample_text.h"
#include "support/slow_stream.h"
#include "unit/volume/allocation_counter.h"
#include "volume/attribute.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <random>
#include <sstream>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using lines = std::vector<std::string>;
constexpr std::uint64_t cluster = 4096;
constexpr std::uint64_t volume_clusters = 160;

bytes patterned_image(std::uint32_t sectors_per_cluster = 8) {
    geometry shape;
    shape.sectors_per_cluster = sectors_per_cluster;
    shape.mft_entries = 8;
    shape.total_clusters = volume_clusters;
    volume_builder volume(shape);
    volume.write_clusters(40, pattern((volume_clusters - 40) * sectors_per_cluster * 512, 17));
    return volume.image();
}

attr_item resident_item(bytes value) {
    attr_item item;
    item.type = attr_data;
    item.value_size = static_cast<std::uint32_t>(value.size());
    item.value = std::move(value);
    return item;
}

// A stream in clusters, its sizes those of its runs on clusters of 4096 bytes.
attr_item stored_item(const run_list& runs) {
    attr_item item;
    item.type = attr_data;
    item.non_resident = true;
    std::uint64_t vcn = 0;
    for (const run& each : runs) {
        const bool sparse = each.lcn == hole;
        item.runs.push_back({.lcn = sparse ? 0 : static_cast<std::uint64_t>(each.lcn),
                             .vcn = vcn,
                             .sparse = sparse,
                             .length = static_cast<std::uint32_t>(each.length)});
        vcn += each.length;
    }
    item.allocated = item.real = item.initialized = vcn * cluster;
    return item;
}

// The same with one size for real and initialized.
attr_item stored_item(const run_list& runs, std::uint64_t size) {
    attr_item item = stored_item(runs);
    item.real = item.initialized = size;
    return item;
}

struct pumped {
    bool ok = false;
    bytes out;
    std::uint64_t bytes_copied = 0;
    std::string md5;
    lines log;
};

pumped pump(CNtfs* ntfs, attr_item& item, const pump_rules& rules = {}) {
    pumped got;
    std::ostringstream out;
    capturing_log log;
    pump_context context{.log = log, .bytes_copied = 99};
    got.md5 = "old";
    got.ok = pump_stream(ntfs, item, out, rules, got.md5, context);
    got.out = to_bytes(out.str());
    got.bytes_copied = context.bytes_copied;
    got.log = log.lines;
    return got;
}

// A stream buffer that notes each write and takes as many bytes as it is told.
class counting_buffer : public std::streambuf {
  public:
    explicit counting_buffer(std::size_t room = std::numeric_limits<std::size_t>::max()) : m_room(room) {}
    std::vector<std::size_t> writes;
    std::size_t taken = 0;

  protected:
    std::streamsize xsputn(const char* /*text*/, std::streamsize count) override {
        writes.push_back(static_cast<std::size_t>(count));
        const std::size_t accepted = std::min(m_room - taken, static_cast<std::size_t>(count));
        taken += accepted;
        return static_cast<std::streamsize>(accepted);
    }

  private:
    std::size_t m_room;
};

bytes part(const bytes& text, std::uint64_t from, std::uint64_t count) {
    const auto at = text.begin() + static_cast<std::ptrdiff_t>(from);
    return {at, at + static_cast<std::ptrdiff_t>(count)};
}

class pump_stream_test : public ::testing::Test {
  protected:
    bytes m_image = patterned_image();
    opened_volume m_volume{m_image};

    [[nodiscard]] bytes clusters(std::uint64_t lcn, std::uint64_t count) const {
        return part(m_image, lcn * cluster, count * cluster);
    }
    pumped pump(attr_item item, const pump_rules& rules = {}) {
        return test::pump(&m_volume.ntfs(), item, rules);
    }
};

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

// Clusters beyond the initialized size go out as they stand on the disk.
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

// 15,904 bytes up to the cut of the range's end, then the 480 bytes of the last cluster behind it.
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
    // The run leaves the volume behind its second cluster.
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

// Index blocks.

TEST_F(pump_stream_test, puts_the_sector_ends_of_index_blocks_back) {
    bytes protected_block = pattern(4096, 3);
    byte_writer block(protected_block);
    block.text(0, "INDX").u16(4, 0x28).u16(6, 9).u16(0x28, 0x0101);
    for (std::size_t i = 1; i <= 8; ++i) {
        block.u16(0x28 + 2 * i, 0xA000 + i).u16(i * 512 - 2, 0x0101);
    }
    byte_writer restored(block.content());
    for (std::size_t i = 1; i <= 8; ++i) {
        restored.u16(i * 512 - 2, 0xA000 + i);
    }
    bytes image = m_image;
    std::copy(block.content().begin(), block.content().end(), image.begin() + 50 * cluster);
    opened_volume volume(image);
    attr_item item = stored_item({{50, 1}});
    item.type = attr_index_allocation;
    EXPECT_EQ(test::pump(&volume.ntfs(), item).out, restored.content());
    EXPECT_EQ(test::pump(&volume.ntfs(), item, {.raw = true}).out, block.content());
    item.type = attr_data;
    EXPECT_EQ(test::pump(&volume.ntfs(), item).out, block.content());
}

// One saved word for each sector of a block, four or one of them here.
TEST(pump_of_index_blocks, puts_one_sector_end_back_for_each_sector_of_the_volume) {
    for (const std::uint32_t sector : {1024u, 2048u, 4096u}) {
        geometry shape;
        shape.bytes_per_sector = sector;
        shape.sectors_per_cluster = 4096 / sector;
        shape.record_size = 4096;
        shape.stride = sector;
        shape.total_clusters = 100;
        bytes block(8192, 0x11);
        byte_writer writer(block);
        for (const std::size_t at : {0u, 4096u}) {
            writer.u16(at + 4, 0x28).u16(at + 6, 9);
            for (std::size_t word = 1; word <= 8; ++word) {
                writer.u16(at + 0x28 + 2 * word, 0xA000 + word);
            }
        }
        volume_builder volume(shape);
        volume.write_clusters(90, writer.content());
        opened_volume opened(volume);
        attr_item item = stored_item({{90, 2}});
        item.type = attr_index_allocation;
        byte_writer restored(writer.content());
        for (const std::size_t at : {0u, 4096u}) {
            for (std::size_t word = 1; word <= 4096 / sector; ++word) {
                restored.u16(at + word * sector - 2, 0xA000 + word);
            }
        }
        EXPECT_EQ(pump(&opened.ntfs(), item).out, restored.content()) << sector;
    }
}

TEST_F(pump_stream_test, looks_at_no_signature_of_an_index_block) {
    bytes block(4096, 0x11);
    byte_writer writer(block);
    writer.u16(4, 0x100).u16(6, 2).u16(0x102, 0x2222);
    bytes image = m_image;
    std::copy(writer.content().begin(), writer.content().end(), image.begin() + 50 * cluster);
    opened_volume volume(image);
    attr_item item = stored_item({{50, 1}});
    item.type = attr_index_allocation;
    bytes expected = writer.content();
    expected[510] = expected[511] = 0x22;
    EXPECT_EQ(test::pump(&volume.ntfs(), item).out, expected);
}

TEST_F(pump_stream_test, restores_nothing_in_a_block_with_a_count_below_2_or_a_part_of_a_block) {
    for (const unsigned count : {0u, 1u}) {
        bytes image = m_image;
        image[50 * cluster + 6] = static_cast<std::uint8_t>(count);
        image[50 * cluster + 7] = 0;
        opened_volume volume(image);
        attr_item item = stored_item({{50, 1}});
        item.type = attr_index_allocation;
        EXPECT_EQ(test::pump(&volume.ntfs(), item).out, part(image, 50 * cluster, cluster));
    }
    attr_item item = stored_item({{50, 1}}, 4095);
    item.type = attr_index_allocation;
    EXPECT_EQ(pump(item).out, part(clusters(50, 1), 0, 4095));
}

TEST_F(pump_stream_test, takes_no_byte_from_outside_a_block_whose_array_reaches_out_of_it) {
    for (const unsigned offset : {4090u, 4094u, 4095u, 4096u, 65535u}) {
        bytes image = m_image;
        image[50 * cluster + 4] = static_cast<std::uint8_t>(offset & 0xFF);
        image[50 * cluster + 5] = static_cast<std::uint8_t>(offset >> 8);
        image[50 * cluster + 6] = 0xFF;
        image[50 * cluster + 7] = 0xFF;
        opened_volume volume(image);
        attr_item item = stored_item({{50, 2}}, 4096);
        item.type = attr_index_allocation;
        bytes expected = part(image, 50 * cluster, cluster);
        // Words of the array that lie inside, each two bytes from the block's own end.
        for (std::size_t word = 1; offset + 2 * word + 2 <= 4096 && word <= 8; ++word) {
            expected[word * 512 - 2] = expected[offset + 2 * word];
            expected[word * 512 - 1] = expected[offset + 2 * word + 1];
        }
        EXPECT_EQ(test::pump(&volume.ntfs(), item).out, expected) << offset;
    }
}

// Beside the plain way.

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
