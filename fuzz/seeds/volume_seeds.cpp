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

constexpr std::uint64_t gibibyte = std::uint64_t{1} << 30;
constexpr std::uint64_t tebibyte = 1024 * gibibyte;
// A cluster of 512 bytes in the hole of such a file, and clusters from there on.
constexpr std::int64_t far_cluster = std::int64_t{1} << 22;
constexpr std::uint64_t far_clusters = std::uint64_t{1} << 29;

// $MFT, an attribute list, an index and a stream that claim the hole of a file of a tebibyte.
bytes claims_of_holes() {
    volume_builder volume({.sectors_per_cluster = 1, .mft_entries = 26, .mft_runs = {{2, 52}}});
    volume.add_file_at(8, "list.bin")
        .attribute(attribute_builder::non_resident(0x20, {{far_cluster, far_clusters}}));
    file_builder& folder = volume.add_directory("folder");
    folder.without_index();
    folder.attribute(
        attribute_builder::resident(0x90, build_index_root({}, true, index_block_size, 512)).named("$I30"));
    folder.attribute(attribute_builder::non_resident(0xA0, {{far_cluster, far_clusters}}).named("$I30"));
    volume.add_file_at(10, "stream.bin").data(runs({{far_cluster, far_clusters}}));
    volume.file(0).attribute(attribute_builder::non_resident(0x20, {{far_cluster, 4096}}));
    volume.force_boot(40, 8, tebibyte / 512);
    return volume.image();
}

// Files and a directory whose lists name the record of a file of very many runs, again and again.
bytes lists_of_many_runs() {
    volume_builder volume(small_geometry());
    std::vector<list_item> items;
    for (int i = 0; i < 14; ++i) {
        items.push_back({.type = 0x80, .record = 12, .id = 1});
    }
    volume.write_clusters(80, build_attribute_list(items));
    const run_list again = {{80, 1}, {80, 1}, {80, 1}, {80, 1}, {80, 1}, {80, 1}, {80, 1}, {80, 1}};
    for (std::uint64_t entry = 8; entry < 12; ++entry) {
        volume.add_file_at(entry, "file" + std::to_string(entry))
            .attribute(attribute_builder::non_resident(0x20, again));
    }
    run_list many;
    for (std::int64_t i = 0; i < 150; ++i) {
        many.push_back({90 + i % 2 * 4, 1});
    }
    volume.add_file_at(12, "runs.bin").data(many);
    return volume.image();
}

}  // namespace

void write_volume_seeds(const seed_writer& seeds) {
    seeds.write("small", whole_file(small_volume()));
    seeds.write("rich", whole_file(rich_volume({.sectors_per_cluster = 1, .mft_entries = 56}, 10, true)));
    seeds.write("clusters_of_4096", whole_file(rich_volume({.mft_entries = 40}, 3, false)));
    seeds.write("records_of_4096",
                rich_volume({.sectors_per_cluster = 2, .record_size = 4096, .mft_entries = 38}, 1, false));
    seeds.write("shared_lists", whole_file(shared_lists()));
    for (const std::uint32_t sectors : {3u, 5u, 7u}) {
        seeds.write("clusters_of_" + std::to_string(512 * sectors),
                    whole_file(rich_volume({.sectors_per_cluster = sectors, .mft_entries = 40}, 3, false)));
    }
    seeds.write("sectors_of_3000",
                whole_file(rich_volume(
                    {.bytes_per_sector = 3000, .sectors_per_cluster = 1, .mft_entries = 40, .stride = 3000},
                    3, false)));
    seeds.write("claims_of_holes", whole_file(claims_of_holes(), tebibyte));
    seeds.write("lists_of_many_runs", whole_file(lists_of_many_runs(), tebibyte));
    volume_builder forced(small_geometry());
    // A record larger than its volume says, and runs that lead outside.
    forced.add_file_at(10, "outside.bin").data(runs({{0x7FFFFF, 4}, {5, 1}}));
    forced.add_file_at(11, "terabytes.bin").data(runs({{hole, 0xFFFFFFF0}}), {.flags = 0x8000});
    forced.force_record(0, 28, 4, 2048);
    seeds.write("odd", whole_file(forced.image()));
}

}  // namespace quarry::fuzz
