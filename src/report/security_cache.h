// $Secure:$SDS, read into the volume's cache of descriptors.
#pragma once

#include "volume/ntfs.h"
#include "volume/security_entry.h"

namespace quarry {

void read_sds(CNtfs& ntfs, security_map& map);
[[nodiscard]] bool load_security_cache(CNtfs& ntfs);

}  // namespace quarry
