// The sources on which command lines are tried out, by name, and what is in them.
//
// "disk" is one bare NTFS volume of 4,096-byte clusters:
//
//     entry 24  /a.txt                 "hello world\n", with a stream "Note" of "named stream\n"
//     entry 25  /Windows
//     entry 26  /Windows/notepad.exe   100,000 bytes
//     entry 27  /empty.txt             an empty resident stream
//     entry 28  /undated.txt           modification time 0
//     entry 29  /packed.txt            5,000 bytes as the system compresses them, in a stream of their own
//     entry 30  /holes.bin             20,000 bytes, a hole in the second of five clusters
//     entry 31  /many                  a directory whose index lies in a block
//     entry 32  /many/b.txt            "b\n"
//
// The others hold this volume at byte 0x100000 or hold none; see the source. Those that end in ".vmdk" are
// virtual disks.
#pragma once

#include <filesystem>
#include <string>

namespace quarry::test {

// Makes the source of a name at a path. False for a name that is none.
bool make_source(const std::string& name, const std::filesystem::path& path);

[[nodiscard]] std::string notepad_content();
[[nodiscard]] std::string packed_content();
// The first `size` bytes of a source.
[[nodiscard]] std::string head_of_disk(std::size_t size);
// What the file table of the volume holds.
[[nodiscard]] std::string file_table();
// The content of /holes.bin: with the hole as zeros, and only the stored clusters.
[[nodiscard]] std::string holes_content();
[[nodiscard]] std::string holes_without_hole();
// The first of those stored clusters, which is number 200 of the volume.
[[nodiscard]] std::string cluster_200();

}  // namespace quarry::test
