#include "fuzz/argument_script.h"
#include "fuzz/command_line_input.h"
#include "fuzz/seeds/seeds.h"
#include "support/disk_builder.h"
#include "support/rich_volume.h"
#include "support/vmdk_builder.h"

namespace quarry::fuzz {

namespace {

using words = std::vector<std::string>;

test::bytes seed(const words& arguments, std::string_view lines, const test::bytes& image) {
    return put_together({script_of(arguments), test::to_bytes(lines), whole_file(image)});
}

}  // namespace

void write_command_line_seeds(const seed_writer& seeds) {
    const test::bytes volume = test::small_volume();
    const auto on_volume = [&](const std::string& name, words arguments, std::string_view lines = {}) {
        arguments.insert(arguments.begin(), {"-image", "image"});
        seeds.write(name, seed(arguments, lines, volume));
    };
    on_volume("by_name", {"-src", "small.txt", "-dst", "out.bin", "-meta", "-diags", "log"});
    on_volume("stream_by_hash", {"-src", "small.txt:named", "-dst", "dir/", "-md5", "-meta"});
    on_volume("by_entry", {"-mft", "10", "-dst", "out", "-raw", "-skip_sparse_clusters"});
    on_volume("by_cluster", {"-cluster", "0", "3", "-dst", "dir/", "-meta"});
    on_volume("list", {"-pipe", "-dst", "dir/", "-md5"}, "small.txt\nstored.bin\nmissing\nsparse.bin\n");
    on_volume("filtered",
              {"-pipe", "-filter", "*.txt|*part*", "-dst", "dir/", "-cmd_start_time", "2020-01-01"},
              "small.txt\nstored.bin\n");
    on_volume("over_source", {"-src", "stored.bin", "-dst", "hard", "-out", "link", "-append"});
    seeds.write("drive", seed({"-drivenum", "0", "-src", "small.txt", "-dst", "out", "-meta"}, {}, volume));
    seeds.write("partition", seed({"-partition", "image", "-mft", "10", "-dst", "out"}, {}, volume));
    seeds.write("directory",
                seed({"-enumdir", "dir/", "-num_subdirs", "3", "-dst", "out", "-quiet"}, {}, {}));
    seeds.write("help", seed({"-h"}, {}, {}));
    test::disk_builder disk(96);
    disk.table(0, {{0x07, 8, 80}}).put(8, volume);
    seeds.write("disk", seed({"-image", "image", "-first_ntfsvol", "-src", "small.txt", "-dst", "out"}, {},
                             disk.image()));
    seeds.write("table", seed({"-image", "image", "-src", "small.txt", "-dst", "out"}, {}, disk.image()));
    test::vmdk_builder virtual_disk;
    virtual_disk.put_all(0, disk.image());
    seeds.write("vmdk",
                seed({"-vmdk", "image", "-src", "stored.bin", "-dst", "out"}, {}, virtual_disk.build()));
}

}  // namespace quarry::fuzz
