// Numbers as they are typed: entries, offsets and clusters in every form, and what counts as none.

#include "cli/command_row.h"
#include "cli/scene.h"

namespace quarry::test {
namespace {

constexpr const char* success = "copy successful\n";
const std::string opened = "info: pNTFS img:@/disk:0x0";
const std::string digits_31 = std::string(31, '1');

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

// One that cannot be read. Such an entry number is 0, so the file table itself is copied.
row means_0(const std::string& name, const std::string& value) {
    return {.name = name,
            .words = {"-image", "@/disk", "-mft", value, "-dst", "@/out/o"},
            .user = who::root,
            .err = success,
            .log = {"dst: @/out/o", "partition letter ", opened, "info: inode ", "info: data size 0x10000",
                    "info: copy successful"},
            .files = {{"o", file_table}}};
}

const std::vector<row> entry_rows = {
    means_24("decimal", "24"),
    means_24("decimal with a sign", "+24"),
    means_24("hexadecimal", "0x18"),
    means_24("hexadecimal in upper case", "0X18"),
    means_24("hexadecimal with any first character", "9x18"),
    means_24("hexadecimal after an x", "x18"),
    means_24("octal", "o30"),
    means_24("octal in upper case", "O30"),
    means_24("with blanks in front", "  24"),
    means_24("with letters after it", "24abc"),
    means_0("letters", "abc"),
    means_0("nothing", ""),
    means_0("a blank", " "),
    means_0("a blank after it", "24 "),
    means_0("a blank inside", "2 4"),
    means_0("a prefix alone", "0x"),
    means_0("an x alone", "x"),
    means_0("an o alone", "o"),
    means_0("a minus alone", "-"),
    means_0("an x and one digit", "x5"),
    means_0("31 digits", digits_31),
    means_0("21 decimal digits", std::string(19, '0') + "24"),
    means_0("17 hexadecimal digits", "0x" + std::string(15, '0') + "18"),
    {.name = "minus one is no entry at all",
     .words = {"-image", "@/disk", "-mft", "-1", "-dst", "@/out/o"},
     .user = who::root,
     .status = 255,
     .out = "err: copy failed:  -> @/out/o\n",
     .log = {"dst: @/out/o", "partition letter ", "err: copy failed:  -> @/out/o", "err: copy failed"}},
    {.name = "an entry number that cannot be read is 0 beside a path too",
     .words = {"-image", "@/disk", "-src", "/a.txt", "-mft", "abc", "-dst", "@/out/o"},
     .user = who::root,
     .err = success,
     .log = {"dst: @/out/o", "partition letter ", opened, "info: inode /a.txt", "info: data size 0x10000",
             "info: copy successful"},
     .files = {{"o", file_table}}},
};

// An -offset value on a bare volume that counts as no offset.
row means_no_offset(const std::string& name, const std::string& value) {
    return {.name = name,
            .words = {"-image", "@/disk", "-src", "/a.txt", "-dst", "@/out/o", "-offset", value},
            .err = success,
            .log = {"dst: @/out/o", "partition letter ", opened, "info: find inode /a.txt",
                    "info: data size 0xc", "info: copy successful"},
            .files = {{"o", "hello world\n"}}};
}

row means_offset_minus_1(const std::string& name, const std::string& value) {
    return {.name = name,
            .words = {"-image", "@/disk", "-src", "/a.txt", "-dst", "@/out/o", "-offset", value},
            .reached = stage::refused,
            .status = 255,
            .out = "volume offset 0xffffffffffffffff is not within image bounds\n",
            .log = {"err: cmdline"}};
}

row means_offset_of_a_mebibyte(const std::string& name, const std::string& value) {
    return {.name = name,
            .words = {"-image", "@/mbr", "-offset", value, "-src", "/a.txt", "-dst", "@/out/o"},
            .err = success,
            .log = {"dst: @/out/o", "partition letter ", "info: pNTFS img:@/mbr:0x100000",
                    "info: find inode /a.txt", "info: data size 0xc", "info: copy successful"},
            .files = {{"o", "hello world\n"}}};
}

const std::vector<row> offset_rows = {
    means_no_offset("letters are no offset", "abc"),
    means_no_offset("nothing is no offset", ""),
    means_no_offset("a blank is no offset", " "),
    means_no_offset("a prefix alone is no offset", "0x"),
    means_no_offset("an x alone is no offset", "x"),
    means_no_offset("an o alone is no offset", "o"),
    means_no_offset("a minus alone is no offset", "-"),
    means_no_offset("a plus alone is no offset", "+"),
    means_no_offset("a word with an o in it is no offset", "none"),
    means_no_offset("digits that are not octal are no offset", "o9"),
    means_no_offset("a dot in front is no offset", ".5"),
    means_no_offset("31 digits below zero are the lowest number and that is no offset", "-" + digits_31),
    means_offset_minus_1("31 digits are the highest number and that is an offset of minus one", digits_31),
    means_offset_minus_1("31 hexadecimal digits are the highest number too", "0x" + digits_31),
    means_offset_minus_1("31 octal digits are the highest number too", "o" + digits_31),
    means_offset_of_a_mebibyte("an offset ends at its first letter", "1048576abc"),
    means_offset_of_a_mebibyte("an offset may have a plus", "+1048576"),
    means_offset_of_a_mebibyte("what comes before an x is not looked at", "-0x100000"),
    means_offset_of_a_mebibyte("what comes before an o is not looked at", "8o4000000"),
};

row cluster_copy(const std::string& name, const std::string& start, const std::string& count,
                 const content& copied) {
    return {.name = name,
            .words = {"-image", "@/disk", "-cluster", start, count, "-dst", "@/out/o"},
            .user = who::root,
            .err = success,
            .log = {"dst: @/out/o", "partition letter ", "info: copy successful"},
            .files = {{"o", copied}}};
}

row starts_at_0(const std::string& name, const std::string& start) {
    return cluster_copy("a start of " + name + " is 0", start, "1", [] { return head_of_disk(4096); });
}

row counts_none(const std::string& name, const std::string& count) {
    return cluster_copy("a count of " + name + " is 0", "200", count, "");
}

const std::vector<row> cluster_number_rows = {
    starts_at_0("letters", "abc"),
    starts_at_0("a prefix alone", "0x"),
    starts_at_0("an x alone", "x"),
    starts_at_0("an o alone", "o"),
    starts_at_0("a minus", "-"),
    starts_at_0("a blank", " "),
    starts_at_0("two numbers", "1 2"),
    starts_at_0("31 digits", digits_31),
    counts_none("letters", "abc"),
    counts_none("nothing", ""),
    counts_none("a prefix alone", "0x"),
    counts_none("an x alone", "x"),
    counts_none("an o alone", "o"),
    counts_none("a minus", "-"),
    counts_none("31 digits", digits_31),
    cluster_copy("a start that cannot be read comes from the start all the same", "abc", "0x2",
                 [] { return head_of_disk(8192); }),
    {.name = "a start of nothing asks for no clusters",
     .words = {"-image", "@/disk", "-cluster", "", "1", "-dst", "@/out/o"},
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
     .files = {{"o", [] { return head_of_disk(std::string::npos); }}}},
    {.name = "a range that wraps holds no cluster",
     .words = {"-image", "@/disk", "-cluster", "5", "-5", "-dst", "@/out/o"},
     .user = who::root,
     .err = success,
     .log = {"dst: @/out/o", "partition letter ", "info: copy successful"},
     .files = {{"o", ""}}},
};

QUARRY_COMMAND_TABLE(typed_entries, entry_rows);
QUARRY_COMMAND_TABLE(typed_offsets, offset_rows);
QUARRY_COMMAND_TABLE(typed_clusters, cluster_number_rows);

}  // namespace
}  // namespace quarry::test
