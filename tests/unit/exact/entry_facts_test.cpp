#include "exact/entry_facts.h"

#include "exact/volume_path.h"
#include "support/opened_exact_volume.h"
#include "support/volume_builder.h"

#include <gtest/gtest.h>

namespace quarry::test {

using namespace quarry::exact;

namespace {

attribute_set set_of(opened_exact_volume& opened, std::uint64_t entry) {
    notices told;
    const mft& table = opened.volume().table();
    return attribute_set::of(table, table.read_asked(entry, std::nullopt, told).value(), told).value();
}

stream_facts stream_of(opened_exact_volume& opened, std::uint64_t entry, std::u16string_view name = {}) {
    notices told;
    const attribute_set set = set_of(opened, entry);
    return facts_of(stream::open(opened.volume(), set, attr_data, name, told).value());
}

}  // namespace

TEST(entry_facts, say_which_record_it_is_and_by_which_name_it_goes) {
    volume_builder volume;
    const std::uint64_t file = volume.add_file("letter to anna.txt").short_name("LETTER~1.TXT").entry();
    const std::uint64_t gone = volume.add_file("gone.txt").sequence(3).deleted().entry();
    opened_exact_volume opened(volume);
    const attribute_set set = set_of(opened, file);
    const entry_facts facts = facts_of(opened.volume(), set, u"LETTER~1.TXT");
    EXPECT_EQ(facts.self.text(), "24-1");
    EXPECT_TRUE(facts.in_use);
    EXPECT_EQ(facts.names.size(), 2u);
    ASSERT_TRUE(facts.used);
    EXPECT_EQ(facts.used->name, u"letter to anna.txt");
    EXPECT_EQ(facts.reparse_tag, std::nullopt);
    const attribute_set gone_set = set_of(opened, gone);
    const entry_facts of_gone = facts_of(opened.volume(), gone_set);
    EXPECT_EQ(of_gone.self.text(), "25-3");
    EXPECT_FALSE(of_gone.in_use);
}

TEST(entry_facts, have_the_times_of_standard_information_and_of_the_name) {
    volume_builder volume;
    const std::uint64_t file = volume.add_file("a.txt").times({11, 22, 33, 44}).entry();
    const std::uint64_t without =
        volume.add_file("b.txt").without_standard_information().without_names().entry();
    opened_exact_volume opened(volume);
    const attribute_set set = set_of(opened, file);
    const entry_facts facts = facts_of(opened.volume(), set);
    ASSERT_TRUE(facts.standard);
    EXPECT_EQ(facts.standard->created, 11u);
    EXPECT_EQ(facts.standard->modified, 22u);
    EXPECT_EQ(facts.standard->changed, 33u);
    EXPECT_EQ(facts.standard->accessed, 44u);
    const attribute_set other = set_of(opened, without);
    const entry_facts none = facts_of(opened.volume(), other);
    EXPECT_FALSE(none.standard);
    EXPECT_FALSE(none.used);
    EXPECT_TRUE(none.names.empty());
}

TEST(entry_facts, tell_the_tag_of_a_reparse_point) {
    volume_builder volume;
    test::reparse_point link;
    link.substitute_name = u"\\??\\C:\\Users";
    const std::uint64_t file = volume.add_directory("link").reparse(link).entry();
    opened_exact_volume opened(volume);
    const attribute_set set = set_of(opened, file);
    EXPECT_EQ(facts_of(opened.volume(), set).reparse_tag, 0xA0000003u);
}

TEST(entry_facts, have_a_path_only_if_the_whole_way_is_verified) {
    volume_builder volume;
    const std::uint64_t docs = volume.add_directory("docs").entry();
    const std::uint64_t file = volume.add_file("a.txt", docs).entry();
    const std::uint64_t other = volume.add_directory("other").entry();
    const std::uint64_t lost = volume.add_file("b.txt", other).entry();
    volume.force_record(other, 16, 2, 9);
    opened_exact_volume opened(volume);
    const attribute_set set = set_of(opened, file);
    EXPECT_EQ(verified_path(opened.volume(), set), (std::vector<std::u16string>{u"docs", u"a.txt"}));
    const attribute_set lost_set = set_of(opened, lost);
    EXPECT_EQ(verified_path(opened.volume(), lost_set), std::nullopt);
}

TEST(stream_facts, tell_sizes_runs_and_flags) {
    volume_builder volume;
    const std::uint64_t small = volume.add_file("small.txt").data("abc").entry();
    stream_settings settings;
    settings.real = 10000;
    settings.initialized = 6000;
    settings.flags = 0x8000;
    const std::uint64_t large = volume.add_file("large.txt").data({{100, 1}, {hole, 2}}, settings).entry();
    opened_exact_volume opened(volume);
    const stream_facts resident = stream_of(opened, small);
    EXPECT_TRUE(resident.resident);
    EXPECT_EQ(resident.type, attr_data);
    EXPECT_EQ(resident.size, 3u);
    EXPECT_EQ(resident.runs, 0u);
    const stream_facts stored = stream_of(opened, large);
    EXPECT_FALSE(stored.resident);
    EXPECT_TRUE(stored.sparse);
    EXPECT_FALSE(stored.encrypted);
    EXPECT_EQ(stored.allocated, 12288u);
    EXPECT_EQ(stored.size, 10000u);
    EXPECT_EQ(stored.valid, 6000u);
    EXPECT_EQ(stored.runs, 2u);
    EXPECT_EQ(stored.lznt1_unit, std::nullopt);
    EXPECT_EQ(stored.system_format, std::nullopt);
}

TEST(stream_facts, tell_the_unit_of_a_compressed_stream) {
    volume_builder volume;
    stream_settings settings;
    settings.real = 5;
    settings.initialized = 5;
    settings.unit = 4;
    settings.flags = 1;
    const std::uint64_t file = volume.add_file("packed.txt").data({{100, 1}, {hole, 15}}, settings).entry();
    opened_exact_volume opened(volume);
    EXPECT_EQ(stream_of(opened, file).lznt1_unit, 65536u);
}

}  // namespace quarry::test
