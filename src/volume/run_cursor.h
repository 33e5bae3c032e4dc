// The clusters of a stream, asked for one after the other.
//
// find_run searches a list from its front for each question. That is right for one question and far too slow
// for a stream that is read from end to end: a file of a million runs would cost a million times half a
// million steps. A cursor accompanies the list, remembers where the last answer was, and goes on from there.
// Its answers are those of find_run on every list, also on one that damage has put out of order.
#pragma once

#include "volume/runs.h"

#include <cstddef>
#include <cstdint>

namespace quarry {

class run_cursor {
  public:
    // Clusters that follow one another in the stream and on the volume.
    struct stretch {
        std::uint64_t lcn = 0;  // 0 if sparse
        std::uint64_t length_in_clusters = 0;
        bool sparse = false;
    };

    // `runs` must outlive the cursor and stay as it is.
    explicit run_cursor(const cluster_run_list& runs);

    // What lies at a VCN, and how far the answer holds: up to the end of the run, or for one cluster in a
    // list whose runs overlap. False if no run covers the VCN; `out` is then as it was.
    [[nodiscard]] bool find(std::uint64_t vcn, stretch& out);

  private:
    [[nodiscard]] bool find_in_order(const cluster_run_list& runs, std::uint64_t vcn, std::size_t& index);

    // The list in the order in which it is searched; null where that is no order at all.
    [[nodiscard]] const cluster_run_list* ordered() const;

    const cluster_run_list& m_runs;
    bool m_in_order;
    // The runs by VCN where the list itself has them in another order; empty if that leaves some overlapping.
    cluster_run_list m_sorted;
    std::size_t m_last = 0;
};

}  // namespace quarry
