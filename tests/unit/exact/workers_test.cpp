// Every way of delivering a stream, with workers and without: what is delivered and what is said is the same.
#include "foundation/worker_pool.h"
#include "support/long_streams.h"
#include "support/opened_exact_volume.h"

#include <string>

#include <gtest/gtest.h>

namespace quarry::test {

using exact::wof_format;

namespace {

// A file of `long_streams`, and how it was compressed.
struct asked_file {
    std::uint64_t entry;
    std::string name;
    std::optional<wof_format> format = {};
};

const std::vector<asked_file> files = {
    {24, "plain"},
    {25, "holes"},
    {26, "lznt1"},
    {27, "lznt1-broken"},
    {28, "lznt1-short"},
    {29, "xpress", wof_format::xpress_16k},
    {30, "xpress-broken", wof_format::xpress_16k},
    {31, "lzx", wof_format::lzx_32k},
    {32, "lznt1-lost"},
};

exact_copy copy_of(opened_exact_volume& opened, const asked_file& file,
                   const exact::delivery_options& options) {
    exact_copy copy;
    collecting_sink sink;
    auto base = opened.volume().table().read_asked(file.entry, std::nullopt, copy.said);
    auto set = exact::attribute_set::of(opened.volume().table(), std::move(*base), copy.said);
    auto stream = file.format
                      ? exact::stream::open_system_compressed(opened.volume(), *set, *file.format, copy.said)
                      : exact::stream::open(opened.volume(), *set, attr_data, {}, copy.said);
    const auto done = stream->deliver(sink, options, copy.said);
    copy.failed = done ? "" : text_of(done.error());
    copy.told = done.value_or(exact::delivery{});
    copy.content = sink.content();
    copy.holes = sink.holes();
    return copy;
}

}  // namespace

TEST(workers, deliver_and_say_what_one_thread_does) {
    const long_streams streams;
    opened_exact_volume opened(streams.image());
    for (const bool zero_unreadable : {false, true}) {
        for (const asked_file& file : files) {
            const exact_copy alone = copy_of(opened, file, {.zero_unreadable = zero_unreadable});
            if (file.name.find("-broken") == std::string::npos && file.name != "lznt1-lost") {
                EXPECT_EQ(alone.failed, "") << file.name;
                EXPECT_TRUE(alone.content == streams.content(file.name)) << file.name;
            }
            for (const unsigned count : {2u, 4u, 64u}) {
                worker_pool pool(count);
                const exact_copy many = copy_of(opened, file,
                                                {.zero_unreadable = zero_unreadable,
                                                 .workers = pool.for_bytes(worker_pool::least_bytes)});
                EXPECT_EQ(pool.threads(), count - 1);
                EXPECT_EQ(many.failed, alone.failed) << file.name << count;
                // Of a stream that fails too: what was delivered ahead of the failure.
                EXPECT_TRUE(many.content == alone.content) << file.name << count;
                EXPECT_EQ(many.holes, alone.holes) << file.name << count;
                EXPECT_EQ(many.told.unread, alone.told.unread) << file.name << count;
                EXPECT_EQ(text_of(many.said), text_of(alone.said)) << file.name << count;
            }
        }
    }
}

TEST(workers, report_the_first_damage_of_a_stream) {
    const long_streams streams;
    opened_exact_volume opened(streams.image());
    worker_pool pool(8);
    const exact::delivery_options options{.workers = pool.for_bytes(worker_pool::least_bytes)};
    // Again and again: it must not depend on which thread is first.
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(copy_of(opened, files[3], options).failed,
                  "unit record 27, $DATA \"\": unit 20: chunk 0: its header has no mark");
        EXPECT_TRUE(copy_of(opened, files[6], options)
                        .failed.starts_with("wof record 30, $DATA \"WofCompressedData\": chunk 100: "));
    }
}

}  // namespace quarry::test
