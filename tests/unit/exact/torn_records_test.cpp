// Only what a copy needs is judged: a torn record fails the copies that need it, and no other.
#include "exact/path_walk.h"
#include "exact/volume_path.h"
#include "support/opened_exact_volume.h"

#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {

namespace {

using testing::HasSubstr;
using testing::StartsWith;

// Entry 24 is /beside, 25 /docs, 26 /docs/wanted.
volume_builder& with_files(volume_builder& volume) {
    volume.add_file("beside").stored_data(pattern(9000, 1));
    volume.add_directory("docs");
    volume.add_file("wanted", 25).stored_data(pattern(9000, 2)).stored_stream("note", to_bytes("note"));
    return volume;
}

// The copy of /docs/wanted by its path, with what was said since the volume was opened.
exact_copy copy_by_path(const bytes& image) {
    opened_exact_volume opened(image);
    exact_copy copy;
    if (copy.failed = opened.open(); !copy.failed.empty()) {
        return copy;
    }
    exact::notices told;
    const auto names = exact::parse_volume_path("/docs/wanted")->names;
    const auto walked = exact::walk_path(opened.volume(), names, {}, told);
    if (!walked) {
        copy.failed = text_of(walked.error());
        return copy;
    }
    copy = opened.copy(walked->file.base().entry());
    for (const exact::notices& list : {opened.told(), told}) {
        for (const exact::notice& each : list.all()) {
            copy.said.warn(each.code, each.where, each.why);
        }
    }
    return copy;
}

}  // namespace

TEST(torn_records, fail_the_copies_that_need_them_and_no_other) {
    volume_builder volume({.system_files = true});
    with_files(volume);
    const bytes sound = volume.image();
    ASSERT_EQ(copy_by_path(sound).failed, "");
    ASSERT_EQ(text_of(copy_by_path(sound).said), "");
    // The root, $Bitmap, $UpCase, the directory and the file.
    const std::set<std::uint64_t> needed = {5, 6, 10, 25, 26};
    // $MFT and the first of the volume's own files have a second copy, or are only reported.
    const std::set<std::uint64_t> told = {0, 2, 3};
    int torn = 0;
    for (std::uint64_t entry = 0; entry < volume.shape().mft_entries; ++entry) {
        const auto record = static_cast<std::size_t>(volume.record_position(entry));
        for (const std::size_t sector_end : {record + 510, record + 1023}) {
            bytes image = sound;
            image[sector_end] ^= 0x10;
            const exact_copy copy = copy_by_path(image);
            if (needed.contains(entry)) {
                EXPECT_THAT(copy.failed,
                            StartsWith("torn record " + std::to_string(entry) + ": torn: sector "));
                ++torn;
                continue;
            }
            EXPECT_EQ(copy.failed, "") << entry;
            EXPECT_TRUE(copy.content == pattern(9000, 2)) << entry;
            EXPECT_FALSE(copy.said.in_doubt()) << entry;
            if (told.contains(entry)) {
                EXPECT_THAT(text_of(copy.said),
                            HasSubstr("record " + std::to_string(entry) + ": torn: sector "));
            } else {
                EXPECT_EQ(text_of(copy.said), "") << entry;
            }
        }
    }
    EXPECT_EQ(torn, 10);
}

}  // namespace quarry::test
