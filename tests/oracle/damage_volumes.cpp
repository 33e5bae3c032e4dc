#include "oracle/damage_volumes.h"

#include "support/lznt1_encoder.h"
#include "support/lzx_builder.h"
#include "support/sample_text.h"
#include "support/volume_builder.h"
#include "support/xpress_builder.h"

#include <utility>

namespace quarry::test {

namespace {

class volume_in_work {
  public:
    volume_in_work(std::string name, const geometry& shape) : volume(shape) { m_made.name = std::move(name); }

    void order(const std::string& path, const file_builder& file, const std::string& stream = {}) {
        m_made.orders.push_back({path, file.entry(), stream});
        m_made.orders.push_back({{}, file.entry(), stream});
    }
    [[nodiscard]] damage_volume finished() {
        m_made.image = volume.image();
        return std::move(m_made);
    }

    volume_builder volume;

  private:
    damage_volume m_made;
};

// Bytes in clusters of their own.
run_list stored_at_end(volume_builder& volume, const bytes& content) {
    const run where = volume.clusters().allocate(volume.clusters().clusters_for(content.size()));
    volume.clusters().take({where});
    volume.clusters().write({where}, content);
    return {where};
}

bytes reparse_value_of_wof(std::uint32_t format) {
    return byte_writer(24)
        .u32(0, 0x80000017)
        .u16(4, 16)
        .u32(8, 1)
        .u32(12, 2)
        .u32(16, 1)
        .u32(20, format)
        .take();
}

// A file that the system compressed, of `size` bytes in these chunks.
void add_wof(volume_in_work& made, const std::string& name, std::uint32_t format, std::uint64_t size,
             const std::vector<bytes>& chunks) {
    bytes stored;
    std::uint32_t end = 0;
    for (std::size_t i = 0; i + 1 < chunks.size(); ++i) {
        end += static_cast<std::uint32_t>(chunks[i].size());
        stored = concat({stored, byte_writer(4).u32(0, end).take()});
    }
    for (const bytes& chunk : chunks) {
        stored = concat({stored, chunk});
    }
    volume_builder& volume = made.volume;
    const std::uint64_t clusters = volume.clusters().clusters_for(size);
    file_builder& file = volume.add_file(name);
    file.data(runs({{hole, clusters}}), {.real = size, .initialized = 0, .compressed = 0, .flags = 0x8000});
    file.stream("WofCompressedData", stored, stored_at_end(volume, stored));
    file.attribute(attribute_builder::resident(0xC0, reparse_value_of_wof(format)));
    made.order("/" + name, file);
}

// 4,096 bytes: literals, near and far matches, one with a length in bytes of its own.
bytes xpress_chunk(std::uint32_t seed) {
    return xpress_builder()
        .literals(text_like(120, seed))
        .match(7, 5)
        .match(100, 171)
        .literals(text_like(40, seed + 1))
        .match(300, 260)
        .match(1, 3500)
        .build();
}

// 3,000 bytes in a block of each type, with calls in them.
bytes lzx_chunk() {
    const bytes call = {0xE8, 0x10, 0x20, 0x00, 0x00};
    return lzx_builder()
        .verbatim(1000)
        .literals(text_like(95, 11))
        .literals(call)
        .match(50, 200)
        .recent(0, 2)
        .match(17, 200)
        .recent(1, 250)
        .recent(2, 248)
        .aligned(1500)
        .literals(text_like(100, 12))
        .match(900, 250)
        .match(1100, 250)
        .match(33, 250)
        .match(700, 250)
        .recent(2, 250)
        .recent(0, 150)
        .stored(concat({text_like(490, 13), call, call}), 5, 6, 7)
        .build();
}

void add_lznt1(volume_in_work& made) {
    constexpr std::uint64_t unit = 8;
    volume_builder& volume = made.volume;
    const std::size_t unit_bytes = unit * volume.cluster_size();
    run_list where;
    for (std::uint32_t seed : {1u, 2u, 0u, 3u}) {
        const bytes chunks = lznt1_chunks(text_like(unit_bytes, seed));
        const std::uint64_t stored = seed == 0 ? 0 : volume.clusters().clusters_for(chunks.size());
        if (stored != 0) {
            where.push_back(stored_at_end(volume, chunks).front());
        }
        where.push_back({hole, unit - stored});
    }
    where.push_back(stored_at_end(volume, random_bytes(unit_bytes, 4)).front());
    std::uint64_t stored_clusters = 0;
    for (const run& each : where) {
        stored_clusters += each.lcn == hole ? 0 : each.length;
    }
    const std::size_t size = 5 * unit_bytes - 70;
    file_builder& file = volume.add_file("compressed.txt");
    file.data(where, {.real = size,
                      .initialized = size - 500,
                      .compressed = stored_clusters * volume.cluster_size(),
                      .unit = 3,
                      .flags = 1});
    made.order("/compressed.txt", file);
}

damage_volume packed_volume() {
    volume_in_work made("packed", {.sectors_per_cluster = 1, .mft_entries = 48, .system_files = true});
    add_lznt1(made);
    add_wof(made, "xpress4k", 0, 4096 + 4096 + 200,
            {xpress_chunk(1), random_bytes(4096, 2), random_bytes(200, 3)});
    add_wof(made, "xpress8k", 2, 4096, {xpress_chunk(4)});
    add_wof(made, "xpress16k", 3, 16384 + 4096, {random_bytes(16384, 5), xpress_chunk(6)});
    add_wof(made, "lzx", 1, 3000, {lzx_chunk()});
    add_wof(made, "lzx of two", 1, 32768 + 3000, {random_bytes(32768, 7), lzx_chunk()});
    return made.finished();
}

// Directories in a record, in blocks on one level and on two, with streams of each kind in them.
damage_volume indexed_volume() {
    volume_in_work made("indexed", {.bytes_per_sector = 1024,
                                    .sectors_per_cluster = 2,
                                    .record_size = 4096,
                                    .mft_entries = 400,
                                    .system_files = true});
    volume_builder& volume = made.volume;
    const std::size_t cluster = volume.cluster_size();
    file_builder& small =
        volume.add_file("small.txt").data("a few bytes").stream("note", "a stream of few bytes");
    small.short_name("SMALL~1.TXT").hard_link("second name", root_entry);
    made.order("/second name", small);
    made.order("/SMALL~1.TXT", small, "note");
    const bytes grown = pattern(3 * cluster, 21);
    file_builder& file = volume.add_file("grown.bin");
    file.data(grown, stored_at_end(volume, grown), {.real = 3 * cluster - 9, .initialized = cluster + 5});
    made.order("/grown.bin", file);
    file_builder& sparse = volume.add_file("sparse.bin");
    const run first = stored_at_end(volume, pattern(cluster, 22)).front();
    const run last = stored_at_end(volume, pattern(cluster, 23)).front();
    sparse.data(runs({first, {hole, 5}, last}),
                {.real = 7 * cluster - 1, .compressed = 2 * cluster, .flags = 0x8000});
    made.order("/sparse.bin", sparse);
    file_builder& folder = volume.add_directory("folder");
    file_builder& many = volume.add_directory("many", folder.entry());
    many.index_in_blocks();
    for (int i = 0; i < 320; ++i) {
        const std::string name =
            "a file with a name of many letters, so that a block has few, number " + std::to_string(i);
        file_builder& one = volume.add_file(name, many.entry());
        one.data("content of number " + std::to_string(i));
        if (i % 40 == 7) {
            made.order("/folder/many/" + name, one);
        }
    }
    return made.finished();
}

// A stream of `pieces` attributes with two clusters each, every one but the first in a record of its own.
void add_pieces(volume_in_work& made, const std::string& name, const std::string& stream,
                std::uint64_t pieces, bool list_in_clusters) {
    volume_builder& volume = made.volume;
    const std::size_t cluster = volume.cluster_size();
    const std::uint64_t size = 2 * pieces * cluster - 3;
    file_builder& file = volume.add_file(name);
    for (std::uint64_t i = 0; i < pieces; ++i) {
        const bytes content = pattern(2 * cluster, static_cast<std::uint32_t>(31 + i));
        const bool is_first = i == 0;
        attribute_builder piece = attribute_builder::non_resident(0x80, stored_at_end(volume, content))
                                      .lowest_vcn(2 * i)
                                      .allocated(is_first ? 2 * pieces * cluster : 0)
                                      .real(is_first ? size : 0)
                                      .initialized(is_first ? size : 0);
        file.attribute(piece.named(ntfs_name(stream)), is_first ? 0 : file.add_extension());
    }
    if (list_in_clusters) {
        file.list_in_clusters();
    }
    made.order("/" + name, file, stream);
}

damage_volume listed_volume() {
    geometry shape = {.sectors_per_cluster = 1, .mft_entries = 96, .system_files = true};
    // $MFT in three pieces, two of which only an extension record knows. Records straddle them.
    shape.mft_runs = {{300, 81}, {400, 31}, {500, 80}};
    shape.mft_runs_in_record_0 = 1;
    volume_in_work made("listed", shape);
    add_pieces(made, "three pieces", "", 3, false);
    add_pieces(made, "list outside", "", 9, true);
    add_pieces(made, "named", "stream", 4, true);
    file_builder& several = made.volume.add_file("several");
    several.data("the unnamed stream");
    for (int i = 0; i < 4; ++i) {
        const std::string name = "stream " + std::to_string(i);
        several.attribute(attribute_builder::resident(0x80, text_like(300, static_cast<std::uint32_t>(i)))
                              .named(ntfs_name(name)),
                          several.add_extension());
        made.order("/several", several, name);
    }
    file_builder& folder = made.volume.add_directory("folder");
    folder.index_in_blocks();
    folder.index_allocation_in(folder.add_extension());
    for (int i = 0; i < 12; ++i) {
        file_builder& file = made.volume.add_file("file " + std::to_string(i), folder.entry());
        file.data("content " + std::to_string(i));
        if (i % 5 == 0) {
            made.order("/folder/file " + std::to_string(i), file);
        }
    }
    return made.finished();
}

}  // namespace

std::vector<damage_volume> make_damage_volumes() {
    std::vector<damage_volume> all;
    all.push_back(packed_volume());
    all.push_back(indexed_volume());
    all.push_back(listed_volume());
    return all;
}

}  // namespace quarry::test
