#include "disk/drive_source.h"

#include "support/device_files.h"
#include "support/volume_builder.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

drive_source opened(const device_files& devices, std::int32_t number) {
    return drive_source(file_source::open_any(devices.drive(number).string(), false));
}

TEST(drive_device, the_directory_of_drives_is_dev) {
    EXPECT_EQ(device_directory(), "/dev");
    EXPECT_EQ(drive_device(0), "/dev/sda");
}

TEST(drive_device, a_drive_without_a_letter_has_none) {
    EXPECT_EQ(drive_device(-1), "");
    EXPECT_EQ(drive_device(26), "");
    EXPECT_EQ(drive_device(25), "/dev/sdz");
}

TEST(drive_source, says_what_its_device_says) {
    const device_files devices;
    write_file(devices.drive(0), bytes(1000, 0x11));
    const drive_source drive = opened(devices, 0);
    EXPECT_EQ(drive.size(), 1000u);
    EXPECT_EQ(drive.content_size(), 1000u);
    EXPECT_EQ(drive.sector_size(), 512u);
}

TEST(drive_source, gives_the_bytes_of_whole_sectors_and_of_parts_of_them) {
    const device_files devices;
    const bytes content = pattern(2048);
    write_file(devices.drive(0), content);
    drive_source drive = opened(devices, 0);
    bytes whole(1024);
    EXPECT_EQ(drive.read(whole, 512).bytes, 1024u);
    EXPECT_EQ(whole, bytes(content.begin() + 512, content.begin() + 1536));
    bytes part(100);
    EXPECT_EQ(drive.read(part, 510).bytes, 100u);
    EXPECT_EQ(part, bytes(content.begin() + 510, content.begin() + 610));
}

TEST(drive_source, says_how_many_bytes_lie_before_the_end) {
    const device_files devices;
    write_file(devices.drive(0), bytes(1000, 0x11));
    drive_source drive = opened(devices, 0);
    bytes buffer(700, 0xEE);
    EXPECT_EQ(drive.read(buffer, 990).bytes, 10u);
    EXPECT_EQ(buffer[9], 0x11);
    EXPECT_EQ(buffer[10], 0xEE);
    EXPECT_EQ(drive.read(buffer, 1000).bytes, 0u);
    bytes sectors(1024, 0xEE);
    EXPECT_EQ(drive.read(sectors, 0).bytes, 1000u);
}

TEST(drive_source, reports_a_loss_that_begins_before_the_bytes_that_were_asked_for) {
    const device_files devices;
    write_file(devices.drive(0), bytes(1024, 0x11));
    drive_source drive = opened(devices, 0);
    std::filesystem::resize_file(devices.drive(0), 600);
    bytes buffer(100);
    EXPECT_EQ(drive.read(buffer, 610).bytes, 0u);
    EXPECT_EQ(drive.read(buffer, 590).bytes, 10u);
}

}  // namespace
}  // namespace quarry::test
