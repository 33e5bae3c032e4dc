// What a run of the exact mode ends with.
#pragma once

namespace quarry::exact {

// Memory that runs out and faults of the program end a run with 255.
enum class exit_status : int {
    complete = 0,
    failed = 1,       // the copy, or every line of a list
    refused = 2,      // the command line or the destination; nothing was read
    some_failed = 3,  // some lines of a list; other copies are kept
    in_doubt = 4,     // nothing failed
    not_opened = 5,   // the source or the volume
};

}  // namespace quarry::exact
