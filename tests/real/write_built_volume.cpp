// Writes a volume made by the builders, and beside it each stream that the volume holds: the means by which
// other tools judge the builders.
//
// Usage: write_built_volume DIRECTORY CLUSTER_BYTES RECORD_BYTES
// In the directory: volume.img, one file for each stream, and streams.tsv with path, entry number, file.

#include "support/volume_builder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

namespace quarry::test {
namespace {

class stream_writer {
  public:
    explicit stream_writer(std::filesystem::path directory)
        : m_directory(std::move(directory)), m_list(m_directory / "streams.tsv") {}
    void note(const std::string& path, const file_builder& file, const bytes& content) {
        const std::string name = "stream" + std::to_string(m_count++);
        write_file(m_directory / name, content);
        m_list << path << '\t' << file.entry() << '\t' << name << '\n';
    }

  private:
    std::filesystem::path m_directory;
    std::ofstream m_list;
    int m_count = 0;
};

void add_plain_files(volume_builder& volume, stream_writer& streams) {
    const bytes small = to_bytes("a few bytes, in the record itself\n");
    file_builder& file = volume.add_file("small.txt").data(small).stream("named", "a stream");
    streams.note("/small.txt", file, small);
    streams.note("/small.txt:named", file, to_bytes("a stream"));
    file_builder& folder = volume.add_directory("Folder");
    const bytes stored = pattern(3 * volume.cluster_size() + 17, 2);
    file_builder& in_folder = volume.add_file("stored.bin", folder.entry()).data(stored);
    in_folder.hard_link("linked.bin", root_entry);
    streams.note("/Folder/stored.bin", in_folder, stored);
    streams.note("/linked.bin", in_folder, stored);
}

void add_fragments(volume_builder& volume, stream_writer& streams) {
    const std::size_t cluster = volume.cluster_size();
    const auto free = static_cast<std::int64_t>(volume.clusters().end_cluster()) + 10;
    // Backwards, with a hole in the middle and the last cluster not full.
    bytes content = pattern(7 * cluster - 5, 3);
    std::fill_n(content.begin() + static_cast<std::ptrdiff_t>(2 * cluster), 3 * cluster, std::uint8_t{0});
    const run_list where = {{free + 6, 1}, {free + 4, 1}, {hole, 3}, {free + 2, 1}, {free, 1}};
    file_builder& file =
        volume.add_file("fragments.bin").data(content, where, {.compressed = 4 * cluster, .flags = 0x8000});
    streams.note("/fragments.bin", file, content);
}

void add_extension_records(volume_builder& volume, stream_writer& streams, bool list_in_clusters) {
    const std::size_t cluster = volume.cluster_size();
    const bytes content = pattern(6 * cluster, 4);
    const run first = volume.clusters().allocate(2);
    const run second = volume.clusters().allocate(3);
    const run third = volume.clusters().allocate(1);
    volume.clusters().write({first, second, third}, content);
    const std::string name = list_in_clusters ? "list outside.bin" : "list inside.bin";
    file_builder& file = volume.add_file(name);
    file.data({first}, {.real = content.size(), .allocated = content.size()});
    const auto continuation = [](run where, std::uint64_t vcn) {
        return attribute_builder::non_resident(0x80, {where}).lowest_vcn(vcn).allocated(0).real(0);
    };
    file.attribute(continuation(second, 2), file.add_extension());
    file.attribute(continuation(third, 5), file.add_extension());
    if (list_in_clusters) {
        file.list_in_clusters();
    }
    streams.note("/" + name, file, content);
}

void add_large_directory(volume_builder& volume, stream_writer& streams) {
    file_builder& folder = volume.add_directory("many");
    for (int i = 0; i < 400; ++i) {
        const std::string name = "file " + std::to_string(i) + " of four hundred.txt";
        const bytes content = to_bytes("number " + std::to_string(i));
        file_builder& file = volume.add_file(name, folder.entry()).data(content);
        if (i % 57 == 0) {
            streams.note("/many/" + name, file, content);
        }
    }
}

void write_volume(const std::filesystem::path& directory, std::uint32_t cluster, std::uint32_t record) {
    const std::uint32_t entries = 512;
    const std::int64_t per_record_run = std::int64_t{256} * record / cluster;
    const auto half = static_cast<std::uint64_t>(per_record_run);
    const std::int64_t first = 16384 / cluster + 1;
    // $MFT in two fragments, the second known only to an extension record.
    volume_builder volume({.sectors_per_cluster = cluster / 512,
                           .record_size = record,
                           .mft_entries = entries,
                           .mft_runs = {{first, half}, {first + 2 * per_record_run, half}},
                           .mft_runs_in_record_0 = 1,
                           .system_files = true});
    stream_writer streams(directory);
    add_plain_files(volume, streams);
    add_fragments(volume, streams);
    add_extension_records(volume, streams, false);
    add_extension_records(volume, streams, true);
    add_large_directory(volume, streams);
    volume.write_to(directory / "volume.img");
}

}  // namespace
}  // namespace quarry::test

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: write_built_volume DIRECTORY CLUSTER_BYTES RECORD_BYTES\n";
        return 2;
    }
    try {
        quarry::test::write_volume(argv[1], static_cast<std::uint32_t>(std::stoul(argv[2])),
                                   static_cast<std::uint32_t>(std::stoul(argv[3])));
    } catch (const std::exception& problem) {
        std::cerr << problem.what() << '\n';
        return 1;
    }
    return 0;
}
