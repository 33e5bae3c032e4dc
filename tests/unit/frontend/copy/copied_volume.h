// The volume that tests of the copy read: a file "a.txt" and clusters of known content.
#pragma once

#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <filesystem>
#include <string>

namespace quarry::test {

inline std::string text_of(const std::filesystem::path& path) {
    const bytes content = read_file(path);
    return {content.begin(), content.end()};
}

// Its clusters from 120 on hold a pattern.
inline bytes copied_volume() {
    volume_builder volume;
    volume.add_file("a.txt").data("hello");
    volume.write_clusters(120, pattern(4096 * 3));
    return volume.image();
}

inline std::string clusters_of_copied_volume(std::size_t first, std::size_t count) {
    const bytes image = copied_volume();
    return std::string(image.begin(), image.end()).substr(first * 4096, count * 4096);
}

}  // namespace quarry::test
