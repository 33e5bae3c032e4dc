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

TEST(SnapshotPrefix, OfAShadowCopyDeviceIsTakenOff) {
    EXPECT_EQ(stripped(LR"(\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy12\Users\a.txt)"),
              LR"(\Users\a.txt)");
    EXPECT_EQ(stripped(LR"(\\?\globalroot\DEVICE\harddiskvolumeshadowcopy3\Users)"), LR"(\Users)");
    EXPECT_EQ(stripped(LR"(\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy\x)"), LR"(\x)");
}

TEST(SnapshotPrefix, OfAShadowCopyWithNothingBehindItStays) {
    const std::wstring path = LR"(\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy12)";
    EXPECT_EQ(stripped(path), path);
}

TEST(SnapshotPrefix, OfAnotherDeviceStays) {
    for (const wchar_t* path : {LR"(\\?\GLOBALROOT\Device\HarddiskVolume1\Users)", LR"(\\?\C:\Users)",
                                LR"(\\?\)", LR"(\\?)", LR"(\Users\a)", LR"(?\\GLOBALROOT)"}) {
        EXPECT_EQ(stripped(path), path);
    }
}

TEST(SnapshotPrefix, OfASnapshotIdIsTakenOff) {
    // The four characters of the prefix, "SNAPID_" and 36 of the id make 47; the backslash stands at
    // index 47.
    const std::wstring device = LR"(\\.\SNAPID_)" + std::wstring(36, L'0');
    ASSERT_EQ(device.size(), 47u);
    EXPECT_EQ(stripped(device + LR"(\Users\a.txt)"), LR"(\Users\a.txt)");
    EXPECT_EQ(stripped(device + LR"(}}\Users)"), LR"(\Users)");
    EXPECT_EQ(stripped(LR"(\\.\snapid_)" + std::wstring(36, L'0') + LR"(\x)"), LR"(\x)");
}

TEST(SnapshotPrefix, OfASnapshotIdInAPathOf47CharactersStays) {
    const std::wstring path = LR"(\\.\SNAPID_)" + std::wstring(30, L'0') + LR"(\abcde)";
    ASSERT_EQ(path.size(), 47u);
    EXPECT_EQ(stripped(path), path);
}

TEST(SnapshotPrefix, OfASnapshotIdLooksForABackslashFromIndex47On) {
    const std::wstring path = LR"(\\.\SNAPID_)" + std::wstring(20, L'0') + LR"(\)" + std::wstring(20, L'a');
    ASSERT_EQ(path.size(), 52u);
    EXPECT_EQ(stripped(path), path);
    EXPECT_EQ(stripped(path + LR"(\b)"), LR"(\b)");
}

TEST(SnapshotPrefix, OfAnotherPlainDeviceStays) {
    const std::wstring path = LR"(\\.\xSNAPID_)" + std::wstring(40, L'0') + LR"(\Users)";
    EXPECT_EQ(stripped(path), path);
    EXPECT_EQ(stripped(LR"(\\.\)"), LR"(\\.\)");
}

TEST(PathSegments, SplitAtBackslashes) {
    const path_segments path = split_volume_path(LR"(\Windows\system32\a.txt)");
    EXPECT_EQ(path.names, (names{L"Windows", L"system32", L"a.txt"}));
    EXPECT_TRUE(path.rooted);
    EXPECT_FALSE(split_volume_path(LR"(Windows\a)").rooted);
}

TEST(PathSegments, SplitAtSlashes) {
    const path_segments path = split_volume_path(L"/Windows/a.txt");
    EXPECT_EQ(path.names, (names{L"Windows", L"a.txt"}));
    EXPECT_TRUE(path.rooted);
    EXPECT_FALSE(split_volume_path(L"Windows/a").rooted);
}

TEST(PathSegments, APathWithBothSeparatorsSplitsAtSlashesOnly) {
    const path_segments path = split_volume_path(LR"(a/b\c)");
    EXPECT_EQ(path.names, (names{L"a", LR"(b\c)"}));
    const path_segments rooted = split_volume_path(LR"(\a/b)");
    EXPECT_EQ(rooted.names, (names{LR"(\a)", L"b"}));
    EXPECT_FALSE(rooted.rooted);
}

TEST(PathSegments, DropEmptyPiecesAndTrimNothing) {
    EXPECT_EQ(split_volume_path(LR"(\\ a \\\b	\)").names, (names{L" a ", L"b\t"}));
}

TEST(PathSegments, OfSeparatorsAloneAreNoneAndRooted) {
    for (const wchar_t* path : {LR"(\)", LR"(\\\)", L"/", L"//"}) {
        EXPECT_TRUE(split_volume_path(path).names.empty());
        EXPECT_TRUE(split_volume_path(path).rooted);
    }
}

TEST(PathSegments, AFirstSegmentWithAColonAsItsSecondCharacterIsPassedOverWhateverElseItHolds) {
    EXPECT_EQ(first_walked_segment({L"c:", L"a"}), 1u);
    EXPECT_EQ(first_walked_segment({L"7:"}), 1u);
    EXPECT_EQ(first_walked_segment({L"c:file.txt"}), 1u);
    EXPECT_EQ(first_walked_segment({L"a", L"c:"}), 0u);
    EXPECT_EQ(first_walked_segment({L"ab:c"}), 0u);
    EXPECT_EQ(first_walked_segment({L":"}), 0u);
    EXPECT_EQ(first_walked_segment({L"c"}), 0u);
    EXPECT_EQ(first_walked_segment({}), 0u);
}

TEST(PathSegments, AFileNameIsWhatStandsAheadOfTheFirstColonTrimmedAndLowered) {
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

TEST(PathSegments, ACanonicalTextKeepsCaseStreamAndDriveLetter) {
    EXPECT_EQ(canonical_text({{L"c:", L"Dir", L"File:Stream"}, true}), LR"(\c:\Dir\File:Stream)");
    EXPECT_EQ(canonical_text({{L"Dir", L" b "}, false}), LR"(Dir\ b )");
    EXPECT_EQ(canonical_text({{}, true}), LR"(\)");
    EXPECT_EQ(canonical_text({{}, false}), L"");
}

TEST(PathSegments, BehindALinkAreThoseOfItsTargetAndTheRemainingOnes) {
    EXPECT_EQ(segments_behind_link({L"a", L"link", L"b", L"c:s"}, 1, LR"(C:\Target\x)"),
              (names{L"C:", L"Target", L"x", L"b", L"c:s"}));
    EXPECT_EQ(segments_behind_link({L"link"}, 0, LR"(C:\)"), (names{L"C:"}));
    EXPECT_EQ(segments_behind_link({L"link", L"b"}, 0, L""), (names{L"b"}));
    EXPECT_EQ(segments_behind_link({L"link"}, 0, L""), names());
}

TEST(PathSegments, BehindALinkSplitAtBackslashesWhateverThePathHad) {
    EXPECT_EQ(segments_behind_link({L"link", LR"(b\c)"}, 0, L"x/y"), (names{L"x/y", L"b", L"c"}));
}

}  // namespace
}  // namespace quarry::test
