#include "namespace/attribute_clusters.h"

namespace quarry {

bool read_attribute_clusters(CNtfs& ntfs, const attribute& at, std::vector<std::uint8_t>& bytes) {
    bytes.clear();
    data_run_list pairs;
    cluster_run_list runs;
    if (ntfs.get_disk() == nullptr || !decode_runs(at.bytes(), pairs) || !to_cluster_runs(pairs, runs)) {
        return false;
    }
    if (!ntfs.read_all_clusters(runs, bytes)) {
        bytes.clear();
    }
    return !bytes.empty();
}

}  // namespace quarry
