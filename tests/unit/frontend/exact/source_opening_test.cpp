#include "frontend/exact/source_opening.h"

#include "support/byte_writer.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

namespace quarry::test {

namespace {

bool is_listed(const std::string& text, unsigned major_number, unsigned minor_number) {
    std::istringstream mounts(text);
    return exact::is_listed_mount(mounts, major_number, minor_number);
}

exact::source_choice image(const temp_dir& directory) {
    return {source_kind::image, {(directory / "image").string()}};
}

}  // namespace

TEST(source_opening, knows_a_mounted_device_by_its_numbers) {
    const std::string mounts =
        "22 27 0:21 / /proc rw,relatime - proc proc rw\n"
        "36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw\n"
        "37 35 7:12 / /with\\040blank ro - fuseblk /dev/loop12 ro,user_id=0\n";
    EXPECT_TRUE(is_listed(mounts, 98, 0));
    EXPECT_TRUE(is_listed(mounts, 7, 12));
    EXPECT_TRUE(is_listed(mounts, 0, 21));
    EXPECT_FALSE(is_listed(mounts, 7, 1));
    EXPECT_FALSE(is_listed(mounts, 98, 1));
    EXPECT_FALSE(is_listed(mounts, 36, 35));
    EXPECT_FALSE(is_listed("", 7, 12));
    EXPECT_FALSE(is_listed("37 35\n", 7, 12));
}

TEST(source_opening, sees_another_size_and_another_time) {
    const temp_dir directory;
    write_file(directory / "image", bytes(4096));
    exact::notices told;
    const auto opened = exact::open_source(image(directory), image(directory).paths, told);
    ASSERT_TRUE(opened) << opened.error().text();
    EXPECT_FALSE(opened->has_changed());
    // Only the time, back to 1970.
    std::filesystem::last_write_time(directory / "image", std::filesystem::file_time_type{});
    EXPECT_TRUE(opened->has_changed());
    const auto again = exact::open_source(image(directory), image(directory).paths, told);
    ASSERT_TRUE(again) << again.error().text();
    EXPECT_FALSE(again->has_changed());
    const auto time = std::filesystem::last_write_time(directory / "image");
    std::ofstream(directory / "image", std::ios::app) << "x";
    std::filesystem::last_write_time(directory / "image", time);
    EXPECT_TRUE(again->has_changed());
    EXPECT_TRUE(told.all().empty());
}

}  // namespace quarry::test
