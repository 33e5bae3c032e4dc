// The stream that a user named, found on the volume.
#pragma once

#include "exact/attribute_set.h"
#include "exact/exact_volume.h"
#include "exact/failure.h"
#include "exact/stream.h"
#include "exact/warm_directories.h"
#include "frontend/exact/exact_messages.h"
#include "frontend/exact/exact_options.h"
#include "frontend/exact/object_facts.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quarry::exact {

struct found_object {
    std::string shown;                   // the path, the entry or the clusters, as messages have it
    std::unique_ptr<attribute_set> set;  // null for clusters
    std::u16string file_name;            // the file's own name; empty if it has none
    // The directories that the path or the listing has, from the root down; nothing if neither was given.
    std::optional<std::vector<std::u16string>> directories;
    std::optional<stream> content;  // always there once find_object() has returned
};

// Refuses a path or a stream that is none; nothing is read. Fails with name.
[[nodiscard]] result<void> check_object(const copy_object& asked);

// What a copy in a directory is called as far as the command line says: the last name of a path as typed,
// with its stream. Nothing where only the volume knows, for the root and for an entry, and for clusters.
[[nodiscard]] std::optional<std::string> name_as_asked(const copy_object& asked);

// Finds and opens the stream. What is passed on the way is logged. Fails as paths, records and
// streams do, with outside for clusters that the volume has not, and with tag, link or wof for a file
// whose data is elsewhere. What becomes known on the way is noted in `known`, unless that is null.
[[nodiscard]] result<found_object> find_object(exact_volume& volume, warm_directories& directories,
                                               const exact_options& options, const copy_object& asked,
                                               exact_messages& messages, notices& told,
                                               object_facts* known = nullptr);

// The directories that the object is in, from the root down: as it was asked for, or else as its own names
// say. What is above a directory that is lost is one called "?". None for clusters.
[[nodiscard]] std::vector<std::u16string> directories_of(const exact_volume& volume,
                                                         const found_object& found, notices& told);

// Modification and access time of a file, FILETIMEs from its $STANDARD_INFORMATION; nothing if it has none.
struct stored_times {
    std::uint64_t modified = 0;
    std::uint64_t accessed = 0;
};
[[nodiscard]] result<std::optional<stored_times>> times_of(const attribute_set& set);

}  // namespace quarry::exact
