// Volumes with everything that the exact mode reads, for damage of every kind.
#pragma once

#include "support/byte_writer.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quarry::test {

// A stream as it is asked for: by path or, where that is empty, by entry; with a name of the stream or none.
struct damage_order {
    std::string path;
    std::uint64_t entry = 0;
    std::string stream;
};

struct damage_volume {
    std::string name;
    bytes image;
    std::vector<damage_order> orders;
};

// Compressed streams in all codecs, a tree of index blocks, and lists of attributes, one volume each.
[[nodiscard]] std::vector<damage_volume> make_damage_volumes();

}  // namespace quarry::test
