// The runs of one stream, joined from the pieces that several records hold.
//
// merge_runs sorts both lists anew each time. A file in very many fragments has its runs in thousands of
// records, and sorting all of them for each would cost hours. The pieces come in their order almost always:
// then the new runs only need to be put behind the others. The list is the one that merge_runs would have
// made, whatever the pieces are.
#pragma once

#include "volume/runs.h"

namespace quarry {

class joined_runs {
  public:
    joined_runs() = default;
    // The first piece stays as it is until another one joins it.
    explicit joined_runs(cluster_run_list first) : m_runs(std::move(first)) {}

    // merge_runs(piece, list()).
    void join(const cluster_run_list& piece);
    [[nodiscard]] const cluster_run_list& list() const { return m_runs; }
    [[nodiscard]] cluster_run_list take() { return std::move(m_runs); }

  private:
    cluster_run_list m_runs;
    bool m_known = false;     // m_numbered says something
    bool m_numbered = false;  // from VCN 0 on without gaps, no run empty
};

}  // namespace quarry
