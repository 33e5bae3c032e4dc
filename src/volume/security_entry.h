// One security descriptor of $Secure:$SDS, as text. Filled by the report's reader, kept by the volume.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace quarry {

struct security_entry {
    std::uint64_t stream_offset = 0;
    std::uint64_t security_id = 0;
    std::string owner;
    std::string group;
    std::vector<std::string> sacl;
    std::vector<std::string> dacl;
};
using security_map = std::map<std::uint64_t, security_entry>;

class CNtfs;
// Fills m_sd_cache if it is empty; true if it holds anything afterwards. Null where no reader is wanted.
using security_loader = bool (*)(CNtfs& volume);

}  // namespace quarry
