#include "volume/run_cursor.h"

#include <algorithm>
#include <limits>

namespace quarry {

namespace {

constexpr std::uint64_t last_vcn = std::numeric_limits<std::uint64_t>::max();

bool ends_within_64_bits(const cluster_run& run) {
    return run.length <= last_vcn - run.vcn;
}

std::uint64_t end_vcn(const cluster_run& run) {
    return run.vcn + run.length;
}

// Each run begins where the one before ended, or later. Then at most one run covers a VCN, and any search
// finds it.
bool is_in_order(const cluster_run_list& runs) {
    for (std::size_t i = 0; i < runs.size(); ++i) {
        if (!ends_within_64_bits(runs[i]) || (i > 0 && runs[i].vcn < end_vcn(runs[i - 1]))) {
            return false;
        }
    }
    return true;
}

// The runs that cover something, by VCN, each cut before the last VCN there is; a run whose numbers wrap
// covers nothing beyond it. Empty if runs overlap.
cluster_run_list sorted_copy(const cluster_run_list& runs) {
    cluster_run_list sorted;
    for (const cluster_run& run : runs) {
        const auto length =
            static_cast<std::uint32_t>(std::min<std::uint64_t>(run.length, last_vcn - run.vcn));
        if (length != 0) {
            sorted.push_back({run.lcn, run.vcn, run.sparse, length});
        }
    }
    std::sort(sorted.begin(), sorted.end(),
              [](const cluster_run& left, const cluster_run& right) { return left.vcn < right.vcn; });
    return is_in_order(sorted) ? sorted : cluster_run_list();
}

}  // namespace

run_cursor::run_cursor(const cluster_run_list& runs) : m_runs(runs), m_in_order(is_in_order(runs)) {
    if (!m_in_order) {
        m_sorted = sorted_copy(runs);
    }
}

const cluster_run_list* run_cursor::ordered() const {
    if (m_in_order) {
        return &m_runs;
    }
    return m_sorted.empty() ? nullptr : &m_sorted;
}

// Over a whole stream the answer is the run of the last answer or the run after it; anything else is searched
// for.
bool run_cursor::find_in_order(const cluster_run_list& runs, std::uint64_t vcn, std::size_t& index) {
    const auto is_at = [&](std::size_t run) {
        return run < runs.size() && runs[run].vcn <= vcn && vcn < end_vcn(runs[run]);
    };
    if (!is_at(m_last)) {
        ++m_last;
    }
    if (!is_at(m_last)) {
        const auto after =
            std::upper_bound(runs.begin(), runs.end(), vcn,
                             [](std::uint64_t wanted, const cluster_run& run) { return wanted < run.vcn; });
        m_last = after == runs.begin() ? 0 : static_cast<std::size_t>(after - runs.begin()) - 1;
    }
    index = m_last;
    return is_at(m_last);
}

bool run_cursor::find(std::uint64_t vcn, stretch& out) {
    std::size_t index = 0;
    std::uint64_t lcn = 0;
    const cluster_run_list* const runs = ordered();
    if (runs != nullptr && (m_in_order || vcn != last_vcn)) {
        if (!find_in_order(*runs, vcn, index)) {
            return false;
        }
        const cluster_run& run = (*runs)[index];
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
