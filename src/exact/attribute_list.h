// The value of $ATTRIBUTE_LIST: which record holds which attribute of a file.
//
//     | entry | entry | entry | ...                    each a multiple of 8 bytes, one for each attribute
//
//     offset 0  type             offset 7   where the name begins     offset 24  id of the attribute
//     offset 4  length           offset 8   lowest VCN                offset 26  name, as a rule
//     offset 6  units of name    offset 16  reference to the record
#pragma once

#include "exact/failure.h"
#include "exact/record.h"
#include "exact/volume_bytes.h"
#include "foundation/byte_view.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quarry::exact {

// No list of the file system is larger, in bytes.
inline constexpr std::uint64_t longest_attribute_list = 0x40000;

struct list_item {
    std::uint64_t offset = 0;  // in the list
    std::uint32_t type = 0;
    std::u16string name;
    std::uint64_t lowest_vcn = 0;
    reference holder;
    std::uint16_t id = 0;
    std::optional<std::uint64_t> source_byte;  // where the item is stored

    // True if the attribute is the one that this item names, whatever record it is in.
    [[nodiscard]] bool names(const attribute& candidate) const;
};

// The items in the order of the list. `place` is where the list is stored, and its words in failures. Fails
// with list.
[[nodiscard]] result<std::vector<list_item>> parse_attribute_list(byte_view value, const block_place& place);

// The list of a base record; null if it has none. Fails with list if it has several.
[[nodiscard]] result<const attribute*> find_attribute_list(const record& base);

// Reads and parses the list of a base record, whose value may be resident or stored in clusters.
[[nodiscard]] result<std::vector<list_item>> read_attribute_list(const volume_bytes& volume,
                                                                 const record& base, const attribute& list);

// The failure at an item that breaks a rule.
[[nodiscard]] tl::unexpected<failure> broken_item(const std::string& where, const list_item& item,
                                                  const std::string& rule);

// The one attribute of `holder` that an item names; its index in the chain. Fails with list at the item if
// there is none, or several.
[[nodiscard]] result<std::size_t> attribute_named_by(const list_item& item, const record& holder,
                                                     const std::string& where);

}  // namespace quarry::exact
