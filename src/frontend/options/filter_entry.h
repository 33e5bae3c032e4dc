// One alternative of a filter, as -filter, -filter_skip and -filter_sig describe it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quarry {

struct filter_entry {
    std::uint32_t path_length = 0;  // characters of `path`
    std::wstring path;              // from -filter_path; kept, and not consulted
    std::wstring text;              // the alternative as given, in lower case
    std::wstring name;              // the pattern for the file name, stars removed
    std::wstring stream;            // the pattern after a ":", stars removed
    std::vector<std::uint8_t> signature;
    std::uint64_t sig_offset = 0;  // bytes from the start of the file
    bool anchored = false;         // `name` begins with "/": a directory pattern
    bool any_name = false;         // the pattern is "*": all pass
    bool name_lead_star = false;
    bool name_trail_star = false;
    bool has_stream = false;
    bool any_stream = false;
    bool stream_lead_star = false;
    bool stream_trail_star = false;
};
using filter_list = std::vector<filter_entry>;

}  // namespace quarry
