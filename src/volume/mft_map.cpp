#include "volume/mft_map.h"

#include "foundation/byte_view.h"
#include "volume/positions.h"

#include <algorithm>

namespace quarry {

void mft_map::extend(const data_run_list& runs) {
    if (m_pieces.size() > runs.size()) {
        m_pieces.clear();
    }
    std::uint64_t end = m_pieces.empty() ? 0 : m_pieces.back().end;
    for (std::size_t i = m_pieces.size(); i < runs.size(); ++i) {
        end += runs[i].num_clusters;
        m_pieces.push_back({end, runs[i].lcn});
    }
}

std::optional<mft_map::place> mft_map::find(std::uint64_t entry) const {
    const std::optional<std::uint64_t> byte = position_product(entry, m_step);
    if (!byte || m_cluster_size == 0) {
        return std::nullopt;
    }
    const std::uint64_t target = *byte / m_cluster_size;
    const auto found =
        std::upper_bound(m_pieces.begin(), m_pieces.end(), target,
                         [](std::uint64_t cluster, const piece& each) { return cluster < each.end; });
    if (found == m_pieces.end()) {
        return std::nullopt;
    }
    const std::uint64_t begin = found == m_pieces.begin() ? 0 : (found - 1)->end;
    const std::uint64_t clusters_in = target - begin;
    if (found->lcn == sparse_lcn || found->lcn > sparse_lcn - clusters_in) {
        return std::nullopt;
    }
    return place{found->lcn + clusters_in, low_32_bits(*byte % m_cluster_size)};
}

std::uint64_t mft_map::position(std::uint64_t entry) const {
    const std::optional<place> found = find(entry);
    if (!found) {
        return 0;
    }
    const std::optional<std::uint64_t> cluster = position_product(found->lcn, m_cluster_size);
    return cluster ? *cluster + found->byte_offset : 0;
}

}  // namespace quarry
