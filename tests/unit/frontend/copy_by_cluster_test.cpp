#include "frontend/copy_by_cluster.h"

#include "support/device_files.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <filesystem>
#include <sys/stat.h>

#include <gtest/gtest.h>

namespace quarry {
namespace {

namespace fs = std::filesystem;
using test::device_files;
using test::temp_dir;
using test::to_bytes;

std::string text_of(const fs::path& path) {
    const test::bytes content = test::read_file(path);
    return {content.begin(), content.end()};
}

test::bytes volume_image() {
    test::volume_builder volume;
    volume.add_file("a.txt").data("hello");
    volume.write_clusters(120, test::pattern(4096 * 3));
    return volume.image();
}

std::string clusters_of(std::size_t first, std::size_t count) {
    const test::bytes image = volume_image();
    return std::string(image.begin(), image.end()).substr(first * 4096, count * 4096);
}

class drive_copy_test : public testing::Test {
  protected:
    void SetUp() override {
        test::write_file(devices.drive(1), volume_image());
        arg_list args = {"quarry", "-diags", dir / "log"};
        ASSERT_TRUE(opts.cmd_params::parse(args));
        opts.m_use_drive = true;
        opts.m_drive = 1;
        opts.m_dst = (dir / "o").wstring();
    }
    bool copy(bool check_dst = true) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const bool copied = copy_from_drive(ntfs, opts, check_dst);
        said = testing::internal::GetCapturedStdout();
        testing::internal::GetCapturedStderr();
        return copied;
    }
    [[nodiscard]] bool logged(const std::string& line) const {
        return text_of(dir / "log").find("->" + line + "\n") != std::string::npos;
    }
    device_files devices;
    temp_dir dir;
    quarry_opts opts;
    std::unique_ptr<CNtfs> ntfs;
    std::string said;
};

TEST_F(drive_copy_test, copies_a_path) {
    opts.m_src = L"/a.txt";
    EXPECT_TRUE(copy());
    EXPECT_EQ(text_of(dir / "o"), "hello");
    EXPECT_EQ(said, "");
    EXPECT_TRUE(logged("info: pNTFS drv:1:0x0"));
    EXPECT_FALSE(logged("partition letter "));
}

TEST_F(drive_copy_test, copies_an_entry_named_by_its_digest_with_its_report) {
    opts.m_entry = 24;
    opts.m_md5 = true;
    opts.m_meta = true;
    EXPECT_TRUE(copy());
    const std::string name = "01d5c1194ac40080_o_5d41402abc4b2a76b9719d911017c592";
    EXPECT_EQ(text_of(dir / name), "hello");
    EXPECT_TRUE(fs::exists(dir / (name + "_meta.txt")));
}

TEST_F(drive_copy_test, the_status_log_is_not_replaced_by_a_copy_of_its_name) {
    opts.m_entry = 24;
    opts.m_md5 = true;
    const std::string name = "01d5c1194ac40080_o_5d41402abc4b2a76b9719d911017c592";
    fs::create_hard_link(dir / "log", dir / name);
    EXPECT_FALSE(copy());
    EXPECT_TRUE(fs::equivalent(dir / "log", dir / name));
}

TEST_F(drive_copy_test, the_drive_is_not_replaced_by_a_copy_of_its_name) {
    opts.m_entry = 24;
    opts.m_md5 = true;
    const std::string name = "01d5c1194ac40080_o_5d41402abc4b2a76b9719d911017c592";
    fs::create_hard_link(devices.drive(1), dir / name);
    EXPECT_FALSE(copy());
    EXPECT_TRUE(fs::equivalent(devices.drive(1), dir / name));
}

TEST_F(drive_copy_test, a_volume_may_lie_anywhere_on_the_drive) {
    test::volume_builder volume;
    volume.add_file("a.txt").data("further on");
    volume.write_clusters(120, test::pattern(4096));
    test::write_file(devices.drive(1), volume.image_at(0x100000));
    opts.m_volume_offset = 0x100000;
    opts.m_src = L"/a.txt";
    EXPECT_TRUE(copy());
    EXPECT_EQ(text_of(dir / "o"), "further on");
    EXPECT_TRUE(logged("info: pNTFS drv:1:0x100000"));
    opts.m_cluster_text = "120";
    opts.m_start_lcn = 120;
    opts.m_cluster_count = 1;
    EXPECT_TRUE(copy());
    EXPECT_TRUE(test::read_file(dir / "o") == test::pattern(4096));
}

TEST_F(drive_copy_test, slack_is_taken_along_and_holes_are_left_out_if_asked_for) {
    const test::bytes content = test::pattern(3 * 4096);
    const std::string stored(content.begin(), content.end());
    test::volume_builder volume;
    volume.add_file("a.txt").data(test::runs({{120, 1}, {test::hole, 1}, {121, 2}}),
                                  {.real = 3 * 4096 + 100});
    volume.write_clusters(120, content);
    test::write_file(devices.drive(1), volume.image());
    const std::string with_hole = stored.substr(0, 4096) + std::string(4096, '\0') + stored.substr(4096);
    opts.m_src = L"/a.txt";
    EXPECT_TRUE(copy());
    EXPECT_TRUE(text_of(dir / "o") == with_hole.substr(0, 3 * 4096 + 100));
    opts.m_raw = true;
    EXPECT_TRUE(copy());
    EXPECT_TRUE(text_of(dir / "o") == with_hole);
    opts.m_raw = false;
    opts.m_skip_sparse = true;
    EXPECT_TRUE(copy());
    EXPECT_TRUE(text_of(dir / "o") == stored);
}

TEST_F(drive_copy_test, without_a_destination_aborts_in_its_own_words) {
    opts.m_dst.clear();
    EXPECT_FALSE(copy());
    EXPECT_EQ(said, "err: -dst <filename> was not specified, aborting\n");
    EXPECT_TRUE(logged("err: -dst <filename> was not specified, aborting"));
}

TEST_F(drive_copy_test, takes_the_absolute_form_of_the_destination_over) {
    const fs::path before = fs::current_path();
    fs::current_path(dir.path());
    opts.m_dst = L"o";
    opts.m_src = L"a.txt";
    EXPECT_TRUE(copy());
    EXPECT_EQ(opts.m_dst, (fs::current_path() / "o").wstring());
    EXPECT_EQ(opts.m_src, L"a.txt");
    fs::current_path(before);
    EXPECT_EQ(text_of(dir / "o"), "hello");
}

TEST_F(drive_copy_test, a_failure_of_the_driver_is_told_on_the_console) {
    opts.m_src = L"/nosuch";
    EXPECT_FALSE(copy());
    EXPECT_EQ(said, "err: copy failed: /nosuch -> " + (dir / "o").string() + "\n");
    EXPECT_TRUE(logged("err: find inode"));
}

TEST_F(drive_copy_test, a_failure_in_a_directory_is_told_with_the_directory) {
    opts.m_src = L"/x/nosuch";
    opts.m_dst = dir.path().wstring() + L"/";
    EXPECT_FALSE(copy());
    EXPECT_EQ(said, "err: copy failed: /x/nosuch -> " + dir.path().string() + "/\n");
    EXPECT_TRUE(logged("dst: " + (dir / "nosuch").string()));
}

TEST_F(drive_copy_test, clusters_come_before_a_path_and_an_entry) {
    opts.m_src = L"/a.txt";
    opts.m_entry = 24;
    opts.m_cluster_text = "120";
    opts.m_start_lcn = 120;
    opts.m_cluster_count = 2;
    EXPECT_TRUE(copy());
    EXPECT_EQ(text_of(dir / "o"), clusters_of(120, 2));
    EXPECT_EQ(ntfs, nullptr);
}

TEST_F(drive_copy_test, a_copy_of_clusters_from_a_drive_has_no_report_whatever_meta_says) {
    opts.m_meta = true;
    opts.m_cluster_text = "120";
    opts.m_start_lcn = 120;
    opts.m_cluster_count = 1;
    EXPECT_TRUE(copy());
    EXPECT_FALSE(fs::exists(dir / "o.meta.txt"));
}

TEST_F(drive_copy_test, clusters_of_a_drive_that_is_not_there_are_told) {
    opts.m_drive = 5;
    opts.m_cluster_text = "1";
    EXPECT_FALSE(copy());
    EXPECT_EQ(said, "err: copy failed:  -> " + (dir / "o").string() + "\n");
}

TEST_F(drive_copy_test, the_drives_own_device_is_no_destination) {
    opts.m_src = L"/a.txt";
    opts.m_dst = devices.drive(1).wstring();
    EXPECT_FALSE(copy());
    EXPECT_EQ(said, "err: source and destination are the same\n");
    EXPECT_EQ(test::read_file(devices.drive(1)), volume_image());
}

TEST_F(drive_copy_test, a_destination_that_cannot_be_made_is_told) {
    opts.m_src = L"/a.txt";
    opts.m_dst = (dir / "missing/o").wstring();
    EXPECT_FALSE(copy());
    EXPECT_EQ(said, "err: can't create the file: " + (dir / "missing/o").string() + "\n");
    EXPECT_FALSE(copy(false));
    EXPECT_EQ(said, "err: copy failed: /a.txt -> " + (dir / "missing/o").string() + "\n");
}

class cluster_copy_test : public testing::Test {
  protected:
    void SetUp() override {
        test::write_file(dir / "image", volume_image());
        image = (dir / "image").wstring();
    }
    bool copy(std::uint64_t start, std::uint64_t count, bool with_report = true) {
        return copy_clusters({}, image, 0, start, count, (dir / "o").wstring(),
                             with_report ? (dir / "report").wstring() : L"", guard);
    }
    // The report behind its head.
    [[nodiscard]] std::string lines() const {
        const std::string report = text_of(dir / "report");
        return report.substr(report.find("\n\n") + 2);
    }
    temp_dir dir;
    std::wstring image;
    output_guard guard;
};

TEST_F(cluster_copy_test, writes_one_cluster_behind_the_other) {
    EXPECT_TRUE(copy(120, 3));
    EXPECT_EQ(text_of(dir / "o"), clusters_of(120, 3));
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
    EXPECT_EQ(text_of(dir / "o"), clusters_of(120, 1) + clusters_of(121, 1).substr(0, 100));
    EXPECT_EQ(lines(),
              "cluster num            0x000000000078,   physical addr:  0x0000000000078000 [ok]\n"
              "cluster num            0x000000000079,   physical addr:  0x0000000000079000\n");
}

TEST_F(cluster_copy_test, a_cluster_that_cannot_be_read_leaves_no_gap) {
    fs::resize_file(dir / "image", 121 * 4096);
    EXPECT_TRUE(copy(120, 3));
    EXPECT_EQ(text_of(dir / "o"), clusters_of(120, 1));
    EXPECT_EQ(lines(),
              "cluster num            0x000000000078,   physical addr:  0x0000000000078000 [ok]\n"
              "clusters               0x000000000079 [failed]\n"
              "clusters               0x00000000007a [failed]\n");
}

TEST_F(cluster_copy_test, a_range_far_beyond_the_end_ends_soon_without_a_report) {
    EXPECT_TRUE(copy(120, 0xFFFFFFFFFFFF, false));
    const std::string copied = text_of(dir / "o");
    EXPECT_EQ(copied, clusters_of(120, volume_image().size() / 4096 - 120));
}

TEST_F(cluster_copy_test, a_range_whose_end_wraps_holds_no_cluster) {
    EXPECT_TRUE(copy(120, 0xFFFFFFFFFFFFFFF0));
    EXPECT_EQ(text_of(dir / "o"), "");
}

TEST_F(cluster_copy_test, whose_file_cannot_be_opened_counts_as_a_success) {
    EXPECT_TRUE(copy_clusters({}, image, 0, 120, 1, (dir / "missing/o").wstring(), (dir / "report").wstring(),
                              guard));
    EXPECT_FALSE(fs::exists(dir / "report"));
}

TEST_F(cluster_copy_test, whose_file_is_a_pipe_waits_for_nobody_and_counts_as_one_that_cannot_be_opened) {
    ASSERT_EQ(::mkfifo((dir / "pipe").c_str(), 0600), 0);
    EXPECT_TRUE(
        copy_clusters({}, image, 0, 120, 1, (dir / "pipe").wstring(), (dir / "report").wstring(), guard));
    EXPECT_FALSE(fs::exists(dir / "report"));
}

TEST_F(cluster_copy_test, whose_report_cannot_be_opened_goes_on_without_one) {
    EXPECT_TRUE(copy_clusters({}, image, 0, 120, 1, (dir / "o").wstring(), (dir / "missing/report").wstring(),
                              guard));
    EXPECT_EQ(text_of(dir / "o"), clusters_of(120, 1));
}

TEST_F(cluster_copy_test, where_the_image_cannot_be_opened_the_first_drive_is_tried_in_its_place) {
    const device_files devices;
    image = (dir / "missing").wstring();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(copy(120, 1));
    testing::internal::GetCapturedStderr();
    test::write_file(devices.drive(0), volume_image());
    EXPECT_TRUE(copy(120, 1));
    EXPECT_EQ(text_of(dir / "o"), clusters_of(120, 1));
    EXPECT_EQ(text_of(dir / "report").substr(0, text_of(dir / "report").find('\n')),
              "drive/partition:       " + (dir / "missing").string());
}

TEST_F(cluster_copy_test, the_first_drive_is_a_source_then_and_no_output_may_go_to_it) {
    const device_files devices;
    test::write_file(devices.drive(0), volume_image());
    fs::create_symlink(devices.drive(0), dir / "link");
    image = (dir / "missing").wstring();
    const std::wstring drive = devices.drive(0).wstring();
    const std::wstring link = (dir / "link").wstring();
    EXPECT_FALSE(copy_clusters({}, image, 0, 120, 1, drive, L"", guard));
    EXPECT_FALSE(copy_clusters({}, image, 0, 120, 1, link, L"", guard));
    EXPECT_FALSE(copy_clusters({}, image, 0, 120, 1, (dir / "o").wstring(), link, guard));
    EXPECT_FALSE(fs::exists(dir / "o"));
    EXPECT_TRUE(test::read_file(devices.drive(0)) == volume_image());
}

TEST_F(cluster_copy_test, reads_the_volume_at_its_offset) {
    test::volume_builder volume;
    volume.write_clusters(120, test::pattern(4096));
    test::write_file(dir / "image", volume.image_at(0x100000));
    EXPECT_TRUE(
        copy_clusters({}, image, 0x100000, 120, 1, (dir / "o").wstring(), (dir / "report").wstring(), guard));
    const test::bytes expected = test::pattern(4096);
    EXPECT_EQ(text_of(dir / "o"), std::string(expected.begin(), expected.end()));
    EXPECT_NE(text_of(dir / "report").find("volume_offset:         0x000000100000\n"), std::string::npos);
}

}  // namespace
}  // namespace quarry
