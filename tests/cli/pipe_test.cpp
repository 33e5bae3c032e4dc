// Runs over a whole list: lines of standard input and walks of a directory.

#include "cli/command_line.h"
#include "cli/command_row.h"
#include "cli/scene.h"

#include <sys/stat.h>

namespace quarry::test {
namespace {

const std::string opened = "info: pNTFS img:@/disk:0x0";

row pipe(const std::string& name, const std::vector<std::string>& words, const std::string& input,
         const std::string& err, const std::vector<std::string>& log,
         const std::map<std::string, content>& files) {
    std::vector<std::string> all = {"-image", "@/disk", "-pipe", "-dst", "@/out/"};
    all.insert(all.end(), words.begin(), words.end());
    return {.name = name,
            .words = all,
            .err = err,
            .log = log,
            .files = files,
            .input = input,
            .environment = {{"QUARRY_NAME", "a"}}};
}

// The log of the first copy of a run, which opens the volume.
std::vector<std::string> first_copy(const std::string& dst, const std::string& path, const std::string& size,
                                    const std::string& line) {
    return {"dst: @/out/" + dst,        "partition letter ",       opened,
            "info: find inode " + path, "info: data size " + size, "info: success: " + line};
}

std::vector<std::string> then(std::vector<std::string> log, const std::vector<std::string>& more) {
    log.insert(log.end(), more.begin(), more.end());
    return log;
}

const std::vector<std::string> both_logs =
    then(first_copy("/a.txt", "/a.txt", "0xc", "/a.txt"),
         {"dst: @/out/b.txt", "partition letter ", "info: find inode /many/b.txt", "info: data size 0x2",
          "info: success: /many/b.txt"});
constexpr const char* both_lines = "success: /a.txt\nsuccess: /many/b.txt\n";
const std::map<std::string, content> both_files = {{"a.txt", "hello world\n"}, {"b.txt", "b\n"}};
const std::map<std::string, content> a_file = {{"a.txt", "hello world\n"}};
const std::vector<std::string> a_log = first_copy("/a.txt", "/a.txt", "0xc", "/a.txt");
constexpr const char* a_line = "success: /a.txt\n";

const std::vector<row> rows = {
    pipe("each line is copied and the volume is opened once", {}, "/a.txt\n/many/b.txt\n", both_lines,
         both_logs, both_files),
    pipe("lines may end in carriage returns and the last without a line feed", {},
         "/a.txt\r\n\r\n/many/b.txt", both_lines, both_logs, both_files),
    pipe("blank lines are skipped", {}, "\n\n\r\n/a.txt\n\n/many/b.txt\n\r\n", both_lines, both_logs,
         both_files),
    pipe("a line ends at its first zero byte", {}, std::string("/a.txt\0.doc\n/many/b.txt\n", 24), both_lines,
         both_logs, both_files),
    pipe("no line at all prints nothing", {}, "", "", {}, {}),
    pipe("a line that fails is reported and does not stop the others", {}, "/nosuch\n/a.txt\n",
         "failed: /nosuch\nsuccess: /a.txt\n",
         {"dst: @/out//nosuch", "partition letter ", opened, "info: find inode /nosuch", "err: find inode",
          "err: failed: /nosuch", "dst: @/out//a.txt", "partition letter ", "info: find inode /a.txt",
          "info: data size 0xc", "info: success: /a.txt"},
         a_file),
    pipe("a line that acts on a terminal is shown with the numbers of its characters", {},
         "/nosuch\x1b[2J\xE2\x80\xAE\n", "failed: /nosuch\\u001B[2J\\u202E\n",
         {"dst: @/out//nosuch\\u001B[2J\\u202E", "partition letter ", opened,
          "info: find inode /nosuch\\u001B[2J\\u202E", "err: find inode",
          "err: failed: /nosuch\\u001B[2J\\u202E"},
         {}),
    pipe("a line that names a directory is skipped", {}, "/many/\nC:\\many\\\n/a.txt\n", a_line, a_log,
         a_file),
    pipe("a line that is no UTF-8 is skipped", {}, "/\xFF.txt\n/a.txt\n", a_line, a_log, a_file),
    pipe("references to the environment are replaced and the line is shown as it was read", {},
         "/%QUARRY_NAME%.txt\n", "success: /%QUARRY_NAME%.txt\n",
         first_copy("/a.txt", "/a.txt", "0xc", "/%QUARRY_NAME%.txt"), a_file),
    pipe("a stream is part of the name", {}, "/a.txt:Note\n", "success: /a.txt:Note\n",
         first_copy("/a.txt_Note", "/a.txt:Note", "0xd", "/a.txt:Note"), {{"a.txt_Note", "named stream\n"}}),
    pipe("a source is cleared and further words are ignored", {"-src", "/nosuch", "x", "y", "z"}, "/a.txt\n",
         a_line, a_log, a_file),
    pipe("a filter drops lines without a word", {"-filter", "*.TXT"},
         "/Windows/notepad.exe\nC:\\many\\b.txt\n", "success: C:\\many\\b.txt\n",
         first_copy("b.txt", "C:\\many\\b.txt", "0x2", "C:\\many\\b.txt"), {{"b.txt", "b\n"}}),
    pipe("a filter of a star passes all", {"-filter", "*"}, "/a.txt\n/many/b.txt\n", both_lines, both_logs,
         both_files),
    pipe("filters add up", {"-filter", "a.*", "-filter", "b.txt|c"}, "/a.txt\n/many/b.txt\n/nosuch\n",
         "success: /many/b.txt\n", first_copy("b.txt", "/many/b.txt", "0x2", "/many/b.txt"),
         {{"b.txt", "b\n"}}),
    pipe("a filter of a directory passes what lies below it", {"-filter", "/MANY"},
         "/a.txt\n/many/b.txt\n/manyold/c.txt\n", "success: /many/b.txt\n",
         first_copy("b.txt", "/many/b.txt", "0x2", "/many/b.txt"), {{"b.txt", "b\n"}}),
    pipe("a filter sees the line with its references replaced", {"-filter", "*a.txt"}, "/%QUARRY_NAME%.txt\n",
         "success: /%QUARRY_NAME%.txt\n", first_copy("/a.txt", "/a.txt", "0xc", "/%QUARRY_NAME%.txt"),
         a_file),
    pipe("skip filters are not looked at", {"-filter_skip", "*.txt"}, "/a.txt\n", a_line, a_log, a_file),
    pipe("a time range is about the file of that name on this host", {"-cmd_start_time", "1980-01-01"},
         "/a.txt\n", "", {}, {}),
    pipe("a signature is looked for in the file of that name on this host", {"-filter_sig", "68"}, "/a.txt\n",
         "", {}, {}),
    {.name = "without a directory each line writes over the one before",
     .words = {"-image", "@/disk", "-pipe", "-dst", "@/out/o"},
     .err = both_lines,
     .log = {"dst: @/out/o", "partition letter ", opened, "info: find inode /a.txt", "info: data size 0xc",
             "info: success: /a.txt", "dst: @/out/o", "partition letter ", "info: find inode /many/b.txt",
             "info: data size 0x2", "info: success: /many/b.txt"},
     .files = {{"o", "b\n"}},
     .input = "/a.txt\n/many/b.txt\n"},
    {.name = "a quiet run writes only to the log",
     .words = {"-image", "@/disk", "-pipe", "-dst", "@/out/", "-quiet"},
     .log = {"dst: @/out//nosuch", "partition letter ", opened, "info: find inode /nosuch", "err: find inode",
             "err: failed: /nosuch", "dst: @/out//a.txt", "partition letter ", "info: find inode /a.txt",
             "info: data size 0xc", "info: success: /a.txt"},
     .files = a_file,
     .input = "/nosuch\n/a.txt\n",
     .quiet = true},
    {.name = "a destination that cannot be made is tried until the first success",
     .words = {"-image", "@/disk", "-pipe", "-dst", "@/missing/"},
     .out = "err: can't create the file: @/missing//a.txt\nerr: can't create the file: @/missing/b.txt\n",
     .err = "failed: /a.txt\nfailed: /many/b.txt\n",
     .log = {"dst: @/missing//a.txt", "err: can't create the file: @/missing//a.txt", "err: failed: /a.txt",
             "dst: @/missing/b.txt", "err: can't create the file: @/missing/b.txt",
             "err: failed: /many/b.txt"},
     .input = "/a.txt\n/many/b.txt\n"},
    {.name = "a volume that cannot be opened is tried for each line",
     .words = {"-image", "@/513_bytes", "-pipe", "-dst", "@/out/"},
     .err = "failed: /a.txt\nfailed: /a.txt\n",
     .log = {"dst: @/out//a.txt", "partition letter ", "info: pNTFS img:@/513_bytes:0x0", "err: pNTFS",
             "err: failed: /a.txt", "dst: @/out//a.txt", "partition letter ",
             "info: pNTFS img:@/513_bytes:0x0", "err: pNTFS", "err: failed: /a.txt"},
     .input = "/a.txt\n/a.txt\n"},
    {.name = "an entry is copied for each line whatever the line says",
     .words = {"-image", "@/disk", "-pipe", "-mft", "24", "-dst", "@/out/"},
     .user = who::root,
     .err = "success: /x/one\nsuccess: /x/two:Note\n",
     .log = {"dst: @/out/one", "partition letter ", opened, "info: inode /x/one", "info: data size 0xc",
             "info: success: /x/one", "dst: @/out/two_Note", "partition letter ", "info: inode /x/two:Note",
             "info: data size 0xd", "info: success: /x/two:Note"},
     .files = {{"one", "hello world\n"}, {"two_Note", "named stream\n"}},
     .input = "/x/one\n/x/two:Note\n"},
    {.name = "a partition by path serves a list",
     .words = {"-partition", "@/disk", "-pipe", "-dst", "@/out/"},
     .user = who::root,
     .err = both_lines,
     .log = {"dst: @/out//a.txt", "partition letter @/disk", "info: pNTFS part:@/disk, type:33",
             "info: find inode /a.txt", "info: data size 0xc", "info: success: /a.txt", "dst: @/out/b.txt",
             "partition letter @/disk", "info: find inode /many/b.txt", "info: data size 0x2",
             "info: success: /many/b.txt"},
     .files = both_files,
     .input = "/a.txt\n/many/b.txt\n"},
    {.name = "the status log is no destination of a line",
     .words = {"-image", "@/disk", "-pipe", "-dst", "@/"},
     .out = "err: can't create the file: @/log\n",
     .err = "failed: x/log\n",
     .log = {"err: can't create the file: @/log", "err: failed: x/log"},
     .input = "x/log\n"},
    {.name = "the image is no destination of a line",
     .words = {"-image", "@/disk", "-pipe", "-dst", "@/"},
     .out = "err: source and destination are the same\n",
     .err = "failed: x/disk\n",
     .log = {"err: source and destination are the same", "err: failed: x/disk"},
     .input = "x/disk\n"},
    {.name = "a line cannot lead out of the destination",
     .words = {"-image", "@/disk", "-pipe", "-dst", "@/out/"},
     .out = "err: can't create the file: @/out/../../disk\n",
     .err = "failed: x\\../../disk\n",
     .log = {"err: can't create the file: @/out/../../disk", "err: failed: x\\../../disk"},
     .input = "x\\../../disk\n"},
};

// A line of 5,000 bytes arrives as one of 4,095 and one of the rest.
const std::string piece_1 = "/" + std::string(4094, 'x');
const std::string piece_2 = std::string(905, 'x');
const std::vector<row> long_rows = {
    {.name = "a line of 5000 bytes is two lines",
     .words = {"-image", "@/disk", "-pipe", "-dst", "@/out/o"},
     .err = "failed: " + piece_1 + "\nfailed: " + piece_2 + "\n",
     .log = {"dst: @/out/o", "partition letter ", opened,
             "info: find inode " + piece_1.substr(0, 254 - 16 + 18), "err: find inode",
             "err: failed: " + piece_1.substr(0, 254 - 13 + 7), "dst: @/out/o", "partition letter ",
             "info: find inode " + piece_2.substr(0, 254 - 16 + 18), "err: find inode",
             "err: failed: " + piece_2.substr(0, 254 - 13 + 7)},
     .input = piece_1 + piece_2 + "\n"},
};

QUARRY_COMMAND_TABLE(list_on_standard_input, rows);
QUARRY_COMMAND_TABLE(long_lines, long_rows);

class list_of_copies : public command_line_test {};

TEST_F(list_of_copies, tries_the_destination_out_only_until_its_first_success) {
    source("disk");
    std::filesystem::create_directories(m_dir / "out/b.txt");
    const program_result before =
        run({"-image", "disk", "-pipe", "-dst", "out/"}, {.standard_input = "/many/b.txt\n"});
    EXPECT_EQ(behind_header(before.out), "err: can't create the file: out/b.txt\n");
    const program_result after =
        run({"-image", "disk", "-pipe", "-dst", "out/"}, {.standard_input = "/a.txt\n/many/b.txt\n"});
    EXPECT_EQ(behind_header(after.out), "");
    EXPECT_EQ(after.err, std::string("success: /a.txt\nfailed: /many/b.txt\n") + emptied_status_line);
}

// A single copy is refused there too, with the words about a file that cannot be made.
TEST_F(list_of_copies, goes_on_after_a_destination_that_is_a_pipe) {
    source("disk");
    std::filesystem::create_directory(m_dir / "out");
    ASSERT_EQ(::mkfifo((m_dir / "out/b.txt").c_str(), 0600), 0);
    const program_result result =
        run({"-image", "disk", "-pipe", "-dst", "out/"},
            {.standard_input = "/a.txt\n/many/b.txt\n/a.txt\n", .time_limit = std::chrono::seconds(10)});
    EXPECT_FALSE(result.timed_out);
    EXPECT_EQ(result.err,
              std::string("success: /a.txt\nfailed: /many/b.txt\nsuccess: /a.txt\n") + emptied_status_line);
}

}  // namespace
}  // namespace quarry::test
