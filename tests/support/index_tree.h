// Entries of a directory spread over index blocks as a B-tree whose top node fits a file record.
#pragma once

#include "support/index_builder.h"

#include <cstdint>
#include <vector>

namespace quarry::test {

struct index_tree {
    std::vector<index_entry> root;  // entries of $INDEX_ROOT, each with its sub-node
    bytes blocks;                   // the stream of $INDEX_ALLOCATION
    std::size_t live_blocks = 0;
};

// `entries` in collation order. `cluster_size` decides in which unit the sub-nodes are counted; `stride` is
// the distance of the protected sector ends, both in bytes.
[[nodiscard]] index_tree build_index_tree(std::vector<index_entry> entries, std::size_t cluster_size,
                                          std::size_t stride);

}  // namespace quarry::test
