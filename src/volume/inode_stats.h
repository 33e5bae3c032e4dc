// The summary of one file record that the volume keeps of its own system files.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "volume/runs.h"

namespace quarry {

struct INODE_STATS {
    std::string security_text;
    std::string name_narrow;
    std::wstring name_wide;
    std::array<std::uint8_t, 68> file_name_value{};
    std::uint64_t size = 0;
    data_run_list bitmap_runs;
    data_run_list data_runs;
    std::vector<data_run_list> index_runs;
    std::map<std::uint64_t, std::uint32_t> vcn_index;
    std::uint64_t bitmap_size = 0;
    std::vector<std::string> index_names;
};

}  // namespace quarry
