// Sources that claim much and store little: a file with holes, structures that lie over each other. Each run
// ends soon and in little memory, whatever comes of it.

#include "cli/command_line.h"
#include "support/requirements.h"
#include "support/sparse_file.h"
#include "support/vmdk_builder.h"

namespace quarry::test {
namespace {

constexpr std::uint64_t mebibyte = 1ULL << 20;
constexpr std::uint64_t gibibyte = 1ULL << 30;
constexpr std::uint64_t tebibyte = 1ULL << 40;

class sparse_sources : public command_line_test {
  protected:
    void SetUp() override {
        QUARRY_NEEDS(keeps_holes(m_dir.path(), tebibyte), "the file system keeps no holes of a tebibyte");
    }
    // Runs to an end, whatever comes of it, and gives what was said on standard error.
    std::string expect_end(std::vector<std::string> words, std::uint64_t most_memory,
                           std::string lines = {}) const {
        const program_result result = run(std::move(words), {.standard_input = std::move(lines),
                                                             .time_limit = std::chrono::seconds(20),
                                                             .memory_limit = most_memory});
        EXPECT_TRUE(result.exited) << result.signal << result.err;
        EXPECT_FALSE(result.timed_out);
        EXPECT_EQ(result.err.find("bad_alloc"), std::string::npos) << result.err;
        return result.err;
    }
};

// An extension record of a quarter of a mebibyte with 129,000 runs of two bytes each, named 4,000 times.
TEST_F(sparse_sources, whose_file_table_names_a_record_of_129000_runs_4000_times_open_soon) {
    constexpr std::uint32_t record_size = 256 * 1024;
    volume_builder volume({.bytes_per_sector = 32768,
                           .sectors_per_cluster = 1,
                           .record_size = record_size,
                           .mft_entries = 32,
                           .stride = 32768});
    bytes pairs;
    for (int i = 0; i < 129'000; ++i) {
        pairs.insert(pairs.end(), {0x01, 0x01});
    }
    pairs.push_back(0);
    volume.replace_record(20, volume.new_record(20)
                                  .base(reference(0, 1))
                                  .add(attribute_builder::with_pairs(0x80, pairs).id(3))
                                  .build());
    std::vector<list_item> items(4000, {.type = 0x80, .record = 20, .id = 3});
    volume.file(0).attribute_list(build_attribute_list(items));
    volume.add_file("a.txt").data("hello world\n");
    write_sparse_file(m_dir / "image", {{0, volume.image()}}, tebibyte);
    expect_end({"-image", "image", "-src", "/a.txt", "-dst", "o"}, 512 * mebibyte);
    EXPECT_EQ(text("o"), "hello world\n");
}

// $MFT lies over itself, so that 2,400 children are the same 24 files, each with an attribute list of half
// a mebibyte that names all of them.
TEST_F(sparse_sources, whose_directories_show_the_same_files_over_and_over_are_searched_soon) {
    byte_writer list(512 * 1024);
    for (std::uint32_t at = 0; at + 32 < 512 * 1024; at += 32) {
        list.u32(at, 0x30).u16(at + 4, 32).u48(at + 16, 24 + at / 32 % 24);
    }
    volume_builder volume({.mft_runs = {{4, 12}, {20, 4}}});
    volume.write_clusters(1000, list.take());
    for (int i = 0; i < 24; ++i) {
        volume.add_file("file" + std::to_string(i))
            .unindexed()
            .attribute(attribute_builder::non_resident(0x20, {{1000, 128}}));
    }
    run_list mft;
    volume.root().index_in_blocks();
    for (std::uint64_t cycle = 0; cycle < 100; ++cycle) {
        mft.push_back({4, 12});
        for (std::uint64_t entry = 24; entry < 48; ++entry) {
            volume.root().extra_entry({.file_reference = reference(cycle * 48 + entry, 1), .key = bytes(80)});
        }
    }
    volume.file(0).attribute(attribute_builder::non_resident(0x80, mft).id(20));
    write_sparse_file(m_dir / "image", {{0, volume.image()}}, tebibyte);
    expect_end({"-image", "image", "-src", "/none", "-dst", "o"}, 512 * mebibyte);
}

// An index of the holes of a tebibyte.
TEST_F(sparse_sources, whose_index_is_all_of_the_hole_are_searched_soon) {
    volume_builder volume;
    volume.root().without_index();
    volume.root().attribute(attribute_builder::resident(0x90, build_index_root({}, true)).named("$I30"));
    volume.root().attribute(attribute_builder::non_resident(0xA0, runs({{1000, 0xF000000}})).named("$I30"));
    write_sparse_file(m_dir / "image", {{0, volume.image()}}, tebibyte);
    expect_end({"-image", "image", "-src", "/none", "-dst", "o"}, 512 * mebibyte);
}

// The header of a virtual disk: grain directory from sector `directory` on, and so much metadata.
bytes virtual_disk_header(std::uint32_t entries_per_table, std::uint32_t overhead) {
    vmdk_builder file;
    file.force(vmdk_builder::at_capacity, 8, 0x100000);
    file.force(vmdk_builder::at_directory_offset, 8, 8);
    file.force(vmdk_builder::at_entries_per_table, 4, entries_per_table);
    file.force(vmdk_builder::at_overhead, 8, overhead);
    bytes head = file.build();
    head.resize(4096);
    return head;
}

// The first entry of the directory, which says where the directory ends, and a hole for the others.
TEST_F(sparse_sources, with_a_grain_directory_over_a_hole_of_4_gibibytes_open_soon) {
    byte_writer first_entry(4096);
    first_entry.u32(0, 0x7FFFFF);
    write_sparse_file(m_dir / "disk", {{0, virtual_disk_header(512, 0x7FFFFF)}, {4096, first_entry.take()}},
                      4 * gibibyte);
    EXPECT_EQ(expect_end({"-vmdk", "disk", "-src", "/a.txt", "-dst", "o"}, 512 * mebibyte),
              "couldn't find any partitions on disk\n\n");
}

// Sixty-four tables of 4 GiB each.
TEST_F(sparse_sources, with_grain_tables_over_a_hole_of_256_gibibytes_open_soon) {
    byte_writer directory(4096);
    for (std::uint32_t table = 0; table < 64; ++table) {
        directory.u32(4 * table, 16 + table * 0x800000);
    }
    directory.u32(0, 16);
    bytes head = virtual_disk_header(0x40000000, 16);
    write_sparse_file(m_dir / "disk", {{0, head}, {4096, directory.take()}}, 256 * gibibyte);
    EXPECT_EQ(expect_end({"-vmdk", "disk", "-src", "/a.txt", "-dst", "o"}, 512 * mebibyte),
              "couldn't find any partitions on disk\n\n");
}

// 4,000 directories whose index is the same 1.4 MB, of 60,000 children that are not there.
TEST_F(sparse_sources, with_a_list_of_4000_directories_that_share_an_index_are_searched_soon) {
    constexpr std::uint64_t children = 60'000;
    volume_builder volume({.mft_entries = 4200});
    std::vector<index_entry> entries;
    bytes index;
    index_block_builder block;
    std::size_t in_block = 0;
    for (std::uint64_t child = 0; child < children; ++child) {
        block.add({.file_reference = reference(100'000 + child, 1), .key = bytes(8)});
        if (++in_block == 160 || child + 1 == children) {
            const bytes built = block.build();
            index.insert(index.end(), built.begin(), built.end());
            block = index_block_builder();
            in_block = 0;
        }
    }
    volume.write_clusters(1200, index);
    const std::uint64_t clusters = index.size() / 4096;
    std::string lines;
    for (int i = 0; i < 4000; ++i) {
        const std::string name = "d" + std::to_string(i);
        volume.add_directory(name)
            .without_index()
            .attribute(attribute_builder::resident(0x90, build_index_root({}, true)).named("$I30"))
            .attribute(attribute_builder::non_resident(0xA0, {{1200, clusters}}).named("$I30"));
        lines += "/" + name + "/x\n";
    }
    volume.write_to(m_dir / "image");
    const std::string said = expect_end({"-image", "image", "-pipe", "-dst", "o"}, 256 * mebibyte, lines);
    std::size_t failed = 0;
    for (std::size_t at = said.find("failed: "); at != std::string::npos;
         at = said.find("failed: ", at + 1)) {
        ++failed;
    }
    EXPECT_EQ(failed, 4000U);
}

}  // namespace
}  // namespace quarry::test
