// Cluster runs: mapping pairs decoded, and the operations on lists of runs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "foundation/byte_view.h"

namespace quarry {

struct INODE_STATS;

// One mapping pair in full.
struct data_run {
    std::uint64_t lcn = 0;
    std::uint64_t delta = 0;
    std::uint32_t num_clusters = 0;
    std::uint64_t vcn = 0;
    bool negative = false;
    bool resident = false;
    std::vector<std::uint8_t> bytes;
    std::uint32_t value_size = 0;
    std::uint32_t attr_type = 0;
    std::string label;
    std::uint64_t offset = 0;
    std::vector<std::uint8_t> pair;
    std::vector<std::uint8_t> following;
};
using data_run_list = std::vector<data_run>;

// The compact form on which stream reading works.
struct cluster_run {
    std::uint64_t lcn = 0;
    std::uint64_t vcn = 0;
    bool sparse = false;
    std::uint32_t length = 0;
};
using cluster_run_list = std::vector<cluster_run>;

// LCN of a sparse run in what decode_mapping_pairs gives.
inline constexpr std::uint64_t sparse_lcn = ~std::uint64_t{0};

[[nodiscard]] bool decode_mapping_pairs(byte_view pairs, data_run_list& list, std::uint32_t attribute_type,
                                        bool clear);
[[nodiscard]] bool decode_runs(byte_view attribute, data_run_list& list);
bool to_cluster_runs(const data_run_list& runs, cluster_run_list& list);
void number_runs(INODE_STATS& stats);
void merge_runs(const cluster_run_list& new_runs, cluster_run_list& existing);
void drop_sparse_runs(cluster_run_list& list);
[[nodiscard]] bool find_run(const cluster_run_list& list, std::uint64_t vcn, std::size_t& index, std::uint64_t& lcn);
// Bytes of all runs; leaves sparse runs out if asked to.
[[nodiscard]] std::uint64_t run_bytes(const cluster_run_list& list, std::uint64_t cluster_size, bool skip_sparse);
// Clusters of a $DATA list: 0 if empty, 1 if resident, else the sum of the lengths, sparse runs included.
[[nodiscard]] std::uint64_t count_clusters(const data_run_list& list);

}  // namespace quarry
