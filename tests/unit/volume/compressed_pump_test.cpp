#include "volume/compressed_pump.h"

#include "support/capturing_log.h"
#include "support/lznt1_encoder.h"
#include "support/opened_volume.h"
#include "support/requirements.h"
#include "support/sample_text.h"
#include "support/slow_stream.h"
#include "unit/volume/allocation_counter.h"
#include "volume/attribute.h"
#include "volume/stream_pump.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <random>
#include <sstream>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using lines = std::vector<std::string>;
constexpr std::size_t unit_clusters = 16;

// A compressed stream under construction: units one after the other on a volume, as the file system stores
// them.
class compressed_stream {
  public:
    explicit compressed_stream(std::uint32_t sectors_per_cluster = 8, std::uint32_t bytes_per_sector = 512)
        : m_cluster(std::size_t{sectors_per_cluster} * bytes_per_sector),
          m_volume({.bytes_per_sector = bytes_per_sector,
                    .sectors_per_cluster = sectors_per_cluster,
                    .mft_entries = 8,
                    .stride = bytes_per_sector}) {}

    [[nodiscard]] std::size_t cluster() const { return m_cluster; }
    [[nodiscard]] std::size_t unit() const { return unit_clusters * m_cluster; }

    // These bytes in the first clusters of a unit, the rest of it sparse.
    compressed_stream& unit_of_bytes(const bytes& stored) {
        const std::size_t clusters = (stored.size() + m_cluster - 1) / m_cluster;
        if (clusters > 0) {
            const run where = m_volume.clusters().allocate(clusters);
            m_volume.clusters().take({where});
            m_volume.clusters().write({where}, stored);
            m_runs.push_back(where);
        }
        if (clusters < unit_clusters) {
            m_runs.push_back({hole, unit_clusters - clusters});
        }
        m_allocated += unit();
        return *this;
    }
    // Compressed if that saves a cluster, otherwise stored.
    compressed_stream& unit_of_text(const bytes& plain) {
        const bytes chunks = lznt1_chunks(plain);
        m_real += plain.size();
        return unit_of_bytes(chunks.size() + m_cluster <= unit() ? chunks : plain);
    }
    compressed_stream& text(const bytes& plain) {
        for (std::size_t at = 0; at < plain.size(); at += unit()) {
            const std::size_t size = std::min(unit(), plain.size() - at);
            unit_of_text({plain.begin() + static_cast<std::ptrdiff_t>(at),
                          plain.begin() + static_cast<std::ptrdiff_t>(at + size)});
        }
        return *this;
    }
    compressed_stream& hole_unit() {
        m_real += unit();
        return unit_of_bytes({});
    }

    [[nodiscard]] attr_item item() const {
        attr_item out;
        out.type = attr_data;
        out.non_resident = true;
        out.flags = attr_flag_compressed;
        out.unit = 4;
        out.compressed = 1;
        out.real = out.initialized = m_real;
        out.allocated = m_allocated;
        std::uint64_t vcn = 0;
        for (const run& each : m_runs) {
            const bool sparse = each.lcn == hole;
            out.runs.push_back({.lcn = sparse ? 0 : static_cast<std::uint64_t>(each.lcn),
                                .vcn = vcn,
                                .sparse = sparse,
                                .length = static_cast<std::uint32_t>(each.length)});
            vcn += each.length;
        }
        return out;
    }
    [[nodiscard]] const volume_builder& volume() const { return m_volume; }

  private:
    std::size_t m_cluster;
    volume_builder m_volume;
    run_list m_runs;
    std::uint64_t m_real = 0;
    std::uint64_t m_allocated = 0;
};

struct pumped {
    bool ok = false;
    bytes out;
    std::uint64_t bytes_copied = 0;
    std::string md5;
    lines log;
};

pumped pump(CNtfs& ntfs, attr_item item, bool want_md5 = false) {
    pumped got;
    std::ostringstream out;
    capturing_log log;
    pump_context context{.log = log};
    got.ok = copy_hashed(&ntfs, item, out, false, false, want_md5, got.md5, context);
    got.out = to_bytes(out.str());
    got.bytes_copied = context.bytes_copied;
    got.log = log.lines;
    return got;
}

pumped pump(const compressed_stream& stream, bool want_md5 = false) {
    opened_volume opened(stream.volume());
    return pump(opened.ntfs(), stream.item(), want_md5);
}

bytes first_bytes(const bytes& text, std::size_t count) {
    return bytes(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(count));
}

TEST(pump_compressed, gives_text_back) {
    const bytes text = text_like(200000, 1);
    const pumped got = pump(compressed_stream().text(text));
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.out, text);
    EXPECT_EQ(got.bytes_copied, 200000u);
    EXPECT_EQ(got.log, (lines{"info: data size 0x30d40"}));
}

TEST(pump_compressed, gives_text_back_for_sizes_around_chunks_and_units) {
    for (const std::uint32_t sectors : {1u, 2u, 8u}) {
        const std::size_t unit = std::size_t{sectors} * 512 * 16;
        for (const std::size_t base : {std::size_t{4096}, unit, 2 * unit}) {
            for (const int more : {-1, 0, 1}) {
                const bytes text = text_like(base + static_cast<std::size_t>(more + 1) - 1, 2);
                compressed_stream stream(sectors);
                stream.text(text);
                const pumped got = pump(stream);
                EXPECT_TRUE(got.ok);
                EXPECT_EQ(got.out, text) << sectors << " " << text.size();
                EXPECT_EQ(got.bytes_copied, text.size());
            }
        }
    }
}

TEST(pump_compressed, gives_stored_units_back_between_compressed_ones) {
    compressed_stream stream;
    const bytes plain =
        concat({text_like(stream.unit(), 3), random_bytes(stream.unit(), 4), text_like(5000, 5)});
    EXPECT_EQ(pump(stream.text(plain)).out, plain);
}

TEST(pump_compressed, writes_a_unit_of_16_stored_clusters_raw) {
    compressed_stream stream;
    const bytes plain = random_bytes(stream.unit(), 4);
    const pumped got = pump(stream.unit_of_text(plain));
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.out, plain);
}

TEST(pump_compressed, walks_the_chunks_of_a_full_unit_that_begins_with_a_stored_chunk) {
    compressed_stream stream;
    const bytes first = random_bytes(4096, 1);
    bytes stored = lznt1_stored_chunk(first);
    stored.resize(stream.unit());
    const bytes second = text_like(4096, 2);
    stream.unit_of_bytes(stored).unit_of_text(second);
    attr_item item = stream.item();
    item.real = item.initialized = stream.unit() + 4096;
    opened_volume opened(stream.volume());
    const pumped got = pump(opened.ntfs(), item);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.out, concat({first, second})) << "the position moves by the whole unit";
}

// A unit whose chunks run out early yields 4096 bytes for each chunk, and the position moves on by the unit.
TEST(pump_compressed, gives_what_a_unit_has_and_moves_on_by_the_whole_unit) {
    compressed_stream stream;
    const bytes three = text_like(3 * 4096, 6);
    const bytes last = text_like(4096, 7);
    stream.unit_of_bytes(lznt1_chunks(three)).unit_of_text(last);
    attr_item item = stream.item();
    item.real = item.initialized = stream.unit() + 4096;
    opened_volume opened(stream.volume());
    const pumped got = pump(opened.ntfs(), item);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.out, concat({three, last}));
    EXPECT_EQ(got.bytes_copied, stream.unit() + 4096) << "counted by the size, not by what was written";
}

// The first unit without any cluster ends the copy, and what came before counts as success.
TEST(pump_compressed, ends_at_the_first_unit_that_is_a_hole) {
    compressed_stream stream;
    const bytes three = text_like(3 * stream.unit(), 8);
    stream.text(three).hole_unit();
    for (int i = 0; i < 6; ++i) {
        stream.unit_of_text(text_like(stream.unit(), 9));
    }
    const pumped got = pump(stream);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.out, three);
    EXPECT_EQ(got.bytes_copied, 10 * stream.unit());
}

TEST(pump_compressed, fails_where_the_first_unit_is_a_hole) {
    compressed_stream stream;
    stream.hole_unit().unit_of_text(text_like(stream.unit(), 9));
    const pumped got = pump(stream, true);
    EXPECT_FALSE(got.ok);
    EXPECT_TRUE(got.out.empty());
    EXPECT_EQ(got.bytes_copied, 0u);
    EXPECT_EQ(got.md5, "00000000000000000000000000000000");
}

TEST(pump_compressed, gives_zeros_for_a_unit_that_says_so_in_chunks) {
    compressed_stream stream;
    const bytes zeros(stream.unit(), 0);
    EXPECT_EQ(pump(stream.unit_of_text(zeros)).out, zeros);
}

TEST(pump_compressed, ends_at_the_real_size_not_at_the_initialized_one) {
    compressed_stream stream;
    const bytes text = text_like(100000, 10);
    stream.text(text);
    attr_item item = stream.item();
    item.initialized = 5;
    opened_volume opened(stream.volume());
    EXPECT_EQ(pump(opened.ntfs(), item).out, text);
    item.real = 70000;
    EXPECT_EQ(pump(opened.ntfs(), item).out, first_bytes(text, 70000));
    item.initialized = 80000;
    EXPECT_EQ(pump(opened.ntfs(), item).out, first_bytes(text, 80000));
}

TEST(pump_compressed, fails_for_a_size_of_zero_and_reports_it) {
    compressed_stream stream;
    stream.text(text_like(100, 1));
    attr_item item = stream.item();
    item.real = item.initialized = 0;
    opened_volume opened(stream.volume());
    const pumped got = pump(opened.ntfs(), item);
    EXPECT_FALSE(got.ok);
    EXPECT_EQ(got.log, (lines{"info: data size 0x0"}));
}

// Only a read that reaches the sparse tail of the last unit shows that it holds chunks.
TEST(pump_compressed, reads_the_last_unit_up_to_the_end_of_what_is_allocated) {
    compressed_stream stream;
    const bytes last = text_like(3000, 12);
    const bytes text = concat({text_like(stream.unit(), 11), last});
    stream.text(text);
    attr_item item = stream.item();
    opened_volume opened(stream.volume());
    EXPECT_EQ(pump(opened.ntfs(), item).out, text);
    // Without the tail in the allocated size the last read ends inside the first cluster, and the chunk looks
    // plain.
    item.allocated = text.size();
    bytes stored = lznt1_chunks(last);
    stored.resize(3000);
    EXPECT_EQ(pump(opened.ntfs(), item).out, concat({first_bytes(text, stream.unit()), stored}));
}

TEST(pump_compressed, survives_an_allocated_size_without_sense) {
    compressed_stream stream;
    const bytes text = text_like(stream.unit() + 9000, 11);
    stream.text(text);
    opened_volume opened(stream.volume());
    for (const std::uint64_t allocated :
         {std::uint64_t{0}, std::uint64_t{1}, ~std::uint64_t{0}, ~std::uint64_t{0} - 70000}) {
        attr_item item = stream.item();
        item.allocated = allocated;
        const pumped got = pump(opened.ntfs(), item);
        EXPECT_TRUE(got.ok);
        EXPECT_EQ(first_bytes(got.out, stream.unit()), first_bytes(text, stream.unit()));
    }
}

TEST(pump_compressed, ends_ahead_of_a_unit_that_cannot_be_read) {
    compressed_stream stream;
    const bytes text = text_like(3 * stream.unit(), 13);
    stream.text(text);
    attr_item item = stream.item();
    // The third unit lies outside of the volume.
    for (cluster_run& run : item.runs) {
        if (run.vcn == 2 * unit_clusters) {
            run.lcn = 1000000;
        }
    }
    opened_volume opened(stream.volume());
    const pumped got = pump(opened.ntfs(), item);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.out, first_bytes(text, 2 * stream.unit()));
}

TEST(pump_compressed, fails_where_the_first_unit_cannot_be_read) {
    compressed_stream stream;
    stream.text(text_like(3000, 13));
    attr_item item = stream.item();
    item.runs[0].lcn = 1000000;
    opened_volume opened(stream.volume());
    EXPECT_FALSE(pump(opened.ntfs(), item).ok);
}

TEST(pump_compressed, ends_ahead_of_a_unit_with_an_impossible_header) {
    compressed_stream stream;
    const bytes text = text_like(stream.unit(), 14);
    stream.text(text).unit_of_bytes(from_hex("01 30 00 00")).unit_of_text(text);
    const pumped got = pump(stream);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.out, text);
}

// What a damaged unit gave out ahead of the damage is not written.
TEST(pump_compressed, writes_nothing_of_a_unit_that_fails_in_the_middle) {
    compressed_stream stream;
    const bytes text = text_like(stream.unit(), 14);
    stream.text(text)
        .unit_of_bytes(concat({lznt1_chunks(text_like(8192, 15)), from_hex("01 30")}))
        .unit_of_text(text);
    EXPECT_EQ(pump(stream).out, text);
}

TEST(pump_compressed, writes_the_chunks_and_the_raw_unit_where_the_last_block_is_not_zero) {
    compressed_stream stream;
    const bytes text = text_like(4096, 16);
    bytes damaged = concat({lznt1_stored_chunk(text), from_hex("01 30")});
    damaged.resize(stream.unit(), 0xCC);
    stream.unit_of_bytes(damaged);
    attr_item item = stream.item();
    item.real = item.initialized = 20 * 4096;
    opened_volume opened(stream.volume());
    const pumped got = pump(opened.ntfs(), item);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.out, concat({text, first_bytes(damaged, 15 * 4096)}))
        << "up to the limit: the runs hold 16 clusters";
}

TEST(pump_compressed, digests_what_it_writes) {
    compressed_stream stream;
    const bytes zeros(4096, 0);
    const pumped got = pump(stream.unit_of_text(zeros), true);
    EXPECT_EQ(got.out, zeros);
    EXPECT_EQ(got.md5, "620f0b67a91f7f74151bc5be745b7110");
}

TEST(pump_compressed, begins_at_the_given_offset) {
    compressed_stream stream;
    const bytes text = text_like(3 * stream.unit(), 17);
    stream.text(text);
    opened_volume opened(stream.volume());
    std::ostringstream out;
    stream_sink sink(out, nullptr);
    const attr_item item = stream.item();
    EXPECT_TRUE(
        pump_compressed(opened.ntfs(), item.runs, sink, stream.unit(), 2 * stream.unit(), item.allocated));
    EXPECT_EQ(to_bytes(out.str()),
              bytes(text.begin() + static_cast<std::ptrdiff_t>(stream.unit()), text.end()));
}

// Chunks of three bytes claim 4096 each. The unit is of 16 clusters, and no more comes out.
TEST(pump_compressed, gives_no_more_than_16_clusters_of_a_unit_whose_chunks_claim_more) {
    compressed_stream stream;
    bytes chunks;
    for (std::size_t i = 0; i < 4000; ++i) {
        const bytes chunk = from_hex("00 B0 00");
        chunks.insert(chunks.end(), chunk.begin(), chunk.end());
    }
    const bytes text = text_like(stream.unit(), 23);
    stream.unit_of_bytes(chunks).unit_of_bytes(chunks).unit_of_text(text);
    attr_item item = stream.item();
    item.real = item.initialized = 3 * stream.unit();
    opened_volume opened(stream.volume());
    const pumped got = pump(opened.ntfs(), item);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.out, concat({bytes(2 * stream.unit(), 0), text}));
}

TEST(pump_compressed, gives_no_more_than_16_clusters_of_a_unit_with_chunks_and_raw_bytes) {
    compressed_stream stream;
    const bytes first = text_like(4096, 16);
    bytes damaged = concat({lznt1_stored_chunk(first), from_hex("01 30")});
    damaged.resize(stream.unit(), 0xCC);
    const bytes text = text_like(stream.unit(), 24);
    stream.unit_of_bytes(damaged).unit_of_text(text);
    attr_item item = stream.item();
    item.real = item.initialized = 2 * stream.unit();
    opened_volume opened(stream.volume());
    const pumped got = pump(opened.ntfs(), item);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.out, concat({first, first_bytes(damaged, 15 * 4096), text}));
}

TEST(pump_compressed, writes_nothing_of_a_thousandfold_unit_that_fails) {
    compressed_stream stream;
    bytes chunks;
    for (std::size_t i = 0; i < 100; ++i) {
        const bytes chunk = from_hex("00 B0 00");
        chunks.insert(chunks.end(), chunk.begin(), chunk.end());
    }
    stream.unit_of_bytes(concat({chunks, from_hex("01 30")}));
    attr_item item = stream.item();
    item.runs.push_back({.lcn = 0, .vcn = unit_clusters, .sparse = true, .length = 1000});
    item.real = item.initialized = item.allocated = 4000000;
    opened_volume opened(stream.volume());
    const pumped got = pump(opened.ntfs(), item);
    EXPECT_FALSE(got.ok);
    EXPECT_TRUE(got.out.empty());
}

TEST(pump_compressed, stops_reading_when_the_stream_takes_no_more) {
    compressed_stream stream;
    stream.text(text_like(3 * stream.unit(), 18));
    opened_volume opened(stream.volume());
    std::ofstream full("/dev/full", std::ios::binary);
    QUARRY_NEEDS(full.is_open(), "there is no /dev/full");
    capturing_log log;
    pump_context context{.log = log};
    attr_item item = stream.item();
    EXPECT_TRUE(copy_to_stream(&opened.ntfs(), item, full, false, false, context));
    EXPECT_FALSE(full.good());
}

// Takes every byte and keeps none.
class bytes_to_nowhere : public std::streambuf {
  public:
    [[nodiscard]] std::size_t taken() const { return m_taken; }

  protected:
    std::streamsize xsputn(const char* /*text*/, std::streamsize count) override {
        m_taken += static_cast<std::size_t>(count);
        return count;
    }

  private:
    std::size_t m_taken = 0;
};

// Pieces of memory asked for by a pump of as many triples of units: chunks, stored clusters, chunks of zeros.
std::size_t allocations_for(std::size_t triples) {
    compressed_stream stream(1);
    for (std::size_t i = 0; i < triples; ++i) {
        stream.unit_of_text(text_like(stream.unit(), 22)).unit_of_text(random_bytes(stream.unit(), 23));
        stream.unit_of_text(bytes(stream.unit(), 0));
    }
    opened_volume opened(stream.volume());
    const attr_item item = stream.item();
    bytes_to_nowhere buffer;
    std::ostream out(&buffer);
    stream_sink sink(out, nullptr);
    const std::size_t before = allocations_so_far();
    const bool ok = pump_compressed(opened.ntfs(), item.runs, sink, 0, item.real, item.allocated);
    const std::size_t after = allocations_so_far();
    EXPECT_TRUE(ok);
    EXPECT_EQ(buffer.taken(), triples * 3 * stream.unit());
    return after - before;
}

TEST(pump_compressed, asks_for_no_memory_for_a_unit_or_a_chunk) {
    const std::size_t few = allocations_for(2);
    EXPECT_GT(few, 0u) << "the buffers of the pump";
    EXPECT_EQ(allocations_for(40), few);
}

// Beside the plain way.

TEST(pump_compressed_beside_the_plain_one, gives_the_same_on_damaged_streams) {
    std::mt19937 random(4);
    for (const std::uint32_t sectors : {1u, 8u}) {
        compressed_stream stream(sectors);
        stream.text(concat({text_like(2 * stream.unit(), 19), random_bytes(stream.unit(), 20),
                            text_like(stream.unit() + 1500, 21)}));
        const bytes image = stream.volume().image();
        const attr_item item = stream.item();
        for (int round = 0; round < 60; ++round) {
            bytes damaged = image;
            const auto first = static_cast<std::size_t>(item.runs[0].lcn) * stream.cluster();
            for (auto i = random() % 4; i > 0; --i) {
                damaged[first + random() % (image.size() - first)] = static_cast<std::uint8_t>(random());
            }
            if (random() % 3 == 0) {
                damaged.resize(first + random() % (image.size() - first));
            }
            attr_item changed = item;
            if (random() % 3 == 0) {
                changed.real = changed.initialized = 1 + random() % (item.allocated + 5000);
            }
            if (random() % 3 == 0) {
                changed.runs[random() % changed.runs.size()].sparse = random() % 2 == 0;
            }
            opened_volume opened(damaged);
            const slow_copy expected = slow_pump_compressed(opened.ntfs(), changed);
            const pumped got = pump(opened.ntfs(), changed);
            ASSERT_EQ(got.ok, expected.ok);
            ASSERT_EQ(got.out, expected.out);
            ASSERT_EQ(got.bytes_copied, expected.bytes_copied);
            ASSERT_EQ(got.log, expected.log);
        }
    }
}

struct cluster_shape {
    std::uint32_t sectors;
    std::uint32_t bytes_per_sector;
};

// Clusters whose unit of 16 is longer than the whole source.
class pump_compressed_on_large_clusters : public ::testing::TestWithParam<cluster_shape> {
  protected:
    // So many chunks, no two neighbours alike, of few bytes each.
    struct chunked {
        bytes plain;
        bytes chunks;
    };
    static chunked short_chunks(std::size_t count) {
        // Few different ones: encoding takes its time.
        std::array<chunked, 5> kinds;
        for (std::size_t i = 0; i < kinds.size(); ++i) {
            const bytes head(100 + i, static_cast<std::uint8_t>('a' + i));
            kinds[i].plain = concat({head, bytes(4096 - head.size(), static_cast<std::uint8_t>('A' + i))});
            kinds[i].chunks = lznt1_chunks(kinds[i].plain);
        }
        chunked made;
        for (std::size_t i = 0; i < count; ++i) {
            const chunked& next = kinds[i % kinds.size()];
            made.plain.insert(made.plain.end(), next.plain.begin(), next.plain.end());
            made.chunks.insert(made.chunks.end(), next.chunks.begin(), next.chunks.end());
        }
        return made;
    }
    compressed_stream m_stream{GetParam().sectors, GetParam().bytes_per_sector};
};

TEST_P(pump_compressed_on_large_clusters, takes_16_clusters_for_a_unit_on_a_source_of_fewer) {
    const std::size_t unit = m_stream.unit();
    const chunked first = short_chunks(unit / 4096);
    const chunked second = short_chunks(unit / 4096 - 5);
    ASSERT_EQ(unit % 4096, 0u);
    m_stream.unit_of_bytes(first.chunks).unit_of_bytes(second.chunks);
    attr_item item = m_stream.item();
    item.real = item.initialized = 2 * unit - 5 * 4096 - 100;
    opened_volume opened(m_stream.volume());
    ASSERT_LT(opened->source_size(), unit);
    const pumped got = pump(opened.ntfs(), item);
    EXPECT_TRUE(got.ok);
    const bytes expected = first_bytes(concat({first.plain, second.plain}), item.real);
    EXPECT_EQ(got.out.size(), expected.size());
    EXPECT_TRUE(got.out == expected);
}

TEST_P(pump_compressed_on_large_clusters, gives_16_stored_clusters_as_they_are) {
    const std::size_t cluster = m_stream.cluster();
    const bytes stored = random_bytes(cluster, 31);
    m_stream.unit_of_bytes(stored);
    attr_item item = m_stream.item();
    // The same cluster again and again, and a unit that begins like a stored chunk.
    const cluster_run again = item.runs.at(0);
    item.runs.clear();
    bytes expected;
    for (std::uint64_t vcn = 0; vcn < 17; ++vcn) {
        item.runs.push_back({.lcn = again.lcn, .vcn = vcn, .sparse = false, .length = 1});
        expected.insert(expected.end(), stored.begin(), stored.end());
    }
    item.real = item.initialized = item.allocated = 17 * cluster;
    opened_volume opened(m_stream.volume());
    ASSERT_LT(opened->source_size(), m_stream.unit());
    const pumped got = pump(opened.ntfs(), item);
    EXPECT_TRUE(got.ok);
    EXPECT_TRUE(got.out == expected);
}

TEST_P(pump_compressed_on_large_clusters, gives_the_same_as_the_plain_way_on_damaged_streams) {
    std::mt19937 random(GetParam().sectors);
    const std::size_t unit = m_stream.unit();
    const chunked text = short_chunks(unit / 4096);
    m_stream.unit_of_bytes(text.chunks).unit_of_bytes(random_bytes(3000, 5)).unit_of_bytes(text.chunks);
    const attr_item item = m_stream.item();
    const bytes image = m_stream.volume().image();
    const std::size_t content = static_cast<std::size_t>(item.runs.at(0).lcn) * m_stream.cluster();
    for (int round = 0; round < 12; ++round) {
        attr_item changed = item;
        changed.real = changed.initialized = 3 * unit - random() % (2 * unit);
        bytes damaged = image;
        damaged[content + random() % text.chunks.size()] = static_cast<std::uint8_t>(random());
        if (round % 3 == 0) {
            damaged.resize(content + random() % (damaged.size() - content));
        }
        if (round % 4 == 1) {
            changed.runs[0].length += 1;
        }
        if (round % 4 == 2) {
            changed.runs[1].sparse = false;
            changed.runs[1].lcn = changed.runs[0].lcn;
        }
        opened_volume opened(damaged);
        const slow_copy expected = slow_pump_compressed(opened.ntfs(), changed);
        const pumped got = pump(opened.ntfs(), changed);
        ASSERT_EQ(got.ok, expected.ok) << round;
        ASSERT_EQ(got.out.size(), expected.out.size()) << round;
        ASSERT_TRUE(got.out == expected.out) << round;
        ASSERT_EQ(got.bytes_copied, expected.bytes_copied) << round;
    }
}

INSTANTIATE_TEST_SUITE_P(shapes, pump_compressed_on_large_clusters,
                         ::testing::Values(cluster_shape{255, 512}, cluster_shape{255, 1024},
                                           cluster_shape{128, 1024}),
                         [](const auto& shape) {
                             return std::to_string(shape.param.sectors) + "_sectors_of_" +
                                    std::to_string(shape.param.bytes_per_sector);
                         });

TEST(pump_compressed, fails_where_there_is_no_memory) {
    compressed_stream stream(1);
    stream.unit_of_text(text_like(stream.unit(), 22));
    std::size_t failed = 0;
    // Ends where so many pieces are not asked for.
    for (std::size_t count = 0;; ++count) {
        opened_volume opened(stream.volume());
        const attr_item item = stream.item();
        bytes_to_nowhere buffer;
        std::ostream out(&buffer);
        stream_sink sink(out, nullptr);
        const missing_memory memory(count);
        const bool ok = pump_compressed(opened.ntfs(), item.runs, sink, 0, item.real, item.allocated);
        EXPECT_NE(ok, memory.was_missed()) << count;
        if (!memory.was_missed()) {
            break;
        }
        EXPECT_EQ(buffer.taken(), 0u) << count;
        ++failed;
    }
    EXPECT_GT(failed, 0u);
}

}  // namespace
}  // namespace quarry::test
