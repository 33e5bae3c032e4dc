// What categorising finds of one MFT entry: its record, and its attributes sorted by kind.
//
// Attributes of the same kind differ by their attribute id, which is unique within a record; file names by a
// text. The maps decide the order in which copies and reports meet the attributes. An attribute in an
// extension record is kept here as if the base record held it.
#pragma once

#include "foundation/budget.h"
#include "volume/attribute.h"
#include "volume/joined_runs.h"
#include "volume/record_layout.h"

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace quarry {

// An attribute in the form that all kinds share.
struct general_attribute {
    std::wstring name;
    std::string_view label;           // Reserved: not looked at. What kind it is, such as "unnamed data"
    std::vector<std::uint8_t> bytes;  // the whole attribute as the record has it
    joined_runs runs;                 // of a non-resident one

    [[nodiscard]] attribute view() const { return attribute(bytes); }
};

// A value that is kept, as much of it as its kind asks for.
struct kept_value {
    std::uint16_t id = 0;     // of the attribute
    std::uint16_t flags = 0;  // of the attribute header
    std::vector<std::uint8_t> bytes;
    // Reserved: not looked at. Of a value with times: "null" if one of them is zero, "future" if one is too
    // late, else empty.
    std::string judgement;
};

struct kept_object_id {
    std::vector<std::uint8_t> bytes;  // up to 64
    std::uint32_t length = 0;         // of the value, whatever was kept of it
};

struct kept_volume_information {
    std::vector<std::uint8_t> bytes;  // up to 12
    std::string version_text;
};

struct entry_record {
    // Reserved: set and not asked for.
    bool has_list = false;
    bool list_non_resident = false;
    std::uint64_t entry = 0;
    std::uint32_t sequence = 0;
    std::array<std::uint8_t, record_header_size> header{};
    std::vector<std::uint8_t> record;  // fixups restored
    bool has_base = false;
    std::uint64_t base = 0;  // reference to the base record as it is stored

    std::map<std::uint16_t, kept_value> std_infos;
    // By parent entry, name and entry; see file_name_key.
    std::map<std::string, kept_value> file_names;
    // Reserved: these five are filled and not looked at. What is copied or reported of their attributes comes
    // from `attributes`.
    std::map<std::uint16_t, kept_object_id> object_ids;
    std::map<std::uint16_t, std::wstring> volume_names;
    std::map<std::uint16_t, kept_volume_information> volume_infos;
    std::map<std::uint16_t, std::wstring> reparse_points;
    std::map<std::uint16_t, std::vector<std::uint8_t>> index_roots;  // up to 16 bytes
    // Every attribute but lists, $STANDARD_INFORMATION and $FILE_NAME; see attribute_key.
    std::map<std::uint64_t, general_attribute> attributes;
    // Reserved: set and not asked for. An unnamed $DATA is among them; if several are, the key of the first.
    bool has_unnamed_data = false;
    std::uint64_t unnamed_data_key = 0;
    // Bytes of memory that attributes and file names, runs included, may still take here.
    budget memory{budget::unlimited};
};

// Orders attributes by id, those of one id by type.
[[nodiscard]] constexpr std::uint64_t attribute_key(std::uint32_t type, std::uint16_t id) {
    return (std::uint64_t{id} << 48) | type;
}

// "<parent entry>_<name>_<entry>", the numbers as at least eight hexadecimal digits.
[[nodiscard]] std::string file_name_key(std::uint64_t parent_entry, const std::string& name,
                                        std::uint64_t entry);

// Sorts one attribute into `record`. `at` begins at the attribute and ends with the record that holds it;
// `entry` is the entry that all of it is about, whichever record that is. `is_list` says that the attribute
// is an attribute list, which is left to the caller. False, and nothing sorted, for an attribute that is
// null, of length 0 or not wholly inside its record; an attribute that is passed over, such as a file name
// without a value, gives true.
[[nodiscard]] bool categorize_attribute(entry_record& record, std::uint64_t entry, const attribute& at,
                                        bool& is_list);

}  // namespace quarry
