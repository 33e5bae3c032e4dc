// From the names of a path to the file that they lead to.
//
// The walk begins at the root, entry 5, and looks each name up in the directory that the names before it led
// to. Symbolic links and junctions on the way are followed as the system would: a relative one goes on from
// its own directory, one that names a volume only if the user said that this volume bears that name.
//
//     /Documents and Settings/anna/a.txt
//      '-- a junction to C:\Users: goes on at /Users/anna/a.txt if -letter C was said
//
// What the index says must agree with the file: its record is in use under the sequence number of the index,
// and it has a $FILE_NAME with this directory and this name.
//
// A prepared volume may have links that lead to links, each with a long target. The walk ends after 64 links,
// and after 16,384 names in all.
#pragma once

#include "exact/attribute_set.h"
#include "exact/exact_volume.h"
#include "exact/failure.h"
#include "exact/index_node.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quarry::exact {

class warm_directories;

struct walk_options {
    // Names of this volume in absolute links, in any case: "C" or "Volume{GUID}".
    std::vector<std::u16string> volume_names;
    bool follow_last = true;  // follow the last name too if it is a link
    // Is given one line for the log at each name and each link.
    std::function<void(const std::string& line)> tell = [](const std::string&) {};
    // What earlier walks over the same volume passed, and this one adds to; null to read everything anew.
    warm_directories* directories = nullptr;
};

struct walked_path {
    attribute_set file;
    std::vector<std::u16string> names;  // as the volume has them, after all links; the long ones
    std::vector<std::string> links;     // the targets that were followed, such as C:\Users
    std::optional<index_key> last_key;  // the key of the last name; none for the root
};

// Fails with name, ambiguous, not-directory, link and tag at the path as far as it was walked, with index if
// index and record do not agree, and as records and nodes do. Warns (no-sequence) of a $FILE_NAME that names
// its directory without a sequence number.
[[nodiscard]] result<walked_path> walk_path(exact_volume& volume, const std::vector<std::u16string>& names,
                                            const walk_options& options, notices& told);

// Index and file must agree on a name: the file has a $FILE_NAME with this directory and this name. Fails
// with index. Warns (no-sequence) as walk_path does.
[[nodiscard]] result<void> expect_name(const attribute_set& file, reference directory,
                                       std::u16string_view name, notices& told);

// The value of a file's reparse point, for read_reparse_point; nothing if it has none. Fails as streams do,
// and with layout if the attribute has a name, or if $STANDARD_INFORMATION names one that is not there.
[[nodiscard]] result<std::optional<std::vector<std::uint8_t>>> reparse_value_of(const exact_volume& volume,
                                                                                const attribute_set& file);

}  // namespace quarry::exact
