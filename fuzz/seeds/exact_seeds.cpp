#include "fuzz/seeds/seeds.h"
#include "support/attribute_values.h"
#include "support/index_builder.h"
#include "support/lznt1_encoder.h"
#include "support/mapping_pairs.h"
#include "support/rich_volume.h"
#include "support/sample_text.h"

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
    seeds.write("slip", chosen(5, to_bytes("-imgae\nd")));
}

}  // namespace quarry::fuzz
