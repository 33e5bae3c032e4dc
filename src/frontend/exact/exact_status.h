// What a run of the exact mode ends with.
#pragma once

namespace quarry::exact {

enum class exit_status : int {
    complete = 0,
    failed = 1,       // the copy, or every line of a list
    refused = 2,      // the command line or the destination; nothing was read
    some_failed = 3,  // some lines of a list; other copies are kept
    in_doubt = 4,     // nothing failed
    not_opened = 5,   // the source or the volume
    broken_off = 255  // memory ran out, or the program has a fault
};

}  // namespace quarry::exact
