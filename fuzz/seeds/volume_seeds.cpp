#include "fuzz/seeds/seeds.h"
#include "support/rich_volume.h"

namespace quarry::fuzz {

namespace {

using namespace quarry::test;

// Files whose lists lie over each other and name the records of all of them.
bytes shared_lists() {
    constexpr std::uint64_t first = 8;
    constexpr std::uint64_t files = 5;
    volume_builder volume(small_geometry());
    std::vector<list_item> items;
    for (std::uint64_t i = 0; i < 3 * files; ++i) {
        items.push_back({.type = i % 2 == 0 ? 0x80u : 0x30u, .record = first + i % files, .id = 2});
    }
    volume.write_clusters(80, build_attribute_list(items));
    for (std::uint64_t i = 0; i < files; ++i) {
        volume.add_file_at(first + i, "file" + std::to_string(i))
            .attribute(attribute_builder::non_resident(0x20, {{80, 1}}));
    }
    return volume.image();
}

}  // namespace

void write_volume_seeds(const seed_writer& seeds) {
    seeds.write("small", small_volume());
    seeds.write("rich", rich_volume({.sectors_per_cluster = 1, .mft_entries = 56}, 10, true));
    seeds.write("clusters_of_4096", rich_volume({.mft_entries = 40}, 3, false));
    seeds.write("records_of_4096",
                rich_volume({.sectors_per_cluster = 2, .record_size = 4096, .mft_entries = 38}, 1, false));
    seeds.write("shared_lists", shared_lists());
    volume_builder forced(small_geometry());
    // A record larger than its volume says, and runs that lead outside.
    forced.add_file_at(10, "outside.bin").data(runs({{0x7FFFFF, 4}, {5, 1}}));
    forced.add_file_at(11, "terabytes.bin").data(runs({{hole, 0xFFFFFFF0}}), {.flags = 0x8000});
    forced.force_record(0, 28, 4, 2048);
    seeds.write("odd", forced.image());
}

}  // namespace quarry::fuzz
