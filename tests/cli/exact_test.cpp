// The exact mode from outside: what it copies, what it refuses, what it says, and what is left when the
// machine lets it down.
#include "cli/command_line.h"
#include "frontend/confinement.h"
#include "support/requirements.h"
#include "support/vmdk_builder.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace quarry::test {
namespace {

namespace fs = std::filesystem;
using words = std::vector<std::string>;

constexpr std::uint64_t disk_offset = 0x8000;

std::string long_content() {
    const bytes content = pattern(300000, 7);
    return {content.begin(), content.end()};
}

class exact_mode : public command_line_test {
  protected:
    // "volume" is a bare volume, "disk" the same after an MBR:
    //
    //     entry 24  /a.txt     "hello\n", with a stream "Note" of "note\n"
    //     entry 25  /long.bin  300,000 bytes in clusters
    //     entry 26  /docs      entry 27  /docs/b.txt  "b\n"
    void SetUp() override {
        volume_builder volume({.system_files = true});
        volume.add_file("a.txt").stored_data(to_bytes("hello\n")).stored_stream("Note", to_bytes("note\n"));
        volume.add_file("long.bin").stored_data(to_bytes(long_content()));
        volume.add_directory("docs");
        volume.add_file("b.txt", 26).stored_data(to_bytes("b\n"));
        const bytes image = volume.image();
        write_file(m_dir / "volume", image);
        byte_writer disk(volume.image_at(disk_offset));
        disk.u8(446 + 4, 0x07).u32(446 + 8, disk_offset / 512).u32(446 + 12, image.size() / 512);
        write_file(m_dir / "disk", disk.u16(510, 0xAA55).take());
        fs::create_directory(m_dir / "out");
    }

    [[nodiscard]] program_result exact(words line, program_options options = {}) const {
        line.insert(line.begin(), "-exact");
        return run(std::move(line), std::move(options));
    }
    // Everything that is in the directory beside the sources.
    [[nodiscard]] words made() const {
        words names;
        for (const auto& entry : fs::recursive_directory_iterator(m_dir.path())) {
            const std::string name = fs::relative(entry.path(), m_dir.path()).string();
            if (name != "volume" && name != "disk" && name != "out") {
                names.push_back(name);
            }
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    void expect_refused(const words& line, const std::string& message) const {
        const program_result result = exact(line);
        EXPECT_EQ(result.status, 2) << message;
        EXPECT_EQ(result.err, "err: " + message + "\n");
        EXPECT_EQ(behind_header(result.out), "");
    }
};

TEST_F(exact_mode, copies_a_path_an_entry_a_stream_and_clusters) {
    program_result result = exact({"-image", "volume", "-src", "/A.TXT", "-dst", "copy"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err.substr(result.err.find("ok: ")), "ok: /a.txt -> copy (6 bytes)\n");
    EXPECT_EQ(text("copy"), "hello\n");
    EXPECT_EQ(exact({"-image", "disk", "-mft", "25", "-dst", "out/"}).status, 0);
    EXPECT_TRUE(text("out/long.bin") == long_content());
    EXPECT_EQ(exact({"-image", "volume", "-mft", "24", "-src", ":Note", "-dst", "out/"}).status, 0);
    EXPECT_EQ(text("out/a.txt_Note"), "note\n");
    EXPECT_EQ(exact({"-image", "volume", "-src", "\\docs\\b.txt", "-dst", "b"}).status, 0);
    EXPECT_EQ(text("b"), "b\n");
    EXPECT_EQ(exact({"-image", "volume", "-cluster", "0", "2", "-dst", "clusters"}).status, 0);
    EXPECT_EQ(text("clusters"), text("volume").substr(0, 8192));
    EXPECT_EQ(made(), (words{"b", "clusters", "copy", "out/a.txt_Note", "out/long.bin"}));
}

TEST_F(exact_mode, counts_one_byte_in_the_singular) {
    volume_builder volume({.system_files = true});
    volume.add_file("one").stored_data(to_bytes("x"));
    write_file(m_dir / "volume", volume.image());
    const program_result result = exact({"-image", "volume", "-src", "/one", "-dst", "copy"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err.substr(result.err.find("ok: ")), "ok: /one -> copy (1 byte)\n");
    EXPECT_EQ(text("copy"), "x");
}

TEST_F(exact_mode, copies_what_the_system_compressed_and_refuses_what_is_elsewhere) {
    const auto reparse_point = [](std::uint32_t tag, const bytes& data) {
        return attribute_builder::resident(0xC0,
                                           byte_writer().u32(0, tag).u16(4, data.size()).raw(8, data).take());
    };
    const auto wof = [](std::uint32_t provider, std::uint32_t format) {
        return byte_writer().u32(0, 1).u32(4, provider).u32(8, 1).u32(12, format).take();
    };
    volume_builder volume({.system_files = true});
    // Three chunks, each stored as it is, after offsets of 4 bytes.
    const bytes plain = pattern(8193);
    const bytes stored = concat({from_hex("00 10 00 00  00 20 00 00"), plain});
    volume.add_file("packed.exe")
        .data(runs({{hole, 3}}), {.real = 8193, .flags = 0x8000})
        .stream("WofCompressedData", stored)
        .attribute(reparse_point(0x80000017, wof(2, 0)));
    volume.add_file("in.wim").data("x").attribute(reparse_point(0x80000017, wof(1, 0)));
    volume.add_file("chunks").data("x").stream("note", "n").attribute(reparse_point(0x80000013, bytes(4)));
    volume.add_file("cloud").data("x").attribute(reparse_point(0x9000601A, bytes(4)));
    write_file(m_dir / "volume", volume.image());
    const auto copied = [&](const words& object) {
        words line = {"-image", "volume", "-dst", "copy", "-overwrite", "-quiet"};
        line.insert(line.end(), object.begin(), object.end());
        const program_result result = exact(line);
        return result.status == 0 ? text("copy") : result.err;
    };
    const auto text_of_bytes = [](const bytes& content) {
        return std::string(content.begin(), content.end());
    };
    EXPECT_TRUE(copied({"-src", "/packed.exe"}) == text_of_bytes(plain));
    EXPECT_TRUE(copied({"-mft", "24"}) == text_of_bytes(plain));
    EXPECT_TRUE(copied({"-src", "/packed.exe:WofCompressedData"}) == text_of_bytes(stored));
    EXPECT_TRUE(copied({"-src", "/packed.exe", "-raw"}) == std::string(3 * 4096, '\0'));
    EXPECT_EQ(copied({"-src", "/in.wim"}), "err: path \"/in.wim\": the data is in a WIM file (provider 1)\n");
    EXPECT_EQ(copied({"-src", "/in.wim", "-raw"}), "x");
    EXPECT_EQ(copied({"-src", "/chunks"}),
              "err: path \"/chunks\": reparse tag 0x80000013 (DEDUP): the data is not in this stream\n");
    EXPECT_EQ(copied({"-src", "/chunks:note"}), "n");
    EXPECT_EQ(copied({"-src", "/cloud"}),
              "err: path \"/cloud\": reparse tag 0x9000601A (CLOUD_6): the data is not in this stream\n");
    const program_result told =
        exact({"-image", "volume", "-src", "/packed.exe", "-dst", "b", "-diags", "log"});
    EXPECT_EQ(told.status, 0);
    EXPECT_NE(
        text("log").find("->info: stream \"WofCompressedData\" type $DATA, allocated 12288, size 8201, "),
        std::string::npos);
    EXPECT_NE(text("log").find("->info: decoded from \"WofCompressedData\" as xpress4k"), std::string::npos);
}

TEST_F(exact_mode, copies_the_keys_of_an_encrypted_file_and_refuses_its_data) {
    const bytes keys = pattern(400, 3);
    volume_builder volume({.system_files = true});
    volume.add_file("secret.txt")
        .stored_data(pattern(5000), {.flags = 0x4000})
        .attribute(attribute_builder::resident(0x100, keys).named("$EFS"));
    write_file(m_dir / "volume", volume.image());
    const program_result result =
        exact({"-image", "volume", "-src", "/secret.txt:$EFS:$LOGGED_UTILITY_STREAM", "-dst", "out/"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(text("out/secret.txt_$EFS_$LOGGED_UTILITY_STREAM"), std::string(keys.begin(), keys.end()));
    const program_result data = exact({"-image", "volume", "-src", "/secret.txt", "-dst", "out/"});
    EXPECT_EQ(data.status, 1);
    EXPECT_EQ(
        data.err,
        "err: record 24, $DATA \"\": encrypted (EFS); -raw copies the stored bytes, of which 5000 count\n");
    EXPECT_EQ(made(), words{"out/secret.txt_$EFS_$LOGGED_UTILITY_STREAM"});
}

TEST_F(exact_mode, says_what_to_do_with_a_link_that_is_asked_for_by_its_entry) {
    volume_builder volume({.system_files = true});
    reparse_point target;
    target.substitute_name = u"\\??\\C:\\Users";
    volume.add_directory("link").reparse(target).stored_stream("Note", to_bytes("note\n"));
    write_file(m_dir / "volume", volume.image());
    const std::string refused =
        "record 24: leads to C:\\Users; give its path to follow it, or -raw to copy its own data\n";
    EXPECT_EQ(exact({"-image", "volume", "-mft", "24", "-dst", "a"}).err, "err: " + refused);
    const program_result list = exact({"-image", "volume", "-pipe", "-dst", "out/", "-quiet"},
                                      {.standard_input = "24-1\tl\t0\t-\t/link\n"});
    EXPECT_EQ(list.err, "err: list, line 1: " + refused);
    EXPECT_EQ(exact({"-image", "volume", "-mft", "24", "-src", ":Note", "-dst", "a"}).status, 0);
}

TEST_F(exact_mode, copies_from_a_chain_of_virtual_disk_files_and_refuses_one_that_is_not_sound) {
    const std::string disk = text("disk");
    vmdk_builder base;
    base.grains = (disk.size() + base.grain_bytes() - 1) / base.grain_bytes();
    base.put_all(0, to_bytes(disk));
    base.write(m_dir / "base.vmdk");
    vmdk_builder snapshot;
    snapshot.grains = base.grains;
    snapshot.cid = "c0000001";
    snapshot.parent_cid = base.cid;
    snapshot.write(m_dir / "snap.vmdk");
    EXPECT_EQ(exact({"-vmdk", "snap.vmdk | base.vmdk", "-src", "/long.bin", "-dst", "copy"}).status, 0);
    EXPECT_TRUE(text("copy") == long_content());
    const program_result orphan = exact({"-vmdk", "snap.vmdk", "-src", "/a.txt", "-dst", "b"});
    EXPECT_EQ(orphan.status, 5);
    EXPECT_EQ(orphan.err, "err: source snap.vmdk: the files make no chain\n");
    const program_result missing = exact({"-vmdk", "base.vmdk|gone.vmdk", "-src", "/a.txt", "-dst", "b"});
    EXPECT_EQ(missing.status, 5);
    EXPECT_EQ(missing.err, "err: source gone.vmdk: cannot be opened: No such file or directory\n");
    EXPECT_EQ(made(), (words{"base.vmdk", "copy", "snap.vmdk"}));
}

TEST_F(exact_mode, refuses_a_virtual_disk_whose_grain_tables_cannot_be_read_whole) {
    const std::string disk = text("disk");
    vmdk_builder base;
    base.entries_per_table = 4096;
    base.grains = (disk.size() + base.grain_bytes() - 1) / base.grain_bytes();
    base.put_all(0, to_bytes(disk));
    base.write(m_dir / "base.vmdk");
    // The only table begins with a sector that can be read.
    ASSERT_EQ(base.directory_entries(), 1u);
    const std::uint64_t bad = base.table_offset(0) + 512;
    const program_result result = exact({"-vmdk", "base.vmdk", "-src", "/long.bin", "-dst", "copy"},
                                        {.environment = {{"LD_PRELOAD", QUARRY_FAILING_HOST},
                                                         {"FAIL_READS_FROM", std::to_string(bad)},
                                                         {"FAIL_READS_TO", std::to_string(bad + 512)}}});
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.err, "err: source base.vmdk: has grain tables that cannot be read\n");
    EXPECT_EQ(made(), words{"base.vmdk"});
}

TEST_F(exact_mode, is_asked_for_by_a_word_in_any_place_and_letter_case) {
    EXPECT_EQ(run({"-image", "volume", "-src", "/a.txt", "-EXACT", "-dst", "copy"}).status, 0);
    EXPECT_EQ(text("copy"), "hello\n");
}

TEST_F(exact_mode, refuses_what_is_not_understood_before_anything_is_read) {
    expect_refused({"-imgae", "nothing", "-src", "/a.txt", "-dst", "copy"},
                   "\"-imgae\" is no option; did you mean -image?");
    expect_refused({"-image", "nothing", "a.txt", "copy"},
                   "\"a.txt\" stands alone; a source is named with -src, an image with -image");
    expect_refused({"-image", "nothing", "-offset", "0x1g", "-src", "/a.txt", "-dst", "copy"},
                   "-offset \"0x1g\" is no number");
    expect_refused({"-image", "nothing", "-src", "/a.txt", "-dst", "copy", "-meta"},
                   "-meta is not taken with -exact: say -manifest");
    expect_refused({"-image", "nothing", "-src", "/a.txt", "-dst", "copy", "-threads", "65"},
                   "-threads \"65\" is not 1 to 64");
    expect_refused({"-image", "nothing", "-cluster", "1", "-dst", "out/"},
                   "destination out/: clusters have no name; name the file");
    EXPECT_EQ(exact({"-image", "nothing", "-src", "/a//b", "-dst", "copy"}).status, 2);
    EXPECT_TRUE(made().empty());
}

TEST_F(exact_mode, refuses_destinations_that_would_lose_something) {
    std::ofstream(m_dir / "earlier") << "earlier";
    fs::create_symlink(m_dir / "earlier", m_dir / "link");
    auto to = [](const std::string& path, bool overwrite) {
        words line = {"-image", "volume", "-src", "/a.txt", "-dst", path};
        if (overwrite) {
            line.emplace_back("-overwrite");
        }
        return line;
    };
    expect_refused(to("earlier", false), "destination earlier: exists; say -overwrite");
    expect_refused(to("link", true), "destination link: is a link; links are not followed, name a file");
    expect_refused(
        to("volume", true),
        "destination volume: is a file of this run: a source, the log, the manifest or a standard stream");
    expect_refused(to("missing/copy", false),
                   "destination missing/: No such file or directory; make the directory first");
    expect_refused(to("out", true), "destination out: is a directory; say out/");
    EXPECT_EQ(text("earlier"), "earlier");
    EXPECT_EQ(exact(to("earlier", true)).status, 0);
    EXPECT_EQ(text("earlier"), "hello\n");
}

TEST_F(exact_mode, never_writes_a_log_over_the_source_or_the_destination) {
    const std::string before = text("volume");
    expect_refused({"-image", "volume", "-src", "/a.txt", "-dst", "copy", "-diags", "volume"},
                   "log volume: is the source");
    EXPECT_TRUE(text("volume") == before);
    expect_refused({"-image", "volume", "-src", "/a.txt", "-dst", "copy", "-diags", "missing/log"},
                   "log missing/log: cannot be opened: No such file or directory; make the directory first");
    expect_refused(
        {"-image", "volume", "-src", "/a.txt", "-dst", "log", "-overwrite", "-diags", "log"},
        "destination log: is a file of this run: a source, the log, the manifest or a standard stream");
}

TEST_F(exact_mode, never_writes_a_log_over_an_earlier_copy_or_the_file_of_a_standard_stream) {
    const words copy = {"-image", "volume", "-src", "/a.txt", "-dst", "out/", "-overwrite"};
    ASSERT_EQ(exact(copy).status, 0);
    words logged = copy;
    logged.insert(logged.end(), {"-diags", "out/a.txt"});
    expect_refused(logged, "log out/a.txt: exists and is no log");
    EXPECT_EQ(text("out/a.txt"), "hello\n");
    EXPECT_EQ(made(), words{"out/a.txt"});
    logged.back() = "log";
    EXPECT_EQ(exact(logged).status, 0);
    const std::string first = text("log");
    EXPECT_EQ(exact(logged).status, 0);
    EXPECT_EQ(text("log").size(), first.size());
    const program_result result =
        run_program({"/bin/sh", "-c", R"("$0" -exact -image volume -src /a.txt -dst b -diags said 2>said)",
                     QUARRY_PROGRAM},
                    {.directory = m_dir.path()});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(text("said"), "err: log said: is standard input, output or error\n");
}

TEST_F(exact_mode, never_writes_a_copy_over_the_file_of_a_standard_stream) {
    const program_result result =
        run_program({"/bin/sh", "-c", R"("$0" -exact -image volume -src /a.txt -dst said -overwrite 2>said)",
                     QUARRY_PROGRAM},
                    {.directory = m_dir.path()});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(text("said"),
              "err: destination said: is a file of this run: a source, the log, the manifest or a standard "
              "stream\n");
}

TEST_F(exact_mode, refuses_a_name_in_a_directory_before_reading_if_the_command_line_reports_it) {
    std::ofstream(m_dir / "out/a.txt") << "earlier";
    std::ofstream(m_dir / "out/a.txt_Note") << "earlier";
    const std::string exists = ": exists; say -overwrite";
    expect_refused({"-image", "nothing", "-src", "/a.txt", "-dst", "out/"}, "destination out/a.txt" + exists);
    expect_refused({"-image", "nothing", "-src", "/a.txt:Note", "-dst", "out/"},
                   "destination out/a.txt_Note" + exists);
    fs::create_symlink("../volume", m_dir / "out/b.txt");
    expect_refused(
        {"-image", "volume", "-src", "/docs/b.txt", "-dst", "out/", "-overwrite"},
        "destination out/b.txt: is a file of this run: a source, the log, the manifest or a standard stream");
    // What only the volume knows is found out by reading.
    for (const words& object : {words{"-mft", "24"}, words{"-src", "/A.TXT"}}) {
        const program_result result = exact({"-image", "volume", object[0], object[1], "-dst", "out/"});
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.err.find("err: destination out/a.txt" + exists), std::string::npos) << result.err;
    }
    EXPECT_EQ(text("out/a.txt"), "earlier");
    EXPECT_EQ(exact({"-image", "volume", "-src", "/a.txt", "-dst", "out/", "-overwrite"}).status, 0);
    EXPECT_EQ(text("out/a.txt"), "hello\n");
}

#ifdef QUARRY_CONFINE
TEST_F(exact_mode, gives_up_its_rights_before_the_source_is_opened) {
    QUARRY_NEEDS_PROGRAM("strace");
    QUARRY_NEEDS(kernel_calls().landlock_version() >= 1, "the kernel has no Landlock");
    const program_result result =
        run_program({"strace", "-o", "calls", "-e", "trace=openat,landlock_restrict_self", QUARRY_PROGRAM,
                     "-exact", "-image", "volume", "-src", "/a.txt", "-dst", "out/", "-diags", "log"},
                    {.directory = m_dir.path()});
    EXPECT_EQ(result.status, 0);
    const std::string calls = text("calls");
    const std::size_t restricted = calls.find("landlock_restrict_self(");
    const std::size_t opened = calls.find("\"volume\", O_RDONLY", restricted);
    ASSERT_NE(restricted, std::string::npos) << calls;
    EXPECT_LT(calls.find("\"log\", O_WRONLY"), restricted) << calls;
    EXPECT_NE(opened, std::string::npos) << calls;
}
#endif

TEST_F(exact_mode, a_name_that_is_not_there_is_told_as_it_was_asked_for) {
    EXPECT_NE(
        exact({"-image", "volume", "-src", "/docs", "-dst", "copy"})
            .err.find("err: path \"/docs\": is a directory; name a stream, or list its files with -list\n"),
        std::string::npos);
    EXPECT_NE(exact({"-image", "volume", "-src", "/A.TXT:other", "-dst", "copy"})
                  .err.find("err: path \"/a.txt\": no stream \"other\"; there are: \"\", \"Note\"\n"),
              std::string::npos);
    EXPECT_NE(exact({"-image", "volume", "-mft", "26", "-dst", "copy"})
                  .err.find("err: record 26: is a directory; name a stream, or list its files with -list\n"),
              std::string::npos);
}

TEST_F(exact_mode, compares_a_sequence_number_that_was_asked_for_strictly) {
    EXPECT_EQ(exact({"-image", "volume", "-mft", "24-1", "-dst", "copy"}).status, 0);
    for (const std::string other : {"24-0", "24-2"}) {
        const program_result result = exact({"-image", "volume", "-mft", other, "-dst", "none"});
        EXPECT_EQ(result.status, 1) << other;
        EXPECT_NE(result.err.find("err: record 24: has sequence number 1, the reference says " +
                                  other.substr(3) + " (source byte 0x"),
                  std::string::npos)
            << result.err;
    }
    EXPECT_EQ(made(), words{"copy"});
}

TEST_F(exact_mode, says_once_that_clusters_are_outside_of_the_volume) {
    const program_result result = exact({"-image", "volume", "-cluster", "99999999", "-dst", "copy"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err.substr(result.err.find("err: ")),
              "err: volume: clusters 99999999 to 99999999 lie outside of the volume of 150\n");
}

TEST_F(exact_mode, lists_the_volumes_on_standard_output) {
    const program_result result = exact({"-image", "disk", "-volumes"});
    EXPECT_EQ(result.status, 0);
    const std::string listing = behind_header(result.out);
    EXPECT_EQ(listing.substr(0, 31), "   1  offset 0x0000000000008000");
    EXPECT_NE(listing.find("  ntfs  serial "), std::string::npos);
    EXPECT_EQ(std::count(listing.begin(), listing.end(), '\n'), 1);
}

TEST_F(exact_mode, ends_with_5_where_source_or_volume_cannot_be_opened) {
    program_result result = exact({"-image", "nothing", "-src", "/a.txt", "-dst", "copy"});
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.err, "err: source nothing: cannot be opened: No such file or directory\n");
    EXPECT_EQ(exact({"-image", "out", "-src", "/a.txt", "-dst", "copy"}).status, 5);
    write_file(m_dir / "zeros", bytes(100000));
    result = exact({"-image", "zeros", "-src", "/a.txt", "-dst", "copy"});
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.err, "err: source zeros: holds no NTFS volume; -volumes shows what it holds\n");
    EXPECT_EQ(exact({"-image", "disk", "-offset", "0", "-src", "/a.txt", "-dst", "copy"}).status, 5);
    EXPECT_EQ(exact({"-image", "disk", "-ntfsvol", "2", "-src", "/a.txt", "-dst", "copy"}).status, 2);
}

TEST_F(exact_mode, takes_offsets_of_64_bits_and_volumes_by_number) {
    EXPECT_EQ(exact({"-image", "disk", "-offset", "0x8000", "-src", "/a.txt", "-dst", "one"}).status, 0);
    EXPECT_EQ(exact({"-image", "disk", "-first_ntfsvol", "-src", "/a.txt", "-dst", "two"}).status, 0);
    EXPECT_EQ(exact({"-partition", "volume", "-src", "/a.txt", "-dst", "three"}).status, 0);
    const program_result result =
        exact({"-image", "disk", "-offset", "0x100008000", "-src", "/a.txt", "-dst", "four"});
    EXPECT_EQ(result.status, 5);
    EXPECT_NE(result.err.find("ends at byte"), std::string::npos);
    EXPECT_EQ(made(), (words{"one", "three", "two"}));
}

TEST_F(exact_mode, ends_with_1_and_leaves_nothing_where_the_copy_fails) {
    program_result result = exact({"-image", "volume", "-src", "/nothing", "-dst", "copy"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("err: path \"/nothing\": no such name\n"), std::string::npos) << result.err;
    result = exact({"-image", "volume", "-src", "/docs", "-dst", "copy"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("is a directory; name a stream, or list its files with -list\n"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(exact({"-image", "volume", "-cluster", "99999999", "-dst", "copy"}).status, 2);
    EXPECT_TRUE(made().empty());
}

TEST_F(exact_mode, quiet_says_errors_only) {
    EXPECT_EQ(exact({"-image", "volume", "-src", "/a.txt", "-dst", "copy", "-quiet"}).err, "");
    EXPECT_EQ(exact({"-image", "nothing", "-src", "/a.txt", "-dst", "other", "-quiet"}).err,
              "err: source nothing: cannot be opened: No such file or directory\n");
}

TEST_F(exact_mode, logs_the_run_from_the_source_to_the_exit) {
    EXPECT_EQ(exact({"-image", "disk", "-src", "/a.txt", "-dst", "copy", "-diags", "log"}).status, 0);
    const std::string log = text("log");
    std::size_t at = 0;
    for (const std::string line :
         {"->info: exact source disk, ", "->info: volume at 0x8000: serial ", "->info: journal ",
          "->info: $MFT ", "->info: path /a.txt\n", "->info: name \"a.txt\" -> 24-",
          "->info: stream \"\" type $DATA, ", "->info: copied 6 bytes to copy\n",
          "->ok: /a.txt -> copy (6 bytes)\n", "->info: result complete\n", "->exit: 0\n"}) {
        const std::size_t found = log.find(line, at);
        ASSERT_NE(found, std::string::npos) << line << log;
        at = found;
    }
}

class exact_mode_on_a_huge_hole : public exact_mode {
  protected:
    // /hole has one cluster of bytes, a hole of 2^40 bytes, and one cluster more.
    void SetUp() override {
        volume_builder volume({.total_clusters = 400, .system_files = true});
        volume.write_clusters(200, pattern(4096, 1));
        volume.write_clusters(300, pattern(4096, 2));
        volume.add_file("hole").data(runs({{200, 1}, {hole, hole_bytes / 4096}, {300, 1}}),
                                     {.flags = 0x8000});
        write_file(m_dir / "volume", volume.image());
        fs::create_directory(m_dir / "out");
    }
    static constexpr std::uint64_t hole_bytes = std::uint64_t{1} << 40;
};

TEST_F(exact_mode_on_a_huge_hole, leaves_the_hole_where_it_is_with_sparse) {
    const program_result result = exact({"-image", "volume", "-src", "/hole", "-dst", "copy", "-sparse"});
    EXPECT_LE(result.status, 4) << result.err;
    struct ::stat status {};
    ASSERT_EQ(::stat((m_dir / "copy").c_str(), &status), 0) << result.err;
    EXPECT_EQ(static_cast<std::uint64_t>(status.st_size), hole_bytes + 8192);
    EXPECT_LE(status.st_blocks, 2 * 128 + 64);
    std::ifstream copy(m_dir / "copy", std::ios::binary);
    std::string last(4096, '?');
    copy.seekg(static_cast<std::streamoff>(hole_bytes) + 4096);
    copy.read(last.data(), 4096);
    EXPECT_TRUE(to_bytes(last) == pattern(4096, 2));
}

TEST_F(exact_mode_on_a_huge_hole, fails_at_once_and_leaves_nothing_where_the_host_has_no_such_files) {
    const program_result result = exact({"-image", "volume", "-src", "/hole", "-dst", "copy", "-sparse"},
                                        {.file_size_limit = std::uint64_t{1} << 30});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("err: destination ./: File too large\n"), std::string::npos) << result.err;
    EXPECT_EQ(made(), words{});
}

// The digest of so many zeros takes its time; who does not want to wait ends the run.
TEST_F(exact_mode_on_a_huge_hole, can_be_interrupted_while_its_zeros_are_digested) {
    const std::string script =
        R"("$0" -exact -image volume -src /hole -dst out/ -sparse -md5 2>/dev/null >/dev/null & run=$!
           until ls out/_* >/dev/null 2>&1; do :; done
           kill -TERM $run; wait $run; echo $?)";
    const program_result result =
        run_program({"/bin/sh", "-c", script, QUARRY_PROGRAM}, {.directory = m_dir.path()});
    EXPECT_EQ(result.out, "143\n");
    EXPECT_EQ(made(), words{});
}

TEST_F(exact_mode, names_a_copy_by_time_and_digest) {
    EXPECT_EQ(exact({"-image", "volume", "-src", "/a.txt", "-dst", "out/", "-md5"}).status, 0);
    ASSERT_EQ(made().size(), 1u);
    // The digest of "hello\n".
    EXPECT_EQ(made().front().substr(4 + 16), "_a.txt_b1946ac92492d2347c6235b4d2611184");
}

TEST_F(exact_mode, writes_no_log_to_a_block_device) {
    QUARRY_NEEDS_ROOT();
    // No driver has this number, so nothing could be written there in any case.
    ASSERT_EQ(::mknod((m_dir / "device").c_str(), S_IFBLK | 0600, ::makedev(4000, 1)), 0);
    expect_refused({"-image", "volume", "-src", "/a.txt", "-dst", "copy", "-diags", "device"},
                   "log device: is a block device");
    EXPECT_EQ(made(), words{"device"});
}

TEST_F(exact_mode, help_is_printed_without_a_header) {
    const program_result result = exact({"-h"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("-zero_unreadable"), std::string::npos);
    EXPECT_NE(result.err.find("-vmdk"), std::string::npos);
}

TEST_F(exact_mode, help_fits_on_a_terminal_of_80_columns) {
    std::istringstream help(exact({"-h"}).err);
    std::size_t lines = 0;
    for (std::string line; std::getline(help, line); ++lines) {
        EXPECT_LE(line.size(), 80u) << line;
    }
    EXPECT_GT(lines, 40u);
}

TEST_F(exact_mode, a_full_disk_or_a_limit_leaves_what_was_there) {
    std::ofstream(m_dir / "copy") << "earlier";
    const words line = {"-image", "volume", "-src", "/long.bin", "-dst", "copy", "-overwrite"};
    program_result result =
        exact(line, {.environment = {{"LD_PRELOAD", QUARRY_FAILING_HOST}, {"ROOM", "100000"}}});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("No space left on device"), std::string::npos) << result.err;
    result = exact(line, {.file_size_limit = 4096});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("File too large"), std::string::npos) << result.err;
    EXPECT_EQ(text("copy"), "earlier");
    EXPECT_EQ(made(), words{"copy"});
}

TEST_F(exact_mode, short_and_interrupted_calls_change_nothing) {
    const words line = {"-image", "volume", "-src", "/long.bin", "-dst", "copy", "-overwrite"};
    for (const char* setting : {"LONGEST_TRANSFER", "INTERRUPTED"}) {
        EXPECT_EQ(
            exact(line, {.environment = {{"LD_PRELOAD", QUARRY_FAILING_HOST}, {setting, "1000"}}}).status, 0);
        EXPECT_TRUE(text("copy") == long_content()) << setting;
    }
}

TEST_F(exact_mode, an_unreadable_sector_fails_unless_zeros_are_asked_for) {
    const std::size_t place = text("volume").find(long_content().substr(0, 4096));
    ASSERT_NE(place, std::string::npos);
    const std::map<std::string, std::string> bad = {{"LD_PRELOAD", QUARRY_FAILING_HOST},
                                                    {"FAIL_READS_FROM", std::to_string(place + 1024)},
                                                    {"FAIL_READS_TO", std::to_string(place + 1536)}};
    words line = {"-image", "volume", "-src", "/long.bin", "-dst", "copy"};
    const program_result failed = exact(line, {.environment = bad});
    EXPECT_EQ(failed.status, 1);
    const std::string err = failed.err.substr(failed.err.find("err: "));
    EXPECT_TRUE(err.starts_with("err: record 25, $DATA \"\": VCN 0: ")) << err;
    EXPECT_NE(err.find(" bytes cannot be read: Input/output error, at stream byte 0x"), std::string::npos)
        << err;
    EXPECT_NE(err.find(" (source byte 0x"), std::string::npos) << err;
    EXPECT_TRUE(made().empty());
    line.emplace_back("-zero_unreadable");
    const program_result result = exact(line, {.environment = bad});
    EXPECT_EQ(result.status, 4);
    EXPECT_NE(result.err.find("512 bytes at 0x400 are zeros"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("doubt: /long.bin -> copy (300000 bytes)\n"), std::string::npos) << result.err;
    EXPECT_TRUE(text("copy") == long_content().replace(1024, 512, 512, '\0'));
}

TEST_F(exact_mode, a_sync_or_a_rename_that_fails_leaves_what_was_there) {
    QUARRY_NEEDS_PROGRAM("strace");
    const auto copy = [this](const std::string& injected, const words& more) {
        words line = {"strace",       "-o",     "/dev/null", "-e",     "inject=" + injected,
                      QUARRY_PROGRAM, "-exact", "-image",    "volume", "-src",
                      "/a.txt"};
        line.insert(line.end(), more.begin(), more.end());
        return run_program(line, {.directory = m_dir.path(), .leaks_allowed = true});
    };
    std::ofstream(m_dir / "copy") << "earlier";
    // The second sync is that of the directory.
    for (const std::string call :
         {"fsync:error=EIO:when=1", "fsync:error=EIO:when=2", "renameat2:error=EIO:when=1"}) {
        const program_result result = copy(call, {"-dst", "copy", "-overwrite"});
        EXPECT_EQ(result.status, 1) << call;
        EXPECT_NE(result.err.find("Input/output error\n"), std::string::npos) << result.err;
        EXPECT_EQ(text("copy"), "earlier") << call;
        EXPECT_EQ(made(), words{"copy"}) << call;
    }
    EXPECT_EQ(copy("fsync:error=EIO:when=2", {"-dst", "out/"}).status, 1);
    EXPECT_EQ(made(), words{"copy"});
    EXPECT_EQ(copy("fsync:error=EINVAL:when=2", {"-dst", "out/"}).status, 0);
    EXPECT_EQ(text("out/a.txt"), "hello\n");
}

TEST_F(exact_mode, an_old_kernel_that_cannot_bring_a_name_to_the_disk_says_that_the_copy_has_it) {
    QUARRY_NEEDS_PROGRAM("strace");
    const auto overwrite = [this](const words& injected) {
        words line = {"strace", "-o", "/dev/null", "-e", "inject=renameat2:error=EINVAL"};
        line.insert(line.end(), injected.begin(), injected.end());
        line.insert(line.end(), {QUARRY_PROGRAM, "-exact", "-image", "volume", "-src", "/a.txt", "-dst",
                                 "copy", "-overwrite"});
        return run_program(line, {.directory = m_dir.path(), .leaks_allowed = true});
    };
    std::ofstream(m_dir / "copy") << "earlier";
    EXPECT_EQ(overwrite({}).status, 0);
    EXPECT_EQ(text("copy"), "hello\n");
    const program_result result = overwrite({"-e", "inject=fsync:error=EIO:when=2"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("err: destination ./: Input/output error; the copy has its name, but that may "
                              "not be on the disk\n"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(made(), words{"copy"});
}

TEST_F(exact_mode, an_old_kernel_gives_the_name_by_a_link) {
    QUARRY_NEEDS_PROGRAM("strace");
    const auto copy = [this] {
        return run_program({"strace", "-o", "/dev/null", "-e", "inject=renameat2:error=ENOSYS",
                            QUARRY_PROGRAM, "-exact", "-image", "volume", "-src", "/a.txt", "-dst", "out/"},
                           {.directory = m_dir.path(), .leaks_allowed = true});
    };
    EXPECT_EQ(copy().status, 0);
    EXPECT_EQ(text("out/a.txt"), "hello\n");
    EXPECT_EQ(fs::hard_link_count(m_dir / "out/a.txt"), 1u);
    EXPECT_EQ(copy().status, 2);
    EXPECT_EQ(made(), words{"out/a.txt"});
}

TEST_F(exact_mode, a_signal_at_any_system_call_leaves_no_temporary_file) {
    QUARRY_NEEDS_PROGRAM("strace");
    // From the first write to a file on: the call that follows the creation of the temporary file.
    for (const std::string call : {"openat", "write", "fsync", "close", "renameat2", "lseek"}) {
        for (int time = 1; time <= 12; ++time) {
            fs::remove(m_dir / "copy");
            static_cast<void>(
                run_program({"strace", "-o", "/dev/null", "-e",
                             "inject=" + call + ":signal=SIGTERM:when=" + std::to_string(time),
                             QUARRY_PROGRAM, "-exact", "-image", "volume", "-src", "/a.txt", "-dst", "copy"},
                            {.directory = m_dir.path()}));
            words left = made();
            std::erase(left, "copy");
            EXPECT_TRUE(left.empty()) << call << time << left.front();
        }
    }
}

}  // namespace
}  // namespace quarry::test
