#include "exact/reparse.h"

#include "support/byte_writer.h"

#include <gtest/gtest.h>

namespace quarry::test {

using namespace quarry::exact;

namespace {

bytes value_of(std::uint32_t tag, const bytes& data) {
    return byte_writer().u32(0, tag).u16(4, data.size()).u16(6, 0).raw(8, data).take();
}

bytes utf16(std::u16string_view text) {
    byte_writer out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        out.u16(2 * i, text[i]);
    }
    return out.take();
}

bytes symlink(std::u16string_view target, std::uint32_t flags) {
    const bytes name = utf16(target);
    return value_of(tag_symlink, byte_writer()
                                     .u16(0, 0)
                                     .u16(2, name.size())
                                     .u16(4, 0)
                                     .u16(6, name.size())
                                     .u32(8, flags)
                                     .raw(12, name)
                                     .take());
}

bytes junction(std::u16string_view target) {
    const bytes name = utf16(target);
    return value_of(
        tag_mount_point,
        byte_writer().u16(0, 0).u16(2, name.size()).u16(4, name.size()).u16(6, 0).raw(8, name).take());
}

result<link_target> target_of(const bytes& value) {
    const auto point = read_reparse_point(value, "record 40");
    return point ? read_link_target(*point, "path \"/link\"") : tl::make_unexpected(point.error());
}

using names = std::vector<std::u16string>;

}  // namespace

TEST(reparse_point, is_a_tag_and_as_many_bytes_as_it_says) {
    const bytes value = value_of(0x80000013, {1, 2, 3});
    const auto point = read_reparse_point(value, "record 40");
    ASSERT_TRUE(point.has_value());
    EXPECT_EQ(point->tag, 0x80000013u);
    EXPECT_EQ(point->data.to_vector(), (bytes{1, 2, 3}));
    EXPECT_FALSE(point->is_link());
}

TEST(reparse_point, may_be_followed_by_bytes_that_do_not_count) {
    bytes value = value_of(0x80000013, {1, 2, 3});
    value.push_back(9);
    EXPECT_EQ(read_reparse_point(value, "")->data.to_vector(), (bytes{1, 2, 3}));
}

TEST(reparse_point, cut_at_any_length_is_refused) {
    const bytes whole = value_of(0x80000013, {1, 2, 3});
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const auto point = read_reparse_point(byte_view(whole).clipped(0, size), "record 40");
        ASSERT_FALSE(point.has_value()) << size;
        EXPECT_EQ(point.error().code, failure_code::tag);
    }
    EXPECT_EQ(read_reparse_point(byte_view(whole).clipped(0, 7), "record 40").error().text(),
              "record 40: reparse point of 7 bytes");
    EXPECT_EQ(read_reparse_point(byte_view(whole).clipped(0, 10), "record 40").error().text(),
              "record 40: reparse tag 0x80000013 (DEDUP): 3 bytes of data in a value of 10");
}

TEST(reparse_point, of_another_maker_has_a_guid_before_its_data) {
    const bytes value = byte_writer(26).u32(0, 0x00000123).u16(4, 2).u8(24, 7).u8(25, 8).take();
    EXPECT_EQ(read_reparse_point(value, "")->data.to_vector(), (bytes{7, 8}));
    EXPECT_FALSE(read_reparse_point(byte_view(value).clipped(0, 25), "").has_value());
}

TEST(tag_text, gives_the_number_and_the_name_where_there_is_one) {
    EXPECT_EQ(tag_text(0x80000013), "0x80000013 (DEDUP)");
    EXPECT_EQ(tag_text(0xA000001D), "0xA000001D (LX_SYMLINK)");
    EXPECT_EQ(tag_text(0x9000001A), "0x9000001A (CLOUD)");
    EXPECT_EQ(tag_text(0x9000101A), "0x9000101A (CLOUD_1)");
    EXPECT_EQ(tag_text(0x9000F01A), "0x9000F01A (CLOUD_F)");
    EXPECT_EQ(tag_text(0x12345678), "0x12345678");
}

TEST(link_target, of_a_junction_is_absolute) {
    const auto target = target_of(junction(u"\\??\\C:\\Users\\anna"));
    ASSERT_TRUE(target.has_value());
    EXPECT_FALSE(target->relative);
    EXPECT_EQ(target->volume, u"C");
    EXPECT_EQ(target->names, (names{u"Users", u"anna"}));
    EXPECT_EQ(target->shown, "C:\\Users\\anna");
}

TEST(link_target, may_be_the_root_of_a_volume) {
    EXPECT_TRUE(target_of(junction(u"\\??\\c:\\"))->names.empty());
    EXPECT_TRUE(target_of(junction(u"\\??\\c:"))->names.empty());
    EXPECT_EQ(target_of(junction(u"\\??\\C:\\Users\\"))->names, names{u"Users"});
}

TEST(link_target, may_name_a_volume_by_its_guid) {
    const auto target = target_of(junction(u"\\??\\Volume{01234567-89ab-cdef-0123-456789abcdef}\\x"));
    ASSERT_TRUE(target.has_value());
    EXPECT_EQ(target->volume, u"Volume{01234567-89ab-cdef-0123-456789abcdef}");
    EXPECT_EQ(target->names, names{u"x"});
}

TEST(link_target, of_a_symbolic_link_may_be_relative) {
    const auto target = target_of(symlink(u"..\\a\\.\\b", 1));
    ASSERT_TRUE(target.has_value());
    EXPECT_TRUE(target->relative);
    EXPECT_FALSE(target->from_root);
    EXPECT_EQ(target->names, (names{u"..", u"a", u".", u"b"}));
}

TEST(link_target, that_is_relative_may_begin_at_the_root) {
    const auto target = target_of(symlink(u"\\a\\b", 1));
    ASSERT_TRUE(target.has_value());
    EXPECT_TRUE(target->from_root);
    EXPECT_EQ(target->names, (names{u"a", u"b"}));
}

TEST(link_target, of_a_symbolic_link_may_be_absolute) {
    EXPECT_EQ(target_of(symlink(u"\\??\\D:\\x", 0))->volume, u"D");
}

TEST(link_target, on_another_machine_or_device_is_refused) {
    EXPECT_EQ(target_of(symlink(u"\\??\\UNC\\server\\share", 0)).error().text(),
              "path \"/link\": leads to UNC\\server\\share, which is no path of a volume");
    EXPECT_EQ(target_of(symlink(u"\\Device\\HarddiskVolume1\\x", 0)).error().text(),
              "path \"/link\": leads to \\Device\\HarddiskVolume1\\x, which is no path of a volume");
    EXPECT_EQ(target_of(symlink(u"C:\\x", 0)).error().code, failure_code::link);
}

TEST(link_target, has_no_empty_names_and_no_dots_from_a_volume_on) {
    EXPECT_EQ(target_of(junction(u"\\??\\C:\\a\\\\b")).error().text(),
              "path \"/link\": leads to C:\\a\\\\b, in which a name is empty or dots");
    EXPECT_FALSE(target_of(junction(u"\\??\\C:\\..\\b")).has_value());
    EXPECT_FALSE(target_of(symlink(u"a\\\\b", 1)).has_value());
}

TEST(link_target, cut_at_any_length_is_refused) {
    const bytes whole = symlink(u"a", 1);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(
            target_of(bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size))).has_value())
            << size;
    }
    EXPECT_TRUE(target_of(whole).has_value());
}

TEST(link_target, lies_inside_of_the_link) {
    bytes value = symlink(u"ab", 1);
    value[8 + 2] = 6;  // one unit more than there is
    EXPECT_EQ(target_of(value).error().text(), "path \"/link\": the link's target lies outside of it");
    value[8 + 2] = 3;
    EXPECT_FALSE(target_of(value).has_value());
    value[8 + 2] = 0;
    EXPECT_FALSE(target_of(value).has_value());
}

TEST(link_target, is_shown_without_what_acts_on_a_terminal) {
    EXPECT_EQ(target_of(symlink(u"a\x1B", 1))->shown, "a\\u001B");
}

}  // namespace quarry::test
