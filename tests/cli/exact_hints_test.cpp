// What the exact mode says to do next, where what was asked for cannot be done.
#include "cli/command_line.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>

namespace quarry::test {
namespace {

namespace fs = std::filesystem;
using words = std::vector<std::string>;

constexpr std::uint64_t disk_offset = 0x8000;

class exact_hints : public command_line_test {
  protected:
    // "disk" has a volume with /a.txt at byte 0x8000, "zeros" has none.
    void SetUp() override {
        volume_builder volume({.system_files = true});
        volume.add_file("a.txt").stored_data(to_bytes("hello\n"));
        const std::size_t volume_bytes = volume.image().size();
        byte_writer disk(volume.image_at(disk_offset));
        disk.u8(446 + 4, 0x07).u32(446 + 8, disk_offset / 512).u32(446 + 12, volume_bytes / 512);
        write_file(m_dir / "disk", disk.u16(510, 0xAA55).take());
        write_file(m_dir / "zeros", bytes(100000));
    }

    // Carries out a line, and then the rest of one that would copy /a.txt.
    void expect_failure(words line, int status, const std::string& message) const {
        line.insert(line.begin(), "-exact");
        line.insert(line.end(), {"-quiet", "-src", "/a.txt", "-dst", "copy"});
        expect_failure_of(line, status, message);
    }
    void expect_failure_of(const words& line, int status, const std::string& message) const {
        const program_result result = run(line);
        EXPECT_EQ(result.status, status) << message;
        EXPECT_EQ(result.err, "err: " + message + "\n");
        EXPECT_FALSE(fs::exists(m_dir / "copy")) << message;
    }
};

TEST_F(exact_hints, lead_to_the_listing_where_a_volume_is_not_found) {
    expect_failure({"-image", "zeros"}, 5,
                   "source zeros: holds no NTFS volume; -volumes shows what it holds");
    expect_failure({"-image", "zeros", "-ntfsvol", "7"}, 5,
                   "source zeros: holds no NTFS volume; -volumes shows what it holds");
    expect_failure({"-image", "disk", "-ntfsvol", "7"}, 2,
                   "source disk: has no NTFS volume 7; -volumes lists the one that it has");
    expect_failure({"-image", "disk", "-offset", "0x9000"}, 5,
                   "boot sector: signature is not \"NTFS    \"; -volumes lists the offsets of the volumes "
                   "(source byte 0x9003)");
    // The volume begins at sector 64.
    expect_failure(
        {"-image", "disk", "-offset", "64"}, 5,
        "boot sector: signature is not \"NTFS    \"; -offset counts bytes, sector 64 is -offset 32768 "
        "(source byte 0x43)");
    expect_failure(
        {"-image", "zeros", "-offset", "100000"}, 5,
        "source zeros: ends at byte 0x186A0, byte 0x186A0 is needed; -volumes lists the offsets of "
        "the volumes");
}

TEST_F(exact_hints, are_none_where_the_source_ends_within_the_boot_sector) {
    expect_failure({"-image", "zeros", "-offset", "99999"}, 5,
                   "source zeros: ends at byte 0x186A0, byte 0x186A0 is needed");
}

TEST_F(exact_hints, list_no_volumes_where_the_number_is_of_none) {
    expect_failure_of({"-exact", "-image", "disk", "-ntfsvol", "7", "-src", "/a.txt", "-dst", "copy"}, 2,
                      "source disk: has no NTFS volume 7; -volumes lists the one that it has");
}

TEST_F(exact_hints, name_a_program_where_a_source_holds_no_digest) {
    expect_failure_of({"-exact", "-image", "disk", "-verify_source"}, 2,
                      "source disk: holds no digest of what was acquired; sha256sum computes one");
}

TEST_F(exact_hints, lead_from_a_partition_to_the_disk_around_it) {
    expect_failure({"-partition", "disk"}, 5,
                   "boot sector: signature is not \"NTFS    \"; a disk with a partition table is named with "
                   "-image (source byte 0x3)");
}

TEST_F(exact_hints, say_that_a_pattern_is_not_read) {
    const auto looked_up = [this](const std::string& path, const std::string& message) {
        expect_failure_of({"-exact", "-quiet", "-image", "disk", "-src", path, "-dst", "copy"}, 1, message);
    };
    const std::string hint = "no such name; patterns are not read, choose lines of -list with grep";
    looked_up("/*.txt", "path \"/*.txt\": " + hint);
    looked_up("/*", "path \"/*\": " + hint);
    looked_up("/?.txt", "path \"/?.txt\": " + hint);
    looked_up("/b.txt", "path \"/b.txt\": no such name");
    // In listings this stands for directories that are lost.
    looked_up("/?/a.txt", "path \"/?\": no such name");
}

TEST_F(exact_hints, say_that_an_image_is_compressed) {
    for (const auto& [head, program] :
         {std::pair(std::string("\xFD"
                                "7zXZ\0",
                                6),
                    "xz"),
          std::pair(std::string("\x1F\x8B\x08\0\0\0", 6), "gzip"), std::pair(std::string("BZh91A"), "bzip2"),
          std::pair(std::string("\x28\xB5\x2F\xFD\0\0", 6), "zstd")}) {
        bytes image(100000);
        std::copy(head.begin(), head.end(), image.begin());
        write_file(m_dir / "packed", image);
        const program_result result = run({"-exact", "-image", "packed", "-volumes"});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, std::string("warning: source packed: begins as a file of ") + program +
                                  " does; decompress it first\n");
    }
    EXPECT_EQ(run({"-exact", "-image", "disk", "-volumes"}).err, "");
}

TEST_F(exact_hints, say_what_to_do_with_a_virtual_disk_of_another_kind) {
    write_file(m_dir / "disk.vmdk", to_bytes("# Disk DescriptorFile\n"));
    expect_failure(
        {"-vmdk", "disk.vmdk"}, 5,
        "source disk.vmdk: is no sparse VMDK file that can be read; give its -flat.vmdk to -image if it has "
        "one, or give a raw view of it, as share/doc/quarry/docs/limits.md shows under \"Other containers\"");
}

TEST_F(exact_hints, say_that_a_pipe_cannot_be_the_source) {
    ASSERT_EQ(::mkfifo((m_dir / "pipe").c_str(), 0600), 0);
    expect_failure({"-image", "pipe"}, 5,
                   "source pipe: cannot be opened: Illegal seek; the source must be a file or a drive, copy "
                   "what comes through a pipe to a file first");
}

TEST_F(exact_hints, say_that_standard_input_cannot_be_the_source) {
    expect_failure({"-image", "-"}, 5,
                   "source -: cannot be opened: No such file or directory; the source must be a file or a "
                   "drive, copy what comes through a pipe to a file first");
}

TEST_F(exact_hints, say_that_a_compressed_image_is_one_where_it_holds_no_volume) {
    write_file(m_dir / "image", byte_writer(4096).text(0, "BZh91A").take());
    expect_failure(
        {"-image", "image", "-ntfsvol", "1"}, 5,
        "source image: holds no NTFS volume; it begins as a file of bzip2 does, decompress it first");
}

TEST_F(exact_hints, say_that_a_path_has_no_quotes_and_no_doubled_backslashes_and_where_a_drive_begins) {
    expect_failure_of({"-exact", "-quiet", "-image", "disk", "-src", "\"/a.txt\"", "-dst", "copy"}, 1,
                      "path \"/\"\": no such name; a path has no quotes around it");
    expect_failure_of({"-exact", "-quiet", "-image", "disk", "-src", "\\\\a.txt", "-dst", "copy"}, 2,
                      "path \"\\\\a.txt\": has an empty name; with \\ between names nothing is escaped");
    expect_failure_of({"-exact", "-quiet", "-image", "disk", "-list", "C:"}, 2,
                      "path \"C:\": the stream has no name; the root of a drive is / or C:\\");
}

TEST_F(exact_hints, say_that_the_reader_of_a_listing_has_ended) {
    const program_result result =
        run({"-exact", "-image", "disk", "-list", "/"}, {.standard_output = output_end::broken});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "err: standard output: cannot be written: Broken pipe; what reads the lines has ended before "
              "them\n");
}

TEST_F(exact_hints, have_the_word_of_the_system_where_a_log_cannot_be_opened) {
    expect_failure({"-image", "disk", "-diags", "missing/log"}, 2,
                   "log missing/log: cannot be opened: No such file or directory; make the directory first");
    fs::create_directory(m_dir / "folder");
    expect_failure({"-image", "disk", "-diags", "folder"}, 2, "log folder: cannot be opened: Is a directory");
}

TEST_F(exact_hints, say_to_name_a_file_where_a_link_was_named) {
    const auto copied_to = [this](const std::string& path, const std::string& message) {
        expect_failure_of({"-exact", "-quiet", "-image", "disk", "-src", "/a.txt", "-dst", path}, 2, message);
    };
    ASSERT_EQ(::mkfifo((m_dir / "pipe").c_str(), 0600), 0);
    fs::create_symlink("pipe", m_dir / "stream");
    fs::create_symlink("elsewhere", m_dir / "link");
    copied_to("stream",
              "destination stream: is a link; a copy cannot go to standard output or a device, name a file");
    copied_to("link", "destination link: is a link; links are not followed, name a file");
    EXPECT_FALSE(fs::exists(m_dir / "elsewhere"));
    copied_to("-", "-dst \"-\": a copy never goes to standard output; a file of that name is ./-");
    EXPECT_FALSE(fs::exists(m_dir / "-"));
    expect_failure({"-image", "disk", "-manifest", "link"}, 2,
                   "manifest link: is a link; links are not followed, name a file");
}

TEST_F(exact_hints, ask_whether_the_command_failed_that_makes_a_list) {
    const program_result result =
        run({"-exact", "-image", "disk", "-pipe", "-dst", "./"}, {.standard_input = "\n"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.err.find("warning: list: has no line; did the command that makes it fail?\n"),
              std::string::npos)
        << result.err;
    const program_result listed =
        run({"-exact", "-image", "disk", "-pipe", "-dst", "./"}, {.standard_input = "/a.txt\n"});
    EXPECT_EQ(listed.status, 0);
    EXPECT_EQ(listed.err.find("has no line"), std::string::npos) << listed.err;
}

TEST_F(exact_hints, lead_to_the_help_where_a_word_is_like_no_option) {
    for (const std::string word : {"--version", "-version", "-ver"}) {
        expect_failure_of({"-exact", word}, 2, "\"" + word + "\" is no option; -exact -h shows the version");
    }
    expect_failure_of({"-exact", "-image=disk"}, 2,
                      "\"-image=disk\" is no option; did you mean -image with its value as the next word?");
    expect_failure_of({"-exact", "-qwertz=1"}, 2, "\"-qwertz=1\" is no option; -exact -h lists them");
    expect_failure_of({"-exact", "-qwertz"}, 2, "\"-qwertz\" is no option; -exact -h lists them");
}

}  // namespace
}  // namespace quarry::test
