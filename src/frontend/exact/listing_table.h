// The options that ask for a listing in place of a copy: one row for each.
//
// All that deals with listings goes by this table: the options and what excludes them, the header that leaves
// standard output to the lines, the help, the run. A new listing is a module of src/exact and a row here.
#pragma once

#include "exact/listing.h"

#include <array>
#include <string_view>

namespace quarry::exact {

struct listing_option {
    std::string_view word;
    std::string_view help;  // what it prints of the path that is its value
    // Writes the lines of what the path leads to, and with -recurse of all below it. Fails if a line cannot
    // be written.
    result<void> (*of_path)(exact_volume& volume, walked_path start, bool recurse,
                            const listing_outputs& outputs, notices& told) = nullptr;
    // The same with -deleted, of the records that are not in use.
    result<void> (*of_deleted)(exact_volume& volume, const listing_outputs& outputs, notices& told) = nullptr;
};

inline constexpr auto listing_options = std::to_array<listing_option>({
    {"-list", "what a directory holds, to standard output", list_path, list_deleted},
});

}  // namespace quarry::exact
