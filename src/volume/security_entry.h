// One security descriptor of $Secure:$SDS. Filled by the report's reader, kept by the volume.
//
// Reserved: no flow of the program asks for descriptors.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace quarry {

struct security_entry {
    std::uint64_t stream_offset = 0;
    std::uint64_t security_id = 0;
    // SIDs as text; empty for none, and for one that cannot be read.
    std::string owner;
    std::string group;
    // The descriptor itself. The lines of its ACLs are made of it when they are asked for, because a volume
    // has many descriptors and a run needs the lines of few.
    std::vector<std::uint8_t> descriptor;
};
using security_map = std::map<std::uint64_t, security_entry>;

class CNtfs;
// Fills m_sd_cache if it is empty; true if it holds anything afterwards. Null where no reader is wanted.
using security_loader = bool (*)(CNtfs& volume);

}  // namespace quarry
