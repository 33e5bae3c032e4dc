#include "frontend/copy/stream_choice.h"

#include "volume/attribute.h"

#include <gtest/gtest.h>

namespace quarry {
namespace {

attr_item item(std::uint32_t type, const std::string& name = "") {
    attr_item result;
    result.type = type;
    result.name = name;
    return result;
}

attr_item information(std::uint64_t modified) {
    attr_item result = item(attr_standard_information);
    result.modified = modified;
    result.created = modified + 1;
    result.accessed = modified + 2;
    result.mft_changed = modified + 3;
    return result;
}

class stream_choice_test : public testing::Test {
  protected:
    stream_choice choose(const attr_item_list& items, const std::string& name) {
        stats.clear();
        return choose_stream(items, name, stats);
    }
    uni::fileio_stats stats;
};

using index = std::optional<std::size_t>;

TEST(requested_stream_name, is_the_text_after_the_first_colon_of_the_last_component) {
    EXPECT_EQ(requested_stream_name(L"/a/b.txt:s"), "s");
    EXPECT_EQ(requested_stream_name(L"/a/b.txt:s:$DATA"), "s:$DATA");
    EXPECT_EQ(requested_stream_name(L"\\a:x\\b.txt:s"), "s");
    EXPECT_EQ(requested_stream_name(L"/a:x/b.txt"), "");
    EXPECT_EQ(requested_stream_name(L"b.txt:\u00E4"), "\xC3\xA4");
    EXPECT_EQ(requested_stream_name(L"b.txt:"), "");
    EXPECT_EQ(requested_stream_name(L""), "");
    EXPECT_EQ(requested_stream_name(L"/"), "");
}

TEST(requested_stream_name, components_end_at_slashes_if_there_are_any_and_at_backslashes_otherwise) {
    EXPECT_EQ(requested_stream_name(L"/a:x\\b"), "x\\b");
    EXPECT_EQ(requested_stream_name(L"\\a:x\\b"), "");
    EXPECT_EQ(requested_stream_name(L"/a:x/"), "x");
    EXPECT_EQ(requested_stream_name(L"c:"), "");
    EXPECT_EQ(requested_stream_name(L"c:file"), "file");
}

TEST_F(stream_choice_test, without_a_name_the_unnamed_data_is_meant) {
    const attr_item_list items = {information(5), item(attr_data, "s"), item(attr_data)};
    const stream_choice choice = choose(items, "");
    EXPECT_EQ(choice.chosen, index(2));
    EXPECT_FALSE(choice.wof);
    EXPECT_EQ(choice.mod_time, 5U);
}

TEST_F(stream_choice_test, a_name_is_found_in_either_case) {
    const attr_item_list items = {item(attr_data), item(attr_data, "Zone"), item(attr_data, "other")};
    EXPECT_EQ(choose(items, "zONE").chosen, index(1));
    EXPECT_EQ(choose(items, "nosuch").chosen, index());
}

TEST_F(stream_choice_test, a_named_index_allocation_is_a_stream) {
    const attr_item_list items = {item(attr_index_root, "$I30"), item(attr_index_allocation, "$I30"),
                                  item(attr_bitmap, "$I30")};
    EXPECT_EQ(choose(items, "$i30").chosen, index(1));
    EXPECT_EQ(choose(items, "").chosen, index());
}

TEST_F(stream_choice_test, an_index_allocation_without_a_name_is_never_meant) {
    EXPECT_EQ(choose({item(attr_index_allocation)}, "").chosen, index());
}

TEST_F(stream_choice_test, of_several_that_match_the_last_one_is_taken) {
    const attr_item_list items = {item(attr_data, "s"), item(attr_index_allocation, "S"),
                                  item(attr_data, "s"), item(attr_data), item(attr_data)};
    EXPECT_EQ(choose(items, "s").chosen, index(2));
    EXPECT_EQ(choose(items, "").chosen, index(4));
}

TEST_F(stream_choice_test, a_compressed_system_stream_is_noted_by_its_exact_name_and_only_without_a_request) {
    const attr_item_list items = {item(attr_data), item(attr_data, "WofCompressedData")};
    EXPECT_EQ(choose(items, "").wof, index(1));
    EXPECT_EQ(choose(items, "").chosen, index(0));
    EXPECT_EQ(choose({item(attr_data, "wofcompresseddata")}, "").wof, index());
    const stream_choice asked = choose(items, "wofcompresseddata");
    EXPECT_EQ(asked.chosen, index(1));
    EXPECT_EQ(asked.wof, index());
}

TEST_F(stream_choice_test, other_attributes_are_passed_over) {
    const attr_item_list items = {item(attr_file_record), item(attr_file_name, "s"),
                                  item(attr_reparse_point, "s"), item(attr_logged_utility_stream, "s")};
    const stream_choice choice = choose(items, "s");
    EXPECT_EQ(choice.chosen, index());
    EXPECT_EQ(choice.mod_time, 0U);
}

TEST_F(stream_choice_test, the_times_of_standard_information_become_the_statistics) {
    choose({information(100), item(attr_data)}, "");
    EXPECT_EQ(stats.m_modified, 100U);
    EXPECT_EQ(stats.m_created, 101U);
    EXPECT_EQ(stats.m_accessed, 102U);
    EXPECT_EQ(stats.m_mft_changed, 103U);
    EXPECT_EQ(stats.m_time_kind, ql::type_time::filetime);
    EXPECT_EQ(stats.m_mask, 4U);
}

TEST_F(stream_choice_test, a_second_standard_information_overrides_the_first) {
    const stream_choice choice = choose({information(100), information(200)}, "");
    EXPECT_EQ(choice.mod_time, 200U);
    EXPECT_EQ(stats.m_modified, 200U);
    EXPECT_EQ(stats.m_mask, 8U);
}

}  // namespace
}  // namespace quarry
