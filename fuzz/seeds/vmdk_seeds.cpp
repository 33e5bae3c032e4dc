#include "fuzz/seeds/seeds.h"
#include "support/rich_volume.h"
#include "support/vmdk_builder.h"

namespace quarry::fuzz {

namespace {

using namespace quarry::test;

constexpr std::uint64_t gibibyte = std::uint64_t{1} << 30;

vmdk_builder small_disk() {
    vmdk_builder disk;
    disk.put(0, pattern(4096, 1)).put(3, pattern(4096, 2)).put(20, pattern(4096, 3));
    return disk;
}

// A grain directory of four gibibytes, all of it in the hole of its file.
bytes directory_in_hole() {
    vmdk_builder disk = small_disk();
    disk.force(vmdk_builder::at_capacity, 8, std::uint64_t{1} << 37);
    disk.force(vmdk_builder::at_directory_offset, 8, std::uint64_t{1} << 21);
    disk.force(vmdk_builder::at_overhead, 8, std::uint64_t{1} << 33);
    return disk.build();
}

// A directory whose entries lead to tables of gibibytes in the hole of their file.
bytes tables_in_hole() {
    vmdk_builder disk = small_disk();
    disk.force(vmdk_builder::at_capacity, 8, std::uint64_t{1} << 35);
    disk.force(vmdk_builder::at_entries_per_table, 4, std::uint64_t{1} << 28);
    disk.force(vmdk_builder::at_overhead, 8, std::uint64_t{1} << 33);
    for (std::uint64_t table = 0; table < disk.directory_entries(); ++table) {
        disk.force(disk.directory_offset() + 4 * table, 4, 0x200000 * (table + 1));
    }
    return disk.build();
}

bytes chain(const bytes& first, const bytes& second) {
    byte_writer out;
    out.u32(0, static_cast<std::uint32_t>(first.size()));
    return concat({out.take(), first, second});
}

}  // namespace

void write_vmdk_file_seeds(const seed_writer& seeds) {
    seeds.write("directory_in_hole", whole_file(directory_in_hole(), 1024 * gibibyte));
    seeds.write("tables_in_hole", whole_file(tables_in_hole(), 1024 * gibibyte));
}

void write_vmdk_chain_seeds(const seed_writer& seeds) {
    vmdk_builder newest = small_disk();
    newest.cid = "c0000001";
    newest.parent_cid = "c0000000";
    newest.parent_hint = "first";
    seeds.write("base_with_holes",
                chain(whole_file(tables_in_hole(), 1024 * gibibyte), whole_file(newest.build())));
    seeds.write("long_snapshot",
                chain(whole_file(small_disk().build()), whole_file(newest.build(), 4096 * gibibyte)));
}

}  // namespace quarry::fuzz
