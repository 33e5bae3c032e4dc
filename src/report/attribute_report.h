// The metadata report of a copy by name or by entry: what the volume says of the copied file.
//
// The report is plain text for people. Its labels, its spacing and the form of its numbers are fixed all the
// same, because people compare reports. Each attribute of the file gives one block of lines, in the order of
// the file's items; an attribute of a type that has no block still gives its empty line. Times are UTC, and
// one that cannot be shown leaves its label with nothing but a blank after it.
#pragma once

#include "volume/attr_item.h"
#include "volume/ntfs.h"

#include <cstdint>
#include <ostream>
#include <string>

namespace quarry {

// Writes the whole report of an MFT entry: the path that was asked for, where the entry lies, and its items.
// Nothing for an empty list. The two lines on places are left out if the runs of $MFT do not hold the entry.
void write_attribute_report(std::ostream& out, CNtfs& ntfs, std::uint64_t entry,
                            const std::wstring& source_path, const attr_item_list& items);

// Writes the block of one item, without the empty line after it.
void write_item(std::ostream& out, const attr_item& item);

}  // namespace quarry
