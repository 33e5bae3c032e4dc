#include "frontend/options/source_options.h"

#include "foundation/ql_string.h"
#include "support/device_files.h"
#include "support/disk_builder.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <gtest/gtest.h>

namespace quarry {
namespace {

using test::device_files;
using files = std::vector<std::wstring>;

class vmdk_option_test : public testing::Test {
  protected:
    bool parse(arg_list words, bool in_place = true) {
        args = std::move(words);
        args.insert(args.begin(), "quarry");
        const vmdk_chain_check chain = [this](source& on, std::ostringstream& stream, files& suggested) {
            checked = on.paths;
            stream << chain_words;
            suggested = suggestion;
            return chain_is_good;
        };
        const vmdk_volume_check volume = [this](std::ostream& stream, source& on, bool& found, bool ignore) {
            asked_offset = on.offset;
            ignored_size = ignore;
            stream << "volume words";
            on.offset = 77;
            found = volume_was_seen;
            return volume_is_good;
        };
        testing::internal::CaptureStderr();
        const bool good = parse_vmdk_option(opts, disk, args, chain, with_volume_check ? volume : nullptr,
                                            in_place, "-vmdk");
        said = testing::internal::GetCapturedStderr();
        return good;
    }
    cmd_params opts;
    source disk;
    arg_list args;
    std::string said;
    files checked;
    files suggestion;
    std::string chain_words;
    bool chain_is_good = true;
    bool with_volume_check = true;
    bool volume_is_good = true;
    bool volume_was_seen = false;
    bool ignored_size = false;
    std::uint64_t asked_offset = 1;
};

TEST_F(vmdk_option_test, that_is_absent_is_good) {
    EXPECT_TRUE(parse({"-offset", "5"}));
    EXPECT_TRUE(disk.paths.empty());
    EXPECT_EQ(args.size(), 3U);
    EXPECT_TRUE(parse({"-vmdk"}));
}

TEST_F(vmdk_option_test, gives_two_files_without_the_blanks_and_a_further_place_one_file) {
    EXPECT_TRUE(parse({"-vmdk", "a.vmdk | b.vmdk", "-VMDK", "c|d"}));
    EXPECT_EQ(disk.paths, (files{L"a.vmdk", L"b.vmdk", L"c|d"}));
    EXPECT_EQ(checked, disk.paths);
    EXPECT_EQ(args.size(), 1U);
    EXPECT_TRUE(parse({"-vmdk", "a,b;c|d,;|"}));
    EXPECT_EQ(disk.paths, (files{L"a", L"b", L"c", L"d"}));
}

TEST_F(vmdk_option_test, takes_the_offset_along_and_what_the_check_makes_of_it) {
    EXPECT_TRUE(parse({"-vmdk", "a", "-offset", "0x200"}));
    EXPECT_EQ(asked_offset, 0x200U);
    EXPECT_EQ(disk.offset, 77U);
}

TEST_F(vmdk_option_test, ignores_the_size_of_the_image_only_when_an_offset_is_known) {
    EXPECT_TRUE(parse({"-vmdk", "a", "-ignore_image_size"}));
    EXPECT_FALSE(ignored_size);
    EXPECT_EQ(args.size(), 2U);
    disk.offset = 0;
    EXPECT_TRUE(parse({"-vmdk", "a", "-ignore_image_size", "-offset", "512"}));
    EXPECT_TRUE(ignored_size);
    EXPECT_EQ(args.size(), 1U);
}

TEST_F(vmdk_option_test, reports_of_a_bad_chain_and_what_it_should_be) {
    chain_is_good = false;
    chain_words = "bad\n";
    suggestion = {L"a", L"b"};
    EXPECT_FALSE(parse({"-vmdk", "a"}));
    EXPECT_EQ(said, "bad\n\nsuggested array: -vmdk \"a | b\"\n");
    suggestion = {L"a", L"$(touch x)"};
    EXPECT_FALSE(parse({"-vmdk", "a"}));
    EXPECT_EQ(said, "bad\n\nsuggested array: -vmdk \"a | \\$(touch x)\"\n");
    for (const files& without_line : {files{}, files{L"a", L"b\nc"}}) {
        suggestion = without_line;
        EXPECT_FALSE(parse({"-vmdk", "a"}));
        EXPECT_EQ(said, "bad\n\n");
    }
}

TEST_F(vmdk_option_test, goes_on_in_silence_when_a_volume_was_seen) {
    volume_is_good = false;
    volume_was_seen = true;
    EXPECT_TRUE(parse({"-vmdk", "a"}));
    EXPECT_EQ(said, "");
    EXPECT_EQ(disk.offset, 77U);
    volume_was_seen = false;
    EXPECT_FALSE(parse({"-vmdk", "a"}));
    EXPECT_EQ(said, "volume words\n");
}

TEST_F(vmdk_option_test, needs_no_check_of_the_volume) {
    with_volume_check = false;
    EXPECT_TRUE(parse({"-vmdk", "a", "-offset", "9"}));
    EXPECT_EQ(disk.offset, 9U);
}

TEST_F(vmdk_option_test, parses_the_generic_options_first_unless_that_was_done) {
    EXPECT_TRUE(parse({"-quiet", "-vmdk", "a"}));
    EXPECT_TRUE(opts.m_console);
    EXPECT_TRUE(parse({"-quiet", "-vmdk", "a"}, false));
    EXPECT_FALSE(opts.m_console);
    disk.paths.clear();
    EXPECT_FALSE(parse({"-cmd_start_time", "x", "-vmdk", "a"}, false));
    EXPECT_TRUE(disk.paths.empty());
}

// Drives are files here: 0 has its volume at sector 2048, 1 at sector 4096.
class drive_option_test : public testing::Test {
  protected:
    void SetUp() override {
        opts.m_admin = true;
        disk_with_volume_at(2048).write_to(devices.drive(0));
        disk_with_volume_at(4096).write_to(devices.drive(1));
        test::write_file(devices.drive(2), test::volume_builder().image());
    }
    static test::disk_builder disk_with_volume_at(std::uint32_t sector) {
        test::disk_builder disk(8192);
        disk.table(0, {{0x07, sector, 1000}}).put(sector, test::ntfs_boot_sector(1000));
        return disk;
    }
    bool parse(arg_list words) {
        words.insert(words.begin(), "quarry");
        testing::internal::CaptureStderr();
        testing::internal::CaptureStdout();
        const bool good = parse_source(opts, words);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        said = testing::internal::GetCapturedStderr();
        return good;
    }
    device_files devices;
    quarry_opts opts;
    std::string said;
};

TEST_F(drive_option_test, takes_the_volume_at_the_offset) {
    EXPECT_TRUE(parse({"-drivenum", "1", "-offset", "0x200000"}));
    EXPECT_EQ(opts.m_source.kind, source_kind::drive);
    EXPECT_EQ(opts.m_source.drive, 1);
    EXPECT_EQ(opts.m_source.offset, 0x200000U);
    EXPECT_EQ(said, "");
}

TEST_F(drive_option_test, takes_a_drive_that_is_one_volume) {
    EXPECT_TRUE(parse({"-drivenum", "0x2"}));
    EXPECT_EQ(opts.m_source.drive, 2);
    EXPECT_EQ(opts.m_source.offset, 0U);
}

TEST_F(drive_option_test, answers_on_standard_error_when_there_is_no_offset) {
    EXPECT_FALSE(parse({"-drivenum", "1"}));
    EXPECT_EQ(said, "\nvolume offset [ 0x200000 ] : ntfs or exfat\n\nuse option [-offset 0x200000]\n");
}

TEST_F(drive_option_test, the_first_volume_is_looked_for_on_drive_0_whatever_drive_was_asked_for) {
    opts.m_first_ntfsvol = true;
    EXPECT_TRUE(parse({"-drivenum", "0"}));
    EXPECT_EQ(opts.m_source.offset, 0x100000U);
    EXPECT_FALSE(parse({"-drivenum", "1"}));
    EXPECT_EQ(said, "\nvolume offset [ 0x200000 ] : ntfs or exfat\n\nuse option [-offset 0x200000]\n");
}

TEST_F(drive_option_test, the_first_of_virtual_disk_partition_image_and_drive_decides) {
    EXPECT_TRUE(parse({"-drivenum", "7", "-image", devices.drive(2), "-src", "x"}));
    EXPECT_EQ(opts.m_source.kind, source_kind::image);
    EXPECT_EQ(opts.m_source.paths, files{widen(devices.drive(2).string())});
    EXPECT_TRUE(parse({"-drivenum", "7", "-image", "/no/such", "-partition", "p"}));
    EXPECT_EQ(opts.m_source.partition(), L"p:");
    EXPECT_FALSE(parse({"-drivenum", "7", "-image", "/no/such", "-partition", "p", "-vmdk", "/no/such"}));
    EXPECT_EQ(said, "/no/such can't be opened\n\nsuggested array: -vmdk \"/no/such\"\n");
    EXPECT_EQ(opts.m_source.kind, source_kind::virtual_disk);
}

TEST_F(drive_option_test, a_given_offset_goes_before_the_first_volume) {
    opts.m_first_ntfsvol = true;
    EXPECT_TRUE(parse({"-drivenum", "1", "-offset", "0x200000"}));
    EXPECT_EQ(opts.m_source.offset, 0x200000U);
}

TEST_F(drive_option_test, an_offset_without_a_value_is_none) {
    opts.m_first_ntfsvol = true;
    EXPECT_TRUE(parse({"-drivenum", "0", "-offset"}));
    EXPECT_EQ(opts.m_source.offset, 0x100000U);
}

TEST_F(drive_option_test, a_volume_longer_than_its_drive_needs_its_size_ignored) {
    test::disk_builder disk(2048 + 100);
    disk.table(0, {{0x07, 2048, 1000}}).put(2048, test::ntfs_boot_sector(1000)).write_to(devices.drive(3));
    EXPECT_FALSE(parse({"-drivenum", "3", "-offset", "0x100000"}));
    EXPECT_EQ(said,
              "volume offset 0x100000 is a NTFS partition, however image size does not encapsulate entire "
              "volume\n");
    EXPECT_TRUE(parse({"-DRIVENUM", "3", "-Offset", "0x100000", "-IGNORE_IMAGE_SIZE"}));
}

// An image of that kind is taken without a word.
TEST_F(drive_option_test,
       a_bare_volume_longer_than_its_drive_is_refused_without_an_offset_whatever_its_size) {
    test::disk_builder disk(1000);
    disk.put(0, test::ntfs_boot_sector(1001)).write_to(devices.drive(3));
    for (const arg_list& words :
         {arg_list{"-drivenum", "3"}, arg_list{"-drivenum", "3", "-ignore_image_size"}}) {
        EXPECT_FALSE(parse(words));
        EXPECT_EQ(said,
                  "volume offset 0x0 is a NTFS partition, however image size does not encapsulate entire "
                  "volume\n");
    }
}

TEST_F(drive_option_test, a_drive_that_is_not_there_is_reported_with_its_device) {
    EXPECT_FALSE(parse({"-drivenum", "7"}));
    EXPECT_EQ(said, "prob opening " + devices.drive(7).string() +
                        ", error 2\nproblems accessing physical disk #7, aborting \n");
}

TEST_F(drive_option_test, a_number_that_cannot_be_read_is_drive_0) {
    for (const char* bad : {"abc", "", " ", "0x", "x", "o", "-"}) {
        opts.m_source = source::of_drive(1, 0);
        EXPECT_TRUE(parse({"-drivenum", bad, "-offset", "0x100000"})) << bad;
        EXPECT_EQ(opts.m_source.drive, 0) << bad;
    }
}

TEST_F(drive_option_test, is_for_administrators_and_sets_nothing_for_others) {
    opts.m_admin = false;
    EXPECT_FALSE(parse({"-drivenum", "0", "-offset", "0x100000"}));
    EXPECT_EQ(said, "Need Admin privs to use this option\n");
    EXPECT_FALSE(opts.m_source.is_given());
}

// The extended partition, a link in each table but the last, and a volume in the last one.
test::disk_builder disk_with_partitions(std::uint32_t count) {
    test::disk_builder disk(4096);
    disk.table(0, {{0x05, 100, 2000}});
    for (std::uint32_t table = 0; table + 2 < count; ++table) {
        disk.table(100 + table, {{0x05, table + 1, 1}});
    }
    return disk.table(100 + count - 2, {{0x07, 1, 1}});
}

TEST(image_option_test, the_first_volume_of_an_image_with_more_than_768_partitions_stays_at_0) {
    const test::temp_dir dir;
    for (const std::uint32_t count : {768U, 769U}) {
        disk_with_partitions(count).write_to(dir / "image");
        quarry_opts opts;
        opts.m_first_ntfsvol = true;
        arg_list words = {"quarry", "-image", (dir / "image").string()};
        testing::internal::CaptureStderr();
        EXPECT_TRUE(parse_source(opts, words));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_EQ(opts.m_source.offset, count == 768 ? (100U + 767U) * 512U : 0U);
    }
}

}  // namespace
}  // namespace quarry
