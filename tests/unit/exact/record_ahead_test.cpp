#include "exact/record_ahead.h"

#include "support/opened_exact_volume.h"

#include <gtest/gtest.h>

namespace quarry::test {

using namespace quarry::exact;

namespace {

// Entries 24 to 123, each a file; entry 30 is torn, and 31 deleted.
bytes image_of_files() {
    volume_builder volume({.mft_entries = 256, .system_files = true});
    for (int i = 0; i < 100; ++i) {
        volume.add_file("file " + std::to_string(i));
    }
    volume.file(31).deleted();
    bytes image = volume.image();
    image[static_cast<std::size_t>(volume.record_position(30)) + 510] ^= 1;
    return image;
}

}  // namespace

TEST(record_ahead, gives_the_same_records_as_the_table_from_what_it_holds) {
    opened_exact_volume opened(image_of_files());
    const mft& table = opened.volume().table();
    record_ahead ahead(table);
    notices told;
    ahead.fetch({40, 24, 41, 90, 0, 30, 31, 9999});
    for (const std::uint64_t held : {24u, 30u, 31u, 40u, 41u, 90u}) {
        EXPECT_TRUE(ahead.holds(held)) << held;
    }
    // The mirror is asked for the first four by the table itself; entry 9,999 does not exist.
    EXPECT_FALSE(ahead.holds(0));
    EXPECT_FALSE(ahead.holds(9999));
    for (std::uint64_t entry = 0; entry < 260; ++entry) {
        const auto expected = table.read(entry, told);
        const auto read = ahead.read(entry, told);
        ASSERT_EQ(read.has_value(), expected.has_value()) << entry;
        if (read) {
            EXPECT_EQ(read->bytes().to_vector(), expected->bytes().to_vector()) << entry;
            EXPECT_EQ(read->place().source_byte(0), expected->place().source_byte(0)) << entry;
        } else {
            EXPECT_EQ(text_of(read.error()), text_of(expected.error())) << entry;
        }
    }
    EXPECT_EQ(text_of(ahead.read_in_use({31, 1}, told).error()),
              text_of(table.read_in_use({31, 1}, told).error()));
    EXPECT_EQ(text_of(ahead.read_in_use({32, 7}, told).error()),
              text_of(table.read_in_use({32, 7}, told).error()));
    EXPECT_TRUE(ahead.read_in_use({32, 1}, told).has_value());
}

TEST(record_ahead, reads_adjacent_records_at_once_and_none_twice) {
    opened_exact_volume opened(image_of_files());
    record_ahead ahead(opened.volume().table());
    notices told;
    const std::size_t before = opened.source().reads();
    ahead.fetch({27, 24, 25, 26});
    EXPECT_EQ(opened.source().reads(), before + 1);
    ahead.fetch({25, 26});
    EXPECT_TRUE(ahead.read(25, told).has_value());
    EXPECT_EQ(opened.source().reads(), before + 1);
    // A gap of four records is read with its sides, one of five is not.
    ahead.fetch({40, 45, 51});
    EXPECT_EQ(opened.source().reads(), before + 3);
    EXPECT_TRUE(ahead.holds(43));
    EXPECT_FALSE(ahead.holds(48));
}

TEST(record_ahead, holds_no_more_than_2_mebibytes) {
    // Records of 1,024 bytes: 2,048 of them.
    opened_exact_volume opened(volume_builder({.mft_entries = 2304, .system_files = true}));
    record_ahead ahead(opened.volume().table());
    EXPECT_EQ(ahead.room(), 2048u);
    ahead.fetch({100, 101});
    EXPECT_TRUE(ahead.holds(100));
    ahead.fetch({2148});
    EXPECT_TRUE(ahead.holds(2148));
    EXPECT_FALSE(ahead.holds(100));
    EXPECT_TRUE(ahead.holds(101));
}

TEST(record_ahead, announces_all_but_the_first_of_several_reads) {
    opened_exact_volume opened(image_of_files());
    const mft& table = opened.volume().table();
    record_ahead ahead(table);
    opened.source().announced().clear();
    ahead.fetch({24, 25, 26});
    EXPECT_TRUE(opened.source().announced().empty());
    ahead.fetch({100, 40, 60, 61});
    const auto place = [&](std::uint64_t entry) {
        return table.table().place_of(opened.volume().bytes(), entry * 1024, 1024, "").source_byte(0).value();
    };
    EXPECT_EQ(opened.source().announced(),
              (memory_source::announcements{{place(60), 2 * 1024}, {place(100), 1024}}));
}

}  // namespace quarry::test
