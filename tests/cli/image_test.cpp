// Where the volume is: images, offsets, tables of partitions and the words about them.

#include "cli/command_row.h"
#include "cli/scene.h"

namespace quarry::test {
namespace {

constexpr const char* success = "copy successful\n";

// What is typed on a source after its own words.
std::vector<std::string> copying(std::vector<std::string> words) {
    for (const char* word : {"-src", "/a.txt", "-dst", "@/out/o"}) {
        words.emplace_back(word);
    }
    return words;
}

row copies(const std::string& name, const std::vector<std::string>& words, const std::string& opened,
           who user = who::anyone) {
    return {.name = name,
            .words = copying(words),
            .user = user,
            .err = success,
            .log = {"dst: @/out/o", "partition letter ", "info: pNTFS " + opened, "info: find inode /a.txt",
                    "info: data size 0xc", "info: copy successful"},
            .files = {{"o", "hello world\n"}}};
}

row refused(const std::string& name, const std::vector<std::string>& words, const std::string& out,
            const std::string& err, who user = who::anyone) {
    return {.name = name,
            .words = copying(words),
            .user = user,
            .reached = stage::refused,
            .status = 255,
            .out = out,
            .err = err,
            .log = {"err: cmdline"}};
}

// A run that parses and then finds no volume.
row cannot_open(const std::string& name, const std::vector<std::string>& words, const std::string& opened,
                who user = who::anyone) {
    return {.name = name,
            .words = copying(words),
            .user = user,
            .status = 255,
            .log = {"dst: @/out/o", "partition letter ", "info: pNTFS " + opened, "err: pNTFS",
                    "err: copy failed"}};
}

const std::string mbr_table =
    "\n"
    "volume offset [ 0x100000 ] : ntfs or exfat\n"
    "\n"
    "use option [-offset 0x100000]\n";

const std::string two_table =
    "\n"
    "volume offset [ 0x7e00 ] : fat32\n"
    "volume offset [ 0x100000 ] : ntfs or exfat\n"
    "volume offset [ 0x200000 ] : ntfs or exfat\n"
    "\n";

const std::vector<row> good_rows = {
    copies("a bare volume needs no offset", {"-image", "@/disk"}, "img:@/disk:0x0"),
    copies("an offset of 0 counts as none", {"-image", "@/disk", "-offset", "0"}, "img:@/disk:0x0"),
    copies("a bare volume that is cut short is taken without a word", {"-image", "@/disk_cut"},
           "img:@/disk_cut:0x0"),
    copies("a bare volume that is cut short is taken with an offset of 0 too",
           {"-image", "@/disk_cut", "-offset", "0"}, "img:@/disk_cut:0x0"),
    copies("an offset that is a volume is taken", {"-image", "@/mbr", "-offset", "0x100000"},
           "img:@/mbr:0x100000"),
    copies("an offset may be decimal", {"-image", "@/mbr", "-offset", "1048576"}, "img:@/mbr:0x100000"),
    copies("an offset may be octal", {"-image", "@/mbr", "-offset", "o4000000"}, "img:@/mbr:0x100000"),
    copies("an offset may begin with an x and be of any case", {"-image", "@/mbr", "-offset", " X100000 "},
           "img:@/mbr:0x100000"),
    copies("an offset keeps its low 32 bits", {"-image", "@/mbr", "-offset", "0x100100000"},
           "img:@/mbr:0x100000"),
    copies("an offset goes before its image", {"-OFFSET", "0x100000", "-Image", "@/mbr"},
           "img:@/mbr:0x100000"),
    copies("the second volume of a disk is taken by its offset", {"-image", "@/two", "-offset", "0x200000"},
           "img:@/two:0x200000"),
    copies("a volume that its image cuts short is taken when its size is ignored",
           {"-image", "@/mbr_cut", "-offset", "0x100000", "-ignore_image_size"}, "img:@/mbr_cut:0x100000"),
    copies("a GPT disk gives its volume at an offset", {"-image", "@/gpt", "-offset", "0x100000"},
           "img:@/gpt:0x100000"),
    copies("a volume in a chain of tables that links to itself is taken by its offset",
           {"-image", "@/loop", "-offset", "0x100000"}, "img:@/loop:0x100000"),
    copies("the first volume of a disk is found", {"-image", "@/mbr", "-first_ntfsvol"}, "img:@/mbr:0x100000",
           who::root),
    copies("the first NTFS volume after a FAT volume is found", {"-image", "@/two", "-first_ntfsvol"},
           "img:@/two:0x100000", who::root),
    copies("the first volume of a GPT disk is found", {"-image", "@/gpt", "-first_ntfsvol"},
           "img:@/gpt:0x100000", who::root),
    copies("a given offset goes before the first volume",
           {"-image", "@/two", "-first_ntfsvol", "-offset", "0x200000"}, "img:@/two:0x200000", who::root),
    {.name = "a relative image is made absolute",
     .words = copying({"-image", "disk"}),
     .err = success,
     .log = {"dst: @/out/o", "partition letter ", "info: pNTFS img:@/disk:0x0", "info: find inode /a.txt",
             "info: data size 0xc", "info: copy successful"},
     .files = {{"o", "hello world\n"}},
     .with_sources = {"disk"}},
    copies("an image goes before a drive which is not looked at", {"-drivenum", "-1", "-image", "@/disk"},
           "img:@/disk:0x0"),
    copies("an image in quotes is found", {"-image", "\"@/disk\""}, "img:@/disk:0x0"),
    copies("the second place of an option is ignored", {"-image", "@/disk", "-image", "@/zeros"},
           "img:@/disk:0x0"),
};

const std::vector<row> refused_rows = {
    refused("a disk with a volume is answered with its table", {"-image", "@/mbr"}, "", mbr_table + "\n"),
    refused("the last volume of several is suggested", {"-image", "@/two"}, "",
            two_table + "use option [-offset 0x200000]\n\n"),
    refused("a GPT disk is answered with its table", {"-image", "@/gpt"}, "", mbr_table + "\n"),
    refused("an offset inside of a volume is answered on standard output",
            {"-image", "@/mbr", "-offset", "0x100200"}, mbr_table, ""),
    refused("an offset of a FAT volume is reported before the table and nothing after it is suggested",
            {"-image", "@/two", "-offset", "0x7e00"},
            "volume offset selected 0x7e00 is not a NTFS partition, but [fat32]\n" + two_table +
                "prob detecting ntfs partition\n",
            ""),
    refused("a disk without a volume says so", {"-image", "@/fat"}, "",
            "\nvolume offset [ 0x7e00 ] : fat32\n\nprob detecting ntfs partition\n\n"),
    refused("an offset larger than the image is out of bounds", {"-image", "@/disk", "-offset", "0x7fffffff"},
            "volume offset 0x7fffffff is not within image bounds\n", ""),
    refused("a negative offset is out of bounds", {"-image", "@/disk", "-offset", "-1"},
            "volume offset 0xffffffffffffffff is not within image bounds\n", ""),
    refused("an offset of 2 GiB turns negative", {"-image", "@/disk", "-offset", "0x80000000"},
            "volume offset 0xffffffff80000000 is not within image bounds\n", ""),
    refused(
        "a volume that its image cuts short is reported", {"-image", "@/mbr_cut", "-offset", "0x100000"},
        "volume offset 0x100000 is a NTFS partition, however image size does not encapsulate entire volume\n",
        ""),
    refused("a volume outside of the image is reported before the table", {"-image", "@/mbr_outside"}, "",
            "volume offset 0x20000000 is not within image bounds\n"
            "\n"
            "volume offset [ 0x20000000 ] : ntfs or exfat\n"
            "volume offset [ 0x100000 ] : ntfs or exfat\n"
            "\n"
            "use option [-offset 0x100000]\n\n"),
    refused("a table that only a search finds is shown", {"-image", "@/damaged"}, "",
            "disk is corrupted, partition info questionable\n" + mbr_table + "\n"),
    refused("a chain of tables that links to itself is listed once", {"-image", "@/loop"}, "",
            "\nvolume offset [ 0x7e00 ] : exten\n"
            "volume offset [ 0x100000 ] : ntfs or exfat\n"
            "volume offset [ 0x7e00 ] : exten\n"
            "\n"
            "use option [-offset 0x100000]\n\n"),
    refused("a GPT header that says it lies elsewhere is none", {"-image", "@/gpt_elsewhere"}, "",
            "couldn't find any partitions on disk\n\n"),
    refused("a GPT whose entries have no size holds none", {"-image", "@/gpt_without_entry_size"}, "",
            "couldn't find any partitions on disk\n\n"),
    refused("a GPT whose entries lie beyond the image holds none", {"-image", "@/gpt_beyond"}, "",
            "couldn't find any partitions on disk\n\n"),
    refused("a GPT whose entries lie beyond the image has no offset either",
            {"-image", "@/gpt_beyond", "-offset", "0x100000"}, "couldn't find any partitions on disk\n", ""),
    refused("a table without partitions holds none", {"-image", "@/no_table"}, "",
            "couldn't find any partitions on disk\n\n"),
    refused("an image of zeros holds none", {"-image", "@/zeros"}, "",
            "couldn't find any partitions on disk\n\n"),
    refused("an image of zeros holds none at an offset", {"-image", "@/zeros", "-offset", "0x100000"},
            "couldn't find any partitions on disk\n", ""),
    refused("a missing image holds none", {"-image", "@/missing"}, "",
            "couldn't find any partitions on disk\n\n"),
    refused("a missing image has no offset", {"-image", "@/missing", "-offset", "512"},
            "volume offset 0x200 is not within image bounds\n", ""),
    refused("a directory as image holds none", {"-image", "@/out"}, "",
            "couldn't find any partitions on disk\n\n"),
    refused("an empty image holds none", {"-image", "@/empty"}, "",
            "couldn't find any partitions on disk\n\n"),
    refused("an image of one byte holds none", {"-image", "@/one_byte"}, "",
            "couldn't find any partitions on disk\n\n"),
    refused("an image of blanks is not understood and the message ends in a comma after its line end",
            {"-image", " "}, "", "prob understanding image [ ] aborting\n,"),
    refused("an image of quotes is not understood", {"-image", "\"\""}, "",
            "prob understanding image [\"\"] aborting\n,"),
    refused("an empty image name is not understood", {"-image", ""}, "",
            "prob understanding image [] aborting\n,"),
    refused("an image name that is no UTF-8 is not understood", {"-image", "@/disk\xFF"}, "",
            "prob understanding image [@/disk\xFF] aborting\n,"),
    refused("31 digits are drive minus one", {"-drivenum", std::string(31, '1')}, "",
            "problems accessing physical disk #-1, aborting \n", who::root),
    refused("quiet does not silence the message about a drive", {"-quiet", "-drivenum", "-1"}, "",
            "problems accessing physical disk #-1, aborting \n", who::root),
    refused("a drive that is not there is reported", {"-drivenum", "20"}, "",
            "problems accessing physical disk #20, aborting \n", who::root),
    refused("a drive number is signed", {"-drivenum", "-1"}, "",
            "problems accessing physical disk #-1, aborting \n", who::root),
    refused("a drive number keeps its low 32 bits", {"-drivenum", "0x100000014"}, "",
            "problems accessing physical disk #20, aborting \n", who::root),
};

const std::vector<row> unopened_rows = {
    cannot_open("the first volume of a disk without one stays at 0", {"-image", "@/fat", "-first_ntfsvol"},
                "img:@/fat:0x0", who::root),
    cannot_open("the first volume of a missing image stays at 0", {"-image", "@/missing", "-first_ntfsvol"},
                "img:@/missing:0x0", who::root),
    // Its place is its sector times its sector size, so it counts as a bare volume at the start.
    cannot_open("a volume whose sectors have no size is looked for at the start",
                {"-image", "@/without_sector_size"}, "img:@/without_sector_size:0x0"),
    cannot_open("511 bytes of a volume hold none", {"-image", "@/511_bytes"}, "img:@/511_bytes:0x0"),
    cannot_open("513 bytes of a volume hold no file table", {"-image", "@/513_bytes"}, "img:@/513_bytes:0x0"),
};

const std::vector<row> partition_rows = {
    {.name = "a partition by path starts at its volume",
     .words = copying({"-partition", "@/disk"}),
     .user = who::root,
     .err = success,
     .log = {"dst: @/out/o", "partition letter @/disk", "info: pNTFS part:@/disk, type:33",
             "info: find inode /a.txt", "info: data size 0xc", "info: copy successful"},
     .files = {{"o", "hello world\n"}}},
    {.name = "a partition goes before an image which is not looked at",
     .words = copying({"-image", "@/missing", "-partition", "@/disk"}),
     .user = who::root,
     .err = success,
     .log = {"dst: @/out/o", "partition letter @/disk", "info: pNTFS part:@/disk, type:33",
             "info: find inode /a.txt", "info: data size 0xc", "info: copy successful"},
     .files = {{"o", "hello world\n"}}},
    {.name = "a partition of one letter gets a colon",
     .words = copying({"-partition", "e"}),
     .user = who::root,
     .status = 255,
     .log = {"dst: @/out/o", "partition letter e:", "info: pNTFS part:e:, type:32", "err: pNTFS",
             "err: copy failed"}},
    {.name = "a relative source on a partition is appended to the current directory",
     .words = {"-partition", "@/disk", "-src", "a.txt", "-dst", "@/out/o"},
     .user = who::root,
     .status = 255,
     .log = {"dst: @/out/o", "partition letter @/disk", "info: pNTFS part:@/disk, type:33",
             "info: find inode @/a.txt", "err: find inode", "err: copy failed"}},
    {.name = "a missing partition cannot be opened",
     .words = copying({"-partition", "@/missing"}),
     .user = who::root,
     .status = 255,
     .log = {"dst: @/out/o", "partition letter @/missing", "info: pNTFS part:@/missing, type:33",
             "err: pNTFS", "err: copy failed"}},
    {.name = "a partition that is no UTF-8 is no partition",
     .words = copying({"-partition", "@/disk\xFF"}),
     .user = who::root,
     .status = 255,
     .log = {"dst: @/out/o", "partition letter ", "info: pNTFS part:, type:33", "err: pNTFS",
             "err: copy failed"}},
    {.name = "an empty partition is no partition",
     .words = {"-partition", "", "-src", "/a.txt", "-dst", "@/out/o"},
     .user = who::root,
     .status = 255,
     .log = {"dst: @/out/o", "partition letter ", "info: pNTFS part:, type:33", "err: pNTFS",
             "err: copy failed"}},
};

QUARRY_COMMAND_TABLE(source_that_is_found, good_rows);
QUARRY_COMMAND_TABLE(source_that_is_refused, refused_rows);
QUARRY_COMMAND_TABLE(source_that_is_no_volume, unopened_rows);
QUARRY_COMMAND_TABLE(source_that_is_a_partition, partition_rows);

}  // namespace
}  // namespace quarry::test
