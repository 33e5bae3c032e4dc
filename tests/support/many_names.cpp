#include "support/many_names.h"

#include "support/index_tree.h"
#include "support/volume_builder.h"

#include <algorithm>
#include <string>

namespace quarry::test {

namespace {

std::string name_of(std::uint64_t number) {
    return "file" + std::to_string(10'000'000 + number).substr(1) + ".txt";
}

// The directory, with its names in index blocks.
void add_index(volume_builder& volume, file_builder& many, std::uint64_t count) {
    std::vector<index_entry> entries;
    entries.reserve(static_cast<std::size_t>(count));
    for (std::uint64_t i = 0; i < count; ++i) {
        const file_name name = {.parent = many.file_reference(), .name = name_of(i)};
        entries.push_back(name_entry(reference(first_of_many + i, 1), name));
    }
    const index_tree tree = build_index_tree(std::move(entries), volume.cluster_size(), 512);
    const auto stored = [&](std::uint32_t type, const bytes& content) {
        const run where = volume.clusters().allocate(volume.clusters().clusters_for(content.size()));
        volume.clusters().write({where}, content);
        return attribute_builder::non_resident(type, {where}).named("$I30").real(content.size());
    };
    many.attribute(attribute_builder::resident(0x90, build_index_root(tree.root, true)).named("$I30"));
    many.attribute(stored(0xA0, tree.blocks));
    // A bit for each block; all of them are in use.
    many.attribute(stored(0xB0, bytes((tree.live_blocks + 63) / 64 * 8, 0xFF)));
}

}  // namespace

bytes volume_of_many_names(std::uint64_t count) {
    volume_builder volume(
        {.mft_entries = static_cast<std::uint32_t>(first_of_many + count), .system_files = true});
    file_builder& many = volume.add_directory("many").without_index();
    add_index(volume, many, count);
    bytes image = volume.image();
    // The records go straight into the image: so many builders of files would take many times their size.
    const bytes information = standard_information().build();
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint64_t entry = first_of_many + i;
        const file_name name = {.parent = many.file_reference(), .name = name_of(i)};
        const bytes record = volume.new_record(entry)
                                 .add(attribute_builder::resident(0x10, information))
                                 .add(attribute_builder::resident(0x30, name.build()))
                                 .add(attribute_builder::resident(0x80, to_bytes(name_of(i))))
                                 .build();
        std::copy(record.begin(), record.end(),
                  image.begin() + static_cast<std::ptrdiff_t>(volume.record_position(entry)));
    }
    return image;
}

}  // namespace quarry::test
