// Mapping pairs: the packed form in which a non-resident attribute stores where its clusters lie.
#pragma once

#include "support/byte_writer.h"

#include <cstdint>
#include <initializer_list>
#include <vector>

namespace quarry::test {

// In place of an LCN: these clusters are not on disk.
inline constexpr std::int64_t hole = -1;

struct run {
    std::int64_t lcn;
    std::uint64_t length;  // clusters
};
using run_list = std::vector<run>;

// Lets a test say runs({{100, 8}, {hole, 16}}).
[[nodiscard]] inline run_list runs(std::initializer_list<run> list) {
    return list;
}

// Clusters of all runs, holes included.
[[nodiscard]] std::uint64_t clusters_of(const run_list& list);

// The pairs with their terminating zero. Lengths and deltas take as few bytes as keep their sign bit clear or
// right, which is how the file system itself writes them.
[[nodiscard]] bytes encode_mapping_pairs(const run_list& list);

}  // namespace quarry::test
