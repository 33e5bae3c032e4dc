#include "volume/transfer_unit.h"

#include <algorithm>

namespace quarry {

namespace {

// Holds the 16 clusters of every volume that a formatter makes with clusters of up to 64 KiB.
constexpr std::uint64_t never_cut = std::uint64_t{1} << 20;

}  // namespace

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
    return std::min(transfer_unit(ntfs),
                    std::max(clusters_of_source * cluster, never_cut / cluster * cluster));
}

}  // namespace quarry
