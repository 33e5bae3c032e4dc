// One stream copied to one destination: whole and under its name, or not at all.
#pragma once

#include "exact/exact_volume.h"
#include "exact/failure.h"
#include "exact/warm_directories.h"
#include "foundation/worker_pool.h"
#include "frontend/exact/destination_path.h"
#include "frontend/exact/exact_messages.h"
#include "frontend/exact/exact_options.h"
#include "frontend/exact/made_copies.h"
#include "frontend/exact/object_facts.h"
#include "frontend/output/leftover.h"
#include "frontend/output/output_guard.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace quarry::exact {

struct finished_copy {
    std::string source;       // the stream, as messages have it
    std::string destination;  // the file that was made
    std::uint64_t bytes = 0;
    std::string md5;     // with -md5 only
    std::string sha256;  // with -sha256 or a manifest only
    bool kept = false;   // a complete copy of an earlier run; nothing was written
    // With a manifest, signals wait from before the copy has its name until its line is written: a run that
    // is cut off leaves no copy that the manifest does not know.
    std::unique_ptr<signals_held_back> until_recorded = nullptr;
};

// One object that is to be copied.
struct copy_order {
    copy_object object;
    std::string asked;       // the object as typed, such as "/docs/a.txt", "24-1:Note" or a line of a list
    std::uint64_t line = 1;  // of the list, counted from 1; 1 for the object of the command line
};

// What the copies of a run share. All of it outlives them.
struct copy_means {
    exact_volume& volume;
    const exact_options& options;  // how is copied, and to where
    const output_guard& guard;
    exact_messages& messages;
    made_copies& made;
    warm_directories& directories;
    worker_pool& workers;
    // With -resume: whether an earlier run has copied the object to a path. Null otherwise.
    std::function<bool(const object_facts& object, const std::string& path)> is_kept = nullptr;
    // Called when a copy lacks nothing but its name, with what is known of it. Null if nobody wants to know.
    // A copy that has its name needs no memory until its line is written.
    std::function<void(const finished_copy& copy, std::uint64_t line, const notices& told,
                       const object_facts& known)>
        before_name = nullptr;
};

// Copies the object of an order to the destination of the options, where the guard lets it, but never over a
// copy that was made before. Fails as find_object, check_destination, streams and sealed_file do; nothing is
// left at the destination then. Warns (times) if the file does not take its times. What becomes known on the
// way is noted in `known`, unless that is null.
[[nodiscard]] result<finished_copy> copy_to_destination(copy_means& means, const copy_order& order,
                                                        notices& told, object_facts* known = nullptr);

}  // namespace quarry::exact
