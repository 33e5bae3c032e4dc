// Where a copy goes: the rules that copies from a volume and copies from a drive share, and their
// differences.
//
// A destination that ends in a separator is a directory, in which the copy takes the name of its source.
// Before the first copy of a run the file is made and removed again, so that a wrong place shows before any
// work. A destination that the guard of the options does not leave free is refused before anything is opened.
#pragma once

#include "frontend/copy/copy_outputs.h"
#include "frontend/options/quarry_opts.h"

#include <string>

namespace quarry {

struct destination_rules {
    std::string missing_words;    // the message for no destination at all
    bool keeps_absolute = false;  // the absolute form of the path is used, not only looked at
    bool check_creation = true;   // the file can be made
};

struct destination {
    std::wstring named;  // as the user named it, absolute if the rules keep that form
    copy_outputs outputs;
};

// Settles the destination from the options, for a copy of `object_path`. False after a message.
[[nodiscard]] bool settle_destination(destination& out, quarry_opts& opts, const std::wstring& object_path,
                                      const destination_rules& rules);

}  // namespace quarry
