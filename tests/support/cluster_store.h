// The clusters of a volume under construction: their bytes, and which of them are taken.
#pragma once

#include "support/byte_writer.h"
#include "support/mapping_pairs.h"

#include <cstdint>
#include <vector>

namespace quarry::test {

class cluster_store {
  public:
    explicit cluster_store(std::size_t cluster_size) : m_cluster_size(cluster_size) {}

    [[nodiscard]] std::size_t cluster_size() const { return m_cluster_size; }
    // Clusters that `size` bytes need.
    [[nodiscard]] std::uint64_t clusters_for(std::uint64_t size) const;
    // Marks clusters as taken, so that `allocate` does not use them. Holes and runs far outside are ignored.
    void take(const run_list& where);
    // The first `count` free clusters that lie side by side.
    [[nodiscard]] run allocate(std::uint64_t count);
    // Writes content through runs, in the order of the runs; holes swallow their part. What is left when the
    // runs are done is an error of the test (std::length_error).
    void write(const run_list& where, const bytes& content);
    void write_at(std::uint64_t position, const bytes& content);
    // One cluster past the last that was taken or written.
    [[nodiscard]] std::uint64_t end_cluster() const;
    [[nodiscard]] bool taken(std::uint64_t lcn) const;
    [[nodiscard]] bytes content(std::uint64_t total_clusters) const;

  private:
    std::size_t m_cluster_size;
    bytes m_bytes;
    std::vector<bool> m_taken;
};

}  // namespace quarry::test
