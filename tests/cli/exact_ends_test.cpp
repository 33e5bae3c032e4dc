// How runs of the exact mode end that find no volume, several, or a file whose parts are damaged; and one
// whose source changes while its listing is read.
#include "cli/command_line.h"

#include <algorithm>
#include <filesystem>

namespace quarry::test {
namespace {

namespace fs = std::filesystem;
using words = std::vector<std::string>;

class exact_ends : public command_line_test {
  protected:
    [[nodiscard]] program_result exact(words line, program_options options = {}) const {
        line.insert(line.begin(), "-exact");
        return run(std::move(line), std::move(options));
    }
    // What is said of a copy of an entry of "volume", which fails.
    [[nodiscard]] std::string refusal_of(const std::string& entry, words more = {}) const {
        words line = {"-image", "volume", "-mft", entry, "-dst", "copy"};
        line.insert(line.end(), more.begin(), more.end());
        const program_result result = exact(line);
        EXPECT_EQ(result.status, 1) << result.err;
        EXPECT_FALSE(fs::exists(m_dir / "copy"));
        return result.err;
    }
};

TEST_F(exact_ends, one_of_several_volumes_is_asked_for_by_its_number) {
    volume_builder first({.system_files = true});
    first.add_file("a.txt").data("first\n");
    volume_builder second({.system_files = true});
    second.add_file("a.txt").data("second\n");
    const bytes image = first.image();
    const std::uint64_t sectors = image.size() / 512;
    byte_writer disk(first.image_at(0x8000));
    disk.u8(446 + 4, 0x07).u32(446 + 8, 64).u32(446 + 12, sectors);
    disk.u8(462 + 4, 0x07).u32(462 + 8, 64 + sectors).u32(462 + 12, sectors);
    bytes content = disk.u16(510, 0xAA55).take();
    const bytes after = second.image();
    content.insert(content.end(), after.begin(), after.end());
    write_file(m_dir / "disk", content);

    const words line = {"-image", "disk", "-src", "/a.txt", "-dst", "copy"};
    const program_result asked = exact(line);
    EXPECT_EQ(asked.status, 2);
    EXPECT_EQ(asked.err.rfind("   1  offset 0x0000000000008000", 0), 0u) << asked.err;
    EXPECT_NE(asked.err.find("\n   2  offset 0x"), std::string::npos) << asked.err;
    const std::string error = "err: source disk: holds 2 NTFS volumes; choose one with -ntfsvol\n";
    EXPECT_TRUE(asked.err.ends_with("\n" + error)) << asked.err;
    words quiet = line;
    quiet.emplace_back("-quiet");
    EXPECT_EQ(exact(quiet).err, error);
    words chosen = line;
    chosen.insert(chosen.end(), {"-ntfsvol", "2"});
    EXPECT_EQ(exact(chosen).status, 0);
    EXPECT_EQ(text("copy"), "second\n");
}

TEST_F(exact_ends, an_enciphered_volume_is_told_wherever_it_is_looked_for) {
    bytes sealed(65536);
    const std::string name = "-FVE-FS-";
    std::copy(name.begin(), name.end(), sealed.begin() + 3);
    write_file(m_dir / "sealed", sealed);
    for (const words& where : {words{"-image", "sealed"}, words{"-image", "sealed", "-offset", "0"},
                               words{"-partition", "sealed"}}) {
        words line = where;
        line.insert(line.end(), {"-src", "/a.txt", "-dst", "copy"});
        const program_result result = exact(line);
        EXPECT_EQ(result.status, 5);
        EXPECT_EQ(result.err, "err: source sealed: is enciphered (BitLocker)\n");
    }
}

TEST_F(exact_ends, a_partition_table_that_is_damaged_is_told_and_no_partition_taken_from_it) {
    // A protective entry, and no table that it protects.
    byte_writer disk(bytes(100000));
    disk.u8(446 + 4, 0xEE).u32(446 + 8, 1).u32(446 + 12, 194).u16(510, 0xAA55);
    write_file(m_dir / "disk", disk.take());
    for (const words& asked : {words{"-src", "/a.txt", "-dst", "copy"}, words{"-volumes"}}) {
        words line = {"-image", "disk"};
        line.insert(line.end(), asked.begin(), asked.end());
        const program_result result = exact(line);
        EXPECT_EQ(result.status, 5);
        EXPECT_NE(result.err.find("err: partition table: "), std::string::npos) << result.err;
    }
}

TEST_F(exact_ends, a_reparse_point_that_is_damaged_fails_a_copy_of_the_data_that_it_may_stand_for) {
    volume_builder volume({.system_files = true});
    const auto add = [&](const char* name, bytes value) -> file_builder& {
        return volume.add_file(name)
            .data("own data")
            .attribute(attribute_builder::resident(0xC0, std::move(value)));
    };
    bytes link = reparse_point{.substitute_name = "\\??\\C:\\x", .print_name = "C:\\x"}.build();
    add("short", bytes(3));  // 24
    // The value ends in the middle of its names.
    link.resize(20);
    link[4] = 12;
    add("link", link);  // 25
    add("twice", reparse_point{.tag = 0x80000007}.build())
        .attribute(attribute_builder::resident(0xC0, bytes(8)));  // 26
    volume.write_to(m_dir / "volume");
    EXPECT_EQ(refusal_of("24").rfind("err: record 24: reparse point of 3 bytes", 0), 0u) << refusal_of("24");
    EXPECT_EQ(refusal_of("25").rfind("err: record 25: ", 0), 0u) << refusal_of("25");
    EXPECT_NE(refusal_of("26").find("record 26, $REPARSE_POINT \"\": stands twice at VCN 0"),
              std::string::npos)
        << refusal_of("26");
    for (const std::string entry : {"24", "25", "26"}) {
        EXPECT_EQ(exact({"-image", "volume", "-mft", entry, "-raw", "-dst", entry}).status, 0);
        EXPECT_EQ(text(entry), "own data");
    }
}

TEST_F(exact_ends, a_name_with_time_and_digest_needs_one_time_and_room_for_both) {
    volume_builder volume({.system_files = true});
    volume.add_file("untimed").data("hello\n").without_standard_information();  // 24
    volume.add_file("twice").data("hello\n").attribute(
        attribute_builder::resident(0x10, standard_information{}.build()));  // 25
    volume.add_file(std::string(255, 'n')).data("hello\n");                  // 26
    volume.write_to(m_dir / "volume");
    fs::create_directory(m_dir / "out");
    // `printf 'hello\n' | md5sum`
    const std::string md5 = "b1946ac92492d2347c6235b4d2611184";
    EXPECT_EQ(exact({"-image", "volume", "-mft", "24", "-md5", "-dst", "out/"}).status, 0);
    EXPECT_EQ(text("out/0000000000000000_untimed_" + md5), "hello\n");
    EXPECT_NE(refusal_of("25", {"-md5"}).find("has not one resident, unnamed $STANDARD_INFORMATION"),
              std::string::npos);
    // 16 digits, the name, 32 digits, and the underscores between them.
    const program_result result = exact({"-image", "volume", "-mft", "26", "-md5", "-dst", "out/"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("the name has 305 bytes, 255 are possible"), std::string::npos) << result.err;
    EXPECT_EQ(files(), (words{"out", "volume"}));
}

TEST_F(exact_ends, a_line_of_a_list_that_is_too_long_is_told_by_its_beginning) {
    volume_builder volume({.system_files = true});
    volume.add_file("a.txt").data("hello\n");
    volume.write_to(m_dir / "volume");
    fs::create_directory(m_dir / "out");
    const program_result result = exact({"-image", "volume", "-pipe", "-dst", "out/"},
                                        {.standard_input = "/" + std::string(262144, 'x') + "\n/a.txt\n"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err.rfind(
                  "err: list, line 1: \"/" + std::string(79, 'x') + "...\" has more than 262144 bytes\n", 0),
              0u)
        << result.err.substr(0, 300);
    EXPECT_EQ(text("out/a.txt"), "hello\n");
}

TEST_F(exact_ends, a_line_of_a_listing_finds_files_that_have_lost_their_name_or_their_directories) {
    volume_builder volume({.system_files = true});
    volume.add_file("x").without_names().data("nameless\n").deleted();    // 24
    const std::uint64_t reused = volume.add_directory("reused").entry();  // 25
    volume.add_file("below.txt", reused).data("below\n").deleted();       // 26
    bytes image = volume.image();
    // The entry of the directory was given away: its sequence number is another.
    image[static_cast<std::size_t>(volume.record_position(reused)) + 16] = 5;
    write_file(m_dir / "volume", image);
    fs::create_directory(m_dir / "out");
    const std::string list = exact({"-image", "volume", "-list", "/", "-deleted"}).out;
    EXPECT_NE(list.find("\t/?/24-1\n"), std::string::npos) << list;
    EXPECT_NE(list.find("\t/?/below.txt\n"), std::string::npos) << list;
    const program_result result =
        exact({"-image", "volume", "-pipe", "-tree", "-manifest", "m", "-dst", "out/"},
              {.standard_input = "24-1\tF\t9\t-\t/?/24-1\n"
                                 "26-1\tF\t6\t-\t/?/below.txt\n"
                                 "24-1\tF\t9\t-\t/?/25-1\n"
                                 "26-1\tF\t6\t-\t/reused/below.txt\n"});
    EXPECT_EQ(result.status, 3) << result.err;
    EXPECT_EQ(text("out/?/24-1"), "nameless\n");
    EXPECT_EQ(text("out/?/below.txt"), "below\n");
    const std::string lines = text("m");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 4);
    EXPECT_NE(result.err.find("err: list, line 3: record 24: is not at \"/?/25-1\""), std::string::npos);
    EXPECT_NE(result.err.find("err: list, line 4: record 26: is not at \"/reused/below.txt\""),
              std::string::npos);
}

TEST_F(exact_ends, a_listing_of_a_source_that_changes_meanwhile_is_in_doubt) {
    volume_builder volume({.mft_entries = 2100, .system_files = true});
    for (int i = 0; i < 2000; ++i) {
        volume.add_file("a name that fills the pipe " + std::to_string(i));
    }
    volume.write_to(m_dir / "volume");
    // More than a pipe holds: the program waits until the change is made.
    const program_result result =
        run_program({"/bin/sh", "-c",
                     R"({ "$0" -exact -image volume -list / 2>said; echo $? >status; } |
            { read -r line; printf x >>volume; cat >lines; })",
                     QUARRY_PROGRAM},
                    {.directory = m_dir.path()});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(text("status"), "4\n");
    EXPECT_EQ(text("said"), "warning: source volume: changed while it was read\n");
    const std::string lines = text("lines");
    EXPECT_GT(std::count(lines.begin(), lines.end(), '\n'), 1999);
}

}  // namespace
}  // namespace quarry::test
