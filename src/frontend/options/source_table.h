// The options that name a source: one row for each.
//
// All that reads a command line goes by this table: the default mode's parser, its look ahead for files that
// no output may overwrite, and the exact mode. A new kind of source gets a row here, and what opens it in
// disk/source.cpp.
#pragma once

#include "disk/source.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

namespace quarry {

// What the value of an option is.
enum class source_value : std::uint8_t {
    file,    // an image, whose path is made absolute
    device,  // of a partition; a letter gets its colon
    files,   // of one disk, with "|", "," or ";" between them
    number,  // of a drive, 0 for the first
};

struct source_option {
    std::string_view word;
    source_kind kind = source_kind::none;
    source_value value = source_value::file;
    // What the help of the exact mode calls the value, and says of it.
    std::string_view exact_value = {};
    std::string_view exact_help = {};
    // What the exact mode, which does not take this option, says to do instead; empty if it takes it.
    std::string_view exact_hint = {};

    [[nodiscard]] constexpr std::string_view word_without_dash() const { return word.substr(1); }
};

// The default mode goes by the first of them that is there, in this order.
inline constexpr std::array<source_option, 4> source_options = {{
    {"-vmdk", source_kind::virtual_disk, source_value::files, "\"<file> | <file> ...\"",
     "a chain of sparse VMDK files"},
    {"-partition", source_kind::partition, source_value::device, "<device>", "a bare volume"},
    {"-image", source_kind::image, source_value::file, "<file|device>",
     "a disk or a bare volume, raw or EWF (E01)"},
    {.word = "-drivenum",
     .kind = source_kind::drive,
     .value = source_value::number,
     .exact_hint = "give the device to -image"},
}};

// The row of a kind of source that the user named.
[[nodiscard]] constexpr const source_option& option_of(source_kind kind) {
    return *std::find_if(source_options.begin(), source_options.end(),
                         [kind](const source_option& option) { return option.kind == kind; });
}

}  // namespace quarry
