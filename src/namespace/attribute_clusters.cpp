#include "namespace/attribute_clusters.h"

namespace quarry {

bool read_attribute_clusters(CNtfs& ntfs, const attribute& at, std::vector<std::uint8_t>& bytes) {
    if (!ntfs.clusters().read_list_clusters(at, bytes)) {
        bytes.clear();
    }
    return !bytes.empty();
}

}  // namespace quarry
