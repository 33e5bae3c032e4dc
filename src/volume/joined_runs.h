// The runs of one stream, joined from the pieces that several records hold.
#pragma once

#include "volume/runs.h"

#include <utility>

namespace quarry {

class joined_runs {
  public:
    joined_runs() = default;
    // The first piece stays as it is until another one joins it.
    explicit joined_runs(cluster_run_list first) : m_runs(std::move(first)) {}

    // merge_runs(piece, list()), at a cost that over all pieces is linear in their runs as a rule.
    void join(const cluster_run_list& piece) { merge_runs(piece, m_runs, m_progress); }
    [[nodiscard]] const cluster_run_list& list() const { return m_runs; }
    [[nodiscard]] cluster_run_list take() { return std::move(m_runs); }

  private:
    cluster_run_list m_runs;
    merge_progress m_progress;
};

}  // namespace quarry
