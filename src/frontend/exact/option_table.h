// The options of the exact mode: every word that its command line may begin with.
//
// The table is strict. A word is an option of it, in any letter case, or it is refused; nothing is passed
// over. Options of the default mode that this mode does not take have a row too, so that the refusal can say
// what to do instead.
#pragma once

#include "frontend/exact/listing_table.h"
#include "frontend/options/source_table.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace quarry::exact {

enum class option : std::uint8_t {
    exact,
    help,
    disk_source,    // names what is read: a disk, or a volume without a partition table
    volume_source,  // names a partition
    offset,
    ntfsvol,
    first_ntfsvol,
    volumes,
    listing,  // names what is listed
    recurse,
    deleted,
    sector_size,
    src,
    mft,
    cluster,
    pipe,
    letter,
    dst,
    tree,
    raw,
    zero_unreadable,
    sparse,
    overwrite,
    keep_times,
    md5,
    sha256,
    verify_source,
    source_sha256,
    manifest,
    resume,
    threads,
    diags,
    quiet,
    // Any option of the default mode that this mode does not take.
    foreign,
};

enum class option_state : std::uint8_t {
    taken,
    refused,  // the default mode's, or without effect there
};

struct option_row {
    std::string_view name;
    option id = option::foreign;
    // Words that belong to the option. -cluster may have one more.
    unsigned values = 0;
    option_state state = option_state::refused;
    bool repeatable = false;
    // For a refused option: what to do instead.
    std::string_view hint = {};
    // Of an option that names the source; otherwise null.
    const source_option* source = nullptr;
    // Of an option that asks for a listing; otherwise null.
    const listing_option* listing = nullptr;
};

// All rows: those of sources and listings, then the others of this mode, then the refused ones.
[[nodiscard]] std::span<const option_row> option_rows();

// The row of a word in any letter case. Null for a word that is no option.
[[nodiscard]] const option_row* find_option(std::string_view word);

// The option of this mode that is at most two edits away from a word: a letter more, less or another.
// The nearest one, of several the first in the table. Null if there is none.
[[nodiscard]] const option_row* nearest_option(std::string_view word);

}  // namespace quarry::exact
