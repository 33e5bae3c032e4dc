#include "fuzz/list_input.h"
#include "fuzz/seeds/seeds.h"
#include "support/index_builder.h"
#include "support/rich_volume.h"

namespace quarry::fuzz {

namespace {

using namespace quarry::test;

constexpr std::uint64_t first_file = first_user_entry;
constexpr std::uint64_t index_cluster = 400;

// Directories d0, d1 ... of which each has the same clusters for its index: one block that names all files,
// which lie in the root, and all directories. The last directory's index names nothing.
bytes shared_index(std::uint64_t files, std::uint64_t directories) {
    const auto entries = static_cast<std::uint32_t>(first_file + files + directories);
    volume_builder volume(
        {.sectors_per_cluster = 1, .mft_entries = entries, .mft_runs = {{2, entries * std::uint64_t{2}}}});
    index_block_builder block;
    const std::uint64_t first_directory = first_file + files;
    const auto name_of = [&](std::uint64_t entry) {
        return entry < first_directory ? "f" + std::to_string(entry - first_file)
                                       : "d" + std::to_string(entry - first_directory);
    };
    for (std::uint64_t entry = first_file; entry < entries; ++entry) {
        block.add(name_entry(reference(entry, 1),
                             {.parent = reference(first_directory, 1), .name = ntfs_name(name_of(entry))}));
    }
    volume.write_clusters(index_cluster, block.add({.flags = 2}).build());
    volume.write_clusters(index_cluster + 8, index_block_builder().add({.flags = 2}).build());
    for (std::uint64_t entry = first_file; entry < first_directory; ++entry) {
        volume.add_file_at(entry, ntfs_name(name_of(entry))).data("content").hard_link("x", first_directory);
    }
    for (std::uint64_t entry = first_directory; entry < entries; ++entry) {
        const std::int64_t where = index_cluster + (entry + 1 == entries ? 8 : 0);
        file_builder& directory = volume.add_directory(ntfs_name(name_of(entry)));
        directory.without_index();
        directory.attribute(attribute_builder::resident(0x90, build_index_root({{.flags = 3, .sub_node = 0}},
                                                                               true, index_block_size, 512))
                                .named("$I30"));
        directory.attribute(
            attribute_builder::non_resident(0xA0, {{where, 8}}).cluster_size(512).named("$I30"));
    }
    return volume.image();
}

}  // namespace

void write_list_seeds(const seed_writer& seeds) {
    const auto write = [&](const std::string& name, std::uint8_t options, std::uint8_t repeats,
                           const std::string& lines, const bytes& image) {
        seeds.write(name, put_list({.options = options,
                                    .repeats = repeats,
                                    .lines = lines,
                                    .image = {.stored = image, .places = {}, .length = 0}}));
    };
    write("files", 3, 1, "small.txt\nstored.bin\nsmall.txt:named\nsparse.bin\nmissing\n", small_volume());
    write("raw", 12, 0, "sparse.bin\nstored.bin\n$MFT\n", small_volume());
    write("compressed", 0, 0, "compressed.txt\nFolder\\linked.bin\nmany\\file 3 of forty.txt\n",
          rich_volume({.sectors_per_cluster = 1, .mft_entries = 56}, 10, true));
    std::string lines;
    for (int i = 0; i < 16; ++i) {
        lines += "d" + std::to_string(i) + "\\x\nd" + std::to_string(i) + "\\d0\\f1\n";
    }
    write("shared_index", 0, 4, lines, shared_index(16, 16));
    write("nothing_found", 0, 100, "d3\\x\nd3\\d3\\y\n", shared_index(2, 4));
}

}  // namespace quarry::fuzz
