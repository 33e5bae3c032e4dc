// The flat description of one attribute, from which copies and reports work.
//
// Categorising an entry gives a list of these: first one for the record's header, then one for each
// $STANDARD_INFORMATION, each $FILE_NAME and each other attribute of the file, wherever its record is. Which
// members say something depends on the type and on whether the attribute is resident; the others are zero or
// empty. Times are FILETIMEs, sizes bytes.
#pragma once

#include "volume/runs.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace quarry {

// attr_item::bits, what the header of a record says.
namespace header_bits {
inline constexpr std::uint8_t deleted = 0x01;
inline constexpr std::uint8_t directory = 0x02;
// Set in the item of every record, and in no other item.
inline constexpr std::uint8_t always = 0x04;
// From here on four bits of the count of hard links.
inline constexpr unsigned link_count_shift = 3;
inline constexpr unsigned link_count_mask = 0x0F;
// attr_item::base is given.
inline constexpr std::uint8_t has_base = 0x80;
}  // namespace header_bits

struct attr_item {
    std::uint32_t type = 0;
    std::uint16_t id = 0;
    std::uint16_t flags = 0;
    std::uint64_t entry = 0;     // 48-bit MFT entry number
    std::uint16_t sequence = 0;  // of the entry's record
    bool non_resident = false;

    // Non-resident attribute.
    std::uint64_t owner = 0;  // its entry; in an extension record the full reference to the base record
    std::uint64_t allocated = 0;
    std::uint64_t real = 0;  // of the file name too
    std::uint64_t initialized = 0;
    std::uint64_t compressed = 0;
    std::uint8_t unit = 0;  // of compression, as a power of two of clusters; 0 if there is none

    // Resident attribute.
    std::uint32_t value_size = 0;  // by the header, also where `value` is not kept
    // $OBJECT_ID with a value of exactly 16 bytes: that value.
    std::array<std::uint8_t, 16> object_id{};

    // $STANDARD_INFORMATION and $FILE_NAME.
    std::uint64_t created = 0;
    std::uint64_t modified = 0;
    std::uint64_t accessed = 0;
    std::uint64_t mft_changed = 0;
    std::uint32_t attributes = 0;
    std::uint32_t security_id = 0;  // of $STANDARD_INFORMATION; 0 in its older, shorter form
    std::uint64_t parent = 0;       // of $FILE_NAME: the full reference to the directory
    std::uint8_t name_space = 0;    // of $FILE_NAME: 0 POSIX, 1 Win32, 2 DOS, 3 Win32 and DOS

    // The record's header, type 0x110.
    std::uint64_t reference = 0;  // 48-bit entry and 16-bit sequence number
    // See header_bits.
    std::uint8_t bits = 0;
    std::uint64_t base = 0;  // full reference to the base record

    std::string name;  // of the attribute; of $VOLUME_NAME, the volume's
    std::string text;  // of $FILE_NAME: the file's name
    cluster_run_list runs;
    // Reserved: nothing is read into it.
    std::uint64_t cache_position = 0;
    std::vector<std::uint8_t> cache;
    std::vector<std::uint8_t> value;  // of a resident attribute, if it is shorter than a record
    std::uint32_t record_size = 0;    // of the volume; for the header's item, by that header
};
using attr_item_list = std::vector<attr_item>;

}  // namespace quarry
