#include "volume/joined_runs.h"

namespace quarry {

namespace {

// A walk over so many runs costs less than keeping them in another form.
constexpr std::size_t few_runs = 256;

}  // namespace

void joined_runs::join(const cluster_run_list& piece) {
    if (m_numbered) {
        m_numbered->merge(piece);
        return;
    }
    if (append_runs(piece, m_runs, m_progress)) {
        return;
    }
    merge_runs(piece, m_runs, m_progress);
    if (m_runs.size() > few_runs) {
        m_numbered.emplace(m_runs);
        m_runs = {};
    }
}

}  // namespace quarry
