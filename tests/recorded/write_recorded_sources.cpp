// Writes the sources on which command lines are recorded: bare volumes of several geometries, disks with each
// kind of partition table, chains of virtual disks. All are small, since each case works on copies of its
// own.
//
// Usage: write_recorded_sources DIRECTORY

#include "support/disk_builder.h"
#include "support/rich_volume.h"
#include "support/vmdk_builder.h"
#include "support/volume_builder.h"

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>

namespace quarry::test {
namespace {

constexpr std::uint64_t first_sector = 64;

// Sectors of 512 bytes.
std::uint32_t sectors_of(const bytes& content) {
    return static_cast<std::uint32_t>((content.size() + 511) / 512);
}

bytes head(const bytes& content, std::size_t size) {
    return {content.begin(), content.begin() + static_cast<std::ptrdiff_t>(size)};
}

bytes rich() {
    return rich_volume({.sectors_per_cluster = 1, .mft_entries = 56}, 10, true);
}

bytes plain() {
    volume_builder volume({.sectors_per_cluster = 2, .mft_entries = 40});
    volume.add_file("a.txt").data("hello world\n").stream("Note", "named stream\n");
    const std::uint64_t windows = volume.add_directory("Windows").entry();
    volume.add_file("notepad.exe", windows).data(pattern(9'000, 3));
    volume.add_file("empty.txt").data("");
    file_times undated;
    undated.modified = 0;
    volume.add_file("undated.txt").data("undated").times(undated);
    volume.add_file("packed.txt")
        .data(runs({{hole, 2}}), {.real = 5000})
        .stored_stream("WofCompressedData", pattern(1'500, 5));
    volume.add_file("deleted.txt").data("gone\n").deleted();
    return volume.image();
}

bytes mbr_disk(const bytes& volume) {
    const std::uint32_t size = sectors_of(volume);
    return disk_builder(first_sector + size + 8)
        .table(0, {{0x07, first_sector, size}})
        .put(first_sector, volume)
        .image();
}

// A FAT partition, then two NTFS volumes.
bytes disk_of_three() {
    const bytes first = plain();
    const bytes second = rich();
    const std::uint32_t first_size = sectors_of(first);
    const std::uint32_t second_size = sectors_of(second);
    return disk_builder(128 + first_size + second_size)
        .table(0, {{0x0C, 63, 10}, {0x07, 128, first_size}, {0x07, 128 + first_size, second_size}})
        .put(63, fat32_boot_sector(10))
        .put(128, first)
        .put(128 + first_size, second)
        .image();
}

bytes gpt_disk() {
    const bytes volume = rich();
    const std::uint64_t last = first_sector + sectors_of(volume) - 1;
    return disk_builder(last + 34)
        .gpt({{.first = first_sector, .last = last, .name = "Basic data partition"}})
        .put(first_sector, volume)
        .image();
}

// An extended table whose chain leads back to itself.
bytes extended_disk() {
    const bytes volume = plain();
    const std::uint32_t size = sectors_of(volume);
    return disk_builder(first_sector + size + 1)
        .table(0, {{0x05, 32, size + 32}})
        .table(32, {{0x07, first_sector - 32, size}, {0x05, 0, 1}})
        .put(first_sector, volume)
        .image();
}

// The first sectors are lost; a table is left at sector 10.
bytes disk_without_head() {
    const bytes volume = plain();
    const std::uint32_t size = sectors_of(volume);
    return disk_builder(first_sector + size)
        .table(10, {{0x07, first_sector - 10, size}})
        .put(first_sector, volume)
        .image();
}

vmdk_builder virtual_disk(const bytes& content, std::size_t size, const std::string& cid,
                          const std::string& parent_cid, const std::string& hint) {
    vmdk_builder file;
    file.cid = cid;
    file.parent_cid = parent_cid;
    file.parent_hint = hint;
    file.grains = (size + file.grain_bytes() - 1) / file.grain_bytes();
    file.put_all(0, content);
    return file;
}

void write_disks(const std::filesystem::path& directory) {
    write_file(directory / "mbr.dd", mbr_disk(rich()));
    write_file(directory / "three.dd", disk_of_three());
    write_file(directory / "gpt.dd", gpt_disk());
    write_file(directory / "extended.dd", extended_disk());
    write_file(directory / "headless.dd", disk_without_head());
    write_file(directory / "cut.dd", head(mbr_disk(plain()), first_sector * 512 + 30'000));
    write_file(directory / "fat.dd",
               disk_builder(200).table(0, {{0x0C, 63, 100}}).put(63, fat32_boot_sector(100)).image());
    write_file(directory / "no_table.dd", disk_builder(200).table(0, {}).image());
    write_file(directory / "zeros.dd", bytes(100'000));
    write_file(directory / "empty.dd", bytes());
}

void write_volumes(const std::filesystem::path& directory) {
    write_file(directory / "plain.vol", plain());
    write_file(directory / "rich.vol", rich());
    write_file(directory / "small.vol", small_volume());
    write_file(directory / "clusters_of_4096.vol", rich_volume({.mft_entries = 40}, 3, false));
    write_file(directory / "records_of_4096.vol",
               rich_volume({.sectors_per_cluster = 2, .record_size = 4096, .mft_entries = 38}, 1, false));
    write_file(
        directory / "sectors_of_4096.vol",
        rich_volume({.bytes_per_sector = 4096, .sectors_per_cluster = 1, .mft_entries = 40}, 3, false));
    // Cluster sizes that are no power of two, above and below an index block.
    write_file(directory / "clusters_of_1536.vol",
               rich_volume({.sectors_per_cluster = 3, .mft_entries = 40}, 3, false));
    write_file(directory / "clusters_of_4608.vol",
               rich_volume({.sectors_per_cluster = 9, .mft_entries = 40}, 3, false));
}

// Three chains: "base" and "snap" are whole together, "middle" and "top" are further snapshots of them, and
// the others lack something.
void write_virtual_disks(const std::filesystem::path& directory) {
    const bytes disk = mbr_disk(plain());
    bytes base = disk;
    std::fill(base.begin(), base.begin() + 4096, std::uint8_t{0});
    const auto write = [&](const std::string& name, const vmdk_builder& file) {
        file.write(directory / name);
    };
    write("base.vmdk", virtual_disk(base, disk.size(), "0000000a", "ffffffff", ""));
    write("snap.vmdk", virtual_disk(head(disk, 4096), disk.size(), "0000000b", "0000000a", "\"base.vmdk\""));
    write("middle.vmdk", virtual_disk({}, disk.size(), "0000000c", "0000000b", "\"snap.vmdk\""));
    write("top.vmdk", virtual_disk(head(disk, 8192), disk.size(), "0000000d", "0000000c", "\"middle.vmdk\""));
    write("single.vmdk", virtual_disk(disk, disk.size(), "0000000a", "ffffffff", ""));
    write("stranger.vmdk",
          virtual_disk(head(disk, 4096), disk.size(), "0000000b", "0000000f", "\"base.vmdk\""));
    write("self.vmdk", virtual_disk(head(disk, 4096), disk.size(), "0000000b", "0000000b", "\"self.vmdk\""));
    write("orphan.vmdk",
          virtual_disk(head(disk, 4096), disk.size(), "0000000b", "0000000a", "\"/no/such/gone.vmdk\""));
    write("zeros.vmdk", virtual_disk(bytes(8192), disk.size(), "0000000a", "ffffffff", ""));
    const vmdk_builder whole = virtual_disk(disk, disk.size(), "0000000a", "ffffffff", "");
    write("short.vmdk", vmdk_builder(whole).cut(20'000));
    write("far.vmdk", vmdk_builder(whole).table_entry(8, 0x7FFFFFFF));
    write("big.vmdk", vmdk_builder(whole).force(vmdk_builder::at_capacity, 8, std::uint64_t{1} << 40));
}

}  // namespace
}  // namespace quarry::test

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: write_recorded_sources DIRECTORY\n";
        return 2;
    }
    try {
        quarry::test::write_volumes(argv[1]);
        quarry::test::write_disks(argv[1]);
        quarry::test::write_virtual_disks(argv[1]);
    } catch (const std::exception& problem) {
        std::cerr << problem.what() << '\n';
        return 1;
    }
    return 0;
}
