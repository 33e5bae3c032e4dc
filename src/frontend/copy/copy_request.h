// One copy: what is copied, from where, to where and how.
//
// A request is made once and never written to. What a copy finds out on the way is in its copy_findings.
#pragma once

#include "disk/source.h"
#include "foundation/uni_streams.h"
#include "frontend/copy/copy_outputs.h"
#include "frontend/options/quarry_opts.h"

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace quarry {

struct copy_request {
    source from;

    // The object: a path on the volume, with an optional ":stream" at its end, or an entry number beside
    // which the path only names the stream, or clusters.
    std::wstring path = {};
    std::uint64_t entry = no_entry;  // no_entry: the path is looked up
    cluster_range clusters = {};

    // The target.
    copy_outputs outputs = {};
    std::ostream* out_stream = nullptr;  // Reserved: no flow sets it

    // The modes.
    bool raw = false;
    bool md5 = false;
    bool skip_sparse = false;
};

// What the copy of a file found.
struct copy_findings {
    std::uint64_t entry = no_entry;
    std::wstring path = {};                   // as it is on the volume
    std::vector<report_output> reports = {};  // those that were written
    uni::fileio_stats stats = {};
    // Byte position on the volume of the first run of the chosen stream.
    std::uint64_t data_position = 0;
    // Whether there is a stream that the system compressed, its size, and the position of its first run.
    bool wof_present = false;
    std::uint64_t wof_size = 0;
    std::uint64_t wof_position = 0;
};

}  // namespace quarry
