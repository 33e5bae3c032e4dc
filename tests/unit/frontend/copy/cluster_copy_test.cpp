#include "frontend/copy/cluster_copy.h"

#include "support/device_files.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"
#include "unit/frontend/copy/copied_volume.h"

#include <filesystem>
#include <sys/stat.h>

#include <gtest/gtest.h>

namespace quarry {
namespace {

namespace fs = std::filesystem;
using test::device_files;
using test::temp_dir;
using test::text_of;
using test::to_bytes;

class cluster_copy_test : public testing::Test {
  protected:
    void SetUp() override {
        test::write_file(dir / "image", test::copied_volume());
        request.from = source::of_image((dir / "image").wstring(), 0);
        request.outputs.copy = (dir / "o").wstring();
        request.outputs.reports = {{&text_report, (dir / "report").wstring()}};
    }
    bool copy(std::uint64_t start, std::uint64_t count, bool with_report = true) {
        request.clusters = {start, count};
        return copy_clusters(request, with_report, guard);
    }
    bool copy_to(const fs::path& destination, const fs::path& report) {
        request.outputs.copy = destination.wstring();
        request.outputs.reports = {{&text_report, report.wstring()}};
        return copy(120, 1);
    }
    // The report after its head.
    [[nodiscard]] std::string lines() const {
        const std::string report = text_of(dir / "report");
        return report.substr(report.find("\n\n") + 2);
    }
    temp_dir dir;
    copy_request request = {};
    output_guard guard;
};

TEST_F(cluster_copy_test, writes_one_cluster_after_the_other) {
    EXPECT_TRUE(copy(120, 3));
    EXPECT_EQ(text_of(dir / "o"), test::clusters_of_copied_volume(120, 3));
    EXPECT_EQ(lines(),
              "cluster num            0x000000000078,   physical addr:  0x0000000000078000 [ok]\n"
              "cluster num            0x000000000079,   physical addr:  0x0000000000079000 [ok]\n"
              "cluster num            0x00000000007a,   physical addr:  0x000000000007a000 [ok]\n");
}

TEST_F(cluster_copy_test, a_count_of_0_gives_an_empty_file_and_a_report_with_no_cluster_lines) {
    EXPECT_TRUE(copy(100, 0));
    EXPECT_EQ(text_of(dir / "o"), "");
    EXPECT_EQ(lines(), "");
}

TEST_F(cluster_copy_test, a_cluster_beyond_the_end_shows_in_the_report_and_the_copy_succeeds) {
    EXPECT_TRUE(copy(100000, 1));
    EXPECT_EQ(lines(), "clusters               0x0000000186a0 [failed]\n");
    EXPECT_EQ(text_of(dir / "o"), "");
}

TEST_F(cluster_copy_test, a_cluster_that_the_image_cuts_short_keeps_its_place) {
    fs::resize_file(dir / "image", 121 * 4096 + 100);
    EXPECT_TRUE(copy(120, 2));
    EXPECT_EQ(text_of(dir / "o"), test::clusters_of_copied_volume(120, 1) +
                                      test::clusters_of_copied_volume(121, 1).substr(0, 100));
    EXPECT_EQ(lines(),
              "cluster num            0x000000000078,   physical addr:  0x0000000000078000 [ok]\n"
              "cluster num            0x000000000079,   physical addr:  0x0000000000079000\n");
}

TEST_F(cluster_copy_test, a_cluster_that_cannot_be_read_leaves_no_gap) {
    fs::resize_file(dir / "image", 121 * 4096);
    EXPECT_TRUE(copy(120, 3));
    EXPECT_EQ(text_of(dir / "o"), test::clusters_of_copied_volume(120, 1));
    EXPECT_EQ(lines(),
              "cluster num            0x000000000078,   physical addr:  0x0000000000078000 [ok]\n"
              "clusters               0x000000000079 [failed]\n"
              "clusters               0x00000000007a [failed]\n");
}

TEST_F(cluster_copy_test, a_range_far_beyond_the_end_ends_soon_without_a_report) {
    EXPECT_TRUE(copy(120, 0xFFFFFFFFFFFF, false));
    const std::string copied = text_of(dir / "o");
    EXPECT_EQ(copied, test::clusters_of_copied_volume(120, test::copied_volume().size() / 4096 - 120));
}

TEST_F(cluster_copy_test, a_range_whose_end_wraps_holds_no_cluster) {
    EXPECT_TRUE(copy(120, 0xFFFFFFFFFFFFFFF0));
    EXPECT_EQ(text_of(dir / "o"), "");
}

TEST_F(cluster_copy_test, whose_file_cannot_be_opened_counts_as_a_success) {
    EXPECT_TRUE(copy_to(dir / "missing/o", dir / "report"));
    EXPECT_FALSE(fs::exists(dir / "report"));
}

TEST_F(cluster_copy_test, whose_file_is_a_pipe_waits_for_nobody_and_counts_as_one_that_cannot_be_opened) {
    ASSERT_EQ(::mkfifo((dir / "pipe").c_str(), 0600), 0);
    EXPECT_TRUE(copy_to(dir / "pipe", dir / "report"));
    EXPECT_FALSE(fs::exists(dir / "report"));
}

TEST_F(cluster_copy_test, whose_report_cannot_be_opened_goes_on_without_one) {
    EXPECT_TRUE(copy_to(dir / "o", dir / "missing/report"));
    EXPECT_EQ(text_of(dir / "o"), test::clusters_of_copied_volume(120, 1));
}

TEST_F(cluster_copy_test, a_drive_is_named_by_its_number_in_the_report_and_nothing_takes_its_place) {
    const device_files devices;
    test::write_file(devices.drive(0), test::copied_volume());
    test::write_file(devices.drive(1), test::copied_volume());
    request.from = source::of_drive(1, 0);
    EXPECT_TRUE(copy(120, 1));
    EXPECT_EQ(text_of(dir / "report").substr(0, text_of(dir / "report").find('\n')),
              "drive/partition:       1");
    testing::internal::CaptureStderr();
    request.from = source::of_drive(2, 0);
    EXPECT_FALSE(copy(120, 1));
    testing::internal::GetCapturedStderr();
}

TEST_F(cluster_copy_test, without_a_source_there_is_no_copy) {
    request.from = {};
    EXPECT_FALSE(copy(120, 1));
    request.from = source::named_by(L"/a.txt");
    EXPECT_FALSE(copy(120, 1));
    EXPECT_FALSE(fs::exists(dir / "o"));
}

TEST_F(cluster_copy_test, where_the_image_cannot_be_opened_the_first_drive_is_tried_in_its_place) {
    const device_files devices;
    request.from = source::of_image((dir / "missing").wstring(), 0);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(copy(120, 1));
    testing::internal::GetCapturedStderr();
    test::write_file(devices.drive(0), test::copied_volume());
    EXPECT_TRUE(copy(120, 1));
    EXPECT_EQ(text_of(dir / "o"), test::clusters_of_copied_volume(120, 1));
    EXPECT_EQ(text_of(dir / "report").substr(0, text_of(dir / "report").find('\n')),
              "drive/partition:       " + (dir / "missing").string());
}

TEST_F(cluster_copy_test, the_first_drive_is_a_source_then_and_no_output_may_go_to_it) {
    const device_files devices;
    test::write_file(devices.drive(0), test::copied_volume());
    fs::create_symlink(devices.drive(0), dir / "link");
    request.from = source::of_image((dir / "missing").wstring(), 0);
    EXPECT_FALSE(copy_to(devices.drive(0), ""));
    EXPECT_FALSE(copy_to(dir / "link", ""));
    EXPECT_FALSE(copy_to(dir / "o", dir / "link"));
    EXPECT_FALSE(fs::exists(dir / "o"));
    EXPECT_TRUE(test::read_file(devices.drive(0)) == test::copied_volume());
}

TEST_F(cluster_copy_test, reads_the_volume_at_its_offset) {
    test::volume_builder volume;
    volume.write_clusters(120, test::pattern(4096));
    test::write_file(dir / "image", volume.image_at(0x100000));
    request.from.offset = 0x100000;
    EXPECT_TRUE(copy(120, 1));
    const test::bytes expected = test::pattern(4096);
    EXPECT_EQ(text_of(dir / "o"), std::string(expected.begin(), expected.end()));
    EXPECT_NE(text_of(dir / "report").find("volume_offset:         0x000000100000\n"), std::string::npos);
}

}  // namespace
}  // namespace quarry
