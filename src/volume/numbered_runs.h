// A long run list into which runs are put one piece after the other.
//
// The pieces of an attribute are stored in the order of their VCNs, so that as a rule each is appended. A
// prepared attribute may have its pieces between each other, thousands of them. merge_runs walks the whole
// list for each; this class gives the same list and works only where runs come in.
//
// The list is kept in blocks. The VCN of a run counts from the start of its block, so that a block that grows
// moves those after it by one addition each.
#pragma once

#include "volume/runs.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace quarry {

class numbered_runs {
  public:
    // `numbered`: a list as merge_runs leaves it, numbered from VCN 0 without gaps.
    explicit numbered_runs(const cluster_run_list& numbered);

    // The list becomes what merge_runs(piece, list) makes of it.
    void merge(cluster_run_list piece);
    [[nodiscard]] std::size_t size() const { return m_size; }
    [[nodiscard]] cluster_run_list list() const;

  private:
    struct block {
        std::uint64_t first_vcn = 0;
        std::uint64_t clusters = 0;
        std::size_t empty_runs = 0;  // runs of length 0
        cluster_run_list runs;
    };
    // A run on its way into the list: after `place` runs of a block.
    struct placed_run {
        std::size_t block = 0;
        std::size_t place = 0;
        cluster_run run;
    };

    [[nodiscard]] std::vector<placed_run> place(const cluster_run_list& piece) const;
    static void rebuild(block& changed, std::span<const placed_run> added, bool drop_first);
    static void number(block& changed);
    void tidy();
    void split_blocks();

    std::vector<block> m_blocks;  // at least one
    std::size_t m_size = 0;
    std::size_t m_empty_runs = 0;
};

}  // namespace quarry
