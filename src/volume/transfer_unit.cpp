#include "volume/transfer_unit.h"

#include <algorithm>

namespace quarry {

std::uint64_t transfer_unit(const CNtfs& ntfs) {
    return ntfs.m_cluster_size <= 0 ? 0 : clusters_per_unit * static_cast<std::uint64_t>(ntfs.m_cluster_size);
}

std::uint64_t transfer_buffer_size(const CNtfs& ntfs) {
    if (ntfs.m_cluster_size <= 0) {
        return 0;
    }
    const auto cluster = static_cast<std::uint64_t>(ntfs.m_cluster_size);
    const std::uint64_t source = ntfs.source_size();
    const std::uint64_t clusters_of_source = source / cluster + (source % cluster != 0 ? 1 : 0);
    const std::uint64_t always = std::max(limits::unit_always_cut / cluster, std::uint64_t{1}) * cluster;
    return std::min({transfer_unit(ntfs), always,
                     std::max(clusters_of_source * cluster, limits::unit_never_cut / cluster * cluster)});
}

}  // namespace quarry
