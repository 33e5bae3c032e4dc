#include "support/odd_volume.h"

#include "support/lznt1_encoder.h"
#include "support/sample_text.h"
#include "support/system_files.h"
#include "support/volume_builder.h"

#include <algorithm>

namespace quarry::test {

namespace {

constexpr std::size_t cluster = 512;
constexpr std::int64_t mirror_lcn = 136;
constexpr std::uint64_t mirror_records = 4;
constexpr std::uint64_t record_clusters = 2;

geometry odd_geometry() {
    geometry shape;
    shape.sectors_per_cluster = 1;
    shape.mft_entries = 40;
    // Record 30 begins in the first piece and ends in the second.
    shape.mft_runs = {{40, 61}, {110, 3}, {116, 16}};
    shape.mft_runs_in_record_0 = 1;
    return shape;
}

bytes restart_page() {
    byte_writer out(512);
    out.text(0, "RSTR").u16(4, 0x1E).u16(6, 2).u32(16, 512).u16(24, 0x30);
    out.u64(0x30, 7).u16(0x3C, 0xFFFF).u16(0x3E, 2);
    bytes page = out.take();
    protect_sector_ends(page, 0x1E, 2, 0x0707, 512);
    return page;
}

void add_system_files(volume_builder& volume) {
    volume.clusters().take({{mirror_lcn, mirror_records * record_clusters}});
    volume.force_boot(56, 8, mirror_lcn);
    volume.add_file_at(1, "$MFTMirr")
        .data(runs({{mirror_lcn, mirror_records * record_clusters}}), {.real = mirror_records * 1024});
    volume.add_file_at(2, "$LogFile").stored_data(concat({restart_page(), restart_page()}));
    volume.add_file_at(3, "$Volume")
        .attribute(attribute_builder::resident(0x60, ntfs_name("odd").on_disk()))
        .attribute(attribute_builder::resident(0x70, volume_information(3, 1)));
    volume.add_file_at(10, "$UpCase").stored_data(upper_case_table());
}

// The folder at the returned entry, with a file of values in its record, and many other names.
odd_stream add_folder(volume_builder& volume) {
    file_builder& folder = volume.add_directory("folder");
    folder.index_in_blocks();
    odd_stream made{"/folder/small.txt", 0, 0, u"", to_bytes("a value in the record of its file")};
    file_builder& small = volume.add_file("small.txt", folder.entry());
    small.data(made.content).stream("note", "a second value").short_name("SMALL~1.TXT");
    made.entry = small.entry();
    for (int i = 0; i < 4; ++i) {
        const std::string name = "t" + std::to_string(i);
        folder.extra_entry(name_entry(reference(39, 1), {.parent = folder.file_reference(), .name = name}));
    }
    return made;
}

// Stored clusters, a hole, and a valid length with other bytes after it.
odd_stream add_plain(volume_builder& volume) {
    const bytes written = pattern(9 * cluster, 5);
    const std::size_t size = 9 * cluster - 40;
    const std::size_t valid = 7 * cluster + 10;
    file_builder& file = volume.add_file("plain.bin");
    file.data(written, {{600, 2}, {hole, 3}, {610, 3}, {605, 1}},
              {.real = size, .initialized = valid, .compressed = 6 * cluster, .flags = 0x8000});
    bytes content = written;
    content.resize(valid);
    content.resize(size);
    std::fill(content.begin() + 2 * cluster, content.begin() + 5 * cluster, std::uint8_t{0});
    return {"", file.entry(), 0, u"", content};
}

// Units of chunks, a hole, bytes as they are, and a last unit that ends early.
odd_stream add_compressed(volume_builder& volume) {
    constexpr std::uint64_t unit_clusters = 8;
    constexpr std::size_t unit = unit_clusters * cluster;
    const bytes text = text_like(unit, 3);
    const bytes noise = random_bytes(unit, 4);
    const bytes end = text_like(300, 5);
    const bytes chunks = lznt1_chunks(text);
    const std::uint64_t count = volume.clusters().clusters_for(chunks.size());
    volume.write_clusters(620, chunks);
    volume.write_clusters(630, noise);
    volume.write_clusters(640, lznt1_chunks(end));
    const std::size_t size = 3 * unit + end.size();
    file_builder& file = volume.add_file("compressed.txt");
    file.data(runs({{620, count},
                    {hole, 2 * unit_clusters - count},
                    {630, unit_clusters},
                    {640, 1},
                    {hole, unit_clusters - 1}}),
              {.real = size, .compressed = (count + 1 + unit_clusters) * cluster, .unit = 3, .flags = 1});
    return {"", file.entry(), 0, u"", concat({text, bytes(unit), noise, end})};
}

// A stream of which the base record has the first clusters, and two extensions the others.
odd_stream add_pieces(volume_builder& volume, const std::string& name, std::int64_t lcn,
                      const std::u16string& stream) {
    const bytes content = pattern(7 * cluster - 3, static_cast<std::uint32_t>(lcn));
    volume.write_clusters(static_cast<std::uint64_t>(lcn), content);
    file_builder& file = volume.add_file(name);
    const auto piece = [&](std::uint64_t vcn, std::uint64_t count) {
        return attribute_builder::non_resident(0x80, {{lcn + static_cast<std::int64_t>(vcn), count}})
            .named(ntfs_name(stream))
            .lowest_vcn(vcn)
            .allocated(vcn == 0 ? 7 * cluster : 0)
            .real(vcn == 0 ? content.size() : 0)
            .initialized(vcn == 0 ? content.size() : 0);
    };
    file.attribute(piece(0, 2));
    const std::size_t second = file.add_extension();
    const std::size_t third = file.add_extension();
    file.attribute(piece(4, 3), third);
    file.attribute(piece(2, 2), second);
    return {"", file.entry(), 0, stream, content};
}

void copy_bytes(bytes& image, std::size_t from, std::size_t size, std::size_t to) {
    for (std::size_t i = 0; i < size; ++i) {
        image.at(to + i) = image.at(from + i);
    }
}

}  // namespace

odd_volume make_odd_volume() {
    volume_builder volume(odd_geometry());
    add_system_files(volume);
    odd_volume made;
    made.streams.push_back(add_folder(volume));
    const odd_stream small = made.streams.front();
    made.streams.push_back({"", small.entry, 0, u"note", to_bytes("a second value")});
    file_builder& link = volume.add_file("link");
    link.reparse({.tag = 0xA000000C,
                  .substitute_name = "folder\\SMALL.txt",
                  .print_name = "small.txt",
                  .with_flags_word = true,
                  .flags_word = 1});
    made.streams.push_back({"/link", small.entry, link.entry(), u"", small.content});
    made.streams.push_back(add_plain(volume));
    made.streams.push_back(add_compressed(volume));
    made.streams.push_back(add_pieces(volume, "in record.bin", 650, u""));
    odd_stream outside = add_pieces(volume, "outside.bin", 660, u"part");
    volume.file(outside.entry).list_in_clusters();
    outside.path = "/outside.bin";
    made.streams.push_back(outside);
    // Neighbours in the last piece of $MFT.
    for (std::uint64_t entry = 35; entry <= 37; ++entry) {
        const bytes content = to_bytes("this is file " + std::to_string(entry));
        volume.add_file_at(entry, "late" + std::to_string(entry)).data(content);
        made.streams.push_back({"", entry, 0, u"", content});
    }
    made.image = volume.image();
    made.mirror = static_cast<std::size_t>(mirror_lcn) * cluster;
    copy_bytes(made.image, volume.record_position(0), mirror_records * 1024, made.mirror);
    made.backup_boot = made.image.size();
    made.image.resize(made.backup_boot + 512);
    copy_bytes(made.image, 0, 512, made.backup_boot);
    return made;
}

}  // namespace quarry::test
