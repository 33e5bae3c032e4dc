// Options: the gate of the administrator, numbers, patterns and what must stand together.

#include "cli/command_row.h"
#include "cli/scene.h"

namespace quarry::test {
namespace {

constexpr const char* success = "copy successful\n";
const std::string opened = "info: pNTFS img:@/disk:0x0";

row gated(const std::string& name, const std::vector<std::string>& words) {
    return {.name = name,
            .words = words,
            .user = who::ordinary,
            .reached = stage::refused,
            .status = 255,
            .err = "Need Admin privs to use this option\n",
            .log = {"err: cmdline"}};
}

std::vector<std::string> copying(std::vector<std::string> words) {
    std::vector<std::string> all = {"-image", "@/disk", "-src", "/a.txt", "-dst", "@/out/o"};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

const std::vector<row> gate_rows = {
    gated("the first volume is for administrators", copying({"-first_ntfsvol"})),
    gated("leaving out sparse clusters is for administrators", copying({"-SKIP_sparse_clusters"})),
    gated("raw is for administrators", copying({"-raw"})),
    gated("a partition is for administrators", {"-partition", "@/disk", "-src", "/a.txt", "-dst", "@/out/o"}),
    gated("a drive is for administrators", {"-drivenum", "0", "-src", "/a.txt", "-dst", "@/out/o"}),
    gated("an entry is for administrators", copying({"-mft", "24"})),
    gated("clusters are for administrators", copying({"-cluster", "0", "1"})),
    gated("one cluster is for administrators", copying({"-cluster", "0"})),
    gated("the first gate that is met is told once", copying({"-raw", "-mft", "24", "-first_ntfsvol"})),
    gated("the gate is met before the source is looked at", {"-raw", "-image", "@/missing"}),
};

// An -mft value that means entry 24.
row means_24(const std::string& name, const std::string& value) {
    return {.name = name,
            .words = {"-image", "@/disk", "-mft", value, "-dst", "@/out/o"},
            .user = who::root,
            .err = success,
            .log = {"dst: @/out/o", "partition letter ", opened, "info: inode ", "info: data size 0xc",
                    "info: copy successful"},
            .files = {{"o", "hello world\n"}}};
}

// One that cannot be read and means entry 0, the file table itself.
row means_0(const std::string& name, const std::string& value) {
    return {.name = name,
            .words = {"-image", "@/disk", "-mft", value, "-dst", "@/out/o"},
            .user = who::root,
            .err = success,
            .log = {"dst: @/out/o", "partition letter ", opened, "info: inode ", "info: data size 0x10000",
                    "info: copy successful"},
            .files = {{"o", file_table()}}};
}

const std::vector<row> number_rows = {
    means_24("decimal", "24"),
    means_24("decimal with a sign", "+24"),
    means_24("hexadecimal", "0x18"),
    means_24("hexadecimal in upper case", "0X18"),
    means_24("hexadecimal with any first character", "9x18"),
    means_24("hexadecimal after an x", "x18"),
    means_24("octal", "o30"),
    means_24("octal in upper case", "O30"),
    means_24("with blanks in front", "  24"),
    means_24("with letters behind", "24abc"),
    means_0("letters", "abc"),
    means_0("nothing", ""),
    means_0("a blank", " "),
    means_0("a blank behind", "24 "),
    means_0("a blank inside", "2 4"),
    means_0("a prefix alone", "0x"),
    means_0("an x alone", "x"),
    means_0("an o alone", "o"),
    means_0("a minus alone", "-"),
    means_0("an x and one digit", "x5"),
    means_0("31 digits", std::string(31, '1')),
    means_0("21 decimal digits", std::string(19, '0') + "24"),
    means_0("17 hexadecimal digits", "0x" + std::string(15, '0') + "18"),
    {.name = "minus one is no entry at all",
     .words = {"-image", "@/disk", "-mft", "-1", "-dst", "@/out/o"},
     .user = who::root,
     .status = 255,
     .out = "err: copy failed:  -> @/out/o\n",
     .log = {"dst: @/out/o", "partition letter ", "err: copy failed:  -> @/out/o", "err: copy failed"}},
    {.name = "cluster numbers that cannot be read are 0",
     .words = {"-image", "@/disk", "-cluster", "abc", "xyz", "-dst", "@/out/"},
     .user = who::root,
     .err = success,
     .log = {"dst: @/out/abc", "partition letter ", "info: copy successful"},
     .files = {{"abc", ""}}},
    {.name = "a count below zero is as many clusters as there are",
     .words = {"-image", "@/disk", "-cluster", "0", "-1", "-dst", "@/out/o"},
     .user = who::root,
     .err = success,
     .log = {"dst: @/out/o", "partition letter ", "info: copy successful"},
     .files = {{"o", head_of_disk(std::string::npos)}}},
    {.name = "a range that wraps holds no cluster",
     .words = {"-image", "@/disk", "-cluster", "5", "-5", "-dst", "@/out/o"},
     .user = who::root,
     .err = success,
     .log = {"dst: @/out/o", "partition letter ", "info: copy successful"},
     .files = {{"o", ""}}},
    {.name = "an offset that cannot be read is none",
     .words = copying({"-offset", "abc"}),
     .err = success,
     .log = {"dst: @/out/o", "partition letter ", opened, "info: find inode /a.txt", "info: data size 0xc",
             "info: copy successful"},
     .files = {{"o", "hello world\n"}}},
};

row ends_parsing(const std::string& name, const std::vector<std::string>& words, const std::string& err) {
    return {.name = name,
            .words = copying(words),
            .reached = stage::refused,
            .status = 255,
            .err = err,
            .log = {"err: cmdline"}};
}

row goes_on(const std::string& name, const std::vector<std::string>& words, const std::string& err = "") {
    return {.name = name,
            .words = copying(words),
            .err = err + success,
            .log = {"dst: @/out/o", "partition letter ", opened, "info: find inode /a.txt",
                    "info: data size 0xc", "info: copy successful"},
            .files = {{"o", "hello world\n"}}};
}

const std::vector<row> generic_rows = {
    goes_on("an out file that can be written is gone again", {"-out", "@/out/probe"}),
    goes_on("an outfile is the same", {"-OutFile", "@/out/probe", "-append"}),
    ends_parsing("an out file in a missing directory ends parsing", {"-out", "@/missing/probe"},
                 "prob opening file @/missing/probe for output, aborting\n"),
    ends_parsing("an out file in a missing directory ends parsing with append too",
                 {"-append", "-out", "@/missing/probe"},
                 "prob opening file @/missing/probe for output, aborting\n"),
    ends_parsing("an out file that is the image ends parsing", {"-out", "@/disk"},
                 "prob opening file @/disk for output, aborting\n"),
    goes_on("a time format that is none is told", {"-timeformat", "hhmmssxxxxxx"},
            "invalid hhmmssxxxxxx, using default format\n"),
    goes_on("a time format is taken", {"-timeformat", "hh:mm:ss"}),
    goes_on("a start time that is none is told", {"-cmd_start_time", "2020/13/02"},
            "invalid start time, ignoring\n"),
    goes_on("a stop time before the start is told",
            {"-cmd_start_time", "2020/01/02", "-cmd_stop_time", "2020-01-01"},
            "invalid stop time, ignoring\n"),
    ends_parsing("a start time without a date ends parsing without a word", {"-cmd_start_time", "20200102"},
                 ""),
    ends_parsing("a stop time without a date ends parsing without a word", {"-cmd_stop_time", "noon"}, ""),
    goes_on("verbose and its short form change nothing", {"-verbose", "-v"}),
    goes_on("number bases change nothing", {"-base16", "-base10"}),
    goes_on("log levels change nothing", {"-l2"}),
    goes_on("a signal text changes nothing", {"-signal", "done"}),
    goes_on("a filter is only for lists", {"-filter", "*.doc", "-filter_skip", "*.txt", "-filter_sig", "zz"}),
    goes_on("an option without its value is ignored", {"-unknown", "-filter"}),
};

// With -pipe or -enumdir a run exits with 0, also when its options cannot be parsed.
const std::vector<row> pipe_refusals = {
    {.name = "a pipe run without a destination is told and exits with 0",
     .words = {"-image", "@/disk", "-pipe"},
     .reached = stage::refused,
     .err = "option [-dst <destination file>] needed for this option\n",
     .log = {"err: cmdline"},
     .input = "/a.txt\n"},
    {.name = "a pipe run on a missing image exits with 0",
     .words = {"-pipe", "-image", "@/missing", "-dst", "@/out/"},
     .reached = stage::refused,
     .err = "couldn't find any partitions on disk\n\n",
     .log = {"err: cmdline"},
     .input = "/a.txt\n"},
    {.name = "an enumeration on a missing image exits with 0",
     .words = {"-enumdir", "@/out", "-image", "@/missing", "-dst", "@/out/"},
     .reached = stage::refused,
     .err = "couldn't find any partitions on disk\n\n",
     .log = {"err: cmdline"}},
    {.name = "an out file is looked at before the pipe flag and its failure is one",
     .words = {"-pipe", "-out", "@/missing/x", "-image", "@/disk", "-dst", "@/out/"},
     .reached = stage::refused,
     .status = 255,
     .err = "prob opening file @/missing/x for output, aborting\n",
     .log = {"err: cmdline"}},
};

QUARRY_COMMAND_TABLE(administrator_gate, gate_rows);
QUARRY_COMMAND_TABLE(typed_numbers, number_rows);
QUARRY_COMMAND_TABLE(generic_options, generic_rows);
QUARRY_COMMAND_TABLE(refused_pipe_runs, pipe_refusals);

}  // namespace
}  // namespace quarry::test
