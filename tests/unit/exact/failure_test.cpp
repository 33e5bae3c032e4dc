#include "exact/failure.h"

#include <gtest/gtest.h>

namespace quarry::test {

using namespace quarry::exact;

TEST(failure, says_where_and_why) {
    const failure told{failure_code::no_stream, where::record(40), "no stream \"x\"", std::nullopt};
    EXPECT_EQ(told.text(), "record 40: no stream \"x\"");
}

TEST(failure, ends_with_the_byte_on_the_source_where_it_means_one) {
    const failure told{failure_code::torn, where::record(5), "torn", 0x1A00};
    EXPECT_EQ(told.text(), "record 5: torn (source byte 0x1A00)");
}

TEST(failure, has_a_code_for_scripts) {
    EXPECT_EQ(code_text(failure_code::source_open), "source-open");
    EXPECT_EQ(code_text(failure_code::behind_mft), "behind-mft");
    EXPECT_EQ(code_text(failure_code::wof), "wof");
    EXPECT_EQ(code_text(failure_code::manifest), "manifest");
}

TEST(failure, names_each_kind_of_place) {
    EXPECT_EQ(where::record_of_mirror(2), "record 2 of the mirror");
    EXPECT_EQ(where::chunk(where::unit(where::stream(40, 0x80, ""), 7), 3),
              "record 40, $DATA \"\": unit 7: chunk 3");
    EXPECT_EQ(where::vcn(where::stream(40, 0xA0, "$I30"), 12),
              "record 40, $INDEX_ALLOCATION \"$I30\": VCN 12");
    EXPECT_EQ(where::stream(1, 0x1234, "a"), "record 1, type 0x1234 \"a\"");
    EXPECT_EQ(where::index_root(5), "index root of record 5");
    EXPECT_EQ(where::index_block(4, 5), "index block 4 of record 5");
    EXPECT_EQ(where::path("/a"), "path \"/a\"");
}

TEST(notices, hold_each_notice_once_in_its_order) {
    notices told;
    told.warn("gpt-backup", where::partition_table, "a");
    told.doubt("short-chunk", where::record(1), "b");
    told.warn("gpt-backup", where::partition_table, "a");
    ASSERT_EQ(told.all().size(), 2u);
    EXPECT_EQ(told.all()[0].text(), "partition table: a");
    EXPECT_EQ(told.all()[1].code, "short-chunk");
}

TEST(notices, put_a_copy_in_doubt_by_a_doubt_alone) {
    notices told;
    told.warn("journal", where::volume, "a");
    EXPECT_FALSE(told.in_doubt());
    told.doubt("unreadable", where::record(1), "b");
    EXPECT_TRUE(told.in_doubt());
}

TEST(notices, hold_a_hundred_of_one_code_and_say_that_there_are_more) {
    notices told;
    for (int i = 0; i < 1000; ++i) {
        told.warn("unlisted", where::record(40), std::to_string(i));
    }
    told.warn("journal", where::volume, "another");
    ASSERT_EQ(told.all().size(), 102u);
    EXPECT_EQ(told.all()[99].why, "99");
    EXPECT_EQ(told.all()[100].text(), "record 40: there are more of this kind, which are not listed");
    EXPECT_EQ(told.all()[101].why, "another");
}

}  // namespace quarry::test
