#include "frontend/options/source_files.h"

#include "frontend/output/output_guard.h"
#include "support/device_files.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>

namespace quarry {
namespace {

namespace fs = std::filesystem;
using test::device_files;
using test::temp_dir;
using test::write_file;

// True if a path leads to one of these files or devices.
bool is_one_of(const std::string& path, const std::vector<std::string>& files) {
    output_guard guard;
    guard.add_sources(files);
    return guard.look_at(path, output_kind::trial) == output_verdict::source;
}

class source_files_test : public testing::Test {
  protected:
    void SetUp() override {
        for (const char* name : {"a", "b", "c", "other"}) {
            write_file(dir / name, {});
        }
    }
    [[nodiscard]] std::string path(const char* name) const { return (dir / name).string(); }
    [[nodiscard]] bool is_source(const char* name, const arg_list& args) const {
        return is_one_of(path(name), source_files_ahead(args));
    }
    temp_dir dir;
};

TEST_F(source_files_test, look_ahead_at_images_and_partitions) {
    EXPECT_TRUE(is_source("a", {"quarry", "-IMAGE", path("a")}));
    EXPECT_TRUE(is_source("a", {"quarry", "-image", "\"" + path("a") + "\""}));
    EXPECT_TRUE(is_source("a", {"quarry", "-partition", path("a")}));
    EXPECT_FALSE(is_source("other", {"quarry", "-image", path("a"), "-partition", path("b")}));
    EXPECT_FALSE(is_source("a", {"quarry", path("a")}));
}

TEST_F(source_files_test, look_ahead_at_every_place_of_an_option) {
    EXPECT_TRUE(is_source("b", {"quarry", "-image", path("a"), "-image", path("b")}));
}

TEST_F(source_files_test, look_ahead_at_each_file_of_a_virtual_disk) {
    const arg_list args = {"quarry", "-vmdk", path("a") + " | " + path("b"), "-vmdk", path("c")};
    EXPECT_TRUE(is_source("a", args));
    EXPECT_TRUE(is_source("b", args));
    EXPECT_TRUE(is_source("c", args));
    EXPECT_FALSE(is_source("other", args));
    EXPECT_TRUE(is_source("b", {"quarry", "-vmdk", path("a") + "," + path("b")}));
    EXPECT_TRUE(is_source("b", {"quarry", "-vmdk", path("a") + ";" + path("b")}));
}

// -raw and -dateformat are gone by the time when the value of -image is looked up.
TEST_F(source_files_test, look_ahead_past_options_that_are_taken_off_first) {
    EXPECT_TRUE(is_source("a", {"quarry", "-image", "-raw", path("a")}));
    EXPECT_TRUE(is_source("a", {"quarry", "-image", "-dateformat", "yyyy/mm/dd", "-QUIET", path("a")}));
    EXPECT_TRUE(is_source("a", {"quarry", "-image", "-threads", "2", "-csv", path("a")}));
    EXPECT_FALSE(is_source("a", {"quarry", "-image", path("b"), "-raw", path("a")}));
    EXPECT_FALSE(is_source("a", {"quarry", "-image", "-dst", path("a")}));
}

TEST_F(source_files_test, look_ahead_at_words_beside_what_looks_like_a_source_option) {
    for (const char* option : {"--image", "-img", "-imgae", "-IMAGE=", "-imag", "-vmkd", "--partition",
                               "-drivnum", "\u2013image"}) {
        EXPECT_TRUE(is_source("a", {"quarry", option, path("a")})) << option;
        EXPECT_TRUE(is_source("a", {"quarry", option, "-raw", path("a")})) << option;
    }
    for (const char* option : {"-image=", "--image=", "-img="}) {
        EXPECT_TRUE(is_source("a", {"quarry", option + path("a")})) << option;
    }
    EXPECT_TRUE(is_source("b", {"quarry", "--vmdk", path("a") + ";" + path("b")}));
    for (const char* option :
         {"image", "-md5", "-MD5", "-meta", "-raw", "-out", "-imoges3", "-src", "-dst"}) {
        EXPECT_FALSE(is_source("a", {"quarry", option, path("a")})) << option;
    }
}

TEST_F(source_files_test, follow_links) {
    fs::create_symlink(path("a"), dir / "soft");
    fs::create_hard_link(path("a"), dir / "hard");
    EXPECT_TRUE(is_source("soft", {"quarry", "-image", path("a")}));
    EXPECT_TRUE(is_source("hard", {"quarry", "-image", path("a")}));
    EXPECT_TRUE(is_source("a", {"quarry", "-image", path("soft")}));
}

TEST_F(source_files_test, a_path_to_nothing_is_no_source) {
    EXPECT_FALSE(is_one_of(path("missing"), source_files_ahead({"quarry", "-image", path("missing")})));
    EXPECT_FALSE(is_one_of("", {""}));
}

TEST_F(source_files_test, look_ahead_at_the_device_of_a_drive) {
    const device_files devices;
    write_file(devices.drive(1), {});
    EXPECT_EQ(drive_device(1), devices.drive(1));
    EXPECT_TRUE(is_one_of(devices.drive(1), source_files_ahead({"quarry", "-drivenum", "1"})));
    EXPECT_FALSE(is_one_of(devices.drive(1), source_files_ahead({"quarry", "-drivenum", "0"})));
}

TEST_F(source_files_test, look_ahead_at_the_letter_of_a_volume) {
    const fs::path before = fs::current_path();
    fs::current_path(dir.path());
    write_file("e:", {});
    EXPECT_TRUE(is_one_of("e:", source_files_ahead({"quarry", "-partition", "e"})));
    EXPECT_TRUE(is_one_of("e:", source_files_ahead({"quarry", "e:\\dir\\file", "out"})));
    EXPECT_TRUE(is_one_of("e:", source_files_ahead({"quarry", "\"e:\\dir\\file\"", "out"})));
    EXPECT_FALSE(is_one_of("e:", source_files_ahead({"quarry", "e"})));
    fs::current_path(before);
}

// A device name is opened as any other path, and so it can be the name of a file.
TEST_F(source_files_test, look_ahead_at_a_device_name_and_at_references_to_one) {
    const fs::path before = fs::current_path();
    fs::current_path(dir.path());
    const std::string device = R"(\\.\device)";
    write_file(device, {});
    EXPECT_TRUE(is_one_of(device, source_files_ahead({"quarry", device, "out"})));
    EXPECT_TRUE(is_one_of(device, source_files_ahead({"quarry", "-src", "\"" + device + "\""})));
    ASSERT_EQ(::setenv("QUARRY_DEVICE", device.c_str(), 1), 0);
    EXPECT_TRUE(is_one_of(device, source_files_ahead({"quarry", "-src", "%QUARRY_DEVICE%"})));
    ::unsetenv("QUARRY_DEVICE");
    EXPECT_FALSE(is_one_of(device, source_files_ahead({"quarry", "device"})));
    fs::current_path(before);
}

}  // namespace
}  // namespace quarry
