// The listings of the exact mode from outside: what standard output has, what standard error says, and with
// which status a run ends.
#include "cli/command_line.h"
#include "support/requirements.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace quarry::test {
namespace {

using words = std::vector<std::string>;

const std::string at = "\t2020-01-02T03:04:05.0000000Z\t";

class exact_listing : public command_line_test {
  protected:
    // "volume":
    //
    //     entry 24  /docs       entry 25  /docs/a.txt, with a stream "Note"       entry 26  /docs/sub
    //     entry 27  /docs/sub/b.txt       entry 28  /docs/old.txt, deleted
    void SetUp() override {
        volume_builder volume({.system_files = true});
        build(volume);
        volume.write_to(m_dir / "volume");
    }
    static void build(volume_builder& volume) {
        const std::uint64_t docs = volume.add_directory("docs").entry();
        volume.add_file("a.txt", docs).data("hello\n").stream("Note", "note\n").short_name("A~1.TXT");
        const std::uint64_t sub = volume.add_directory("sub", docs).entry();
        volume.add_file("b.txt", sub).data("b\n");
        volume.add_file("old.txt", docs).data("gone").deleted();
    }
    [[nodiscard]] program_result list(words line, program_options options = {}) const {
        line.insert(line.begin(), {"-exact", "-image", "volume"});
        return run(std::move(line), std::move(options));
    }
    void expect_refused(const words& line, const std::string& message) const {
        const program_result result = list(line);
        EXPECT_EQ(result.status, 2) << message;
        EXPECT_EQ(result.err, "err: " + message + "\n");
        EXPECT_EQ(result.out, "") << message;
    }
};

TEST_F(exact_listing, is_all_that_standard_output_has) {
    const std::string in_docs = "25-1\tf\t6" + at + "/docs/a.txt\n25-1\ts\t5" + at + "/docs/a.txt:Note\n" +
                                "26-1\td\t0" + at + "/docs/sub\n";
    const program_result of_directory = list({"-list", "/docs"});
    EXPECT_EQ(of_directory.status, 0);
    EXPECT_EQ(of_directory.out, in_docs);
    EXPECT_EQ(of_directory.err.find("err:"), std::string::npos) << of_directory.err;
    const program_result of_tree = list({"-list", "C:\\docs", "-recurse"});
    EXPECT_EQ(of_tree.status, 0);
    EXPECT_EQ(of_tree.out, in_docs + "27-1\tf\t2" + at + "/docs/sub/b.txt\n");
    EXPECT_EQ(list({"-list", "/docs/sub/B.TXT"}).out, "27-1\tf\t2" + at + "/docs/sub/b.txt\n");
    const program_result of_deleted = list({"-list", "/", "-deleted"});
    EXPECT_EQ(of_deleted.status, 0);
    EXPECT_EQ(of_deleted.out, "28-1\tF\t4" + at + "/docs/old.txt\n");
    EXPECT_EQ(files(), words{"volume"});
}

TEST_F(exact_listing, of_the_root_has_the_files_of_the_volume_and_not_itself) {
    const program_result result = list({"-quiet", "-list", "\\"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out.substr(0, 3), "4-4");
    EXPECT_NE(result.out.find("\t/$MFT\n"), std::string::npos);
    EXPECT_NE(result.out.find("24-1\td\t0" + at + "/docs\n"), std::string::npos);
    EXPECT_EQ(result.out.find("\t/.\n"), std::string::npos);
}

TEST_F(exact_listing, gives_the_header_to_the_log) {
    const program_result result = list({"-list", "/docs", "-diags", "log"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out.find("command"), std::string::npos);
    const std::string log = text("log");
    EXPECT_NE(log.find("run time: "), std::string::npos);
    EXPECT_NE(log.find("->info: path /docs\n"), std::string::npos);
    EXPECT_NE(log.find("->info: listed 3 lines, 0 damaged places\n->exit: 0\n"), std::string::npos) << log;
}

TEST_F(exact_listing, of_a_damaged_volume_prints_the_rest_and_ends_with_status_3) {
    volume_builder volume({.system_files = true});
    build(volume);
    bytes image = volume.image();
    image[static_cast<std::size_t>(volume.record_position(25)) + 510] ^= 1;
    write_file(m_dir / "volume", image);
    const program_result result = list({"-list", "/docs", "-recurse", "-quiet"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "26-1\td\t0" + at + "/docs/sub\n27-1\tf\t2" + at + "/docs/sub/b.txt\n");
    EXPECT_EQ(result.err.rfind("err: path \"/docs/a.txt\": record 25: torn: ", 0), 0u) << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
}

TEST_F(exact_listing, of_what_is_not_there_fails) {
    program_result result = list({"-list", "/none"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("err: path \"/none\": no such name\n"), std::string::npos) << result.err;
    write_file(m_dir / "volume", bytes(8192));
    result = list({"-list", "/"});
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.out, "");
}

TEST_F(exact_listing, says_so_if_standard_output_does_not_take_its_lines) {
    for (const output_end end : {output_end::closed, output_end::broken}) {
        const program_result result = list({"-list", "/docs"}, {.standard_output = end});
        EXPECT_TRUE(result.exited);
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.err.find("err: standard output: cannot be written: "), std::string::npos)
            << result.err;
    }
    ASSERT_TRUE(std::filesystem::is_character_file("/dev/full"));
    const program_result full =
        run_program({"/bin/sh", "-c", "'" QUARRY_PROGRAM "' -exact -image volume -list /docs >/dev/full"},
                    {.directory = m_dir.path()});
    EXPECT_EQ(full.status, 1);
    EXPECT_NE(full.err.find("err: standard output: cannot be written: No space left on device\n"),
              std::string::npos)
        << full.err;
}

TEST_F(exact_listing, takes_a_separator_at_the_end_of_a_path) {
    const program_result plain = list({"-list", "/docs"});
    EXPECT_EQ(plain.status, 0);
    EXPECT_NE(plain.out, "");
    for (const std::string path : {"/docs/", "\\docs\\", "C:\\docs\\"}) {
        const program_result result = list({"-list", path});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, plain.out) << path;
    }
}

TEST_F(exact_listing, refuses_what_makes_copies_and_what_it_cannot_list) {
    for (const words& copying : {words{"-dst", "out"},
                                 {"-raw"},
                                 {"-sparse"},
                                 {"-overwrite"},
                                 {"-keep_times"},
                                 {"-md5"},
                                 {"-zero_unreadable"}}) {
        words line{"-list", "/"};
        line.insert(line.end(), copying.begin(), copying.end());
        expect_refused(line, "-list and " + copying.front() + " exclude each other");
    }
    expect_refused({"-list", "/", "-src", "/docs"}, "-list and -src exclude each other");
    expect_refused({"-mft", "25", "-list", "/"}, "-mft and -list exclude each other");
    expect_refused({"-list", "/", "-volumes"}, "-volumes and -list exclude each other");
    expect_refused({"-list", "/", "-recurse", "-deleted"}, "-recurse and -deleted exclude each other");
    expect_refused({"-list", "/docs", "-deleted"},
                   "path \"/docs\": -deleted lists the whole volume; say -list /");
    expect_refused({"-list", "/docs/a.txt:Note"},
                   "path \"/docs/a.txt:Note\": is a stream; a listing is of a directory or a file");
    expect_refused({"-list", "/docs//a"}, "path \"/docs//a\": has an empty name");
    expect_refused({"-list", "/docs", "-lsit"}, "\"-lsit\" is no option; did you mean -list?");
    EXPECT_EQ(list({"-recurse", "-src", "/docs/a.txt", "-dst", "out"}).err, "err: -recurse needs -list\n");
    EXPECT_EQ(list({"-deleted", "-src", "/docs/a.txt", "-dst", "out"}).err, "err: -deleted needs -list\n");
    EXPECT_EQ(files(), words{"volume"});
}

TEST_F(exact_listing, gives_lines_whose_entries_and_paths_copy_the_file) {
    const std::string lines = list({"-list", "/docs", "-recurse"}).out;
    std::size_t copies = 0;
    std::string rest = lines;
    while (!rest.empty()) {
        const std::string line = rest.substr(0, rest.find('\n'));
        rest.erase(0, line.size() + 1);
        const std::string path = line.substr(line.rfind('\t') + 1);
        if (line.find("\td\t") != std::string::npos) {
            continue;
        }
        const std::string by_path = "p" + std::to_string(copies);
        EXPECT_EQ(list({"-src", path, "-dst", by_path}).status, 0) << path;
        const std::string size = line.substr(line.find('\t') + 3);
        EXPECT_EQ(std::to_string(text(by_path).size()), size.substr(0, size.find('\t'))) << line;
        EXPECT_EQ(
            list({"-mft", line.substr(0, line.find('\t')), "-dst", "e" + std::to_string(copies)}).status, 0)
            << line;
        ++copies;
    }
    EXPECT_EQ(copies, 3u);
}

}  // namespace
}  // namespace quarry::test
