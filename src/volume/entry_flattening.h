// From an entry_record to the flat list that copies and reports work from.
#pragma once

#include "volume/attr_item.h"
#include "volume/entry_record.h"

#include <cstdint>

namespace quarry {

// One item for the record's header, then one for each $STANDARD_INFORMATION, each $FILE_NAME and each other
// attribute, in the order of the maps. `record_size` is what the volume gives as the size of its records in
// bytes; resident values of that length and longer are left out of their items. The runs move out of
// `record`.
[[nodiscard]] attr_item_list flatten_entry(entry_record& record, std::uint32_t record_size);

// Only the items of $INDEX_ROOT and $INDEX_ALLOCATION.
[[nodiscard]] attr_item_list flatten_index_attributes(entry_record& record, std::uint32_t record_size);

}  // namespace quarry
