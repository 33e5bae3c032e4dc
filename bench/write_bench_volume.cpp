// Writes the sources of the benchmarks that no other tool can make in reasonable time.
//
//     write_bench_volume runs PATH COUNT        a volume with /runs.bin, a file of COUNT runs of one cluster
//     write_bench_volume fragments PATH COUNT   the same with clusters of 4 KiB, far apart and in no order
//     write_bench_volume scattered PATH COUNT   a volume with /many, where each 20th file, of COUNT, has data
//     write_bench_volume names PATH COUNT       a volume with /many, a directory of COUNT files
//     write_bench_volume xpress PATH COUNT      a volume with a file of COUNT MiB that the system compressed
//     write_bench_volume lzx PATH COUNT         the same with the other codec
//     write_bench_volume security PATH COUNT    a volume whose $Secure holds COUNT descriptors
//     write_bench_volume chain IMAGE DIR COUNT  the image as COUNT virtual disk files, each a snapshot of the
//     one before
//
// The entry number of the file, and for `security` the size of its stream, go to standard output.
#include "packed_chunks.h"
#include "support/many_names.h"
#include "support/security_builder.h"
#include "support/vmdk_builder.h"
#include "support/volume_builder.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

namespace quarry::test {
namespace {

constexpr std::uint64_t cluster_bytes = 512;

// Single clusters with one to three clusters between them, so that no two runs can be taken for one.
run_list scattered(std::uint64_t first_lcn, std::uint64_t count) {
    run_list list;
    std::uint64_t lcn = first_lcn;
    for (std::uint64_t i = 0; i < count; ++i) {
        list.push_back({static_cast<std::int64_t>(lcn), 1});
        lcn += 2 + i * 7919 % 3;
    }
    return list;
}

// A pair takes three bytes, so that these fit a record of 1024 bytes, and all records a list of 256 KiB,
// which other readers insist on. The first record has names too.
constexpr std::size_t runs_per_record = 280;
constexpr std::size_t runs_in_first_record = 100;

void write_runs(const std::string& path, std::uint64_t count) {
    const std::uint64_t first_lcn = 200'000;
    const run_list all = scattered(first_lcn, count);
    const auto records = static_cast<std::uint32_t>(count / runs_per_record + 64);
    volume_builder volume({.sectors_per_cluster = 1,
                           .mft_entries = records,
                           .total_clusters = first_lcn + 4 * count,
                           .system_files = true});
    file_builder& file = volume.add_file("runs.bin");
    for (std::size_t at = 0, next = 0; at < all.size(); at = next) {
        next = std::min(at + (at == 0 ? runs_in_first_record : runs_per_record), all.size());
        const run_list piece(all.begin() + static_cast<std::ptrdiff_t>(at),
                             all.begin() + static_cast<std::ptrdiff_t>(next));
        if (at == 0) {
            file.data(piece, {.real = count * cluster_bytes, .allocated = count * cluster_bytes});
        } else {
            volume.clusters().take(piece);
            file.attribute(attribute_builder::non_resident(0x80, piece).lowest_vcn(at).allocated(0).real(0),
                           file.add_extension());
        }
    }
    file.list_in_clusters();
    bytes image = volume.image();
    for (std::size_t i = 0; i < all.size(); ++i) {
        const auto at = static_cast<std::size_t>(all[i].lcn) * cluster_bytes;
        for (std::size_t byte = 0; byte < cluster_bytes; byte += 4) {
            image[at + byte] = static_cast<std::uint8_t>(i + byte);
            image[at + byte + 1] = static_cast<std::uint8_t>(i >> 8);
        }
    }
    write_file(path, image);
    std::cout << file.entry() << '\n';
}

// Clusters of 4 KiB, far apart, in an order that looks like work over months.
class places {
  public:
    places(std::uint64_t first_lcn, std::uint64_t count, std::uint64_t distance)
        : m_first(first_lcn), m_count(count), m_distance(distance) {}
    [[nodiscard]] std::uint64_t lcn_of(std::uint64_t number) const {
        // The factor is a prime larger than any count, so that no two numbers have one place.
        return m_first + number * 2'654'435'761U % m_count * m_distance;
    }
    [[nodiscard]] run run_of(std::uint64_t number) const {
        return {static_cast<std::int64_t>(lcn_of(number)), 1};
    }
    [[nodiscard]] std::uint64_t end() const { return m_first + m_count * m_distance; }

  private:
    std::uint64_t m_first;
    std::uint64_t m_count;
    std::uint64_t m_distance;  // clusters
};

// A pair takes up to eight bytes here.
constexpr std::size_t fragments_per_record = 90;
constexpr std::size_t cluster_4k = 4096;

void write_fragments(const std::string& path, std::uint64_t count) {
    const auto records = static_cast<std::uint32_t>(count / fragments_per_record + 64);
    const places where(1000 + records, count, 8);
    volume_builder volume({.mft_entries = records, .total_clusters = where.end(), .system_files = true});
    file_builder& file = volume.add_file("fragments.bin");
    for (std::uint64_t at = 0; at < count; at += fragments_per_record) {
        run_list piece;
        for (std::uint64_t i = at; i < std::min(count, at + fragments_per_record); ++i) {
            piece.push_back(where.run_of(i));
        }
        volume.clusters().take(piece);
        const std::size_t place = file.add_extension();
        const std::uint64_t size = at == 0 ? count * cluster_4k : 0;
        file.attribute(attribute_builder::non_resident(0x80, piece)
                           .lowest_vcn(at)
                           .allocated(size)
                           .real(size)
                           .initialized(size),
                       place);
    }
    file.list_in_clusters();
    bytes image = volume.image();
    for (std::uint64_t i = 0; i < count; ++i) {
        const bytes content = pattern(cluster_4k, static_cast<std::uint32_t>(i));
        std::copy(content.begin(), content.end(),
                  image.begin() + static_cast<std::ptrdiff_t>(where.lcn_of(i) * cluster_4k));
    }
    write_file(path, image);
    std::cout << file.entry() << '\n';
}

// Of so many names in a directory one is wanted: each has a block of the index and a record to itself.
constexpr std::uint64_t names_of_one = 20;

void write_scattered(const std::string& path, std::uint64_t count) {
    const auto records = static_cast<std::uint32_t>(count * names_of_one + 128);
    const places where(1000 + records, count, 32);
    volume_builder volume({.mft_entries = records, .total_clusters = where.end(), .system_files = true});
    const std::uint64_t many = volume.add_directory("many").entry();
    for (std::uint64_t i = 0; i < count * names_of_one; ++i) {
        file_builder& file = volume.add_file("f" + std::to_string(1'000'000 + i).substr(1), many);
        if (i % names_of_one == 0) {
            const std::uint64_t wanted = i / names_of_one;
            file.data(pattern(cluster_4k, static_cast<std::uint32_t>(wanted)), {where.run_of(wanted)});
        }
    }
    volume.write_to(path);
    std::cout << many + 1 << '\n';
}

void write_names(const std::string& path, std::uint64_t count) {
    write_file(path, volume_of_many_names(count));
    std::cout << first_of_many << '\n';
}

// 64 chunks made once, over and over, after the table of their offsets.
void write_system_compressed(const std::string& path, bool is_lzx, std::uint64_t mebibytes) {
    constexpr std::size_t different_chunks = 64;
    constexpr std::size_t xpress_chunk_bytes = 16384;
    const std::size_t chunk_bytes = is_lzx ? lzx_chunk_bytes : xpress_chunk_bytes;
    std::mt19937 random(7);
    std::vector<bytes> chunks;
    for (std::size_t i = 0; i < different_chunks; ++i) {
        chunks.push_back((is_lzx ? lzx_chunk(false, random) : xpress_chunk(chunk_bytes, random)).stored);
    }
    const std::uint64_t size = mebibytes << 20;
    const std::uint64_t count = size / chunk_bytes;
    byte_writer table;
    bytes stored;
    for (std::uint64_t i = 0; i < count; ++i) {
        if (i > 0) {
            table.u32(static_cast<std::size_t>(4 * (i - 1)), static_cast<std::uint32_t>(stored.size()));
        }
        const bytes& chunk = chunks[i % different_chunks];
        stored.insert(stored.end(), chunk.begin(), chunk.end());
    }
    // File provider, version 1; format 1 is LZX, 3 XPRESS with chunks of 16 KiB.
    const bytes value = byte_writer()
                            .u32(0, 0x80000017)
                            .u16(4, 16)
                            .u32(8, 1)
                            .u32(12, 2)
                            .u32(16, 1)
                            .u32(20, is_lzx ? 1 : 3)
                            .take();
    volume_builder volume({.system_files = true});
    file_builder& file =
        volume.add_file("packed").data({{hole, size / cluster_4k}}, {.real = size, .flags = 0x8000});
    file.attribute(attribute_builder::resident(0xC0, value));
    file.stored_stream("WofCompressedData", concat({table.take(), stored}));
    volume.write_to(path);
    std::cout << file.entry() << '\n';
}

void write_security(const std::string& path, std::uint32_t count) {
    std::vector<bytes> descriptors;
    for (std::uint32_t i = 0; i < count; ++i) {
        const bytes user = sid(5, {21, 1000 + i, 2000 + i, 3000 + i, 500 + i});
        const bytes everyone = sid(1, {0});
        descriptors.push_back(
            security_descriptor{.owner = user,
                                .group = sid(5, {32, 544}),
                                .dacl = acl({ace(0, 0x001F01FF, user), ace(0, 0x001200A9, everyone)})}
                .build());
    }
    const bytes stream = sds_stream(descriptors);
    volume_builder volume;
    volume.add_secure(stream);
    // An id in the record of $Bitmap has the descriptors read while the volume is opened.
    volume.file(6).security_id(0x100);
    const std::uint64_t entry = volume.add_file("a.txt").data("a few bytes\n").entry();
    volume.write_to(path);
    std::cout << entry << ' ' << stream.size() << '\n';
}

// Extents of a mebibyte go to the files in an order that looks like work over months.
std::size_t holder(std::uint64_t extent, std::size_t files) {
    return static_cast<std::size_t>(extent * 2'654'435'761U >> 7) % files;
}

void write_chain(const std::string& image_path, const std::filesystem::path& directory, std::size_t files) {
    const bytes image = read_file(image_path);
    constexpr std::uint64_t grain_bytes = 65536;
    constexpr std::uint64_t grains_per_extent = (1 << 20) / grain_bytes;
    const std::uint64_t grains = (image.size() + grain_bytes - 1) / grain_bytes;
    for (std::size_t file = 0; file < files; ++file) {
        vmdk_builder disk;
        disk.grain_sectors = grain_bytes / 512;
        disk.entries_per_table = 512;
        disk.grains = grains;
        disk.cid = std::string("0000000") + "0123456789abcdef"[file % 16];
        disk.parent_cid =
            file == 0 ? "ffffffff" : std::string("0000000") + "0123456789abcdef"[(file - 1) % 16];
        disk.parent_hint = file == 0 ? "" : "disk" + std::to_string(file - 1) + ".vmdk";
        for (std::uint64_t grain = 0; grain < grains; ++grain) {
            if (holder(grain / grains_per_extent, files) == file) {
                const auto begin = image.begin() + static_cast<std::ptrdiff_t>(grain * grain_bytes);
                const auto left = std::min(grain_bytes, image.size() - grain * grain_bytes);
                disk.put(grain, bytes(begin, begin + static_cast<std::ptrdiff_t>(left)));
            }
        }
        disk.write(directory / ("disk" + std::to_string(file) + ".vmdk"));
    }
}

int write(const std::vector<std::string>& words) {
    if (words.size() == 3 && words[0] == "runs") {
        write_runs(words[1], std::stoull(words[2]));
    } else if (words.size() == 3 && words[0] == "fragments") {
        write_fragments(words[1], std::stoull(words[2]));
    } else if (words.size() == 3 && words[0] == "scattered") {
        write_scattered(words[1], std::stoull(words[2]));
    } else if (words.size() == 3 && words[0] == "names") {
        write_names(words[1], std::stoull(words[2]));
    } else if (words.size() == 3 && (words[0] == "xpress" || words[0] == "lzx")) {
        write_system_compressed(words[1], words[0] == "lzx", std::stoull(words[2]));
    } else if (words.size() == 3 && words[0] == "security") {
        write_security(words[1], static_cast<std::uint32_t>(std::stoul(words[2])));
    } else if (words.size() == 4 && words[0] == "chain") {
        write_chain(words[1], words[2], std::stoul(words[3]));
    } else {
        std::cerr
            << "usage: write_bench_volume runs|fragments|scattered|names|xpress|lzx|security PATH COUNT, or "
               "chain IMAGE DIR COUNT\n";
        return 2;
    }
    return 0;
}

}  // namespace
}  // namespace quarry::test

int main(int argc, char** argv) {
    try {
        return quarry::test::write({argv + 1, argv + argc});
    } catch (const std::exception& problem) {
        std::cerr << problem.what() << '\n';
        return 1;
    }
}
