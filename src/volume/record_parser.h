// What the records of the system files $MFT and $Bitmap say, gathered into INODE_STATS.
//
// The attributes of such a file may be spread over several records: an attribute list in the first one names
// for each attribute the record that holds it. The parser walks over the attributes of the first record, then
// takes from each of the others the attributes that the list names. Damage ends a walk; what was gathered
// before it counts. The files that a user asks for are categorised instead (mft_entries).
#pragma once

#include "foundation/budget.h"
#include "volume/attribute.h"
#include "volume/inode_stats.h"
#include "volume/mft_map.h"
#include "volume/record_reader.h"

#include <cstdint>
#include <functional>
#include <string>

namespace quarry {

// What parsing needs beside the record. All that it refers to must outlive the call.
struct parse_context {
    // Reads extension records, and lists in clusters.
    const record_reader& records;
    // What the runs that lists lead to may still take, in bytes: of system files, and of all that is kept of
    // the volume. The first ends the walk over a list.
    budget& run_memory;
    budget& cache_memory;
    // Of $MFT: the map that `records` uses, which takes the runs as they are found, so that one extension
    // record leads to the next. Null for any other file.
    mft_map* growing_map = nullptr;
    // Reserved: gives the owner's SID as text for a security id, or null. Empty where nobody asks for owners.
    std::function<const std::string*(std::uint32_t security_id)> owner = {};
};

// Gathers what record `entry` and the records of its attribute list say into `stats`, which is cleared first
// unless `append` is set.
void parse_record(const parse_context& context, byte_view record, INODE_STATS& stats, std::uint64_t entry,
                  bool append);

// One walk over the attributes from `first` on, of which `bytes_left` bytes are left; only over `first` if
// `single` is set. `list_attribute` becomes the last attribute list met, or stays as it is. False if the
// mapping pairs of an attribute hold nothing.
[[nodiscard]] bool parse_attributes(const parse_context& context, INODE_STATS& stats,
                                    attribute& list_attribute, attribute first, std::int64_t bytes_left,
                                    bool append, bool single);

}  // namespace quarry
