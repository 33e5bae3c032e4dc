#include "exact/system_compression.h"

#include "support/lzx_builder.h"
#include "support/opened_exact_volume.h"
#include "support/sample_text.h"
#include "support/xpress_builder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {

using exact::byte_range;
using exact::wof_format;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr std::size_t cluster = 4096;

bytes reparse_value(const bytes& data) {
    return concat({from_hex("17 00 00 80"), {static_cast<std::uint8_t>(data.size()), 0, 0, 0}, data});
}

bytes wof_data(std::uint32_t version, std::uint32_t provider, std::uint32_t file_version,
               std::uint32_t format) {
    return byte_writer().u32(0, version).u32(4, provider).u32(8, file_version).u32(12, format).take();
}

std::string format_told_by(const bytes& data) {
    const bytes value = reparse_value(data);
    const auto point = exact::read_reparse_point(byte_view(value), "record 40");
    const auto format = exact::read_wof_format(*point, "record 40");
    return format ? std::string(exact::format_name(*format)) : text_of(format.error());
}

// Chunks after their table of offsets, each of so many bytes.
bytes with_table(const std::vector<bytes>& chunks, unsigned width = 4) {
    byte_writer table;
    std::size_t offset = 0;
    for (std::size_t i = 0; i + 1 < chunks.size(); ++i) {
        offset += chunks[i].size();
        table.number(width * i, width, offset);
    }
    return concat({table.take(), concat(chunks)});
}

// `size` bytes of one kind, as a chunk of each codec.
bytes xpress_of(char letter, std::size_t size) {
    return xpress_builder().literal(static_cast<std::uint8_t>(letter)).match(1, size - 1).build();
}
bytes lzx_of(char letter, std::size_t size) {
    // Two main symbols and two lengths have codes of one bit: the byte, and a match at the last distance.
    lzx_codes codes{bytes(lzx_main_symbols), bytes(lzx_length_symbols), {}};
    codes.main[static_cast<std::uint8_t>(letter)] = 1;
    codes.main[256 + 7] = 1;
    codes.length[0] = 1;
    codes.length[248] = 1;
    lzx_builder chunk;
    chunk.verbatim(size, codes);
    std::size_t done = 0;
    while (done < size) {
        const bool matched = done > 0 && size - done >= 257;
        matched ? chunk.recent(0, 257) : chunk.literal(static_cast<std::uint8_t>(letter));
        done += matched ? 257 : 1;
    }
    return chunk.build();
}
bytes chunk_of(wof_format format, char letter, std::size_t size) {
    return format == wof_format::lzx_32k ? lzx_of(letter, size) : xpress_of(letter, size);
}

constexpr std::array<wof_format, 4> all_formats = {wof_format::xpress_4k, wof_format::lzx_32k,
                                                   wof_format::xpress_8k, wof_format::xpress_16k};

// A volume with one file: its size, without a byte of its own.
struct packed_file {
    volume_builder volume;

    explicit packed_file(std::uint64_t size, geometry shape = {}) : volume(shape) {
        const std::uint64_t clusters = (size + cluster - 1) / cluster;
        if (clusters == 0) {
            volume.add_file("a").data("");
        } else {
            volume.add_file("a").data(runs({{hole, clusters}}), {.real = size, .flags = 0x8000});
        }
    }
    packed_file(std::uint64_t size, const bytes& stored) : packed_file(size) {
        volume.file(first_user_entry).stream("WofCompressedData", stored);
    }
    // Stored from LCN 100 on.
    packed_file(std::uint64_t size, const bytes& stored, run_list where, stream_settings settings = {})
        : packed_file(size) {
        volume.file(first_user_entry).stream("WofCompressedData", stored, std::move(where), settings);
    }
};

exact_copy copy_of(opened_exact_volume& opened, wof_format format, exact::stream_sink& sink,
                   const exact::delivery_options& options = {}) {
    exact_copy copy;
    const auto failed_with = [&](const exact::failure& failed) {
        copy.failed = text_of(failed);
        return copy;
    };
    auto base = opened.volume().table().read_asked(first_user_entry, std::nullopt, copy.said);
    auto set = exact::attribute_set::of(opened.volume().table(), std::move(*base), copy.said);
    auto stream = exact::stream::open_system_compressed(opened.volume(), *set, format, copy.said);
    if (!stream) {
        return failed_with(stream.error());
    }
    const auto done = stream->deliver(sink, options, copy.said);
    if (!done) {
        return failed_with(done.error());
    }
    copy.told = *done;
    return copy;
}

exact_copy copy_of(opened_exact_volume& opened, wof_format format,
                   const exact::delivery_options& options = {}) {
    collecting_sink sink;
    exact_copy copy = copy_of(opened, format, sink, options);
    copy.content = sink.content();
    copy.holes = sink.holes();
    return copy;
}

exact_copy copy_of(const packed_file& file, wof_format format, const exact::delivery_options& options = {}) {
    opened_exact_volume opened(file.volume);
    return copy_of(opened, format, options);
}

void expect_copy(const exact_copy& copy, const bytes& content) {
    EXPECT_EQ(copy.failed, "");
    EXPECT_EQ(text_of(copy.said), "");
    EXPECT_EQ(copy.told.bytes, content.size());
    EXPECT_TRUE(copy.content == content);
}

std::string failure_of(std::uint64_t size, const bytes& stored) {
    return copy_of(packed_file(size, stored), wof_format::xpress_4k).failed;
}

const std::string where = "wof record 24, $DATA \"WofCompressedData\"";

// Ends the delivery once it has so many bytes.
class short_sink final : public exact::stream_sink {
  public:
    explicit short_sink(std::size_t wanted) : m_wanted(wanted) {}
    [[nodiscard]] exact::result<void> data(byte_view block) override {
        m_bytes.insert(m_bytes.end(), block.span().begin(), block.span().end());
        return m_bytes.size() < m_wanted ? exact::result<void>()
                                         : exact::fail(exact::failure_code::write, "it", "has enough");
    }
    [[nodiscard]] exact::result<void> zeros(std::uint64_t) override {
        return exact::fail(exact::failure_code::write, "it", "wants no zeros");
    }
    [[nodiscard]] const bytes& content() const { return m_bytes; }

  private:
    std::size_t m_wanted;
    bytes m_bytes;
};

}  // namespace

TEST(system_compression, has_four_formats) {
    EXPECT_EQ(format_told_by(wof_data(1, 2, 1, 0)), "xpress4k");
    EXPECT_EQ(format_told_by(wof_data(1, 2, 1, 1)), "lzx");
    EXPECT_EQ(format_told_by(wof_data(1, 2, 1, 2)), "xpress8k");
    EXPECT_EQ(format_told_by(wof_data(1, 2, 1, 3)), "xpress16k");
    // Later systems add flags.
    EXPECT_EQ(format_told_by(concat({wof_data(1, 2, 1, 3), bytes(4)})), "xpress16k");
    EXPECT_EQ(exact::chunk_size(wof_format::xpress_4k), 4096u);
    EXPECT_EQ(exact::chunk_size(wof_format::xpress_8k), 8192u);
    EXPECT_EQ(exact::chunk_size(wof_format::xpress_16k), 16384u);
    EXPECT_EQ(exact::chunk_size(wof_format::lzx_32k), 32768u);
}

TEST(system_compression, refuses_other_values_of_the_reparse_point) {
    EXPECT_EQ(format_told_by(wof_data(1, 1, 1, 0)), "wof record 40: the data is in a WIM file (provider 1)");
    EXPECT_EQ(format_told_by(concat({wof_data(1, 1, 2, 7), bytes(40)})),
              "wof record 40: the data is in a WIM file (provider 1)");
    const std::string has = "wof record 40: the reparse point has ";
    EXPECT_EQ(format_told_by(wof_data(2, 2, 1, 0)), has + "version 2, provider 2, version 1, format 0");
    EXPECT_EQ(format_told_by(wof_data(1, 3, 1, 0)), has + "version 1, provider 3, version 1, format 0");
    EXPECT_EQ(format_told_by(wof_data(1, 2, 0, 0)), has + "version 1, provider 2, version 0, format 0");
    EXPECT_EQ(format_told_by(wof_data(1, 2, 1, 4)), has + "version 1, provider 2, version 1, format 4");
    EXPECT_EQ(format_told_by(wof_data(1, 2, 1, 0xFFFFFFFF)),
              has + "version 1, provider 2, version 1, format 4294967295");
    for (std::size_t size = 0; size < 16; ++size) {
        bytes data = wof_data(1, 2, 1, 0);
        data.resize(size);
        EXPECT_EQ(format_told_by(data), has + std::to_string(size) + " bytes of data");
    }
}

TEST(system_compression, copies_chunks_by_the_table_ahead_of_them) {
    // Chunks of 300, 4096 and 1 bytes: the second and the third are stored as they are.
    bytes first = xpress_builder().literals(to_bytes("abc")).match(3, 4093).build();
    first.resize(300);
    const bytes second = random_bytes(4096, 1);
    const bytes stored = concat({from_hex("2C 01 00 00  2C 11 00 00"), first, second, to_bytes("!")});
    bytes plain;
    while (plain.size() < 4096) {
        plain.push_back(to_bytes("abc")[plain.size() % 3]);
    }
    plain = concat({plain, second, to_bytes("!")});
    expect_copy(copy_of(packed_file(8193, stored), wof_format::xpress_4k), plain);
}

TEST(system_compression, copies_files_of_every_format_and_size) {
    for (const wof_format format : all_formats) {
        const std::size_t chunk = exact::chunk_size(format);
        for (const std::size_t size :
             {std::size_t{1}, std::size_t{600}, chunk - 1, chunk, chunk + 1, 3 * chunk, 40 * chunk + 777}) {
            std::vector<bytes> chunks;
            bytes plain;
            while (plain.size() < size) {
                const std::size_t length = std::min(chunk, size - plain.size());
                const auto letter = static_cast<char>('a' + chunks.size() % 26);
                const bytes letters(length, static_cast<std::uint8_t>(letter));
                const bytes packed = length < 300 ? letters : chunk_of(format, letter, length);
                chunks.push_back(packed.size() < length ? packed : letters);
                plain.insert(plain.end(), letters.begin(), letters.end());
            }
            const exact_copy copy = copy_of(packed_file(size, with_table(chunks)), format);
            EXPECT_EQ(copy.failed, "") << format_name(format) << ", " << size;
            EXPECT_TRUE(copy.content == plain) << format_name(format) << ", " << size;
            EXPECT_EQ(text_of(copy.said), "");
        }
    }
}

TEST(system_compression, copies_a_stream_in_fragments) {
    std::vector<bytes> chunks;
    bytes plain;
    for (int i = 0; i < 70; ++i) {
        chunks.push_back(random_bytes(4096, static_cast<std::uint32_t>(i)));
        plain = concat({plain, chunks.back()});
    }
    const packed_file file(plain.size(), with_table(chunks),
                           runs({{160, 1}, {120, 20}, {110, 5}, {165, 40}, {300, 5}}));
    expect_copy(copy_of(file, wof_format::xpress_4k), plain);
}

// 150 chunks stored as they are after a table of 596 bytes: 151 clusters, each two after the one before.
TEST(system_compression, announces_each_later_piece_of_its_stream_once) {
    const std::vector<bytes> chunks(150, random_bytes(4096, 1));
    run_list runs;
    memory_source::announcements expected;
    for (std::uint64_t i = 0; i < 151; ++i) {
        runs.push_back({static_cast<std::int64_t>(200 + 2 * i), 1});
        // The last piece has as much as the table took from the first.
        expected.emplace_back((200 + 2 * i) * 4096, i < 150 ? 4096 : 596);
    }
    expected.erase(expected.begin());
    const packed_file file(150 * 4096, with_table(chunks), runs);
    opened_exact_volume opened(file.volume);
    static_cast<void>(opened.volume());
    opened.source().announced().clear();
    expect_copy(copy_of(opened, wof_format::xpress_4k), concat(chunks));
    EXPECT_EQ(opened.source().announced(), expected);
}

TEST(system_compression, of_an_empty_file_needs_no_stream) {
    expect_copy(copy_of(packed_file(0), wof_format::lzx_32k), {});
    expect_copy(copy_of(packed_file(0, to_bytes("anything")), wof_format::lzx_32k), {});
}

TEST(system_compression, fails_without_its_stream) {
    const std::string missing =
        "wof record 24, $DATA \"\": no stream \"WofCompressedData\", from which it is decoded";
    EXPECT_EQ(copy_of(packed_file(5), wof_format::lzx_32k).failed, missing);
    packed_file other(5);
    other.volume.file(first_user_entry).stream("wofcompresseddata", "abcde");
    EXPECT_EQ(copy_of(other, wof_format::lzx_32k).failed, missing);
}

TEST(system_compression, fails_if_its_table_does_not_fit) {
    // 4 chunks: a table of 12 bytes, and a byte for each.
    EXPECT_EQ(failure_of(3 * 4096 + 1, bytes(11, 1)),
              where + ": has 11 bytes, its table of 4 chunks takes 12");
    EXPECT_EQ(failure_of(3 * 4096 + 1, {}), where + ": has 0 bytes, its table of 4 chunks takes 12");
    EXPECT_EQ(failure_of(1, {}), where + ": chunk 0: has 0 bytes for 1");
    EXPECT_EQ(failure_of(4097, bytes(4)), where + ": chunk 0: has 0 bytes for 4096");
}

TEST(system_compression, fails_if_offsets_fall_or_lead_past_the_end) {
    const auto offsets = [](std::uint32_t second, std::uint32_t third) {
        return concat({byte_writer().u32(0, second).u32(4, third).take(), xpress_of('x', 4096),
                       xpress_of('y', 4096), to_bytes("!")});
    };
    const auto size = static_cast<std::uint32_t>(xpress_of('x', 4096).size());
    // The lengths of the codes, three words, and three bytes of a length.
    ASSERT_EQ(size, 265u);
    EXPECT_EQ(failure_of(8193, offsets(size, 2 * size)), "");
    EXPECT_EQ(failure_of(8193, offsets(0, 2 * size)), where + ": chunk 0: has 0 bytes for 4096");
    EXPECT_EQ(failure_of(8193, offsets(size, size - 1)),
              where + ": chunk 1: ends at byte 264, begins at byte 265; all chunks have 531");
    EXPECT_EQ(failure_of(8193, offsets(size, 532)),
              where + ": chunk 1: ends at byte 532, begins at byte 265; all chunks have 531");
    EXPECT_EQ(failure_of(8193, offsets(size, 0xFFFFFFFF)),
              where + ": chunk 1: ends at byte 4294967295, begins at byte 265; all chunks have 531");
    EXPECT_EQ(failure_of(8193, offsets(size, 531)), where + ": chunk 2: has 0 bytes for 1");
    EXPECT_EQ(failure_of(8193, concat({offsets(size, 2 * size), to_bytes("!")})),
              where + ": chunk 2: has 2 bytes for 1");
}

TEST(system_compression, fails_if_a_chunk_is_longer_than_what_it_is_for) {
    EXPECT_EQ(failure_of(4096, bytes(4096)), "");
    EXPECT_EQ(failure_of(4096, bytes(4097)), where + ": chunk 0: has 4097 bytes for 4096");
    EXPECT_EQ(failure_of(4097, concat({from_hex("01 10 00 00"), bytes(4098)})),
              where + ": chunk 0: has 4097 bytes for 4096");
}

TEST(system_compression, fails_at_the_first_of_two_damaged_chunks) {
    // Chunk 0 is too short for its code, and chunk 1 ends before it begins.
    const bytes stored = concat({byte_writer().u32(0, 10).u32(4, 9).take(), bytes(100)});
    EXPECT_EQ(failure_of(8193, stored), where + ": chunk 0: it ends inside of its code lengths");
}

TEST(system_compression, fails_at_the_chunk_that_does_not_decode) {
    std::vector<bytes> chunks(9, xpress_of('x', 4096));
    chunks[7] = bytes(264);
    EXPECT_EQ(failure_of(9 * 4096, with_table(chunks)), where + ": chunk 7: its code is not complete");
    // Zeros are for what cannot be read, not for this.
    EXPECT_EQ(
        copy_of(packed_file(9 * 4096, with_table(chunks)), wof_format::xpress_4k, {.zero_unreadable = true})
            .failed,
        where + ": chunk 7: its code is not complete");
    chunks.assign(9, lzx_of('x', 32768));
    chunks[8] = lzx_builder().header(0, 4).build();
    EXPECT_EQ(copy_of(packed_file(9 * 32768, with_table(chunks)), wof_format::lzx_32k).failed,
              where + ": chunk 8: a block has no type that there is");
}

TEST(system_compression, fails_where_it_cannot_be_read) {
    std::vector<bytes> chunks(30, random_bytes(4096, 1));
    opened_exact_volume opened(packed_file(30 * 4096, with_table(chunks), runs({{100, 31}})).volume);
    opened.source().unreadable(110 * cluster + 200, 1);
    EXPECT_THAT(copy_of(opened, wof_format::xpress_4k).failed,
                StartsWith("source-read record 24, $DATA \"WofCompressedData\": VCN 10: "));
}

TEST(system_compression, is_zeros_for_chunks_that_cannot_be_read_if_these_are_wanted) {
    // Chunk 5 begins in VCN 5, after a table of 116 bytes, and ends in VCN 6.
    std::vector<bytes> chunks(30, bytes(4096, 'x'));
    opened_exact_volume opened(packed_file(30 * 4096, with_table(chunks), runs({{100, 31}})).volume);
    opened.source().unreadable(106 * cluster, 1);
    const exact_copy copy = copy_of(opened, wof_format::xpress_4k, {.zero_unreadable = true});
    bytes plain(30 * 4096, 'x');
    std::fill_n(plain.begin() + 5 * 4096, 4096, std::uint8_t{0});
    EXPECT_EQ(copy.failed, "");
    EXPECT_TRUE(copy.content == plain);
    EXPECT_EQ(copy.told.unread, (std::vector<byte_range>{{5 * 4096, 4096}}));
    EXPECT_EQ(text_of(copy.said), "unreadable record 24, $DATA \"\": 4096 bytes at 0x5000 are zeros\n");
    EXPECT_TRUE(copy.said.in_doubt());
    // The table is never zeros.
    opened.source().unreadable(100 * cluster, 1);
    EXPECT_THAT(copy_of(opened, wof_format::xpress_4k, {.zero_unreadable = true}).failed,
                StartsWith("source-read record 24, $DATA \"WofCompressedData\": VCN 0: "));
}

TEST(system_compression, is_not_read_from_a_stream_that_is_itself_compressed_or_encrypted) {
    const auto with_flags = [](std::uint16_t flags) {
        return copy_of(packed_file(4096, bytes(4096), runs({{100, 16}}),
                                   {.real = 4096, .compressed = 0, .unit = 4, .flags = flags}),
                       wof_format::xpress_4k)
            .failed;
    };
    EXPECT_THAT(with_flags(0x0001), StartsWith("flags record 24, $DATA \"WofCompressedData\": "));
    EXPECT_THAT(with_flags(0x4000), StartsWith("encrypted record 24, $DATA \"WofCompressedData\": "));
    EXPECT_EQ(with_flags(0x8000), "");
}

TEST(system_compression, leaves_the_stored_stream_to_be_copied_by_its_name) {
    const bytes stored = with_table({xpress_of('x', 4096), to_bytes("!")});
    opened_exact_volume opened(packed_file(4097, stored).volume);
    EXPECT_EQ(opened.copy(first_user_entry, u"WofCompressedData").content, stored);
    EXPECT_EQ(opened.copy(first_user_entry, {}, {.raw = true}).content, bytes(8192));
}

TEST(system_compression, of_a_deleted_file_is_in_doubt_for_the_clusters_that_are_read) {
    packed_file file(2 * 4096, with_table({random_bytes(4096, 1), random_bytes(4096, 2)}), runs({{100, 3}}));
    file.volume.file(first_user_entry).deleted();
    const exact_copy copy = copy_of(file, wof_format::xpress_4k);
    EXPECT_EQ(copy.failed, "");
    EXPECT_THAT(text_of(copy.said), HasSubstr("reused-clusters record 24, $DATA \"WofCompressedData\": "));
    EXPECT_THAT(text_of(copy.said), HasSubstr(" of 3 clusters belong to other files now"));
}

TEST(system_compression, has_offsets_of_8_bytes_from_a_size_of_2_to_the_32_on) {
    constexpr std::uint64_t limit = std::uint64_t{1} << 32;
    std::vector<bytes> chunks;
    for (std::uint64_t i = 0; i < limit / 32768; ++i) {
        static const std::array<bytes, 3> letters = {lzx_of('a', 32768), lzx_of('b', 32768),
                                                     lzx_of('c', 32768)};
        chunks.push_back(letters[i % 3]);
    }
    const auto begin_of = [&](std::uint64_t size, const bytes& stored) {
        packed_file file(size, geometry{.total_clusters = 8000});
        file.volume.file(first_user_entry).stream("WofCompressedData", stored);
        opened_exact_volume opened(file.volume);
        short_sink sink(0x100000);
        EXPECT_EQ(copy_of(opened, wof_format::lzx_32k, sink).failed, "write it: has enough");
        return sink.content();
    };
    bytes plain;
    for (int i = 0; i < 32; ++i) {
        plain.insert(plain.end(), 32768, static_cast<std::uint8_t>('a' + i % 3));
    }
    EXPECT_TRUE(begin_of(limit - 1, with_table(chunks, 4)) == plain);
    EXPECT_TRUE(begin_of(limit, with_table(chunks, 8)) == plain);
    chunks.push_back(to_bytes("!"));
    EXPECT_TRUE(begin_of(limit + 1, with_table(chunks, 8)) == plain);
}

TEST(system_compression, claims_of_a_prepared_disk_cost_no_memory) {
    // A file of 2^60 bytes has a table of 2^51 bytes, of which there are holes: the first chunk has no byte.
    packed_file file(std::uint64_t{1} << 60);
    file.volume.file(first_user_entry)
        .stream("WofCompressedData", runs({{hole, std::uint64_t{1} << 40}}),
                {.real = std::uint64_t{1} << 52, .flags = 0x8000});
    EXPECT_EQ(copy_of(file, wof_format::xpress_4k).failed, where + ": chunk 0: has 0 bytes for 4096");
}

}  // namespace quarry::test
