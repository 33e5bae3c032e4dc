// Index blocks as text.
//
// Reserved: no report prints index blocks, so no flow of the program comes here.
//
// Beside $I30, the index of names, NTFS keeps view indexes in its own system files: $O of $ObjId, $SDH and
// $SII of $Secure, $R of $Reparse. Their blocks are built alike, but an entry of a view index begins with the
// place and the size of its data in place of a file reference.
#pragma once

#include <cstdint>
#include <ostream>
#include <span>
#include <string_view>

namespace quarry {

// Prints the entries of one index block, a line for each. `attribute_name` is the name of the index in any
// case; entries of an index that is none of those above print nothing. `block` is the block as it is on disk,
// of which `size` bytes count; where `bytes_per_sector` is not 0 its fixups are restored in place. With
// `first`, the heading of the columns comes before the first entry's line. False, with nothing printed and
// the block as it was, if the block is null, does not begin with "INDX", or `size` is below 4,096.
[[nodiscard]] bool list_index_block(std::string_view attribute_name, std::span<std::uint8_t> block,
                                    std::int32_t size, std::uint32_t bytes_per_sector, std::ostream& out,
                                    bool first);

}  // namespace quarry
