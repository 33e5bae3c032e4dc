#include "volume/run_cursor.h"

#include <algorithm>
#include <limits>

namespace quarry {

namespace {

bool ends_within_64_bits(const cluster_run& run) {
    return run.length <= std::numeric_limits<std::uint64_t>::max() - run.vcn;
}

std::uint64_t end_vcn(const cluster_run& run) {
    return run.vcn + run.length;
}

// Each run begins where the one before ended, or behind: then at most one run covers a VCN, and any search
// finds it.
bool is_in_order(const cluster_run_list& runs) {
    for (std::size_t i = 0; i < runs.size(); ++i) {
        if (!ends_within_64_bits(runs[i]) || (i > 0 && runs[i].vcn < end_vcn(runs[i - 1]))) {
            return false;
        }
    }
    return true;
}

}  // namespace

run_cursor::run_cursor(const cluster_run_list& runs) : m_runs(runs), m_in_order(is_in_order(runs)) {}

bool run_cursor::find_in_order(std::uint64_t vcn, std::size_t& index) {
    if (m_last >= m_runs.size() || vcn < m_runs[m_last].vcn) {
        const auto behind =
            std::upper_bound(m_runs.begin(), m_runs.end(), vcn,
                             [](std::uint64_t wanted, const cluster_run& run) { return wanted < run.vcn; });
        if (behind == m_runs.begin()) {
            return false;
        }
        m_last = static_cast<std::size_t>(behind - m_runs.begin()) - 1;
    }
    // Ends at the end of the list; over a whole stream each run is passed once.
    while (m_last < m_runs.size() && end_vcn(m_runs[m_last]) <= vcn) {
        ++m_last;
    }
    index = m_last;
    return m_last < m_runs.size() && m_runs[m_last].vcn <= vcn;
}

bool run_cursor::find(std::uint64_t vcn, stretch& out) {
    std::size_t index = 0;
    std::uint64_t lcn = 0;
    if (m_in_order) {
        if (!find_in_order(vcn, index)) {
            return false;
        }
        const cluster_run& run = m_runs[index];
        out = {run.sparse ? 0 : run.lcn - run.vcn + vcn, end_vcn(run) - vcn, run.sparse};
        return true;
    }
    if (!find_run(m_runs, vcn, index, lcn)) {
        return false;
    }
    out = {lcn, 1, m_runs[index].sparse};
    return true;
}

}  // namespace quarry
