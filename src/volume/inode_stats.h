// The summary of one file record that the volume keeps of its own system files, $MFT and $Bitmap.
//
// It gathers what the attributes of the record and of its extension records say together. Named and unnamed
// $DATA go into one list of runs. Nothing here is kept of the files that a user asks for; those are
// categorised.
#pragma once

#include "volume/runs.h"

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace quarry {

// Reserved: of all members flows read only `data_runs`; the others are gathered and never looked at.
struct INODE_STATS {
    // SID of the owner as text, if the security descriptors of the volume are known and name one.
    std::string security_text;
    // Name of the last $FILE_NAME attribute, which has none as a rule (this is not the file's name).
    std::string name_narrow;
    std::wstring name_wide;
    // The first bytes of the last $FILE_NAME value.
    std::array<std::uint8_t, 68> file_name_value{};
    // Bytes of the file: from the last $FILE_NAME, or from $DATA if that says 0 or comes first.
    std::uint64_t size = 0;
    data_run_list bitmap_runs;
    data_run_list data_runs;
    // One list for each $INDEX_ALLOCATION, and its attribute's name, empty where it has none.
    std::vector<data_run_list> index_runs;
    // VCN to the place in `data_runs` of the run that starts there.
    std::map<std::uint64_t, std::uint32_t> vcn_index;
    // Bytes of the first $BITMAP.
    std::uint64_t bitmap_size = 0;
    std::vector<std::string> index_names;
};

// Gives the runs of `data_runs` their VCNs and enters each in `vcn_index`. A further call goes on after the
// runs that are numbered already; an index of more runs than there are is begun anew.
void number_runs(INODE_STATS& stats);

}  // namespace quarry
