#include "disk/source.h"

#include "support/capturing_log.h"
#include "support/device_files.h"
#include "support/disk_builder.h"
#include "support/temp_dir.h"
#include "support/vmdk_builder.h"
#include "support/volume_builder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string line_of(const source& from) {
    capturing_log log;
    from.log_words(log);
    return log.lines.empty() ? "" : log.lines.back();
}

TEST(source, nothing_given_opens_nothing) {
    const source none;
    EXPECT_FALSE(none.is_given());
    EXPECT_TRUE(none.is_left_to_the_path());
    EXPECT_EQ(none.open(), nullptr);
    EXPECT_THAT(none.files(), IsEmpty());
    EXPECT_EQ(line_of(none), "");
}

TEST(source, an_option_without_a_value_is_given_and_left_to_the_path) {
    const source disk = source::of_virtual_disk({}, 0);
    EXPECT_TRUE(disk.is_given());
    EXPECT_TRUE(disk.is_left_to_the_path());
    EXPECT_TRUE(disk.has_paths_of_host());
    EXPECT_EQ(disk.open(), nullptr);
    EXPECT_EQ(source::of_image(L"", 0).open(), nullptr);
}

TEST(source, an_image_is_opened_by_its_path) {
    const temp_dir dir;
    write_file(dir / "image", bytes(700, 0x11));
    const source image = source::of_image((dir / "image").wstring(), 512);
    EXPECT_FALSE(image.has_paths_of_host());
    EXPECT_EQ(image.type, 33);
    const auto disk = image.open();
    ASSERT_NE(disk, nullptr);
    EXPECT_EQ(disk->size(), 700u);
    EXPECT_EQ(image.settle_offset(*disk), 512u);
    EXPECT_EQ(disk->origin(), 0u);
    EXPECT_EQ(line_of(image), "info: pNTFS img:" + (dir / "image").string() + ":0x200");
}

TEST(source, two_letter_forms_of_an_image_are_opened_as_letter_and_colon) {
    EXPECT_EQ(source::of_image(L"c:", 0).open()->m_path_utf8, "c:");
    EXPECT_EQ(source::of_image(L"c:\\", 0).open()->m_path_utf8, "c:");
    EXPECT_EQ(source::of_image(L"c:\\", 0).open_as_named()->m_path_utf8, "c:\\");
    EXPECT_EQ(source::of_image(L"c:x", 0).open()->m_path_utf8, "c:x");
    EXPECT_EQ(source::of_image(L"\\\\.\\C:", 0).type, 35);
}

TEST(source, a_colon_after_any_first_character_makes_a_letter_form_of_a_partition) {
    EXPECT_EQ(source::of_partition(L"c:").type, 32);
    EXPECT_EQ(source::of_partition(L"?:more").type, 32);
    EXPECT_EQ(source::of_partition(L"?:more").open()->m_path_utf8, "?:");
    EXPECT_EQ(source::of_partition(L"\\\\.\\C:").type, 35);
    EXPECT_EQ(source::of_partition(L"/dev/sdb1").type, 33);
    EXPECT_EQ(source::of_partition(L"/dev/sdb1").partition(), L"/dev/sdb1");
    EXPECT_EQ(line_of(source::of_partition(L"?:more")), "info: pNTFS part:?:more, type:32");
}

TEST(source, a_path_on_a_volume_may_name_the_volume) {
    EXPECT_EQ(line_of(source::named_by(L"c:\\x")), "info: pNTFS part:c:\\x, type:32");
    EXPECT_EQ(line_of(source::named_by(L"\\\\?\\x")), "info: pNTFS part:\\\\?\\x, type:35");
    EXPECT_EQ(line_of(source::named_by(L"/x")), "info: pNTFS part:, type:33");
    EXPECT_EQ(line_of(source::named_by(L"")), "info: pNTFS part:, type:33");
    EXPECT_EQ(source::named_by(L"/x").open(), nullptr);
}

TEST(source, only_types_of_paths_open_a_path) {
    for (const std::uint8_t type :
         {std::uint8_t{0}, std::uint8_t{31}, std::uint8_t{34}, std::uint8_t{36}, std::uint8_t{255}}) {
        EXPECT_EQ(source::of_path(L"x", type, 0).open(), nullptr) << int{type};
    }
    EXPECT_NE(source::of_path(L"x", 33, 0).open(), nullptr);
}

TEST(source, a_drive_is_opened_by_its_number) {
    const device_files devices;
    write_file(devices.drive(1), bytes(1024, 0x11));
    const source drive = source::of_drive(1, 0x100000);
    EXPECT_FALSE(drive.is_left_to_the_path());
    EXPECT_EQ(drive.open()->m_drive_number, 1);
    EXPECT_THAT(drive.files(), ElementsAre(devices.drive(1).string()));
    EXPECT_EQ(line_of(drive), "info: pNTFS drv:1:0x100000");
    EXPECT_EQ(drive.report_text(), "1");
}

TEST(source, a_virtual_disk_begins_its_volume_at_the_first_partition_unless_the_user_says_where) {
    const temp_dir dir;
    vmdk_builder file;
    file.grains = 16384;
    file.entries_per_table = 512;
    file.put(0, disk_builder(1).table(0, {{7, 2048, 100}}).image());
    file.write(dir / "disk");
    const std::vector<std::wstring> files = {(dir / "disk").wstring()};
    struct row {
        std::uint64_t given;
        std::uint64_t settled;
    };
    for (const row& each : {row{0, 0x100000}, row{0xFFFFFFFFFFFFFFFF, 0x100000}, row{512, 512}}) {
        const source disk = source::of_virtual_disk(files, each.given);
        const auto opened = disk.open();
        ASSERT_TRUE(opened->is_ok());
        EXPECT_EQ(disk.settle_offset(*opened), each.settled);
        EXPECT_EQ(opened->origin(), each.settled);
    }
    EXPECT_THAT(source::of_virtual_disk(files, 0).files(), ElementsAre((dir / "disk").string()));
    EXPECT_EQ(line_of(source::of_virtual_disk({L"a", L"b"}, 512)), "info: pNTFS vm:a;b:0x200");
    EXPECT_EQ(source::of_virtual_disk(files, 0).report_text(), "");
}

TEST(source, files_of_a_path_are_the_path_and_the_volume_that_it_names) {
    EXPECT_THAT(source::of_image(L"/cases/disk.dd", 0).files(), ElementsAre("/cases/disk.dd"));
    EXPECT_THAT(source::of_partition(L"c:/x").files(), ElementsAre("c:/x", "c:"));
    EXPECT_THAT(source::of_partition(L"\\\\.\\x").files(), ElementsAre("\\\\.\\x", "\\\\.\\x"));
}

TEST(source, clusters_of_a_partition_are_read_as_those_of_an_image) {
    const source partition = source::of_partition(L"c:more").for_clusters();
    EXPECT_EQ(partition.type, 33);
    EXPECT_TRUE(partition.gives_way_to_first_drive());
    EXPECT_EQ(partition.report_text(), "c:more");
    EXPECT_FALSE(source::of_drive(1, 0).for_clusters().gives_way_to_first_drive());
    EXPECT_FALSE(source::of_virtual_disk({L"a"}, 0).for_clusters().gives_way_to_first_drive());
}

TEST(source, words_for_what_cannot_be_used_are_those_of_its_kind) {
    EXPECT_EQ(source::of_image(L"a", 0).unusable_words(), "invalid image: a\n");
    EXPECT_EQ(source::of_drive(7, 0).unusable_words(), "problems accessing physical disk #7, aborting \n");
    EXPECT_EQ(source::of_virtual_disk({L"a"}, 0).unusable_words(), "invalid disk collection of snaps \n");
}

}  // namespace
}  // namespace quarry::test
