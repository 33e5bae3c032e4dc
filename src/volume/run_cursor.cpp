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

// Over a whole stream the answer is the run of the last one or the run behind it; anything else is searched
// for.
bool run_cursor::find_in_order(std::uint64_t vcn, std::size_t& index) {
    const auto is_at = [&](std::size_t run) {
        return run < m_runs.size() && m_runs[run].vcn <= vcn && vcn < end_vcn(m_runs[run]);
    };
    if (!is_at(m_last)) {
        ++m_last;
    }
    if (!is_at(m_last)) {
        const auto behind =
            std::upper_bound(m_runs.begin(), m_runs.end(), vcn,
                             [](std::uint64_t wanted, const cluster_run& run) { return wanted < run.vcn; });
        m_last = behind == m_runs.begin() ? 0 : static_cast<std::size_t>(behind - m_runs.begin()) - 1;
    }
    index = m_last;
    return is_at(m_last);
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
