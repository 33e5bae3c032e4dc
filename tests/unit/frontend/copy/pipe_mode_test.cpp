#include "frontend/copy/pipe_mode.h"

#include "frontend/options/filter.h"
#include "support/device_files.h"
#include "support/standard_input.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry {
namespace {

namespace fs = std::filesystem;
using test::device_files;
using test::temp_dir;
using test::to_bytes;
using test::write_file;

class pipe_mode_test : public testing::Test {
  protected:
    void SetUp() override {
        test::volume_builder volume;
        volume.add_file("a.txt").data("hello");
        const std::uint64_t directory = volume.add_directory("dir").entry();
        volume.add_file("b.txt", directory).data("b");
        volume.add_file("c.txt", directory).data("c");
        volume.write_clusters(120, test::pattern(4096));
        image = volume.image();
        arg_list args = {"quarry", "-diags", dir / "log"};
        ASSERT_TRUE(opts.m_run.parse(args));
        fs::create_directory(dir / "out");
        opts.m_dst = (dir / "out").wstring() + L"/";
    }
    void run(const std::string& input) {
        write_file(dir / "input", to_bytes(input));
        const int descriptor = ::open((dir / "input").c_str(), O_RDONLY);
        const test::standard_input redirected(descriptor);
        ::close(descriptor);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        run_pipe(opts);
        out = testing::internal::GetCapturedStdout();
        err = testing::internal::GetCapturedStderr();
    }
    void run_lines(const std::string& input) {
        opts.m_run.m_pipe = true;
        run(input);
    }
    void use_drive() {
        write_file(devices.drive(1), image);
        opts.m_source = source::of_drive(1, 0);
    }
    [[nodiscard]] std::string text(const fs::path& name) const {
        const test::bytes content = test::read_file(dir / name);
        return {content.begin(), content.end()};
    }
    [[nodiscard]] int times_logged(const std::string& words) const {
        const std::string log = text("log");
        int times = 0;
        for (std::size_t at = log.find(words); at != std::string::npos; at = log.find(words, at + 1)) {
            ++times;
        }
        return times;
    }
    device_files devices;
    temp_dir dir;
    quarry_opts opts;
    test::bytes image;
    std::string out;
    std::string err;
};

TEST_F(pipe_mode_test, a_list_is_copied_from_a_drive_that_is_opened_once) {
    use_drive();
    run_lines("/a.txt\r\n\n/dir/b.txt\n");
    EXPECT_EQ(out, "");
    EXPECT_EQ(err, "success: /a.txt\nsuccess: /dir/b.txt\n");
    EXPECT_EQ(text("out/a.txt"), "hello");
    EXPECT_EQ(text("out/b.txt"), "b");
    EXPECT_EQ(times_logged("->info: pNTFS drv:1:0x0\n"), 1);
}

TEST_F(pipe_mode_test, a_line_that_fails_on_a_drive_is_reported_on_both_streams) {
    use_drive();
    run_lines("/nosuch\n/a.txt\n");
    EXPECT_EQ(out, "err: copy failed: /nosuch -> " + (dir / "out").string() + "/\n");
    EXPECT_EQ(err, "failed: /nosuch\nsuccess: /a.txt\n");
}

TEST_F(pipe_mode_test, clusters_of_a_drive_are_copied_for_each_line_whatever_it_names) {
    use_drive();
    opts.m_cluster_text = "120";
    opts.m_clusters = {120, 1};
    run_lines("/x/one\n/x/two\n");
    EXPECT_EQ(err, "success: /x/one\nsuccess: /x/two\n");
    EXPECT_TRUE(test::read_file(dir / "out/one") == test::pattern(4096));
    EXPECT_TRUE(test::read_file(dir / "out/two") == test::pattern(4096));
}

TEST_F(pipe_mode_test, the_destination_is_tried_out_only_until_the_first_success) {
    use_drive();
    fs::create_directory(dir / "out/b.txt");
    run_lines("/dir/b.txt\n/a.txt\n/dir/b.txt\n");
    const std::string cannot = "err: can't create the file: " + (dir / "out/b.txt").string() + "\n";
    const std::string failed = "err: copy failed: /dir/b.txt -> " + (dir / "out").string() + "/\n";
    EXPECT_EQ(out, cannot + failed);
    EXPECT_EQ(err, "failed: /dir/b.txt\nsuccess: /a.txt\nfailed: /dir/b.txt\n");
}

TEST_F(pipe_mode_test, each_copy_has_its_report_and_its_digest) {
    use_drive();
    opts.m_md5 = true;
    opts.m_meta = true;
    run_lines("/a.txt\n/dir/b.txt\n");
    const std::string a = "out/01d5c1194ac40080_a.txt_5d41402abc4b2a76b9719d911017c592";
    const std::string b = "out/01d5c1194ac40080_b.txt_92eb5ffee6ae2fec3ad71c777531578f";
    EXPECT_EQ(text(a), "hello");
    EXPECT_EQ(text(b), "b");
    EXPECT_TRUE(text(a + "_meta.txt").starts_with("\\a.txt\n"));
    EXPECT_TRUE(text(b + "_meta.txt").starts_with("\\dir\\b.txt\n"));
    EXPECT_EQ(std::distance(fs::directory_iterator(dir / "out"), fs::directory_iterator()), 4);
}

TEST_F(pipe_mode_test, a_walk_opens_the_volume_once_and_copies_what_it_has_at_the_paths_of_the_host) {
    const fs::path before = fs::current_path();
    write_file(dir / "image", image);
    opts.m_source = source::of_image((dir / "image").wstring(), 0);
    opts.m_run.m_enum = true;
    opts.m_run.m_enum_dir = "dir";
    ASSERT_TRUE(make_filter(opts.m_run.m_filter, "*.txt"));
    fs::create_directory(dir / "dir");
    for (const char* name : {"b.txt", "c.txt", "left.out"}) {
        write_file(dir / "dir" / name, {});
    }
    fs::current_path(dir.path());
    run("");
    fs::current_path(before);
    EXPECT_EQ(err, "success: dir/b.txt\nsuccess: dir/c.txt\n");
    EXPECT_EQ(text("out/b.txt"), "b");
    EXPECT_EQ(text("out/c.txt"), "c");
    EXPECT_EQ(times_logged("->info: pNTFS img:"), 1);
}

TEST_F(pipe_mode_test, a_walk_without_a_directory_says_nothing) {
    opts.m_run.m_enum = true;
    run("");
    EXPECT_EQ(out + err, "");
}

}  // namespace
}  // namespace quarry
