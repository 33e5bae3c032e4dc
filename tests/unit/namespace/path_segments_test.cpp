#include "namespace/path_segments.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using names = std::vector<std::wstring>;

std::wstring stripped(std::wstring path) {
    strip_snapshot_prefix(path);
    return path;
}

TEST(snapshot_prefix, of_a_shadow_copy_device_is_taken_off) {
    EXPECT_EQ(stripped(LR"(\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy12\Users\a.txt)"),
              LR"(\Users\a.txt)");
    EXPECT_EQ(stripped(LR"(\\?\globalroot\DEVICE\harddiskvolumeshadowcopy3\Users)"), LR"(\Users)");
    EXPECT_EQ(stripped(LR"(\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy\x)"), LR"(\x)");
}

TEST(snapshot_prefix, of_a_shadow_copy_with_nothing_after_it_stays) {
    const std::wstring path = LR"(\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy12)";
    EXPECT_EQ(stripped(path), path);
}

TEST(snapshot_prefix, of_another_device_stays) {
    for (const wchar_t* path : {LR"(\\?\GLOBALROOT\Device\HarddiskVolume1\Users)", LR"(\\?\C:\Users)",
                                LR"(\\?\)", LR"(\\?)", LR"(\Users\a)", LR"(?\\GLOBALROOT)"}) {
        EXPECT_EQ(stripped(path), path);
    }
}

TEST(snapshot_prefix, of_a_snapshot_id_is_taken_off) {
    // The four characters of the prefix, "SNAPID_" and 36 of the id make 47; the backslash is at index 47.
    const std::wstring device = LR"(\\.\SNAPID_)" + std::wstring(36, L'0');
    ASSERT_EQ(device.size(), 47u);
    EXPECT_EQ(stripped(device + LR"(\Users\a.txt)"), LR"(\Users\a.txt)");
    EXPECT_EQ(stripped(device + LR"(}}\Users)"), LR"(\Users)");
    EXPECT_EQ(stripped(LR"(\\.\snapid_)" + std::wstring(36, L'0') + LR"(\x)"), LR"(\x)");
}

TEST(snapshot_prefix, of_a_snapshot_id_in_a_path_of_47_characters_stays) {
    const std::wstring path = LR"(\\.\SNAPID_)" + std::wstring(30, L'0') + LR"(\abcde)";
    ASSERT_EQ(path.size(), 47u);
    EXPECT_EQ(stripped(path), path);
}

TEST(snapshot_prefix, of_a_snapshot_id_looks_for_a_backslash_from_index_47_on) {
    const std::wstring path = LR"(\\.\SNAPID_)" + std::wstring(20, L'0') + LR"(\)" + std::wstring(20, L'a');
    ASSERT_EQ(path.size(), 52u);
    EXPECT_EQ(stripped(path), path);
    EXPECT_EQ(stripped(path + LR"(\b)"), LR"(\b)");
}

TEST(snapshot_prefix, of_another_plain_device_stays) {
    const std::wstring path = LR"(\\.\xSNAPID_)" + std::wstring(40, L'0') + LR"(\Users)";
    EXPECT_EQ(stripped(path), path);
    EXPECT_EQ(stripped(LR"(\\.\)"), LR"(\\.\)");
}

TEST(path_segments, split_at_backslashes) {
    const path_segments path = split_volume_path(LR"(\Windows\system32\a.txt)");
    EXPECT_EQ(path.names, (names{L"Windows", L"system32", L"a.txt"}));
    EXPECT_TRUE(path.rooted);
    EXPECT_FALSE(split_volume_path(LR"(Windows\a)").rooted);
}

TEST(path_segments, split_at_slashes) {
    const path_segments path = split_volume_path(L"/Windows/a.txt");
    EXPECT_EQ(path.names, (names{L"Windows", L"a.txt"}));
    EXPECT_TRUE(path.rooted);
    EXPECT_FALSE(split_volume_path(L"Windows/a").rooted);
}

TEST(path_segments, a_path_with_both_separators_splits_at_slashes_only) {
    const path_segments path = split_volume_path(LR"(a/b\c)");
    EXPECT_EQ(path.names, (names{L"a", LR"(b\c)"}));
    const path_segments rooted = split_volume_path(LR"(\a/b)");
    EXPECT_EQ(rooted.names, (names{LR"(\a)", L"b"}));
    EXPECT_FALSE(rooted.rooted);
}

TEST(path_segments, drop_empty_pieces_and_trim_nothing) {
    EXPECT_EQ(split_volume_path(LR"(\\ a \\\b	\)").names, (names{L" a ", L"b\t"}));
}

TEST(path_segments, of_nothing_but_separators_are_none_and_rooted) {
    for (const wchar_t* path : {LR"(\)", LR"(\\\)", L"/", L"//"}) {
        EXPECT_TRUE(split_volume_path(path).names.empty());
        EXPECT_TRUE(split_volume_path(path).rooted);
    }
}

TEST(path_segments,
     a_first_segment_with_a_colon_as_its_second_character_is_passed_over_whatever_else_it_holds) {
    EXPECT_EQ(first_walked_segment({L"c:", L"a"}), 1u);
    EXPECT_EQ(first_walked_segment({L"7:"}), 1u);
    EXPECT_EQ(first_walked_segment({L"c:file.txt"}), 1u);
    EXPECT_EQ(first_walked_segment({L"a", L"c:"}), 0u);
    EXPECT_EQ(first_walked_segment({L"ab:c"}), 0u);
    EXPECT_EQ(first_walked_segment({L":"}), 0u);
    EXPECT_EQ(first_walked_segment({L"c"}), 0u);
    EXPECT_EQ(first_walked_segment({}), 0u);
}

TEST(path_segments, a_file_name_is_what_is_ahead_of_the_first_colon_trimmed_and_lowered) {
    EXPECT_EQ(lowered_file_name(L"File.TXT:Stream:$DATA"), "file.txt");
    EXPECT_EQ(lowered_file_name(L"  \tName\t  "), "name");
    EXPECT_EQ(lowered_file_name(L"Name \t"), "name ") << "blanks go first, so those inside of tabs stay";
    EXPECT_EQ(lowered_file_name(L"Name :stream"), "name");
    EXPECT_EQ(lowered_file_name(L"   "), "");
    EXPECT_EQ(lowered_file_name(L":stream"), "");
    EXPECT_EQ(lowered_file_name(L"\u00C4B"),
              "\xC3\x84"
              "b");
}

TEST(path_segments, a_canonical_text_keeps_case_stream_and_drive_letter) {
    EXPECT_EQ(canonical_text({{L"c:", L"Dir", L"File:Stream"}, true}), LR"(\c:\Dir\File:Stream)");
    EXPECT_EQ(canonical_text({{L"Dir", L" b "}, false}), LR"(Dir\ b )");
    EXPECT_EQ(canonical_text({{}, true}), LR"(\)");
    EXPECT_EQ(canonical_text({{}, false}), L"");
}

TEST(path_segments, after_a_link_are_those_of_its_target_and_the_remaining_ones) {
    EXPECT_EQ(segments_after_link({L"a", L"link", L"b", L"c:s"}, 1, LR"(C:\Target\x)"),
              (names{L"C:", L"Target", L"x", L"b", L"c:s"}));
    EXPECT_EQ(segments_after_link({L"link"}, 0, LR"(C:\)"), (names{L"C:"}));
    EXPECT_EQ(segments_after_link({L"link", L"b"}, 0, L""), (names{L"b"}));
    EXPECT_EQ(segments_after_link({L"link"}, 0, L""), names());
}

TEST(path_segments, after_a_link_split_at_backslashes_whatever_the_path_had) {
    EXPECT_EQ(segments_after_link({L"link", LR"(b\c)"}, 0, L"x/y"), (names{L"x/y", L"b", L"c"}));
}

}  // namespace
}  // namespace quarry::test
