#include "volume/inode_stats.h"

namespace quarry {

void number_runs(INODE_STATS& stats) {
    std::map<std::uint64_t, std::uint32_t>& numbered = stats.vcn_index;
    if (numbered.size() > stats.data_runs.size() ||
        (!numbered.empty() && numbered.rbegin()->second >= stats.data_runs.size())) {
        numbered.clear();
    }
    std::uint64_t vcn = 0;
    if (!numbered.empty()) {
        const auto& [last_vcn, last_index] = *numbered.rbegin();
        vcn = last_vcn + stats.data_runs[last_index].num_clusters;
    }
    for (std::size_t i = numbered.size(); i < stats.data_runs.size(); ++i) {
        data_run& run = stats.data_runs[i];
        numbered[vcn] = low_32_bits(i);
        run.vcn = vcn;
        vcn += run.num_clusters;
    }
}

}  // namespace quarry
