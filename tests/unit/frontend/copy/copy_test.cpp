#include "frontend/copy/copy.h"

#include "support/device_files.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"
#include "unit/frontend/copy/copied_volume.h"

#include <filesystem>

#include <gtest/gtest.h>

namespace quarry {
namespace {

namespace fs = std::filesystem;
using test::device_files;
using test::temp_dir;
using test::text_of;
using test::to_bytes;

class drive_copy_test : public testing::Test {
  protected:
    void SetUp() override {
        test::write_file(devices.drive(1), test::copied_volume());
        arg_list args = {"quarry", "-diags", dir / "log"};
        ASSERT_TRUE(opts.m_run.parse(args));
        opts.m_source = source::of_drive(1, 0);
        opts.m_dst = (dir / "o").wstring();
    }
    bool copy(bool check_dst = true) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const bool copied = quarry::copy(ntfs, opts, opts.m_src, check_dst);
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
    opts.m_source.offset = 0x100000;
    opts.m_src = L"/a.txt";
    EXPECT_TRUE(copy());
    EXPECT_EQ(text_of(dir / "o"), "further on");
    EXPECT_TRUE(logged("info: pNTFS drv:1:0x100000"));
    opts.m_cluster_text = "120";
    opts.m_clusters = {120, 1};
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

TEST_F(drive_copy_test, names_the_absolute_form_of_the_destination) {
    const fs::path before = fs::current_path();
    fs::current_path(dir.path());
    opts.m_dst = L"o";
    opts.m_src = L"a.txt";
    EXPECT_TRUE(copy());
    EXPECT_TRUE(logged("dst: " + (fs::current_path() / "o").string()));
    EXPECT_EQ(opts.m_dst, L"o") << "the options stay as they were parsed";
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
    opts.m_clusters = {120, 2};
    EXPECT_TRUE(copy());
    EXPECT_EQ(text_of(dir / "o"), test::clusters_of_copied_volume(120, 2));
    EXPECT_EQ(ntfs, nullptr);
}

TEST_F(drive_copy_test, a_copy_of_clusters_from_a_drive_has_no_report_whatever_meta_says) {
    opts.m_meta = true;
    opts.m_cluster_text = "120";
    opts.m_clusters = {120, 1};
    EXPECT_TRUE(copy());
    EXPECT_FALSE(fs::exists(dir / "o.meta.txt"));
}

TEST_F(drive_copy_test, clusters_of_a_drive_that_is_not_there_are_told) {
    opts.m_source.drive = 5;
    opts.m_cluster_text = "1";
    EXPECT_FALSE(copy());
    EXPECT_EQ(said, "err: copy failed:  -> " + (dir / "o").string() + "\n");
}

TEST_F(drive_copy_test, the_drives_own_device_is_no_destination) {
    opts.m_src = L"/a.txt";
    opts.m_dst = devices.drive(1).wstring();
    EXPECT_FALSE(copy());
    EXPECT_EQ(said, "err: source and destination are the same\n");
    EXPECT_EQ(test::read_file(devices.drive(1)), test::copied_volume());
}

TEST_F(drive_copy_test, a_destination_that_cannot_be_made_is_told) {
    opts.m_src = L"/a.txt";
    opts.m_dst = (dir / "missing/o").wstring();
    EXPECT_FALSE(copy());
    EXPECT_EQ(said, "err: can't create the file: " + (dir / "missing/o").string() + "\n");
    EXPECT_FALSE(copy(false));
    EXPECT_EQ(said, "err: copy failed: /a.txt -> " + (dir / "missing/o").string() + "\n");
}

// A copy from an image, and of paths that name their own volume.
class volume_copy_test : public testing::Test {
  protected:
    void SetUp() override {
        test::write_file(dir / "image", test::copied_volume());
        arg_list args = {"quarry", "-diags", dir / "log"};
        ASSERT_TRUE(opts.m_run.parse(args));
        opts.m_dst = (dir / "o").wstring();
    }
    bool copy(const std::wstring& path) {
        testing::internal::CaptureStdout();
        const bool copied = quarry::copy(ntfs, opts, path, true);
        said = testing::internal::GetCapturedStdout();
        return copied;
    }
    // The log after the command line.
    [[nodiscard]] std::string log() const {
        const std::string all = text_of(dir / "log");
        return all.substr(all.find('\n') + 1);
    }
    temp_dir dir;
    quarry_opts opts;
    std::unique_ptr<CNtfs> ntfs;
    std::string said;
};

TEST_F(volume_copy_test, a_path_of_an_image_is_copied_as_it_is_and_the_options_stay_as_they_were) {
    opts.m_source = source::of_image((dir / "image").wstring(), 0);
    EXPECT_TRUE(copy(L"a.txt"));
    EXPECT_EQ(text_of(dir / "o"), "hello");
    EXPECT_TRUE(log().find("->partition letter \n->info: pNTFS img:") != std::string::npos) << log();
    EXPECT_EQ(opts.m_src, L"");
}

TEST_F(volume_copy_test, a_path_goes_before_clusters_which_are_dropped_without_a_word) {
    opts.m_source = source::of_image((dir / "image").wstring(), 0);
    opts.m_cluster_text = "120";
    opts.m_clusters = {120, 1};
    EXPECT_TRUE(copy(L"/a.txt"));
    EXPECT_EQ(text_of(dir / "o"), "hello");
    EXPECT_TRUE(copy(L""));
    EXPECT_EQ(text_of(dir / "o"), test::clusters_of_copied_volume(120, 1));
}

TEST_F(volume_copy_test, a_failure_of_the_driver_is_left_to_the_log_and_one_of_clusters_is_told) {
    opts.m_source = source::of_image((dir / "image").wstring(), 0);
    EXPECT_FALSE(copy(L"/nosuch"));
    EXPECT_EQ(said, "");
    EXPECT_FALSE(copy(L"")) << "neither a path nor an entry nor clusters";
    EXPECT_EQ(said, "err: copy failed:  -> " + (dir / "o").string() + "\n");
}

TEST_F(volume_copy_test, a_path_without_a_source_is_made_absolute_and_may_name_its_volume) {
    const fs::path before = fs::current_path();
    fs::current_path(dir.path());
    EXPECT_FALSE(copy(L"x/a.txt"));
    EXPECT_EQ(log(), "->dst: " + (dir / "o").string() +
                         "\n->partition letter \n->info: pNTFS part:, type:33\n->err: pNTFS\n");
    test::write_file("c:", test::copied_volume());
    EXPECT_TRUE(copy(L"c:\\a.txt"));
    fs::current_path(before);
    EXPECT_EQ(text_of(dir / "o"), "hello");
    EXPECT_TRUE(log().find("->info: pNTFS part:c:\\a.txt, type:32\n") != std::string::npos) << log();
}

TEST_F(volume_copy_test, a_path_on_a_shadow_copy_begins_with_its_image) {
    EXPECT_FALSE(copy(L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy3\\x\\a.txt"));
    EXPECT_TRUE(log().find("->info: pNTFS img:\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy3:0x0\n") !=
                std::string::npos)
        << log();
}

TEST_F(volume_copy_test, the_volume_that_a_path_names_is_no_destination) {
    const fs::path before = fs::current_path();
    fs::current_path(dir.path());
    test::write_file("c:", test::copied_volume());
    opts.m_dst = L"c:";
    EXPECT_FALSE(copy(L"c:\\a.txt"));
    EXPECT_TRUE(test::read_file("c:") == test::copied_volume());
    fs::current_path(before);
    EXPECT_EQ(said, "err: source and destination are the same\n");
}

}  // namespace
}  // namespace quarry
