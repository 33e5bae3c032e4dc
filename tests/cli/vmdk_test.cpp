// Virtual disks: how their files are named, and the words about a chain that is not whole.

#include "cli/command_row.h"
#include "cli/scene.h"

namespace quarry::test {
namespace {

constexpr const char* success = "copy successful\n";
const std::vector<std::string> base = {"base.vmdk", "snap.vmdk", "stranger.vmdk"};

std::vector<std::string> copying(std::vector<std::string> words) {
    for (const char* word : {"-src", "/a.txt", "-dst", "@/out/o"}) {
        words.emplace_back(word);
    }
    return words;
}

row copies(const std::string& name, const std::vector<std::string>& words, const std::string& opened) {
    return {.name = name,
            .words = copying(words),
            .err = success,
            .log = {"dst: @/out/o", "partition letter ", "info: pNTFS vm:" + opened,
                    "info: find inode /a.txt", "info: data size 0xc", "info: copy successful"},
            .files = {{"o", "hello world\n"}},
            .with_sources = base};
}

row refused(const std::string& name, const std::vector<std::string>& words, const std::string& err) {
    return {.name = name,
            .words = copying(words),
            .reached = stage::refused,
            .status = 255,
            .err = err,
            .log = {"err: cmdline"},
            .with_sources = base};
}

const std::string both = "@/base.vmdk;@/snap.vmdk:0x200000";

const std::vector<row> good_rows = {
    copies("files may be separated by bars and blanks are trimmed", {"-vmdk", " @/base.vmdk | @/snap.vmdk "},
           both),
    copies("files may be separated by commas", {"-vmdk", "@/base.vmdk,@/snap.vmdk"}, both),
    copies("files may be separated by semicolons", {"-VMDK", "@/base.vmdk;@/snap.vmdk"}, both),
    copies("files may follow options of their own", {"-vmdk", "@/base.vmdk", "-vmdk", "@/snap.vmdk"}, both),
    copies("the snapshot may be named first", {"-vmdk", "@/snap.vmdk|@/base.vmdk"},
           "@/snap.vmdk;@/base.vmdk:0x200000"),
    copies("the last of several volumes is taken without an offset and without a word",
           {"-vmdk", "@/base.vmdk|@/snap.vmdk"}, both),
    copies("a volume is taken by its offset", {"-vmdk", "@/base.vmdk|@/snap.vmdk", "-offset", "0x100000"},
           "@/base.vmdk;@/snap.vmdk:0x100000"),
    copies("an offset that is no volume gives way to the last one",
           {"-vmdk", "@/base.vmdk|@/snap.vmdk", "-offset", "0x300"}, both),
    {.name = "the first volume is not looked for on a virtual disk",
     .words = copying({"-vmdk", "@/base.vmdk|@/snap.vmdk", "-first_ntfsvol"}),
     .user = who::root,
     .err = success,
     .log = {"dst: @/out/o", "partition letter ", "info: pNTFS vm:" + both, "info: find inode /a.txt",
             "info: data size 0xc", "info: copy successful"},
     .files = {{"o", "hello world\n"}},
     .with_sources = base},
    copies("an offset that cannot be read is none", {"-vmdk", "@/base.vmdk|@/snap.vmdk", "-offset", "abc"},
           both),
    copies("the one volume of a disk is found", {"-vmdk", "@/volume.vmdk"}, "@/volume.vmdk:0x100000"),
    {.name = "a relative path on a virtual disk stays as it is",
     .words = {"-vmdk", "@/volume.vmdk", "-src", "a.txt", "-dst", "@/out/o"},
     .err = success,
     .log = {"dst: @/out/o", "partition letter ", "info: pNTFS vm:@/volume.vmdk:0x100000",
             "info: find inode a.txt", "info: data size 0xc", "info: copy successful"},
     .files = {{"o", "hello world\n"}}},
    copies("a virtual disk goes before an image which is not looked at",
           {"-image", "@/missing", "-vmdk", "@/volume.vmdk"}, "@/volume.vmdk:0x100000"),
    {.name = "clusters of a virtual disk are copied with a report that names no file",
     .words = {"-vmdk", "@/volume.vmdk", "-cluster", "200", "1", "-dst", "@/out/o", "-meta"},
     .user = who::root,
     .err = success,
     .log = {"dst: @/out/o", "partition letter ", "info: copy successful"},
     .files = {{"o", cluster_200}},
     .texts = {{"o.meta.txt",
                "drive/partition:       \n"
                "volume_offset:         0x000000100000\n"
                "start of partition:    0x000000100000 bytes [0x800 sectors]\n"
                "starting LCN           0x0000000000c8\n"
                "num clusters           0x000000000001 [1]\n"
                "\n"
                "cluster num            0x0000000000c8,   physical addr:  0x00000000001c8000 [ok]\n"}}},
    {.name = "a virtual disk cannot be the destination",
     .words = {"-vmdk", "@/volume.vmdk", "-src", "/a.txt", "-dst", "@/volume.vmdk"},
     .user = who::root,
     .status = 255,
     .out = "err: source and destination are the same\n",
     .log = {"err: source and destination are the same", "err: copy failed"}},
};

const std::vector<row> refused_rows = {
    refused("a snapshot alone names its parent and the whole list", {"-vmdk", "@/snap.vmdk"},
            "=> vmdk file: @/snap.vmdk\n depends on parent vmdk \"base.vmdk\"\n\n"
            "suggested array: -vmdk \"@/snap.vmdk | @/base.vmdk\"\n"),
    refused("a file that is missing cannot be opened", {"-vmdk", "@/missing.vmdk"},
            "@/missing.vmdk can't be opened\n\nsuggested array: -vmdk \"@/missing.vmdk\"\n"),
    refused("a file that is no virtual disk cannot be opened", {"-vmdk", "@/disk"},
            "@/disk can't be opened\n\nsuggested array: -vmdk \"@/disk\"\n"),
    refused("a file that is its own parent is reported", {"-vmdk", "@/self.vmdk"},
            "Child VMDK CID errors, aborting\n\nsuggested array: -vmdk \"@/self.vmdk\"\n"),
    refused("a parent that is nowhere is looked for beside the listed files", {"-vmdk", "@/orphan.vmdk"},
            "=> vmdk file: @/orphan.vmdk\n depends on parent vmdk \"@/gone.vmdk\"\n"
            "@/gone.vmdk can't be opened\n\nsuggested array: -vmdk \"@/orphan.vmdk | @/gone.vmdk\"\n"),
    {.name = "a parent that is nowhere is reported when the list has no directory",
     .words = copying({"-vmdk", "orphan.vmdk"}),
     .reached = stage::refused,
     .status = 255,
     .err = "Child VMDK points to a parent VMDK that doesn't exist, aborting\n\n"
            "suggested array: -vmdk \"orphan.vmdk\"\n",
     .log = {"err: cmdline"},
     .with_sources = {"orphan.vmdk"}},
    refused("a listed parent whose content changed passes the check and cannot be opened",
            {"-vmdk", "@/base.vmdk|@/stranger.vmdk"}, "invalid disk collection of snaps \n\n"),
    refused("further places of the option are one file each", {"-vmdk", "@/base.vmdk", "-vmdk", "@/c|@/d"},
            "@/c|@/d can't be opened\n\nsuggested array: -vmdk \"@/base.vmdk | @/c|@/d\"\n"),
    refused("a disk without partitions is reported", {"-vmdk", "@/zeros.vmdk"},
            "couldn't find any partitions on disk\n\n"),
    refused("an empty list is no chain", {"-vmdk", ""}, "\n"),
    refused("a list of separators is no chain", {"-vmdk", " | ,;"}, "\n"),
    refused("a list that is no UTF-8 is no chain", {"-vmdk", "@/base.vmdk\xFF"}, "\n"),
};

const std::vector<row> without_value = {
    {.name = "the option without a list hides the image all the same",
     .words = {"-image", "@/disk", "-src", "/a.txt", "-dst", "@/out/o", "-vmdk"},
     .status = 255,
     .log = {"dst: @/out/o", "partition letter ", "info: pNTFS part:, type:33", "err: pNTFS",
             "err: copy failed"}},
};

QUARRY_COMMAND_TABLE(virtual_disk_that_is_found, good_rows);
QUARRY_COMMAND_TABLE(virtual_disk_that_is_refused, refused_rows);
QUARRY_COMMAND_TABLE(virtual_disk_without_files, without_value);

}  // namespace
}  // namespace quarry::test
