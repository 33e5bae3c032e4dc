#include "exact/stream.h"

#include "support/lznt1_encoder.h"
#include "support/opened_exact_volume.h"
#include "support/sample_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {

using exact::byte_range;
using testing::HasSubstr;

namespace {

constexpr std::size_t cluster = 4096;
constexpr std::size_t unit = 16 * cluster;

exact_copy copy_of(const volume_builder& volume, std::u16string_view name = {},
                   const exact::delivery_options& options = {}) {
    opened_exact_volume opened(volume);
    return opened.copy(first_user_entry, name, options);
}

// What is expected of a copy without a doubt.
void expect_copy(const exact_copy& copy, const bytes& content) {
    EXPECT_EQ(copy.failed, "");
    EXPECT_EQ(text_of(copy.said), "");
    EXPECT_EQ(copy.told.bytes, content.size());
    EXPECT_EQ(copy.told.unread, std::vector<byte_range>{});
    EXPECT_TRUE(copy.content == content);
}

// A compressed file: its bytes from LCN 100 on, and the runs.
struct compressed_volume {
    volume_builder volume{{.total_clusters = 400}};

    compressed_volume(const bytes& stored, run_list where, std::uint64_t size,
                      stream_settings settings = {}) {
        settings.flags = 1;
        settings.unit = settings.unit == 0 ? 4 : settings.unit;
        settings.real = size;
        settings.compressed = 0;
        volume.write_clusters(100, stored);
        volume.add_file("a").data(std::move(where), settings);
    }
};

bytes clusters_with(const bytes& content) {
    return byte_writer(content).pad_to_multiple(cluster).take();
}

}  // namespace

TEST(stream, copies_a_resident_value) {
    volume_builder volume;
    volume.add_file("a").data("hello");
    expect_copy(copy_of(volume), to_bytes("hello"));
}

TEST(stream, copies_an_empty_file) {
    volume_builder resident;
    resident.add_file("a").data("");
    expect_copy(copy_of(resident), {});
    volume_builder stored;
    stored.add_file("a").data(run_list{}, {.real = 0});
    expect_copy(copy_of(stored), {});
    volume_builder with_clusters;
    with_clusters.add_file("a").data(runs({{100, 2}}), {.real = 0, .initialized = 0});
    expect_copy(copy_of(with_clusters), {});
}

TEST(stream, copies_runs_in_the_order_of_the_stream) {
    volume_builder volume;
    const bytes content = pattern(5 * cluster - 100);
    volume.add_file("a").data(content, runs({{120, 2}, {100, 1}, {122, 1}, {123, 1}}));
    expect_copy(copy_of(volume), content);
}

TEST(stream, has_zeros_in_its_holes_and_reports_them) {
    volume_builder volume;
    const bytes text = pattern(2 * cluster);
    volume.write_clusters(100, text);
    volume.add_file("a").data(runs({{hole, 1}, {100, 1}, {hole, 2}, {hole, 1}, {101, 1}, {hole, 3}}),
                              {.real = 8 * cluster + 5, .flags = 0x8000});
    const exact_copy copy = copy_of(volume);
    bytes content = concat({bytes(cluster), bytes(text.begin(), text.begin() + cluster), bytes(3 * cluster),
                            bytes(text.begin() + cluster, text.end())});
    content.resize(8 * cluster + 5);
    expect_copy(copy, content);
    EXPECT_EQ(copy.holes, (std::vector<byte_range>{
                              {0, cluster}, {2 * cluster, 3 * cluster}, {6 * cluster, 2 * cluster + 5}}));
}

TEST(stream, is_zeros_after_its_valid_length) {
    for (const std::size_t valid :
         {std::size_t{0}, std::size_t{1}, cluster - 1, cluster, cluster + 1, 3 * cluster - 7}) {
        volume_builder volume;
        bytes content = pattern(3 * cluster);
        volume.add_file("a").data(content, runs({{100, 3}}), {.real = 3 * cluster - 7, .initialized = valid});
        content.resize(3 * cluster - 7);
        std::fill(content.begin() + static_cast<std::ptrdiff_t>(valid), content.end(), std::uint8_t{0});
        const exact_copy copy = copy_of(volume);
        expect_copy(copy, content);
        if (valid < content.size()) {
            EXPECT_EQ(copy.holes, (std::vector<byte_range>{{valid, content.size() - valid}}));
        }
    }
}

TEST(stream, reads_no_cluster_after_its_valid_length) {
    volume_builder volume;
    volume.add_file("a").data(pattern(3 * cluster), runs({{100, 3}}), {.initialized = cluster + 10});
    opened_exact_volume opened(volume);
    opened.source().unreadable(101 * cluster + 10, 2 * cluster);
    EXPECT_EQ(opened.copy(first_user_entry).failed, "");
}

TEST(stream, is_delivered_in_blocks_of_at_most_4_MiB) {
    volume_builder volume;
    const bytes content = random_bytes(std::size_t{9} << 20, 3);
    volume.add_file("a").data(content, runs({{100, 1000}, {1200, 1304}}));
    opened_exact_volume opened(volume);
    expect_copy(opened.copy(first_user_entry), content);
    const std::size_t before = opened.source().reads();
    static_cast<void>(opened.copy(first_user_entry));
    // 9 MiB in two runs are 16 and 21 reads of 256 KiB; the rest finds the file.
    EXPECT_LT(opened.source().reads() - before, 45u) << "neighbouring clusters are read together";
}

TEST(stream, raw_is_all_allocated_clusters_as_they_lie) {
    volume_builder volume;
    const bytes text = pattern(4 * cluster);
    volume.write_clusters(100, text);
    volume.add_file("a").data(runs({{100, 2}, {hole, 1}, {102, 2}}), {.real = cluster + 1, .initialized = 7});
    const exact_copy copy = copy_of(volume, {}, {.raw = true});
    expect_copy(copy, concat({bytes(text.begin(), text.begin() + 2 * cluster), bytes(cluster),
                              bytes(text.begin() + 2 * cluster, text.end())}));
    volume_builder resident;
    resident.add_file("a").data("hello");
    expect_copy(copy_of(resident, {}, {.raw = true}), to_bytes("hello"));
}

TEST(stream, fails_if_its_sizes_do_not_follow_each_other) {
    const auto sizes = [](stream_settings settings) {
        volume_builder volume;
        volume.add_file("a").data(runs({{100, 2}}), settings);
        return copy_of(volume).failed;
    };
    EXPECT_EQ(sizes({.real = 2 * cluster, .initialized = 2 * cluster}), "");
    // The first attribute of type 0x80 in record 24.
    volume_builder volume;
    volume.add_file("a").data(runs({{100, 2}}));
    const bytes image = volume.image();
    const bytes begins = from_hex("80 00 00 00  48 00 00 00  01");
    const auto record = image.begin() + static_cast<std::ptrdiff_t>(volume.record_position(24));
    const auto place = std::search(record, image.end(), begins.begin(), begins.end()) - image.begin();
    EXPECT_EQ(sizes({.real = 5000, .initialized = 5001}),
              "sizes record 24, $DATA \"\": allocated 8192, size 5000, valid 5001, clusters for 8192 (source "
              "byte " +
                  exact::hex(static_cast<std::uint64_t>(place)) + ")");
    EXPECT_NE(sizes({.real = 8193, .initialized = 0}), "");
    EXPECT_NE(sizes({.allocated = cluster}), "");
    EXPECT_NE(sizes({.real = 10, .allocated = 3 * cluster}), "");
    EXPECT_NE(sizes({.real = 10, .allocated = 8191}), "");
    EXPECT_NE(sizes({.real = ~std::uint64_t{0}, .initialized = 0, .allocated = ~std::uint64_t{0}}), "");
}

TEST(stream, fails_at_flags_that_it_does_not_know) {
    const auto flags = [](std::uint16_t value) {
        volume_builder volume;
        volume.add_file("a").data(runs({{100, 16}}), {.compressed = 0, .unit = 4, .flags = value});
        return copy_of(volume).failed;
    };
    EXPECT_EQ(flags(0), "");
    EXPECT_EQ(flags(1), "");
    EXPECT_EQ(flags(0x8000), "");
    EXPECT_EQ(flags(0x8001), "");
    EXPECT_THAT(flags(2), HasSubstr("flags record 24, $DATA \"\": flags are 0x2 (source byte 0x"));
    for (const int value : {0x00FF, 0x0100, 0x2000, 0x1000}) {
        EXPECT_THAT(flags(static_cast<std::uint16_t>(value)), HasSubstr("flags record 24"));
    }
}

TEST(stream, that_is_encrypted_is_copied_raw_only) {
    volume_builder volume;
    const bytes content = pattern(2 * cluster);
    volume.add_file("a").data(content, runs({{100, 2}}), {.real = 5000, .flags = 0x4000});
    EXPECT_EQ(copy_of(volume).failed,
              "encrypted record 24, $DATA \"\": encrypted (EFS); -raw copies the stored "
              "bytes, of which 5000 count");
    expect_copy(copy_of(volume, {}, {.raw = true}), content);
    volume_builder empty;
    empty.add_file("a").data(run_list{}, {.real = 0, .flags = 0x4000});
    expect_copy(copy_of(empty), {});
}

TEST(stream, that_is_encrypted_is_copied_raw_only_in_its_record_too) {
    volume_builder volume;
    volume.add_file("a").attribute(attribute_builder::resident(0x80, to_bytes("cipher")).flags(0x4000));
    EXPECT_EQ(copy_of(volume).failed,
              "encrypted record 24, $DATA \"\": encrypted (EFS); -raw copies the stored "
              "bytes, of which 6 count");
    expect_copy(copy_of(volume, {}, {.raw = true}), to_bytes("cipher"));
    volume_builder compressed;
    compressed.add_file("a").attribute(attribute_builder::resident(0x80, to_bytes("plain")).flags(0x0001));
    expect_copy(copy_of(compressed), to_bytes("plain"));
}

TEST(stream, is_chosen_by_its_units_before_case_counts) {
    volume_builder volume({.system_files = true});
    volume.add_file("a").data("unnamed").stream("Zone", "1").stream("zone", "2").stream("other", "3");
    expect_copy(copy_of(volume), to_bytes("unnamed"));
    expect_copy(copy_of(volume, u"zone"), to_bytes("2"));
    expect_copy(copy_of(volume, u"Zone"), to_bytes("1"));
    expect_copy(copy_of(volume, u"OTHER"), to_bytes("3"));
    EXPECT_EQ(copy_of(volume, u"ZONE").failed,
              "ambiguous record 24: several names differ only in case: \"Zone\", \"zone\"");
    EXPECT_THAT(copy_of(volume, u"zones").failed, HasSubstr("no-stream record 24: no stream \"zones\""));
}

TEST(stream, of_a_directory_is_named) {
    volume_builder volume;
    volume.add_directory("d").stream("notes", "text");
    EXPECT_EQ(copy_of(volume).failed,
              "directory record 24: is a directory; name a stream, or list its files with -list");
    expect_copy(copy_of(volume, u"notes"), to_bytes("text"));
}

TEST(stream, with_two_values_is_none) {
    volume_builder volume;
    volume.add_file("a").data("one").data("two");
    EXPECT_THAT(copy_of(volume).failed, HasSubstr("duplicate record 24, $DATA \"\": stands twice at VCN 0"));
    volume_builder mixed;
    mixed.add_file("a").data("one").data(runs({{100, 1}}));
    EXPECT_THAT(copy_of(mixed).failed, HasSubstr("duplicate record 24"));
}

TEST(stream, warns_of_a_cluster_that_it_uses_twice) {
    volume_builder volume;
    volume.add_file("a").data(runs({{100, 2}, {101, 1}}));
    EXPECT_EQ(text_of(copy_of(volume).said), "cluster-twice record 24, $DATA \"\": uses cluster 101 twice\n");
}

TEST(stream, fails_where_it_cannot_be_read) {
    volume_builder volume;
    volume.add_file("a").data(pattern(4 * cluster), runs({{100, 2}, {110, 2}}));
    opened_exact_volume opened(volume);
    opened.source().unreadable(111 * cluster + 300, 1);
    EXPECT_EQ(opened.copy(first_user_entry).failed,
              "source-read record 24, $DATA \"\": VCN 3: 3796 bytes cannot be read: Input/output error, at "
              "stream byte 0x312C (source byte 0x6F12C)");
}

TEST(stream, fails_where_the_source_ends) {
    volume_builder volume;
    volume.add_file("a").data(pattern(2 * cluster), runs({{500, 2}}));
    bytes image = volume.image();
    image.resize(501 * cluster + 1);
    opened_exact_volume opened(image);
    EXPECT_EQ(opened.copy(first_user_entry).failed,
              "source-end source image: ends at byte 0x1F5001, byte 0x1F5001 is needed");
}

TEST(stream, has_zeros_for_unreadable_sectors_if_asked) {
    volume_builder volume;
    bytes content = pattern(40 * cluster);
    volume.add_file("a").data(content, runs({{100, 40}}), {.real = 40 * cluster - 3});
    content.resize(40 * cluster - 3);
    opened_exact_volume opened(volume);
    opened.source().unreadable(103 * cluster + 700, 1).unreadable(130 * cluster, 1024);
    const exact_copy copy = opened.copy(first_user_entry, {}, {.zero_unreadable = true});
    std::fill_n(content.begin() + 3 * cluster + 512, 512, std::uint8_t{0});
    std::fill_n(content.begin() + 30 * cluster, 1024, std::uint8_t{0});
    EXPECT_EQ(copy.failed, "");
    EXPECT_TRUE(copy.content == content);
    EXPECT_EQ(copy.told.unread, (std::vector<byte_range>{{3 * cluster + 512, 512}, {30 * cluster, 1024}}));
    EXPECT_EQ(text_of(copy.said),
              "unreadable record 24, $DATA \"\": 512 bytes at 0x3200 are zeros\n"
              "unreadable record 24, $DATA \"\": 1024 bytes at 0x1E000 are zeros\n");
    EXPECT_TRUE(copy.said.in_doubt());
}

// Up to its last byte, which may lie inside of a sector.
TEST(stream, has_zeros_after_the_end_of_the_source_if_asked) {
    volume_builder volume;
    const bytes content = pattern(3 * cluster);
    volume.add_file("a").data(content, runs({{500, 3}}));
    bytes image = volume.image();
    // Each image is a part of the one before it.
    for (const std::uint64_t held :
         {2 * cluster, cluster + 1000, cluster + 512, cluster + 511, cluster + 1, cluster}) {
        image.resize(500 * cluster + held);
        opened_exact_volume opened(image);
        const exact_copy copy = opened.copy(first_user_entry, {}, {.zero_unreadable = true});
        bytes expected = content;
        std::fill(expected.begin() + static_cast<std::ptrdiff_t>(held), expected.end(), std::uint8_t{0});
        EXPECT_TRUE(copy.content == expected) << held;
        EXPECT_EQ(copy.told.unread, (std::vector<byte_range>{{held, 3 * cluster - held}})) << held;
        EXPECT_TRUE(copy.said.in_doubt());
    }
}

TEST(stream, reports_ten_ranges_and_the_number_of_the_others) {
    volume_builder volume;
    volume.add_file("a").data(pattern(40 * cluster), runs({{100, 40}}));
    opened_exact_volume opened(volume);
    for (std::uint64_t i = 0; i < 13; ++i) {
        opened.source().unreadable((101 + 2 * i) * cluster, 1);
    }
    const exact_copy copy = opened.copy(first_user_entry, {}, {.zero_unreadable = true});
    EXPECT_EQ(copy.told.unread.size(), 13u);
    EXPECT_EQ(copy.said.all().size(), 11u);
    EXPECT_EQ(copy.said.all().back().why, "3 further ranges are zeros");
}

TEST(stream, of_a_deleted_file_is_in_doubt_and_reports_reused_clusters) {
    volume_builder volume;
    const bytes content = pattern(4 * cluster);
    volume.add_file("a").data(content, runs({{100, 4}})).deleted();
    const exact_copy copy = copy_of(volume);
    EXPECT_TRUE(copy.content == content);
    EXPECT_EQ(copy.told.reused_clusters, 4u);
    EXPECT_TRUE(copy.said.in_doubt());
    EXPECT_THAT(
        text_of(copy.said),
        HasSubstr(
            "reused-clusters record 24, $DATA \"\": deleted; 4 of 4 clusters belong to other files now\n"));
    volume_builder resident;
    resident.add_file("a").data("hello").deleted();
    EXPECT_FALSE(copy_of(resident).said.in_doubt());
    EXPECT_EQ(copy_of(resident).told.reused_clusters, std::nullopt);
}

namespace {

// Where the image has the bits of cluster 96 and of the seven after it in $Bitmap.
std::size_t byte_of_cluster_96(opened_exact_volume& opened) {
    exact::notices told;
    auto bitmap_record = opened.volume().table().read_system(6, told);
    auto bitmap_set = exact::attribute_set::of(opened.volume().table(), std::move(*bitmap_record), told);
    auto bitmap = exact::stream::open(opened.volume(), *bitmap_set, 0x80, u"", told);
    return static_cast<std::size_t>(
        bitmap->stored().place_of(opened.volume().bytes(), 12, 1, "it").source_byte(0).value());
}

}  // namespace

TEST(stream, of_a_deleted_file_reports_how_many_of_its_clusters_are_used_again) {
    volume_builder volume;
    volume.add_file("a").data(pattern(40 * cluster), runs({{116, 20}, {96, 20}})).deleted();
    bytes image = volume.image();
    opened_exact_volume before(image);
    const std::size_t bits = byte_of_cluster_96(before);
    // Clusters 97 to 99, 104 and 126 to 133 stay in use: 12 of those from 96 to 135.
    const bytes partly_used = {0x0E, 0x01, 0x00, 0xC0, 0x3F};
    std::copy(partly_used.begin(), partly_used.end(), image.begin() + static_cast<std::ptrdiff_t>(bits));
    opened_exact_volume opened(image);
    const exact_copy copy = opened.copy(first_user_entry);
    EXPECT_EQ(copy.told.reused_clusters, 12u);
    EXPECT_THAT(
        text_of(copy.said),
        HasSubstr(
            "reused-clusters record 24, $DATA \"\": deleted; 12 of 40 clusters belong to other files now\n"));
}

TEST(stream, whose_clusters_are_free_is_in_doubt) {
    volume_builder volume;
    volume.add_file("a").data(pattern(4 * cluster), runs({{100, 4}}));
    bytes image = volume.image();
    opened_exact_volume sound(image);
    EXPECT_FALSE(sound.copy(first_user_entry).said.in_doubt());
    // Clusters 101 and 102 become free.
    const std::size_t bits = byte_of_cluster_96(sound);
    ASSERT_EQ(image[bits] & 0xF0, 0xF0);
    image[bits] &= 0x9F;
    opened_exact_volume opened(image);
    EXPECT_EQ(text_of(opened.copy(first_user_entry).said),
              "free-clusters record 24, $DATA \"\": 2 of 4 clusters are free in $Bitmap\n");
}

TEST(stream, of_clusters_is_the_clusters) {
    volume_builder volume({.total_clusters = 300});
    const bytes content = pattern(3 * cluster);
    volume.write_clusters(200, content);
    opened_exact_volume opened(volume);
    exact::notices told;
    collecting_sink sink;
    auto stream = exact::stream::of_clusters(opened.volume(), 200, 3);
    ASSERT_TRUE(stream);
    ASSERT_TRUE(stream->deliver(sink, {}, told));
    EXPECT_TRUE(sink.content() == content);
    EXPECT_TRUE(exact::stream::of_clusters(opened.volume(), 299, 1));
    EXPECT_EQ(exact::stream::of_clusters(opened.volume(), 299, 2).error().text(),
              "clusters from 299: clusters 299 to 300 lie outside of the volume of 300");
    EXPECT_FALSE(exact::stream::of_clusters(opened.volume(), 1, ~std::uint64_t{0}));
}

TEST(stream, gives_any_range_of_a_structure) {
    volume_builder volume;
    const bytes content = pattern(4 * cluster);
    volume.write_clusters(100, content);
    volume.add_file("a").data(runs({{102, 2}, {hole, 1}, {100, 1}}), {.initialized = 3 * cluster + 10});
    opened_exact_volume opened(volume);
    exact::notices told;
    auto base = opened.volume().table().read_asked(24, std::nullopt, told);
    auto set = exact::attribute_set::of(opened.volume().table(), std::move(*base), told);
    auto stream = exact::stream::open(opened.volume(), *set, 0x80, u"", told);
    ASSERT_TRUE(stream);
    const exact::stored_stream& stored = stream->stored();
    const exact::volume_bytes& volume_bytes = opened.volume().bytes();
    bytes expected = concat({bytes(content.begin() + 2 * cluster, content.end()), bytes(cluster),
                             bytes(content.begin(), content.begin() + 10), bytes(cluster - 10)});
    for (const std::size_t offset :
         {std::size_t{0}, cluster - 1, 2 * cluster, 3 * cluster + 5, 4 * cluster}) {
        bytes part(4 * cluster - offset, 0xEE);
        ASSERT_TRUE(stored.read(volume_bytes, part, offset));
        EXPECT_TRUE(part == bytes(expected.begin() + static_cast<std::ptrdiff_t>(offset), expected.end()))
            << offset;
    }
    bytes one(1);
    EXPECT_EQ(stored.read(volume_bytes, one, 4 * cluster).error().code, exact::failure_code::sizes);
    EXPECT_EQ(stored.read(volume_bytes, one, ~std::uint64_t{0}).error().code, exact::failure_code::sizes);
    EXPECT_TRUE(stored.read_all(volume_bytes, 4 * cluster).value_or(bytes{}) == expected);
    EXPECT_FALSE(stored.read_all(volume_bytes, 4 * cluster - 1));
    const exact::block_place place = stored.place_of(volume_bytes, cluster, 3 * cluster, "it");
    EXPECT_EQ(place.source_byte(0), 103 * cluster);
    EXPECT_EQ(place.source_byte(2 * cluster + 1), 100 * cluster + 1);
    const exact::block_place beyond = stored.place_of(volume_bytes, 4 * cluster, cluster, "it");
    EXPECT_EQ(beyond.source_byte(0), std::nullopt);
}

TEST(stream, that_is_compressed_is_decoded_unit_by_unit) {
    const bytes text = text_like(unit, 1);
    const bytes noise = random_bytes(unit, 2);
    const bytes chunks = clusters_with(lznt1_chunks(text));
    const std::uint64_t chunk_clusters = chunks.size() / cluster;
    ASSERT_LT(chunk_clusters, 16u);
    const auto lcn = static_cast<std::int64_t>(100 + chunk_clusters);
    const compressed_volume file(concat({chunks, noise, chunks}),
                                 runs({{100, chunk_clusters},
                                       {hole, 16 - chunk_clusters},
                                       {lcn, 16},
                                       {hole, 16},
                                       {lcn + 16, chunk_clusters},
                                       {hole, 16 - chunk_clusters}}),
                                 3 * unit + 5000);
    const exact_copy copy = copy_of(file.volume);
    bytes content = concat({text, noise, bytes(unit), text});
    content.resize(3 * unit + 5000);
    expect_copy(copy, content);
    EXPECT_EQ(copy.holes, (std::vector<byte_range>{{2 * unit, unit}}));
    const exact_copy raw = copy_of(file.volume, {}, {.raw = true});
    EXPECT_EQ(raw.content.size(), 4 * unit);
    EXPECT_TRUE(std::equal(chunks.begin(), chunks.end(), raw.content.begin()));
}

TEST(stream, that_is_compressed_is_zeros_after_its_valid_length) {
    const bytes text = text_like(unit, 1);
    const bytes chunks = clusters_with(lznt1_chunks(text));
    const std::uint64_t count = chunks.size() / cluster;
    for (const std::size_t valid : {std::size_t{0}, std::size_t{1}, std::size_t{5000}, unit}) {
        // The second unit has no sound chunk; it begins at or after the valid length.
        const compressed_volume file(
            concat({chunks, bytes(cluster, 0xFF)}),
            runs({{100, count}, {hole, 16 - count}, {static_cast<std::int64_t>(100 + count), 1}, {hole, 15}}),
            2 * unit, {.initialized = valid});
        bytes content = text;
        content.resize(valid);
        content.resize(2 * unit);
        expect_copy(copy_of(file.volume), content);
    }
}

TEST(stream, that_is_compressed_may_have_units_of_any_size) {
    const bytes text = text_like(4 * cluster, 1);
    const bytes chunks = clusters_with(lznt1_chunks(text));
    const std::uint64_t count = chunks.size() / cluster;
    const compressed_volume file(chunks, runs({{100, count}, {hole, 4 - count}}), text.size(), {.unit = 2});
    expect_copy(copy_of(file.volume), text);
    for (const std::uint8_t power : {std::uint8_t{10}, std::uint8_t{17}, std::uint8_t{255}}) {
        const compressed_volume wrong(chunks, runs({{100, count}, {hole, 4 - count}}), text.size(),
                                      {.unit = power});
        EXPECT_THAT(copy_of(wrong.volume).failed,
                    HasSubstr("flags record 24, $DATA \"\": compressed in units of 2^" +
                              std::to_string(power) + " clusters"));
    }
    volume_builder no_unit;
    no_unit.add_file("a").data(runs({{100, 16}}), {.compressed = 0, .unit = 0, .flags = 1});
    EXPECT_THAT(copy_of(no_unit).failed, HasSubstr("compressed in units of 2^0 clusters"));
}

TEST(stream, that_is_compressed_has_units_of_4096_bytes_to_2_MiB) {
    const bytes text = text_like(4096, 1);
    const bytes chunks = byte_writer(lznt1_chunks(text)).pad_to_multiple(512).take();
    const std::uint64_t count = chunks.size() / 512;
    const auto in_units_of = [&](std::uint8_t power, std::uint64_t clusters) {
        volume_builder volume({.sectors_per_cluster = 1, .total_clusters = 2000});
        volume.write_clusters(1000, chunks);
        volume.add_file("a").data(runs({{1000, count}, {hole, clusters - count}}),
                                  {.real = 4096, .compressed = 0, .unit = power, .flags = 1});
        return copy_of(volume);
    };
    ASSERT_LT(count, 8u);
    EXPECT_THAT(in_units_of(2, 8).failed,
                HasSubstr("flags record 24, $DATA \"\": compressed in units of 2^2 clusters"));
    expect_copy(in_units_of(3, 8), text);
    expect_copy(in_units_of(12, 4096), text);
    EXPECT_THAT(in_units_of(13, 8192).failed,
                HasSubstr("flags record 24, $DATA \"\": compressed in units of 2^13 clusters"));
}

TEST(stream, that_is_compressed_in_one_unit_of_2_MiB_is_decoded) {
    const std::vector<bytes> parts(512, text_like(4096, 1));
    const bytes text = concat(parts);
    const bytes chunks = clusters_with(concat(std::vector<bytes>(512, lznt1_chunks(parts.front()))));
    const std::uint64_t count = chunks.size() / cluster;
    ASSERT_LT(count, 512u);
    const compressed_volume file(chunks, runs({{100, count}, {hole, 512 - count}}), text.size(), {.unit = 9});
    expect_copy(copy_of(file.volume), text);
}

namespace {

// Counts what is delivered.
class counting_sink final : public exact::stream_sink {
  public:
    [[nodiscard]] exact::result<void> data(byte_view block) override {
        m_data += block.size();
        return {};
    }
    [[nodiscard]] exact::result<void> zeros(std::uint64_t length) override {
        m_zeros += length;
        ++m_calls;
        return {};
    }
    std::uint64_t m_data = 0;
    std::uint64_t m_zeros = 0;
    std::size_t m_calls = 0;
};

}  // namespace

TEST(stream, that_is_compressed_has_long_holes_passed_over_at_once) {
    // 2^36 units in one hole, and a unit of uncompressed bytes after them.
    constexpr std::uint64_t hole_clusters = std::uint64_t{1} << 40;
    const std::uint64_t size = hole_clusters * cluster + unit;
    const bytes text = pattern(unit, 3);
    compressed_volume file(text, runs({{hole, hole_clusters}, {100, 16}}), size);
    opened_exact_volume opened(file.volume);
    exact::notices told;
    auto base = opened.volume().table().read_asked(first_user_entry, std::nullopt, told);
    ASSERT_TRUE(base.has_value());
    const auto set = exact::attribute_set::of(opened.volume().table(), std::move(*base), told);
    ASSERT_TRUE(set.has_value());
    auto found = exact::stream::open(opened.volume(), *set, attr_data, {}, told);
    ASSERT_TRUE(found.has_value()) << text_of(found.error());
    counting_sink sink;
    const auto done = found->deliver(sink, {}, told);
    ASSERT_TRUE(done.has_value()) << text_of(done.error());
    EXPECT_EQ(done->bytes, size);
    EXPECT_EQ(sink.m_data, unit);
    EXPECT_EQ(sink.m_zeros, hole_clusters * cluster);
    EXPECT_LE(sink.m_calls, 2u);
}

TEST(stream, that_is_compressed_fails_at_units_that_are_no_units) {
    const bytes chunks = clusters_with(lznt1_chunks(text_like(unit, 1)));
    const std::uint64_t count = chunks.size() / cluster;
    const compressed_volume after_hole(chunks, runs({{hole, 1}, {100, count}, {hole, 15 - count}}), unit);
    EXPECT_EQ(copy_of(after_hole.volume).failed,
              "unit record 24, $DATA \"\": unit 0: a stored cluster follows a hole");
    const compressed_volume cut(chunks, runs({{100, count}, {hole, 16 - count}, {hole, 3}}), unit + 1);
    EXPECT_EQ(copy_of(cut.volume).failed, "unit record 24, $DATA \"\": unit 1: the runs end inside of it");
    bytes damaged = chunks;
    damaged[1] = 0;
    const compressed_volume wrong(damaged, runs({{100, count}, {hole, 16 - count}}), unit);
    EXPECT_EQ(copy_of(wrong.volume).failed,
              "unit record 24, $DATA \"\": unit 0: chunk 0: its header has no mark");
    // What does not decode fails also if zeros are wanted for what cannot be read.
    EXPECT_THAT(copy_of(wrong.volume, {}, {.zero_unreadable = true}).failed,
                HasSubstr("its header has no mark"));
}

TEST(stream, with_a_short_chunk_is_in_doubt) {
    lznt1_payload payload;
    payload.literals(to_bytes("abc"));
    const compressed_volume file(clusters_with(lznt1_chunk(payload.build())), runs({{100, 1}, {hole, 15}}),
                                 10);
    const exact_copy copy = copy_of(file.volume);
    EXPECT_EQ(copy.content, concat({to_bytes("abc"), bytes(7)}));
    EXPECT_EQ(text_of(copy.said),
              "short-chunk record 24, $DATA \"\": unit 0: chunk 0: ends before its 4,096th "
              "byte; zeros follow\n");
    EXPECT_TRUE(copy.said.in_doubt());
}

TEST(stream, has_zeros_for_a_whole_unit_that_cannot_be_read_if_asked) {
    const bytes text = text_like(unit, 1);
    const bytes noise = random_bytes(unit, 2);
    const bytes chunks = clusters_with(lznt1_chunks(text));
    const std::uint64_t count = chunks.size() / cluster;
    const auto lcn = static_cast<std::int64_t>(100 + count);
    const compressed_volume file(concat({chunks, chunks, noise}),
                                 runs({{100, count},
                                       {hole, 16 - count},
                                       {lcn, count},
                                       {hole, 16 - count},
                                       {lcn + static_cast<std::int64_t>(count), 16}}),
                                 3 * unit);
    opened_exact_volume opened(file.volume);
    const std::uint64_t second = (100 + count) * cluster;
    const std::uint64_t third = second + count * cluster;
    opened.source().unreadable(second + 4097, 1).unreadable(third + 512, 1);
    EXPECT_THAT(opened.copy(first_user_entry).failed,
                HasSubstr("source-read record 24, $DATA \"\": VCN 17: "));
    const exact_copy copy = opened.copy(first_user_entry, {}, {.zero_unreadable = true});
    bytes content = concat({text, bytes(unit), noise});
    std::fill_n(content.begin() + 2 * unit + 512, 512, std::uint8_t{0});
    EXPECT_EQ(copy.failed, "");
    EXPECT_TRUE(copy.content == content);
    EXPECT_EQ(copy.told.unread, (std::vector<byte_range>{{unit, unit}, {2 * unit + 512, 512}}));
}

}  // namespace quarry::test
