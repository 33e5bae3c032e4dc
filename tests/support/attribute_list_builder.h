// The value of an $ATTRIBUTE_LIST: one entry for each attribute of a file, wherever its record is.
#pragma once

#include "support/byte_writer.h"

#include <cstdint>
#include <vector>

namespace quarry::test {

struct list_item {
    std::uint32_t type = 0x80;
    std::uint64_t record = 0;  // entry number of the record that holds the attribute
    std::uint16_t sequence = 1;
    std::uint16_t id = 0;
    ntfs_name name = {};
    std::uint64_t lowest_vcn = 0;
    // Numbers over the finished entry: its length is at 4, its name length at 6.
    std::vector<forced_number> forced = {};
};

[[nodiscard]] bytes build_attribute_list(const std::vector<list_item>& items);

}  // namespace quarry::test
