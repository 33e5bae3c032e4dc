#include "volume/joined_runs.h"

#include <algorithm>

namespace quarry {

namespace {

bool none_is_empty(const cluster_run_list& runs) {
    return std::none_of(runs.begin(), runs.end(), [](const cluster_run& run) { return run.length == 0; });
}

bool is_numbered(const cluster_run_list& runs) {
    std::uint64_t next = 0;
    for (const cluster_run& run : runs) {
        if (run.vcn != next) {
            return false;
        }
        next += run.length;
    }
    return none_is_empty(runs);
}

// Sorted as it is, with all of its runs behind the list's: no run is dropped, none changes its place.
bool belongs_behind(const cluster_run_list& piece, const cluster_run_list& list) {
    for (std::size_t i = 0; i + 1 < piece.size(); ++i) {
        if (piece[i].vcn >= piece[i + 1].vcn) {
            return false;
        }
    }
    return none_is_empty(piece) && (piece.empty() || list.empty() || list.back().vcn < piece.front().vcn);
}

}  // namespace

void joined_runs::join(const cluster_run_list& piece) {
    if (!m_known) {
        m_numbered = is_numbered(m_runs);
        m_known = true;
    }
    if (!m_numbered || !belongs_behind(piece, m_runs)) {
        merge_runs(piece, m_runs);
        m_numbered = is_numbered(m_runs);
        return;
    }
    std::uint64_t next = m_runs.empty() ? 0 : m_runs.back().vcn + m_runs.back().length;
    for (cluster_run run : piece) {
        run.vcn = next;
        next += run.length;
        m_runs.push_back(run);
    }
}

}  // namespace quarry
