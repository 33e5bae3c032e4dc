#include "exact/upcase.h"

#include "support/opened_exact_volume.h"
#include "support/system_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {

TEST(upcase, is_the_table_of_the_volume) {
    // A volume that knows only the capital of "z", and has its own opinion of it.
    byte_writer table(131072);
    for (std::size_t unit = 0; unit < 65536; ++unit) {
        table.u16(2 * unit, unit);
    }
    table.u16(2 * std::size_t{'z'}, 0x0416);
    volume_builder volume;
    volume.add_file_at(10, "$UpCase").stored_data(table.content());
    opened_exact_volume opened(volume);
    exact::notices told;
    const auto& upcase = opened.volume().upper_case(told);
    ASSERT_TRUE(upcase) << upcase.error().text();
    EXPECT_EQ(upcase->upper(u'z'), u'\u0416');
    EXPECT_EQ(upcase->upper(u'a'), u'a');
    EXPECT_EQ(upcase->upper(u"az"), u"a\u0416");
    EXPECT_TRUE(upcase->equal(u"az", u"a\u0416"));
    EXPECT_FALSE(upcase->equal(u"a", u"A"));
}

// Its parts that change nothing are not kept: 2,048 units each.
TEST(upcase, maps_each_unit_as_the_table_does_wherever_it_changes_something) {
    byte_writer table(131072);
    for (std::size_t unit = 0; unit < 65536; ++unit) {
        table.u16(2 * unit, unit);
    }
    table.u16(2 * 0x07FF, 0x1234);
    table.u16(2 * 0x3800, 0xFFFF);
    table.u16(2 * 0xFFFE, 0x0041);
    volume_builder volume;
    volume.add_file_at(10, "$UpCase").stored_data(table.content());
    opened_exact_volume opened(volume);
    exact::notices told;
    const auto& loaded = opened.volume().upper_case(told);
    ASSERT_TRUE(loaded) << loaded.error().text();
    const auto parsed = exact::upcase::parse(byte_view(table.content()));
    std::size_t changed = 0;
    for (std::uint32_t unit = 0; unit < 65536; ++unit) {
        const auto same = static_cast<char16_t>(unit);
        EXPECT_EQ(loaded->upper(same), parsed->upper(same)) << unit;
        changed += loaded->upper(same) == same ? 0 : 1;
    }
    EXPECT_EQ(changed, 3u);
    EXPECT_EQ(loaded->upper(0x07FF), 0x1234);
    EXPECT_EQ(loaded->upper(0x3800), 0xFFFF);
    EXPECT_EQ(loaded->upper(0xFFFE), u'A');
}

TEST(upcase, orders_names_by_upper_case_units_then_length) {
    const exact::upcase upcase = *exact::upcase::parse(byte_view(upper_case_table()));
    EXPECT_TRUE(upcase.equal(u"Letter", u"lETTER"));
    EXPECT_EQ(upcase.compare(u"a", u"B"), std::strong_ordering::less);
    EXPECT_EQ(upcase.compare(u"b", u"A"), std::strong_ordering::greater);
    // "_" lies between the capitals and the small letters.
    EXPECT_EQ(upcase.compare(u"a", u"_"), std::strong_ordering::less);
    EXPECT_EQ(upcase.compare(u"ab", u"A"), std::strong_ordering::greater);
    EXPECT_EQ(upcase.compare(u"", u"a"), std::strong_ordering::less);
    EXPECT_EQ(upcase.compare(std::u16string(1, 0xD800), std::u16string(1, 0xFFFF)),
              std::strong_ordering::less);
}

TEST(upcase, of_another_size_is_none) {
    for (const std::size_t size : {2u, 131070u, 131074u}) {
        volume_builder volume;
        volume.add_file_at(10, "$UpCase").stored_data(bytes(size));
        opened_exact_volume opened(volume);
        exact::notices told;
        const auto& upcase = opened.volume().upper_case(told);
        ASSERT_FALSE(upcase);
        // Record 10 is at 0x6800 and has 1,024 bytes.
        EXPECT_THAT(text_of(upcase.error()),
                    testing::MatchesRegex("upcase record 10: .UpCase has " + std::to_string(size) +
                                          " bytes .source byte 0x6[89AB][0-9A-F][0-9A-F]."));
    }
    EXPECT_FALSE(exact::upcase::parse(byte_view(bytes(131071))));
}

}  // namespace quarry::test
