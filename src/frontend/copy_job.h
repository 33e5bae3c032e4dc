// One extraction: what is copied, from where, to where.
#pragma once

#include "frontend/quarry_opts.h"

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace quarry {

struct copy_job {
    std::int32_t drive = -1;          // physical drive number; -1 means none
    std::uint64_t volume_offset = 0;  // bytes from the start of the source
    std::wstring src;                 // path on the volume, with an optional ":stream" at its end
    std::vector<std::wstring> vmdk_list;
    std::wstring image;
    std::wstring partition;          // a path, or the letter form of a volume
    std::uint64_t entry = no_entry;  // no_entry: `src` is looked up
    std::ostream* out_stream = nullptr;
    std::wstring dst;
    std::wstring meta;  // path of the report; empty means none
    bool raw = false;
    bool md5 = false;
    bool skip_sparse = false;

    // What was found: whether a system-compressed stream is there, its size, and the byte positions on the
    // volume of the first run of the chosen stream and of that one.
    bool wof_present = false;
    std::uint64_t wof_size = 0;
    std::uint64_t data_position = 0;
    std::uint64_t wof_position = 0;
};

// The host's files that a job reads as its source.
[[nodiscard]] std::vector<std::string> source_files_of(const copy_job& job);

}  // namespace quarry
