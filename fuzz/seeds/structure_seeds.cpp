// Seeds of the targets that look at one structure: records, indexes, runs, text, partition tables.
#include "fuzz/seeds/seeds.h"
#include "support/attribute_list_builder.h"
#include "support/disk_builder.h"
#include "support/record_builder.h"

namespace quarry::fuzz {

namespace {

using namespace quarry::test;

bytes numbers(const std::vector<std::pair<unsigned, std::uint64_t>>& fields) {
    byte_writer out;
    for (const auto& [width, value] : fields) {
        out.number(out.size(), width, value);
    }
    return out.take();
}

bytes chosen(std::uint8_t selector, const bytes& content) {
    return concat({{selector}, content});
}

attribute_builder fragments() {
    return attribute_builder::non_resident(0x80, {{100, 8}, {hole, 16}, {20, 1}}).named("stream");
}

}  // namespace

void write_partition_table_seeds(const seed_writer& seeds) {
    const auto write = [&](const std::string& name, std::uint64_t offset, const disk_builder& disk) {
        seeds.write(name, concat({numbers({{8, offset}}), disk.image()}));
    };
    write("mbr", 4096,
          disk_builder(40).table(0, {{0x07, 8, 16}, {0x0B, 24, 8}}).put(8, ntfs_boot_sector(16)));
    write("chain", 0,
          disk_builder(96)
              .table(0, {{0x07, 2, 8}, {0x0F, 16, 64}})
              .table(16, {{0x07, 2, 8}, {0x05, 16, 16}})
              .table(32, {{0x83, 2, 8}})
              .put(63, ntfs_boot_sector(8)));
    write("gpt", 40 * 512,
          disk_builder(72)
              .gpt({{40, 47, "Basic data partition"}, {48, 55, "two"}})
              .put(40, ntfs_boot_sector(8)));
    write("gpt_of_4096", 0,
          disk_builder(20, 4096)
              .gpt({{8, 11, "large sectors"}}, {.entry_count = 4})
              .put(8, ntfs_boot_sector(4, 4096)));
    write("lost_table", 0, disk_builder(32).table(5, {{0x07, 2, 8}}));
    write("bare_ntfs", 0, disk_builder(16).put(0, ntfs_boot_sector(16)));
    write("bare_fat32", 0, disk_builder(16).put(0, fat32_boot_sector(16)));
    write("bare_exfat", 0, disk_builder(16).put(0, exfat_boot_sector(16, 9, 3)));
    write("bare_ext", 0, disk_builder(16).put(0, ext_volume_head(8, 0, "label", "/mnt")));
}

void write_record_seeds(const seed_writer& seeds) {
    const auto write = [&](const std::string& name, const record_builder& record) {
        seeds.write(name, chosen(1, record.build()));
    };
    const standard_information times;
    const file_name name = {.name = "name.txt"};
    record_builder file;
    file.entry(30).add(attribute_builder::resident(0x10, times.build()).id(0));
    file.add(attribute_builder::resident(0x30, name.build()).indexed()).add(fragments());
    file.add(attribute_builder::resident(0x80, to_bytes("content")));
    write("file", file);
    record_builder odd;
    odd.add(attribute_builder::resident(0x40, pattern(64)))
        .add(attribute_builder::resident(0x50, pattern(48)));
    odd.add(attribute_builder::resident(0x60, ntfs_name("volume").on_disk()));
    odd.add(attribute_builder::resident(0x70, volume_information(3, 1)));
    odd.add(attribute_builder::resident(0x90, build_index_root({})).named("$I30"));
    odd.add(attribute_builder::non_resident(0xA0, {{50, 1}}).named("$I30"));
    odd.add(attribute_builder::resident(0xB0, pattern(8)));
    odd.add(attribute_builder::resident(0xC0, reparse_point{.print_name = "C:\\x"}.build()));
    write("every_type", odd);
    record_builder listed;
    listed.add(attribute_builder::resident(
        0x20, build_attribute_list({{.type = 0x80, .record = 31}, {.type = 0x80, .record = 32, .id = 2}})));
    listed.add(attribute_builder::non_resident(0x80, {{100, 8}}).unit(4).flags(1).compressed(4096));
    write("list", listed);
}

void write_index_seeds(const seed_writer& seeds) {
    const auto child = [](std::uint64_t entry, const char* name) {
        return name_entry(reference(entry, 1), {.name = name});
    };
    seeds.write("names", chosen(0, build_index_node({child(30, "a"), child(31, "b.txt"), child(0, "$MFT")})));
    seeds.write("empty", chosen(0, build_index_node({})));
    seeds.write("root", chosen(0, build_index_root({child(30, "a")})));
    for (std::uint8_t view = 1; view <= 4; ++view) {
        const index_entry entry = {.key = pattern(8, view), .view_data = pattern(20, view)};
        seeds.write("view_" + std::to_string(view), chosen(view, build_index_node({entry, entry})));
    }
}

void write_run_seeds(const seed_writer& seeds) {
    seeds.write("pairs", chosen(0, encode_mapping_pairs({{100, 8}, {hole, 16}, {20, 300}})));
    seeds.write("widest_pair", chosen(0, concat({{0xFF}, pattern(30), {0}})));
    seeds.write("attribute", chosen(1, fragments().build()));
    seeds.write("stored_runs", chosen(2, pattern(13 * 5)));
    seeds.write("merge", chosen(3, pattern(200, 2)));
    seeds.write("search", chosen(4, pattern(400, 3)));
}

void write_text_seeds(const seed_writer& seeds) {
    seeds.write("utf16", chosen(0, ntfs_name(u"n\u00e4me \U0001F600").on_disk()));
    seeds.write("utf16_lone", chosen(0, ntfs_name(std::u16string{u'a', 0xD800, u'b'}).on_disk()));
    seeds.write("utf8", chosen(1, to_bytes("n\xC3\xA4me \xF0\x9F\x98\x80")));
    seeds.write("number", chosen(2, numbers({{8, 0x123456789ABC}})));
    seeds.write("number_text", chosen(3, to_bytes(" 0x10")));
    seeds.write("filetime", chosen(4, numbers({{8, default_filetime}})));
    seeds.write("date", chosen(5, concat({{0, 0, 10}, to_bytes("2020-12-3110:30:05.25 pm")})));
    seeds.write("pattern", chosen(5, concat({{1, 1, 10}, to_bytes("mm/dd/yyyyhh:mm:ss.xxx")})));
    seeds.write("list", chosen(6, to_bytes(" *.txt|a*|/dir,*.b:c* ")));
    seeds.write("path", chosen(7, to_bytes("..\\a/b\\c:d")));
    seeds.write("shadow_path",
                chosen(7, to_bytes("\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1\\a\\b")));
    seeds.write("dump", chosen(8, concat({numbers({{1, 3}, {2, 40}, {8, 0x100000000}}), pattern(60)})));
}

}  // namespace quarry::fuzz
