#include "exact/run_announcer.h"

#include "support/lznt1_encoder.h"
#include "support/opened_exact_volume.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace quarry::test {

using namespace quarry::exact;

namespace {

using announcements = memory_source::announcements;

// Single clusters from LCN 200 on, each two after the one before.
run_list fragments(std::uint64_t count) {
    run_list runs;
    for (std::uint64_t i = 0; i < count; ++i) {
        runs.push_back({static_cast<std::int64_t>(200 + 2 * i), 1});
    }
    return runs;
}

class announced_stream {
  public:
    // The first file, entry 24.
    explicit announced_stream(const volume_builder& volume) : m_opened(volume) {
        notices told;
        auto set = attribute_set::of(m_opened.volume().table(),
                                     m_opened.volume().table().read(24, told).value(), told)
                       .value();
        m_stream = set.stored(m_opened.volume().shape(), attr_data, u"").value();
        m_announcer.emplace(m_opened.volume().bytes(), *m_stream);
        m_opened.source().announced().clear();
    }
    // What is announced when the stream is read from this byte on.
    [[nodiscard]] announcements reading(std::uint64_t offset) {
        m_opened.source().announced().clear();
        m_announcer->reading(offset);
        return m_opened.source().announced();
    }

  private:
    opened_exact_volume m_opened;
    std::optional<stored_stream> m_stream;
    std::optional<run_announcer> m_announcer;
};

}  // namespace

TEST(run_announcer, announces_64_pieces_ahead_and_then_one_with_each_that_is_read) {
    volume_builder volume;
    volume.add_file("a").data(fragments(100));
    announced_stream stream(volume);
    announcements first_64;
    for (std::uint64_t i = 1; i <= 64; ++i) {
        first_64.emplace_back((200 + 2 * i) * 4096, 4096);
    }
    EXPECT_EQ(stream.reading(0), first_64);
    EXPECT_EQ(stream.reading(100), announcements());
    EXPECT_EQ(stream.reading(4096), (announcements{{(200 + 2 * 65) * 4096, 4096}}));
    // Ten runs further on.
    EXPECT_EQ(stream.reading(11 * 4096).size(), 10u);
    const announcements last = stream.reading(50 * 4096);
    ASSERT_FALSE(last.empty());
    EXPECT_EQ(last.back(), (std::pair<std::uint64_t, std::uint64_t>{(200 + 2 * 99) * 4096, 4096}));
    EXPECT_EQ(stream.reading(99 * 4096), announcements());
}

TEST(run_announcer, announces_4_mebibytes_ahead_at_most) {
    // Six runs of 1 MiB, one cluster between them.
    volume_builder volume;
    run_list runs;
    for (int i = 0; i < 6; ++i) {
        runs.push_back({200 + 257 * i, 256});
    }
    volume.add_file("a").data(runs);
    announced_stream stream(volume);
    EXPECT_EQ(stream.reading(0), (announcements{{457 * 4096, 0x100000},
                                                {714 * 4096, 0x100000},
                                                {971 * 4096, 0x100000},
                                                {1228 * 4096, 0x100000}}));
    EXPECT_EQ(stream.reading(0x100000), (announcements{{1485 * 4096, 0x100000}}));
}

TEST(run_announcer, announces_no_hole_nothing_after_the_valid_length_and_no_stream_in_one_piece) {
    volume_builder volume;
    volume.add_file("a").data({{200, 1}, {hole, 5}, {300, 2}, {400, 3}}, {.initialized = 7 * 4096 + 10});
    EXPECT_EQ(announced_stream(volume).reading(0), (announcements{{300 * 4096, 4096 + 10}}));
    volume_builder one_piece;
    one_piece.add_file("a").data(run_list{{200, 50}});
    EXPECT_EQ(announced_stream(one_piece).reading(0), announcements());
}

TEST(run_announcer, of_a_copy_announces_each_later_piece_once) {
    volume_builder volume;
    volume.add_file("a").data(fragments(200));
    opened_exact_volume opened(volume);
    static_cast<void>(opened.volume());
    opened.source().announced().clear();
    EXPECT_EQ(opened.copy(24).failed, "");
    announcements expected;
    for (std::uint64_t i = 1; i < 200; ++i) {
        expected.emplace_back((200 + 2 * i) * 4096, 4096);
    }
    EXPECT_EQ(opened.source().announced(), expected);
}

// 100 units of 64 KiB, each decoded from one cluster: the second piece of the stream is its second unit.
TEST(run_announcer, of_a_compressed_copy_announces_the_piece_of_each_later_unit_once) {
    volume_builder volume;
    const bytes unit(0x10000, 'x');
    run_list runs;
    for (std::uint64_t i = 0; i < 100; ++i) {
        runs.push_back({static_cast<std::int64_t>(200 + 2 * i), 1});
        runs.push_back({hole, 15});
        volume.write_clusters(200 + 2 * i, lznt1_chunks(unit));
    }
    volume.add_file("a").data(runs, {.real = 0x640000, .compressed = 0x64000, .unit = 4, .flags = 1});
    opened_exact_volume opened(volume);
    static_cast<void>(opened.volume());
    opened.source().announced().clear();
    const exact_copy copy = opened.copy(24);
    EXPECT_EQ(copy.failed, "");
    EXPECT_TRUE(copy.content == bytes(0x640000, 'x'));
    announcements expected;
    for (std::uint64_t i = 1; i < 100; ++i) {
        expected.emplace_back((200 + 2 * i) * 4096, 4096);
    }
    EXPECT_EQ(opened.source().announced(), expected);
}

}  // namespace quarry::test
