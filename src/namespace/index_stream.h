// The stream of $INDEX_ALLOCATION: the index blocks of a directory that is too large for its file record.
//
// The stream is a row of blocks of 4,096 bytes, stored in clusters that may be smaller or larger than a
// block. Each block is protected like a file record: the last two bytes of each sector are restored from its
// update sequence array. The $BITMAP that says which blocks are live is not looked at, so a block that the
// file system has freed still shows the children that it held. A block that cannot be read, is marked "BAAD"
// or is anything else but "INDX" shows none: a damaged index is a shorter list, not an error.
#pragma once

#include "foundation/budget.h"
#include "volume/ntfs.h"

#include <cstdint>
#include <vector>

namespace quarry {

// Passed as a count: all blocks from the first one asked for.
inline constexpr std::uint32_t all_index_blocks = 0xFFFFFFFF;

// Reserved: lookups visit the blocks one after the other, without keeping them.
//
// Reads blocks of an index stream, with their fixups restored, into `blocks`, beginning with block
// `first_block` (counted from 0). `count` comes in as the number of blocks wanted and goes out as the number
// read. Clusters of a sparse run, and those that cannot be read, are zeros in `blocks`; the size of the
// stream is counted without sparse runs. `blocks` never holds more bytes than the source. False, with
// `blocks` empty and `count` 0, if no run is stored or `first_block` is at or beyond the end. True with no
// blocks if the stream is too short for one.
[[nodiscard]] bool read_index_blocks(CNtfs& ntfs, std::vector<std::uint8_t>& blocks, std::uint32_t& count,
                                     const cluster_run_list& runs, std::uint64_t first_block);

// Adds the children that the blocks of an $INDEX_ALLOCATION name to the collection. False if the volume or
// the attribute is null, its initialized size is 0, or its blocks cannot be had; damaged blocks are passed
// over. `reads` holds how many bytes reading indexes may still cost; blocks that it does not suffice for
// count as not there.
[[nodiscard]] bool parse_index_allocation(_inode_collection& collection, CNtfs* ntfs,
                                          const attribute& allocation, bool keep_going, budget& reads);

}  // namespace quarry
