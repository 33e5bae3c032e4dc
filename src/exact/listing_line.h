// The lines that a listing has for one file.
//
//     365-1  f  90002  2026-11-22T00:35:43.6281234Z  /Users/anna/setup.exe
//     365-1  s  26     2026-11-22T00:35:43.6281234Z  /Users/anna/setup.exe:Zone.Identifier
//     |      |  |      |                             '- path in canonical form
//     |      |  |      '- modification time of $STANDARD_INFORMATION, UTC
//     |      |  '- size in bytes: of the unnamed data, or of the stream
//     |      '- f file, d directory, l link, s named stream; in upper case of a deleted file
//     '- entry and sequence number
//
// Between the fields are tabs; a name has none, for there it is written \u0009. A time that was never set is
// "-", one of the year 10000 or later the number that is stored. Whatever has no unnamed data has size 0.
#pragma once

#include "exact/attribute_set.h"
#include "exact/exact_volume.h"
#include "exact/failure.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::exact {

struct listing_outputs {
    // Takes one line, without its end. A failure ends the listing.
    std::function<result<void>(std::string_view line)> line;
    // Hears of each record and block that cannot be read, and of what is wrong in one. The listing goes on.
    std::function<void(const failure&)> damage;
};

// What the lines of a file say, whatever its name.
struct listed_file {
    struct stream {
        std::string shown;  // its name in canonical form
        std::uint64_t size = 0;
    };
    std::string entry;  // such as "365-1"
    bool deleted = false;
    char letter = 'f';
    std::uint64_t size = 0;
    std::string modified;
    std::vector<stream> streams;
    // A directory whose names are in its own index: no link, and not kept elsewhere.
    bool has_children = false;
};

// Reads what the lines say. What is wrong is reported as damage.
[[nodiscard]] listed_file read_listed_file(const exact_volume& volume, const attribute_set& file,
                                           const listing_outputs& outputs);

// The line of the file under a path in canonical form, then one for each of its named streams.
[[nodiscard]] result<void> write_file_lines(const listed_file& file, const std::string& path,
                                            const listing_outputs& outputs);
// Only the lines of the named streams.
[[nodiscard]] result<void> write_stream_lines(const listed_file& file, const std::string& path,
                                              const listing_outputs& outputs);

}  // namespace quarry::exact
