#include "frontend/exact/source_opening.h"

#include "support/byte_writer.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <fstream>
#include <sstream>
#include <sys/sysmacros.h>

#include <gtest/gtest.h>

namespace quarry::test {

namespace {

// "7:12 98:0 "
std::string devices_of(const std::string& text) {
    std::istringstream mounts(text);
    std::string numbers;
    for (const ::dev_t device : exact::mounted_devices(mounts)) {
        numbers += std::to_string(::major(device)) + ":" + std::to_string(::minor(device)) + " ";
    }
    return numbers;
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
    EXPECT_EQ(devices_of(mounts), "0:21 7:12 98:0 ");
    EXPECT_EQ(devices_of(""), "");
    EXPECT_EQ(devices_of("37 35\n38 35 x\n39 35 8-1 /\n40 35 8:2 / /mnt\n"), "8:2 ");
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

TEST(source_opening, watches_the_image_that_is_read_and_not_one_put_in_its_place) {
    const temp_dir directory;
    write_file(directory / "image", bytes(4096));
    exact::notices told;
    const auto opened = exact::open_source(image(directory), image(directory).paths, told);
    ASSERT_TRUE(opened) << opened.error().text();
    ASSERT_EQ(opened->files.size(), 1U);
    EXPECT_EQ(opened->files[0].get(), opened->bytes.get());
}

}  // namespace quarry::test
