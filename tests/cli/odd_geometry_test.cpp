// Clusters and sectors that no power of two divides, through every way to a copy.

#include "cli/command_line.h"
#include "support/lznt1_encoder.h"
#include "support/requirements.h"
#include "support/sample_text.h"

#include <algorithm>

namespace quarry::test {
namespace {

// The fixture has a function of the same name.
using placed_run = run;

struct geometry_case {
    std::uint32_t bytes_per_sector;
    std::uint32_t sectors_per_cluster;
};

class odd_geometry : public command_line_test, public testing::WithParamInterface<geometry_case> {
  protected:
    // Entry 24 /pieces, 25 its extension record, 26 /packed, 27 /dir, 28 /dir/inner.
    odd_geometry()
        : m_cluster(std::size_t{GetParam().bytes_per_sector} * GetParam().sectors_per_cluster),
          m_volume({.bytes_per_sector = GetParam().bytes_per_sector,
                    .sectors_per_cluster = GetParam().sectors_per_cluster,
                    .mft_entries = 32,
                    .stride = std::max(GetParam().bytes_per_sector, 512u)}) {
        m_volume.force_boot(64, 1, 0xF6);
        add_pieces();
        add_packed();
        add_directory();
        m_volume.write_to(m_dir / "disk");
    }

    // Two pieces in two records, which a list in clusters names.
    void add_pieces() {
        m_pieces = text_like(3 * m_cluster, 1);
        file_builder& file = m_volume.add_file("pieces");
        const std::size_t second = file.add_extension();
        file.list_in_clusters();
        const placed_run first = place(bytes(m_pieces.begin(), m_pieces.begin() + 2 * difference(m_cluster)));
        const placed_run last = place(bytes(m_pieces.begin() + 2 * difference(m_cluster), m_pieces.end()));
        file.attribute(attribute_builder::non_resident(0x80, {first})
                           .cluster_size(m_cluster)
                           .allocated(3 * m_cluster)
                           .real(3 * m_cluster)
                           .initialized(3 * m_cluster)
                           .id(5));
        file.attribute(
            attribute_builder::non_resident(0x80, {last}).cluster_size(m_cluster).lowest_vcn(2).id(6),
            second);
    }

    // One unit of chunks in as many clusters as it needs.
    void add_packed() {
        m_packed = bytes(8 * m_cluster, 'p');
        const bytes chunks = lznt1_chunks(m_packed);
        const placed_run stored = place(chunks);
        m_volume.add_file("packed").data({stored, {hole, 16 - stored.length}},
                                         {.real = m_packed.size(),
                                          .initialized = m_packed.size(),
                                          .allocated = 16 * m_cluster,
                                          .compressed = stored.length * m_cluster,
                                          .unit = 4,
                                          .flags = 1});
    }

    // A directory whose only child is named in an index block of as many whole clusters as fit one.
    void add_directory() {
        const std::size_t whole = m_cluster < 4096 ? 4096 / m_cluster * m_cluster : m_cluster;
        m_block = index_block_builder(4096, 4096)
                      .add(name_entry(reference(28, 1), {.parent = reference(27, 1), .name = "inner"}))
                      .force_on_disk(6, 2, 1)
                      .build();
        m_block.resize(whole);
        const placed_run where = place(m_block);
        m_volume.add_directory("dir")
            .without_index()
            .attribute(attribute_builder::resident(0x90, build_index_root({}, true)).named("$I30"))
            .attribute(attribute_builder::non_resident(0xA0, {where})
                           .cluster_size(m_cluster)
                           .named("$I30")
                           .real(whole));
        m_volume.add_file("inner", 27).data("inside\n");
    }

    placed_run place(const bytes& content) {
        const placed_run where =
            m_volume.clusters().allocate(m_volume.clusters().clusters_for(content.size()));
        m_volume.clusters().take({where});
        m_volume.clusters().write({where}, content);
        return where;
    }
    static std::ptrdiff_t difference(std::size_t count) { return static_cast<std::ptrdiff_t>(count); }

    [[nodiscard]] bytes copy_of(std::vector<std::string> words) {
        words.insert(words.begin(), {"-image", "disk"});
        words.insert(words.end(), {"-dst", "copy"});
        const program_result result = run(words);
        EXPECT_EQ(result.status, 0);
        return std::filesystem::exists(m_dir / "copy") ? read_file(m_dir / "copy") : bytes();
    }
    std::size_t m_cluster;
    volume_builder m_volume;
    bytes m_pieces;
    bytes m_packed;
    bytes m_block;
};

TEST_P(odd_geometry, finds_a_file_through_an_index_block) {
    EXPECT_EQ(copy_of({"-src", "/dir/inner"}), to_bytes("inside\n"));
}

TEST_P(odd_geometry, copies_the_blocks_of_an_index) {
    EXPECT_EQ(copy_of({"-src", "/dir:$I30", "-raw"}), m_block);
    EXPECT_EQ(copy_of({"-src", "/dir:$I30"}), m_block) << "nothing is protected, so nothing is restored";
}

TEST_P(odd_geometry, follows_an_attribute_list_in_clusters) {
    EXPECT_EQ(copy_of({"-src", "/pieces"}), m_pieces);
    EXPECT_EQ(copy_of({"-src", "/pieces", "-raw"}), m_pieces);
    EXPECT_EQ(copy_of({"-mft", "24"}), m_pieces);
}

TEST_P(odd_geometry, decompresses_a_compressed_stream) {
    EXPECT_EQ(copy_of({"-src", "/packed"}), m_packed);
}

TEST_P(odd_geometry, copies_clusters) {
    QUARRY_NEEDS_ROOT();
    const bytes image = read_file(m_dir / "disk");
    const auto begin = image.begin() + 3 * difference(m_cluster);
    EXPECT_EQ(copy_of({"-cluster", "3", "2"}), bytes(begin, begin + 2 * difference(m_cluster)));
}

INSTANTIATE_TEST_SUITE_P(shapes, odd_geometry,
                         testing::Values(geometry_case{512, 3}, geometry_case{512, 5}, geometry_case{512, 6},
                                         geometry_case{512, 7}, geometry_case{512, 255},
                                         geometry_case{2049, 1}, geometry_case{1365, 2},
                                         geometry_case{4095, 1}, geometry_case{1000, 3},
                                         geometry_case{1023, 255}),
                         [](const auto& shape) {
                             return std::to_string(shape.param.sectors_per_cluster) + "_sectors_of_" +
                                    std::to_string(shape.param.bytes_per_sector);
                         });

}  // namespace
}  // namespace quarry::test
