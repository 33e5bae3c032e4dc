#include "frontend/run.h"

#include "support/device_files.h"
#include "support/requirements.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <algorithm>
#include <filesystem>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry {
namespace {

using test::temp_dir;
using test::to_bytes;

class run_test : public testing::Test {
  protected:
    int run_words(const std::vector<std::string>& words) {
        std::vector<const char*> argv = {"quarry"};
        for (const std::string& word : words) {
            argv.push_back(word.c_str());
        }
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const int status = run(static_cast<int>(argv.size()), argv.data());
        out = testing::internal::GetCapturedStdout();
        err = testing::internal::GetCapturedStderr();
        return status;
    }
    temp_dir dir;
    std::string out;
    std::string err;
};

TEST_F(run_test, an_empty_list_of_arguments_is_a_failure_without_a_word) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(run(0, nullptr), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(run_test, a_null_argument_is_an_empty_one) {
    const char* const argv[] = {"quarry", nullptr, "-dst"};
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(run(3, argv), -1);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("\"command: quarry  -dst\"\n"), std::string::npos);
    testing::internal::GetCapturedStderr();
}

TEST_F(run_test, a_pipe_run_never_fails_not_even_when_its_options_could_not_be_parsed) {
    EXPECT_EQ(run_words({"-image", dir / "missing", "-pipe", "-dst", "o"}), 0);
    EXPECT_EQ(err, "couldn't find any partitions on disk\n\n");
    EXPECT_EQ(run_words({"-image", dir / "missing", "-enumdir", dir.path()}), 0);
    EXPECT_EQ(run_words({"-image", dir / "missing", "-dst", "o"}), -1);
}

TEST_F(run_test, a_program_of_the_name_of_a_help_option_helps) {
    const char* const argv[] = {"-H", "a", "b"};
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(run(3, argv), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_NE(testing::internal::GetCapturedStderr().find("Usage:\n"), std::string::npos);
}

TEST_F(run_test, an_entry_of_a_drive_and_a_list_from_a_drive_are_copied) {
    QUARRY_NEEDS_ROOT();
    const test::device_files devices;
    test::volume_builder volume;
    volume.add_file("a.txt").data("hello");
    test::write_file(devices.drive(3), volume.image());
    EXPECT_EQ(run_words({"-drivenum", "3", "-mft", "24", "-dst", dir / "o"}), 0);
    EXPECT_EQ(test::read_file(dir / "o"), to_bytes("hello"));
    EXPECT_EQ(err.substr(0, 16), "copy successful\n");
    EXPECT_EQ(run_words({"-drivenum", "3", "-src", "/nosuch", "-dst", dir / "o"}), -1);
    EXPECT_NE(out.find("err: copy failed: /nosuch -> " + (dir / "o").string() + "\n"), std::string::npos);
}

TEST_F(run_test, a_list_is_copied_from_a_drive) {
    QUARRY_NEEDS_ROOT();
    const test::device_files devices;
    test::volume_builder volume;
    volume.add_file("a.txt", volume.add_directory("walk").entry()).data("hello");
    test::write_file(devices.drive(3), volume.image());
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(dir.path());
    std::filesystem::create_directory("walk");
    std::filesystem::create_directory("out");
    test::write_file("walk/a.txt", {});
    test::write_file("walk/b.txt", {});
    EXPECT_EQ(run_words({"-drivenum", "3", "-enumdir", "walk", "-dst", "out/", "-quiet"}), 0);
    EXPECT_EQ(test::read_file("out/a.txt"), to_bytes("hello"));
    EXPECT_FALSE(std::filesystem::exists("out/b.txt"));
    EXPECT_EQ(run_words({"-drivenum", "3", "-enumdir", "walk", "-dst", "out/"}), 0);
    EXPECT_EQ(err.substr(0, err.find('\x1b')), "success: walk/a.txt\nfailed: walk/b.txt\n");
    std::filesystem::current_path(before);
}

TEST_F(run_test, an_image_cut_at_any_length_gives_a_part_of_the_file_or_a_failure) {
    test::volume_builder volume;
    const test::bytes content = test::pattern(30'000);
    volume.add_file("a.txt").data(content);
    const test::bytes whole = volume.image();
    for (std::size_t length = 0; length <= whole.size(); length += 509) {
        test::write_file(dir / "image",
                         test::bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
        const int status =
            run_words({"-image", dir / "image", "-src", "/a.txt", "-dst", dir / "o", "-quiet"});
        if (status == 0) {
            const test::bytes copied = test::read_file(dir / "o");
            ASSERT_LE(copied.size(), content.size()) << length;
            const bool is_prefix = std::equal(copied.begin(), copied.end(), content.begin());
            const bool ends_in_zeros_alone =
                std::mismatch(copied.begin(), copied.end(), content.begin()).first == copied.end() ||
                std::all_of(std::mismatch(copied.begin(), copied.end(), content.begin()).first, copied.end(),
                            [](std::uint8_t byte) { return byte == 0; });
            EXPECT_TRUE(is_prefix || ends_in_zeros_alone) << length;
            std::filesystem::remove(dir / "o");
        } else {
            ASSERT_EQ(status, -1) << length;
        }
    }
}

}  // namespace
}  // namespace quarry
