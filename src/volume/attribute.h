// Attributes of a file record: their headers, attribute lists, and the searches.
//
// After its header a file record holds a chain of attributes, each beginning with its type and its length; a
// type of all ones ends the chain. A resident attribute holds its value, a non-resident one the mapping pairs
// that say where on the volume the value lies. A file whose attributes do not fit one record has an attribute
// list, which names for each attribute the record that holds it.
//
// Lengths, offsets and names are as the disk has them, so nothing that an accessor returns is true of the
// bytes until it is tested. The walks and searches of this system differ in what they test. A walk ends, at
// the latest, where the bytes end, and at an attribute without length.
#pragma once

#include "foundation/byte_view.h"
#include "volume/attribute_layout.h"

#include <cstdint>
#include <string>

namespace quarry {

// The attribute that a record's header names as its first; null if it lies outside.
[[nodiscard]] attribute first_attribute(byte_view record);

// Finds the next attribute of a type from `at` on (itself included). False at the end of the bytes, at the
// end marker, and at an attribute of another type whose length is 0 or above `limit` bytes; `at` is then
// there.
[[nodiscard]] bool next_attribute_of_type(attribute& at, std::uint32_t type, std::uint32_t limit);
// The same from the first attribute of a record on.
[[nodiscard]] bool first_attribute_of_type(byte_view record, std::uint32_t type, attribute& out,
                                           std::uint32_t limit);

// Finds by type and name (UTF-16LE bytes) from `at` on. An empty name finds an unnamed attribute, and is
// sought as far as next_attribute_of_type goes. Any other name finds an attribute whose name begins with it,
// and attributes longer than `limit` do not end that search. After false `at` is where the search ended.
[[nodiscard]] bool find_attribute_by_name(attribute& at, std::uint32_t type, byte_view name,
                                          std::uint32_t limit);

// Finds an entry of an attribute list by type and name, by the same rule for names, from `at` on.
// `bytes_left` counts the list's bytes from `at` on; the search ends when there are none left, at the end
// marker, and at an entry of length 0, which sets `bytes_left` to 0.
[[nodiscard]] bool find_list_entry_by_name(list_entry& at, std::int64_t& bytes_left, std::uint32_t type,
                                           byte_view name);

// Reserved: the report has labels of its own. The label of a type: the long form for reports, the short one
// for compact output. "unk" for an unknown type.
void attr_name_of_type(std::string& out, std::uint32_t type, bool short_form);

}  // namespace quarry
