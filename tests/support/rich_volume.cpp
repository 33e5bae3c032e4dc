#include "support/rich_volume.h"

#include "support/lznt1_encoder.h"
#include "support/sample_text.h"
#include "support/security_builder.h"

namespace quarry::test {

namespace {

constexpr std::uint64_t unit_clusters = 16;

// $MFT close to the start, so that the volume is small.
run_list close_mft(const geometry& shape) {
    const std::uint64_t cluster = std::uint64_t{shape.bytes_per_sector} * shape.sectors_per_cluster;
    return {{2, (std::uint64_t{shape.mft_entries} * shape.record_size + cluster - 1) / cluster}};
}

bytes descriptors() {
    const bytes administrators = sid(5, {32, 544});
    const bytes user = sid(5, {21, 1, 2, 3, 1001});
    const security_descriptor all = {
        .owner = user,
        .group = administrators,
        .sacl = acl({ace(2, 0x10000, user)}),
        .dacl = acl({ace(0, 0x1F01FF, user), ace(1, 0x40000000, administrators)})};
    const security_descriptor owner_only = {.owner = administrators};
    return sds_stream({all.build(), owner_only.build()});
}

void add_compressed_file(volume_builder& volume) {
    const std::uint64_t cluster = volume.cluster_size();
    const std::uint64_t unit = unit_clusters * cluster;
    run_list where;
    // A unit of text, a hole, a unit that is stored as it is, the rest of a unit.
    for (const std::size_t plain : {unit, std::uint64_t{0}, std::uint64_t{100}}) {
        const bytes chunks = plain == 0 ? bytes() : lznt1_chunks(text_like(plain, 7));
        const std::uint64_t stored = volume.clusters().clusters_for(chunks.size());
        if (stored != 0) {
            const run place = volume.clusters().allocate(stored);
            volume.clusters().take({place});
            volume.clusters().write({place}, chunks);
            where.push_back(place);
        }
        where.push_back({hole, unit_clusters - stored});
    }
    const run as_it_is = volume.clusters().allocate(unit_clusters);
    volume.clusters().take({as_it_is});
    volume.clusters().write({as_it_is}, random_bytes(unit, 3));
    where.insert(where.begin(), as_it_is);
    volume.add_file("compressed.txt")
        .data(where, {.real = 3 * unit + 100, .compressed = 20 * cluster, .unit = 4, .flags = 1});
}

void add_plain_files(volume_builder& volume) {
    const std::size_t cluster = volume.cluster_size();
    volume.add_file("small.txt").data("a few bytes").stream("named", "a stream").security_id(0x100);
    file_builder& folder = volume.add_directory("Folder");
    folder.security_id(0x101);
    file_builder& stored = volume.add_file("stored.bin", folder.entry());
    stored.data(pattern(3 * cluster + 17, 2)).hard_link("linked.bin", root_entry).short_name("STORED~1.BIN");
    const auto free = static_cast<std::int64_t>(volume.clusters().end_cluster()) + 4;
    volume.add_file("fragments.bin")
        .data(pattern(6 * cluster - 5, 3), {{free + 4, 1}, {hole, 2}, {free + 2, 1}, {free, 2}},
              {.allocated = 6 * cluster, .compressed = 4 * cluster, .flags = 0x8000});
}

// One file with an attribute of every type, whatever its value means.
void add_every_attribute(volume_builder& volume) {
    file_builder& file = volume.add_file("everything");
    file.data("data").attribute(attribute_builder::resident(0x40, pattern(64, 4)));
    file.attribute(attribute_builder::resident(0x50, security_descriptor{.owner = sid(5, {18})}.build()));
    file.attribute(attribute_builder::resident(0x60, ntfs_name("volume").on_disk()));
    file.attribute(attribute_builder::resident(0x70, volume_information(3, 1)));
    file.attribute(attribute_builder::resident(0xB0, pattern(8, 5)));
    file.attribute(attribute_builder::resident(0xD0, pattern(8, 6)));
    file.attribute(attribute_builder::resident(0xE0, pattern(16, 7)));
    file.attribute(attribute_builder::resident(0xF0, pattern(8, 8)));
    file.attribute(attribute_builder::resident(0x100, pattern(8, 9)).named("$TXF_DATA"));
}

void add_links(volume_builder& volume) {
    volume.add_directory("junction")
        .reparse({.substitute_name = "\\??\\C:\\Folder", .print_name = "C:\\Folder"});
    volume.add_directory("loop").reparse({.substitute_name = "\\??\\C:\\loop", .print_name = "C:\\loop"});
    volume.add_file("link").reparse({.tag = 0xA000000C,
                                     .substitute_name = "small.txt",
                                     .print_name = "small.txt",
                                     .with_flags_word = true,
                                     .flags_word = 1});
}

// A file whose runs are in two records, with the list that says so inside or outside of its record.
void add_extended_file(volume_builder& volume, const std::string& name, bool list_in_clusters) {
    const run first = volume.clusters().allocate(2);
    volume.clusters().take({first});
    const run second = volume.clusters().allocate(1);
    volume.clusters().write({first, second}, pattern(3 * volume.cluster_size(), 4));
    const std::uint64_t size = 3 * volume.cluster_size();
    file_builder& file = volume.add_file(name);
    file.data({first}, {.real = size, .allocated = size});
    const std::size_t place = file.add_extension();
    file.attribute(
        attribute_builder::non_resident(0x80, {second}).lowest_vcn(2).allocated(0).real(0).initialized(0),
        place);
    volume.clusters().take({second});
    if (list_in_clusters) {
        file.list_in_clusters();
    }
}

void add_large_directory(volume_builder& volume, int files) {
    file_builder& many = volume.add_directory("many");
    many.index_in_blocks();
    for (int i = 0; i < files; ++i) {
        volume.add_file("file " + std::to_string(i) + " of forty.txt", many.entry()).data("x");
    }
    volume.add_file("gone.txt", many.entry()).data("deleted").deleted_but_indexed();
}

}  // namespace

bytes rich_volume(const geometry& wanted, int files, bool everything) {
    geometry shape = wanted;
    const std::uint64_t whole = close_mft(shape)[0].length;
    const std::uint64_t first = (whole + 1) / 2;
    // An extension record knows the second piece of $MFT: its slot lies in the first.
    shape.mft_runs = {{2, first}, {static_cast<std::int64_t>(2 + first + 3), whole - first}};
    shape.mft_runs_in_record_0 = 1;
    volume_builder volume(shape);
    volume.add_secure(descriptors());
    add_plain_files(volume);
    if (everything) {
        add_every_attribute(volume);
        add_compressed_file(volume);
        add_links(volume);
    }
    add_extended_file(volume, "list inside.bin", false);
    add_extended_file(volume, "list outside.bin", true);
    add_large_directory(volume, files);
    return volume.image();
}

geometry small_geometry() {
    geometry shape = {.sectors_per_cluster = 1, .mft_entries = 14};
    shape.mft_runs = close_mft(shape);
    return shape;
}

bytes small_volume() {
    volume_builder volume(small_geometry());
    volume.add_secure(descriptors());
    volume.add_file_at(10, "small.txt").data("a few bytes").stream("named", "a stream").security_id(0x100);
    volume.add_file_at(11, "stored.bin").data(pattern(2 * 512 + 17, 2));
    volume.add_file_at(12, "sparse.bin").data(runs({{hole, 2}, {60, 1}}), {.flags = 0x8000});
    return volume.image();
}

}  // namespace quarry::test
