#include "cli/scene.h"

#include "support/disk_builder.h"
#include "support/vmdk_builder.h"
#include "support/volume_builder.h"

#include <algorithm>
#include <functional>
#include <map>

namespace quarry::test {

namespace {

constexpr std::uint32_t volume_sector = 2048;
constexpr std::int64_t holes_lcn = 200;
constexpr std::size_t gpt_header = 512;

std::string text_of(const bytes& content) {
    return {content.begin(), content.end()};
}

bytes volume() {
    volume_builder built;
    built.add_file("a.txt").data("hello world\n").stream("Note", "named stream\n");
    const std::uint64_t windows = built.add_directory("Windows").entry();
    built.add_file("notepad.exe", windows).data(to_bytes(notepad_content()));
    built.add_file("empty.txt").data("");
    file_times undated;
    undated.modified = 0;
    built.add_file("undated.txt").data("undated").times(undated);
    built.add_file("packed.txt")
        .data(runs({{hole, 2}}), {.real = 5000})
        .stored_stream("WofCompressedData", to_bytes(packed_content()));
    built.add_file("holes.bin").data(runs({{holes_lcn, 1}, {hole, 1}, {holes_lcn + 1, 3}}), {.real = 20000});
    built.write_clusters(holes_lcn, to_bytes(holes_without_hole()));
    file_builder& many = built.add_directory("many").index_in_blocks();
    built.add_file("b.txt", many.entry()).data("b\n");
    return built.image();
}

std::uint32_t sectors_of(const bytes& content) {
    return static_cast<std::uint32_t>(content.size() / 512);
}

// A disk with one volume of a type at sector 2048, and whatever else its table says.
bytes disk_with(std::vector<table_slot> slots, std::uint64_t cut_sectors = 0) {
    const bytes content = volume();
    slots.push_back({0x07, volume_sector, sectors_of(content)});
    return disk_builder(volume_sector + sectors_of(content) - cut_sectors)
        .table(0, slots)
        .put(volume_sector,
             bytes(content.begin(), content.end() - static_cast<std::ptrdiff_t>(cut_sectors * 512)))
        .image();
}

// The volume after a FAT partition, and a second volume after it.
bytes two_volumes() {
    const bytes content = volume();
    const std::uint32_t size = sectors_of(content);
    return disk_builder(4096 + size)
        .table(0, {{0x0C, 63, 1000}, {0x07, volume_sector, size}, {0x07, 4096, size}})
        .put(63, fat32_boot_sector(1000))
        .put(volume_sector, content)
        .put(4096, content)
        .image();
}

// The first sectors are lost; a table is left at sector 100, 1,948 sectors ahead of the volume.
bytes damaged_disk() {
    const bytes content = volume();
    return disk_builder(volume_sector + sectors_of(content))
        .table(100, {{0x07, 1948, sectors_of(content)}})
        .put(volume_sector, content)
        .image();
}

bytes gpt_disk() {
    const bytes content = volume();
    const std::uint64_t last = volume_sector + sectors_of(content) - 1;
    return disk_builder(last + 34)
        .gpt({{volume_sector, last, "Basic data partition"}})
        .put(volume_sector, content)
        .image();
}

// An extended table at sector 63 that holds the volume and, after it, a link to itself.
bytes looping_disk() {
    const bytes content = volume();
    const std::uint32_t size = sectors_of(content);
    return disk_builder(volume_sector + size)
        .table(0, {{0x05, 63, size}})
        .table(63, {{0x07, volume_sector - 63, size}, {0x05, 0, 1}})
        .put(volume_sector, content)
        .image();
}

bytes changed(bytes content, const forced_number& change) {
    apply(content, {change});
    return content;
}

// A virtual disk in one file, which holds the grains of `content` out of a disk of `size` bytes.
bytes virtual_disk(const bytes& content, std::size_t size, const std::string& cid,
                   const std::string& parent_cid, const std::string& hint) {
    vmdk_builder file;
    file.cid = cid;
    file.parent_cid = parent_cid;
    file.parent_hint = hint;
    file.grains = (size + file.grain_bytes() - 1) / file.grain_bytes();
    file.entries_per_table = 512;
    return file.put_all(0, content).build();
}

// The disk "two" without its first 4,096 bytes, which the snapshot has: only together they are a disk.
bytes base_of_virtual_disk() {
    bytes content = two_volumes();
    std::fill(content.begin(), content.begin() + 4096, 0);
    return virtual_disk(content, content.size(), "0000000a", "ffffffff", "");
}

bytes snapshot(const std::string& cid, const std::string& parent_cid, const std::string& hint) {
    bytes head = two_volumes();
    const std::size_t size = head.size();
    head.resize(4096);
    return virtual_disk(head, size, cid, parent_cid, hint);
}

const std::map<std::string, std::function<bytes()>>& sources() {
    static const std::map<std::string, std::function<bytes()>> known = {
        {"disk", volume},
        {"disk_cut",
         [] {
             const bytes whole = volume();
             return bytes(whole.begin(), whole.end() - 4096);
         }},
        {"mbr", [] { return disk_with({}); }},
        {"mbr_cut", [] { return disk_with({}, 8); }},
        {"mbr_outside",
         [] {
             return disk_with({{0x07, 0x100000, 8}});
         }},
        {"two", two_volumes},
        {"gpt", gpt_disk},
        {"gpt_elsewhere",
         [] {
             return changed(gpt_disk(), {gpt_header + 24, 8, 2});
         }},
        {"gpt_without_entry_size",
         [] {
             return changed(gpt_disk(), {gpt_header + 84, 4, 0});
         }},
        {"gpt_beyond",
         [] {
             return changed(gpt_disk(), {gpt_header + 72, 8, 1ULL << 40});
         }},
        {"damaged", damaged_disk},
        {"loop", looping_disk},
        {"without_sector_size",
         [] {
             return changed(disk_with({}), {volume_sector * 512 + 11, 2, 0});
         }},
        {"fat",
         [] {
             return disk_builder(2000).table(0, {{0x0C, 63, 1000}}).put(63, fat32_boot_sector(1000)).image();
         }},
        {"no_table", [] { return disk_builder(2048).table(0, {}).image(); }},
        {"base.vmdk", base_of_virtual_disk},
        {"snap.vmdk", [] { return snapshot("0000000b", "0000000a", "\"base.vmdk\""); }},
        {"stranger.vmdk", [] { return snapshot("0000000b", "0000000f", "\"base.vmdk\""); }},
        {"self.vmdk", [] { return snapshot("0000000b", "0000000b", "\"self.vmdk\""); }},
        {"orphan.vmdk", [] { return snapshot("0000000b", "0000000a", "\"/no/such/gone.vmdk\""); }},
        {"volume.vmdk",
         [] {
             const bytes content = disk_with({});
             return virtual_disk(content, content.size(), "0000000a", "ffffffff", "");
         }},
        {"zeros.vmdk", [] { return virtual_disk(bytes(65536), 65536, "0000000a", "ffffffff", ""); }},
        {"zeros", [] { return bytes(1 << 20); }},
        {"empty", [] { return bytes(); }},
        {"one_byte", [] { return bytes{0xEB}; }},
        {"511_bytes",
         [] {
             const bytes whole = volume();
             return bytes(whole.begin(), whole.begin() + 511);
         }},
        {"513_bytes",
         [] {
             const bytes whole = volume();
             return bytes(whole.begin(), whole.begin() + 513);
         }},
    };
    return known;
}

}  // namespace

bool make_source(const std::string& name, const std::filesystem::path& path) {
    const auto found = sources().find(name);
    if (found == sources().end()) {
        return false;
    }
    write_file(path, found->second());
    return true;
}

std::string notepad_content() {
    return text_of(pattern(100'000, 3));
}

std::string packed_content() {
    return text_of(pattern(5'000, 5));
}

std::string head_of_disk(std::size_t size) {
    return text_of(volume()).substr(0, size);
}

std::string file_table() {
    const volume_builder built;
    const std::size_t begin = built.mft_lcn() * built.cluster_size();
    return head_of_disk(begin + built.shape().mft_entries * built.shape().record_size).substr(begin);
}

std::string holes_without_hole() {
    return text_of(pattern(16'384, 7));
}

std::string cluster_200() {
    return holes_without_hole().substr(0, 4096);
}

std::string holes_content() {
    const std::string stored = holes_without_hole();
    return (stored.substr(0, 4096) + std::string(4096, '\0') + stored.substr(4096)).substr(0, 20'000);
}

}  // namespace quarry::test
