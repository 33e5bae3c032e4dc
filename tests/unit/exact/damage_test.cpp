// What no copy may do: be complete, without a doubt, and wrong.
#include "exact/stream.h"
#include "support/lznt1_encoder.h"
#include "support/opened_exact_volume.h"
#include "support/sample_text.h"

#include <map>

#include <gtest/gtest.h>

namespace quarry::test {

namespace {

constexpr std::size_t cluster = 4096;

// A file in two records at entry 24 and a compressed one at entry 26.
struct scene {
    volume_builder volume{{.mft_entries = 32, .system_files = true}};
    std::map<std::uint64_t, bytes> content;

    scene() {
        content[24] = pattern(5 * cluster - 100);
        volume.write_clusters(100, content[24]);
        file_builder& plain = volume.add_file("plain");
        const std::size_t place = plain.add_extension();
        plain.attribute(
            attribute_builder::non_resident(0x80, {{100, 2}}).allocated(5 * cluster).real(5 * cluster - 100));
        plain.attribute(attribute_builder::non_resident(0x80, {{102, 3}})
                            .lowest_vcn(2)
                            .allocated(0)
                            .real(0)
                            .initialized(0),
                        place);
        content[26] = text_like(30000, 1);
        const bytes chunks = byte_writer(lznt1_chunks(content[26])).pad_to_multiple(cluster).take();
        const std::uint64_t count = chunks.size() / cluster;
        volume.write_clusters(110, chunks);
        volume.add_file("compressed")
            .data(runs({{110, count}, {hole, 16 - count}}),
                  {.real = 30000, .compressed = chunks.size(), .unit = 4, .flags = 1});
    }
};

// True if a copy of an entry claims to be complete and is not what it should be.
bool wrong(opened_exact_volume& opened, std::uint64_t entry, const bytes& content) {
    if (!opened.open().empty()) {
        return false;
    }
    const exact_copy copy = opened.copy(entry);
    return copy.failed.empty() && !copy.said.in_doubt() && copy.content != content;
}

// Bits of `size` bytes from `begin` on that, each flipped alone, make a copy wrong: their bytes, from
// `begin`.
std::vector<std::size_t> bytes_that_make_it_wrong(opened_exact_volume& opened, std::size_t begin,
                                                  std::size_t size, std::uint64_t entry,
                                                  const bytes& content) {
    std::vector<std::size_t> found;
    bytes& image = opened.source().content();
    for (std::size_t bit = 0; bit < 8 * size; ++bit) {
        std::uint8_t& flipped = image[begin + bit / 8];
        const auto mask = static_cast<std::uint8_t>(1u << (bit % 8));
        flipped ^= mask;
        if (wrong(opened, entry, content) && (found.empty() || found.back() != bit / 8)) {
            found.push_back(bit / 8);
        }
        flipped ^= mask;
    }
    return found;
}

// Where the first $DATA of a record begins, and how many bytes of the record are used.
std::size_t data_of(const bytes& record) {
    std::size_t at = byte_view(record).u16_or_zero(20);
    while (byte_view(record).u32_or_zero(at) != 0x80) {
        at += byte_view(record).u32_or_zero(at + 4);
    }
    return at;
}

}  // namespace

TEST(damage, of_an_image_cut_at_any_sector_is_never_silent) {
    const scene made;
    const bytes image = made.volume.image();
    for (std::size_t size = 0; size < image.size(); size += 512) {
        opened_exact_volume opened(bytes(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(size)));
        for (const auto& [entry, content] : made.content) {
            ASSERT_FALSE(wrong(opened, entry, content)) << size << ' ' << entry;
        }
    }
    opened_exact_volume whole(image);
    for (const auto& [entry, content] : made.content) {
        EXPECT_EQ(whole.copy(entry).failed, "");
        EXPECT_EQ(whole.copy(entry).content, content);
    }
}

TEST(damage, of_one_bit_of_the_boot_sector_is_never_silent) {
    const scene made;
    opened_exact_volume opened(made.volume);
    EXPECT_EQ(bytes_that_make_it_wrong(opened, 0, 80, 24, made.content.at(24)), std::vector<std::size_t>{});
}

TEST(damage, of_one_bit_of_the_record_of_mft_is_never_silent) {
    const scene made;
    opened_exact_volume opened(made.volume);
    const auto record = static_cast<std::size_t>(made.volume.record_position(0));
    EXPECT_EQ(bytes_that_make_it_wrong(opened, record, 1024, 24, made.content.at(24)),
              std::vector<std::size_t>{});
}

TEST(damage, of_one_bit_of_a_record_is_silent_only_where_nothing_checks_it) {
    const scene made;
    opened_exact_volume opened(made.volume);
    const auto record = static_cast<std::size_t>(made.volume.record_position(24));
    const std::size_t data = data_of(made.volume.record_on_disk(24));
    const std::vector<std::size_t> found =
        bytes_that_make_it_wrong(opened, record, 1024, 24, made.content.at(24));
    EXPECT_FALSE(found.empty());
    for (const std::size_t offset : found) {
        // The size, the valid length, and the LCNs.
        EXPECT_TRUE(offset >= data + 48 && offset < data + 72) << offset - data;
    }
}

TEST(damage, of_one_bit_of_an_extension_is_silent_only_in_its_lcns) {
    const scene made;
    opened_exact_volume opened(made.volume);
    const auto record = static_cast<std::size_t>(made.volume.record_position(25));
    const std::size_t data = data_of(made.volume.record_on_disk(25));
    for (const std::size_t offset : bytes_that_make_it_wrong(opened, record, 1024, 24, made.content.at(24))) {
        EXPECT_TRUE(offset >= data + 64 && offset < data + 72) << offset - data;
    }
}

TEST(damage, of_one_bit_of_chunks_is_silent_only_in_their_items) {
    const scene made;
    opened_exact_volume opened(made.volume);
    // The first header.
    EXPECT_EQ(bytes_that_make_it_wrong(opened, 110 * cluster, 2, 26, made.content.at(26)),
              std::vector<std::size_t>{});
}

}  // namespace quarry::test
