// Options: the gate of the administrator, patterns and what must be given together.

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
    gated("the first gate that is met is reported once", copying({"-raw", "-mft", "24", "-first_ntfsvol"})),
    gated("the gate is met before the source is looked at", {"-raw", "-image", "@/missing"}),
    gated("quiet does not silence the gate", copying({"-QUIET", "-raw"})),
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
    goes_on("a time format that is none is reported", {"-timeformat", "hhmmssxxxxxx"},
            "invalid hhmmssxxxxxx, using default format\n"),
    goes_on("a time format is checked and has no effect", {"-timeformat", "hh:mm:ss"}),
    goes_on("a time format of nothing is reported", {"-timeformat", ""}, "invalid , using default format\n"),
    goes_on("a date format that is none is reported", {"-dateformat", "ddmm"},
            "invalid ddmm, using default format\n"),
    goes_on("a date format of nothing is reported", {"-dateformat", ""}, "invalid , using default format\n"),
    goes_on("a date format of 9 characters is reported", {"-DateFormat", "mm/yyyy/x"},
            "invalid mm/yyyy/x, using default format\n"),
    goes_on("a start time that is none is reported", {"-cmd_start_time", "2020/13/02"},
            "invalid start time, ignoring\n"),
    goes_on("a stop time before the start is reported",
            {"-cmd_start_time", "2020/01/02", "-cmd_stop_time", "2020-01-01"},
            "invalid stop time, ignoring\n"),
    ends_parsing("a start time without a date ends parsing without a word", {"-cmd_start_time", "20200102"},
                 ""),
    ends_parsing("a stop time without a date ends parsing without a word", {"-cmd_stop_time", "noon"}, ""),
    goes_on("verbose and its short form change nothing", {"-verbose", "-v"}),
    goes_on("number bases change nothing", {"-base16", "-base10"}),
    goes_on("log levels change nothing", {"-l2"}),
    goes_on("a signal text changes nothing", {"-signal", "done"}),
    goes_on("a start time of nothing but a separator is reported", {"-cmd_start_time", "/"},
            "invalid start time, ignoring\n"),
    goes_on("a stop time that is none is reported", {"-cmd_stop_time", "2020/01/02 noon"},
            "invalid stop time, ignoring\n"),
    ends_parsing("a start time of nothing ends parsing without a word", {"-cmd_start_time", ""}, ""),
    ends_parsing("an out file without a name ends parsing", {"-out", ""},
                 "prob opening file  for output, aborting\n"),
    ends_parsing("an out file that is a directory ends parsing", {"-out", "@/out"},
                 "prob opening file @/out for output, aborting\n"),
    goes_on("a filter is only for lists", {"-filter", "*.doc", "-filter_skip", "*.txt", "-filter_sig", "zz"}),
    goes_on("an option without its value is ignored", {"-unknown", "-filter"}),
};

// An option that takes a value and comes last is absent, without a message.
std::vector<row> last_word_rows() {
    std::vector<row> rows;
    for (const char* option :
         {"-diags",       "-out",        "-outfile",    "-enumdir",        "-num_subdirs",
          "-filter_skip", "-filter",     "-filter_sig", "-cmd_start_time", "-cmd_stop_time",
          "-dateformat",  "-timeformat", "-signal",     "-csv_separator",  "-alias",
          "-aliaspath",   "-threads",    "-hostname",   "-username",       "-outdir",
          "-partition",   "-drivenum",   "-offset",     "-image",          "-mft",
          "-src",         "-dst"}) {
        // Of two words that are left none is a path, since there are -src and -dst.
        rows.push_back(goes_on(std::string(option) + " as the last word", {"-unknown", option}));
    }
    return rows;
}

// With -pipe or -enumdir a run exits with 0, also when its options cannot be parsed.
const std::vector<row> pipe_refusals = {
    {.name = "a pipe run without a destination is reported and exits with 0",
     .words = {"-image", "@/disk", "-pipe"},
     .reached = stage::refused,
     .err = "option [-dst <destination file>] needed for this option\n",
     .log = {"err: cmdline"},
     .input = "/a.txt\n"},
    {.name = "a pipe run with nothing else is reported and exits with 0",
     .words = {"-pipe"},
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
QUARRY_COMMAND_TABLE(options_without_their_value, last_word_rows());
QUARRY_COMMAND_TABLE(generic_options, generic_rows);
QUARRY_COMMAND_TABLE(refused_pipe_runs, pipe_refusals);

}  // namespace
}  // namespace quarry::test
