// Which attribute of an entry is the stream that a path asks for.
#pragma once

#include "foundation/uni_streams.h"
#include "volume/attr_item.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quarry {

// The text after the first ":" of a path's last component; empty without one.
[[nodiscard]] std::string requested_stream_name(const std::wstring& path);

struct stream_choice {
    std::optional<std::size_t> chosen;
    // The stream that holds the data of a file which the system compressed.
    std::optional<std::size_t> wof;
    std::uint64_t mod_time = 0;  // FILETIME
};

// Picks the stream of a name, or the unnamed $DATA for an empty name. A named index allocation counts as a
// stream too. Where several match the last one is taken. The times of $STANDARD_INFORMATION go to `stats`.
[[nodiscard]] stream_choice choose_stream(const attr_item_list& items, const std::string& stream_name,
                                          uni::fileio_stats& stats);

}  // namespace quarry
