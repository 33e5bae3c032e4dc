// The runs of one stream, joined from the pieces that several records hold.
#pragma once

#include "volume/numbered_runs.h"
#include "volume/runs.h"

#include <optional>
#include <utility>

namespace quarry {

class joined_runs {
  public:
    joined_runs() = default;
    // The first piece stays as it is until another one joins it.
    explicit joined_runs(cluster_run_list first) : m_runs(std::move(first)) {}

    // merge_runs(piece, list()), at a cost that over all pieces is about linear in their runs.
    void join(const cluster_run_list& piece);
    [[nodiscard]] std::size_t size() const { return m_numbered ? m_numbered->size() : m_runs.size(); }
    [[nodiscard]] cluster_run_list list() const { return m_numbered ? m_numbered->list() : m_runs; }
    [[nodiscard]] cluster_run_list take() { return m_numbered ? m_numbered->list() : std::move(m_runs); }

  private:
    cluster_run_list m_runs;
    merge_progress m_progress;
    // Takes the place of the list once that is long and a piece came between its runs.
    std::optional<numbered_runs> m_numbered;
};

}  // namespace quarry
