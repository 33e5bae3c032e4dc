// Walks of a directory of the host, and filters that look at the host's files.

#include "cli/command_line.h"

#include <algorithm>

namespace quarry::test {
namespace {

namespace fs = std::filesystem;

// A copy of the volume's tree on the host, at the paths that the volume has.
class walk : public command_line_test {
  protected:
    void SetUp() override {
        source("disk");
        fs::create_directories(m_dir / "out");
        fs::create_directories(m_dir / "Windows/deep");
        write_file(m_dir / "a.txt", to_bytes("MZ on the host\n"));
        write_file(m_dir / "none.txt", to_bytes("xx"));
        write_file(m_dir / "Windows/notepad.exe", to_bytes("x"));
        write_file(m_dir / "Windows/deep/b.txt", to_bytes("x"));
    }
    // Lines of standard error without the emptying of the status line, in order of their text.
    static std::vector<std::string> told(const program_result& result) {
        EXPECT_TRUE(result.err.ends_with(emptied_status_line)) << result.err;
        std::vector<std::string> lines;
        std::string rest = result.err.substr(0, result.err.size() - std::string(emptied_status_line).size());
        while (!rest.empty()) {
            lines.push_back(rest.substr(0, rest.find('\n')));
            rest.erase(0, lines.back().size() + 1);
        }
        std::sort(lines.begin(), lines.end());
        return lines;
    }
    [[nodiscard]] std::string host(const char* name) const { return (m_dir / name).string(); }
    using lines = std::vector<std::string>;
};

// The paths of the host do not exist on the volume, so each shows as a line that failed.
TEST_F(walk, gives_the_files_of_the_directory_and_of_as_many_levels_below_as_were_asked_for) {
    program_result result = run({"-enumdir", host("Windows"), "-image", "disk", "-dst", "out/"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(told(result), lines{"failed: " + host("Windows/notepad.exe")});
    result = run({"-enumdir", host("Windows"), "-num_subdirs", "1", "-image", "disk", "-dst", "out/"});
    EXPECT_EQ(told(result),
              (lines{"failed: " + host("Windows/deep/b.txt"), "failed: " + host("Windows/notepad.exe")}));
    result =
        run({"-enumdir", host("Windows/"), "-num_subdirs", "0xffffffff", "-image", "disk", "-dst", "out/"});
    EXPECT_EQ(told(result).size(), 2U);
}

TEST_F(walk, goes_no_level_below_for_a_number_that_cannot_be_read) {
    for (const char* bad : {"", "abc", "x", "0x", "o", "-", " 1"}) {
        const program_result result =
            run({"-enumdir", host("Windows"), "-num_subdirs", bad, "-image", "disk", "-dst", "out/"});
        EXPECT_EQ(result.status, 0) << bad;
        EXPECT_EQ(told(result), lines{"failed: " + host("Windows/notepad.exe")}) << bad;
    }
}

TEST_F(walk, passes_the_filter_twice) {
    const program_result result = run({"-enumdir", m_dir.path(), "-num_subdirs", "9", "-filter", "*.txt",
                                       "-image", "disk", "-dst", "out/"});
    EXPECT_EQ(told(result), (lines{"failed: " + host("Windows/deep/b.txt"), "failed: " + host("a.txt"),
                                   "failed: " + host("none.txt")}));
}

TEST_F(walk, of_relative_paths_copies_what_the_volume_has_at_them) {
    const program_result result =
        run({"-enumdir", "Windows", "-image", "disk", "-dst", "out/", "-num_subdirs", "1"});
    EXPECT_EQ(told(result), (lines{"failed: Windows/deep/b.txt", "success: Windows/notepad.exe"}));
    EXPECT_EQ(text("out/notepad.exe"), notepad_content());
    EXPECT_EQ(text("Windows/notepad.exe"), "x");
}

TEST_F(walk, of_an_empty_or_missing_directory_reports_nothing_and_exits_with_0) {
    for (const char* directory : {"", "missing", "out"}) {
        const program_result result = run({"-enumdir", directory, "-image", "disk", "-dst", "out/"});
        EXPECT_EQ(result.status, 0) << directory;
        EXPECT_EQ(told(result), lines{}) << directory;
    }
}

TEST_F(walk, without_a_destination_reports_so_for_each_file) {
    const program_result result = run({"-enumdir", "Windows", "-image", "disk"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(behind_header(result.out), "err: -dst <filename> was not specified\n");
    EXPECT_EQ(told(result), lines{"failed: Windows/notepad.exe"});
}

TEST_F(walk, gives_way_to_standard_input) {
    const program_result result = run({"-enumdir", "Windows", "-pipe", "-image", "disk", "-dst", "out/"},
                                      {.standard_input = "/a.txt\n"});
    EXPECT_EQ(told(result), lines{"success: /a.txt"});
}

class host_filter : public walk {
  protected:
    lines passed(const std::vector<std::string>& filter, const std::string& input) {
        std::vector<std::string> line = {"-pipe", "-image", "disk", "-dst", "out/"};
        line.insert(line.end(), filter.begin(), filter.end());
        return told(run(line, {.standard_input = input}));
    }
};

TEST_F(host_filter, compares_a_signature_with_the_hosts_file) {
    EXPECT_EQ(passed({"-filter_sig", "4D5A"}, "a.txt\nnone.txt\nmissing.txt\n"), lines{"success: a.txt"});
    EXPECT_EQ(passed({"-filter_sig", "5a|1"}, "a.txt\nnone.txt\n"), lines{"success: a.txt"});
    EXPECT_EQ(passed({"-filter_sig", "78,1", "-filter_sig", "4d5a,0x0"}, "a.txt\n"), lines{"success: a.txt"});
    EXPECT_EQ(passed({"-filter_sig", "4d5a|abc"}, "a.txt\n"), lines{"success: a.txt"});
    EXPECT_EQ(passed({"-filter_sig", "4d5a,"}, "a.txt\n"), lines{"success: a.txt"});
    for (const char* bad : {"4d5", "zz", "", "|", "4d5a|100"}) {
        EXPECT_EQ(passed({"-filter_sig", bad}, "a.txt\n"), lines{}) << bad;
    }
}

TEST_F(host_filter, compares_the_time_range_with_the_hosts_file) {
    EXPECT_EQ(passed({"-cmd_start_time", "2000/01/01"}, "a.txt\nmissing.txt\n"), lines{"success: a.txt"});
    EXPECT_EQ(passed({"-cmd_start_time", "2500-01-01"}, "a.txt\n"), lines{});
    EXPECT_EQ(passed({"-cmd_stop_time", "2000/01/01 12:00"}, "a.txt\n"), lines{});
    EXPECT_EQ(passed({"-cmd_start_time", "2000/01/01", "-cmd_stop_time", "2500/01/01"}, "a.txt\n"),
              lines{"success: a.txt"});
}

TEST_F(host_filter, a_range_that_is_ignored_passes_all) {
    EXPECT_EQ(passed({"-cmd_start_time", "2020/99/01"}, "/a.txt\n"),
              (lines{"invalid start time, ignoring", "success: /a.txt"}));
}

}  // namespace
}  // namespace quarry::test
