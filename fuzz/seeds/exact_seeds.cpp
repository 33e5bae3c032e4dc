#include "fuzz/seeds/seeds.h"
#include "support/attribute_values.h"
#include "support/disk_builder.h"
#include "support/gpt_builder.h"
#include "support/index_builder.h"
#include "support/lznt1_encoder.h"
#include "support/lzx_builder.h"
#include "support/mapping_pairs.h"
#include "support/rich_volume.h"
#include "support/sample_text.h"
#include "support/xpress_builder.h"

namespace quarry::fuzz {

namespace {

using namespace quarry::test;

bytes chosen(std::uint8_t kind, const bytes& rest) {
    return concat({{kind}, rest});
}

file_name key(const char* name) {
    file_name value;
    value.name = name;
    return value;
}

}  // namespace

void write_exact_volume_seeds(const seed_writer& seeds) {
    // With $UpCase, so that names are looked up.
    geometry shape;
    shape.sectors_per_cluster = 1;
    shape.mft_entries = 96;
    shape.system_files = true;
    volume_builder volume(shape);
    const std::uint64_t folder = volume.add_directory("folder").entry();
    volume.file(folder).index_in_blocks();
    for (int i = 0; i < 30; ++i) {
        volume.add_file("file" + std::to_string(100 + i).substr(1), folder).data("content");
    }
    volume.add_file("small.txt").data(pattern(3000)).stream("named", pattern(700));
    reparse_point link;
    link.substitute_name = "\\??\\C:\\folder";
    link.print_name = "C:\\folder";
    volume.add_directory("junction").reparse(link);
    seeds.write("named", whole_file(volume.image()));
    seeds.write("small", whole_file(small_volume()));
}

void write_exact_parts_seeds(const seed_writer& seeds) {
    seeds.write("pairs", chosen(0, concat({{23, 0, 0, 0}, encode_mapping_pairs({{100, 8}, {hole, 16}})})));
    seeds.write("unit", chosen(1, concat({{0xFF, 0x1F}, lznt1_chunks(text_like(8192, 1))})));
    seeds.write("node", chosen(2, concat({{1},
                                          build_index_node({name_entry(reference(30, 1), key("a")),
                                                            name_entry(reference(31, 1), key("b"))})})));
    reparse_point link;
    link.substitute_name = "\\??\\C:\\Users";
    link.print_name = "C:\\Users";
    seeds.write("junction", chosen(3, link.build()));
    link.tag = 0xA000000C;
    link.with_flags_word = true;
    link.flags_word = 1;
    link.substitute_name = "..\\a";
    seeds.write("symbolic_link", chosen(3, link.build()));
    seeds.write("path", chosen(4, to_bytes("/a\\\\b/c\\u000A:s\\:t:$BITMAP")));
    seeds.write("windows_path", chosen(4, to_bytes("C:\\a\\b:c")));
    seeds.write("options",
                chosen(5, to_bytes("-image\nd\n-offset\n0x1A\n-mft\n40-2\n-src\n:s\n-dst\no\n-raw")));
    seeds.write("listing", chosen(5, to_bytes("-vmdk\na\n-list\n/\n-recurse\n-deleted")));
    seeds.write("list", chosen(5, to_bytes("-image\nd\n-pipe\n-dst\no/\n-tree\n-zero_unreadable")));
    // The second byte: sectors of 512 bytes, said or found out.
    disk_builder with_gpt(160);
    put_whole_gpt(with_gpt, {.partitions = {{.first = 64, .last = 79}, {.first = 80, .last = 95}}}, 512);
    with_gpt.put(64, ntfs_boot_sector(16));
    seeds.write("gpt", chosen(6, concat({{0}, with_gpt.image()})));
    disk_builder with_chain(64);
    with_chain.table(0, {{.type = 0x07, .first = 8, .count = 8}, {.type = 0x05, .first = 24, .count = 40}});
    with_chain.table(24, {{.type = 0x07, .first = 2, .count = 8}, {.type = 0x05, .first = 16, .count = 16}});
    with_chain.table(40, {{.type = 0x07, .first = 2, .count = 8}});
    with_chain.put(8, ntfs_boot_sector(8));
    seeds.write("chain", chosen(6, concat({{1}, with_chain.image()})));
    seeds.write("slip", chosen(5, to_bytes("-imgae\nd")));
}

void write_system_compression_seeds(const seed_writer& seeds) {
    // Kind of input, size less one, and the chunk or what follows the codes.
    const auto chunk = [](std::uint8_t kind, std::size_t size, const bytes& stored) {
        return concat({byte_writer().u8(0, kind).u16(1, size - 1).take(), stored});
    };
    const bytes text = to_bytes("abcdefg");
    const bytes xpress = xpress_builder().literals(text).match(7, 10).match(3, 300).end().build();
    seeds.write("xpress", chunk(0, 317, xpress));
    seeds.write("xpress_items", chunk(1, 317, {xpress.begin() + 256, xpress.end()}));
    lzx_builder blocks;
    blocks.verbatim(107).literals(text).match(7, 90).recent(1, 10);
    blocks.stored(text, 3, 5, 7).aligned(200).match(100, 190).recent(2, 10);
    seeds.write("lzx", chunk(2, 314, blocks.build()));
    seeds.write("lzx_stored", chunk(2, 7, lzx_builder().stored(text).build()));
    seeds.write("lzx_verbatim_items", chunk(3, 40, from_hex("12 34 56 78 9A BC DE F0 12 34 56 78")));
    seeds.write("lzx_aligned_items", chunk(4, 40, from_hex("12 34 56 78 9A BC DE F0 12 34 56 78")));
    seeds.write("reparse_point", chunk(5, 1,
                                       from_hex("17 00 00 80 10 00 00 00  01 00 00 00 02 00 00 00"
                                                "01 00 00 00 01 00 00 00")));
}

}  // namespace quarry::fuzz
