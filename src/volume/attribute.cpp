#include "volume/attribute.h"

#include "volume/file_record.h"

#include <algorithm>
#include <array>

namespace quarry {

namespace {

struct type_label {
    std::uint32_t type;
    const char* short_form;
    const char* long_form;
};

// Users match reports by these words, so they stay as they are, "Oject" too.
constexpr std::array<type_label, 17> type_labels = {{
    {attr_standard_information, "$StdInfo", "Standard Info Attrib"},
    {attr_attribute_list, "AttribList", "Attribute list"},
    {attr_file_name, "$Filename", "Filename Attrib"},
    {attr_object_id, "$ObjectID", "Oject ID Attrib"},
    {attr_security_descriptor, "$Security", "Security Desc Attrib"},
    {attr_volume_name, "$VolName", "Volume name Attrib"},
    {attr_volume_information, "$VolInfo", "Volume Info Attrib"},
    {attr_data, "$Data", "Data Attrib"},
    {attr_index_root, "$IndxRoot", "Index Root Attrib"},
    {attr_index_allocation, "$IndxAlloc", "Index Allocation Attrib"},
    {attr_bitmap, "$Bitmap", "Bitmap Attrib"},
    {attr_reparse_point, "$Reparse", "Reparse point Attrib"},
    {attr_ea_information, "$EaInfo", "EA Info Attrib"},
    {attr_ea, "$Ea", "NTFS_EA"},
    {attr_property_set, "$Property", "Property Set Attrib"},
    {attr_logged_utility_stream, "$Log", "Logged Utility Stream Attrib"},
    {attr_end_marker, "NTFS_ATTRIBUTE_END_MARKER", "NTFS_ATTRIBUTE_END_MARKER"},
}};

// Deliberate: the wanted name is compared with as many bytes of the other, not with all of it. The user sees
// an attribute found whose name only begins with the wanted one.
template <typename Named>
bool name_matches(const Named& named, byte_view wanted) {
    if (wanted.empty()) {
        return named.name_length_in_units() == 0;
    }
    const byte_view name = named.bytes().clipped(named.name_offset(), wanted.size());
    return std::equal(name.span().begin(), name.span().end(), wanted.span().begin(), wanted.span().end());
}

}  // namespace

attribute first_attribute(byte_view record) {
    return attribute(record.from(file_record(record).first_attribute_offset()));
}

bool next_attribute_of_type(attribute& at, std::uint32_t type, std::uint32_t limit) {
    // Ends with the bytes: each step is at least one byte long.
    while (!at.is_null() && at.type() != attr_end_marker) {
        if (at.type() == type) {
            return true;
        }
        if (at.length() == 0 || at.length() > limit) {
            return false;
        }
        at = at.next();
    }
    return false;
}

bool first_attribute_of_type(byte_view record, std::uint32_t type, attribute& out, std::uint32_t limit) {
    out = first_attribute(record);
    return next_attribute_of_type(out, type, limit);
}

bool find_attribute_by_name(attribute& at, std::uint32_t type, byte_view name, std::uint32_t limit) {
    // Ends with the bytes: each step is at least one byte long.
    while (!at.is_null() && at.type() != attr_end_marker) {
        if (at.type() == type && name_matches(at, name)) {
            return true;
        }
        if (at.length() == 0 || (name.empty() && at.length() > limit)) {
            return false;
        }
        at = at.next();
    }
    return false;
}

bool find_list_entry_by_name(list_entry& at, std::int64_t& bytes_left, std::uint32_t type, byte_view name) {
    if (type == attr_end_marker) {
        return false;
    }
    // Ends with the bytes: each step is at least one byte long.
    while (bytes_left > 0 && at.type() != attr_end_marker) {
        if (at.type() == type && name_matches(at, name)) {
            return true;
        }
        if (at.length() == 0) {
            bytes_left = 0;
            return false;
        }
        bytes_left -= at.length();
        at = at.next();
    }
    return false;
}

void attr_name_of_type(std::string& out, std::uint32_t type, bool short_form) {
    const auto* const label = std::find_if(type_labels.begin(), type_labels.end(),
                                           [&](const type_label& known) { return known.type == type; });
    if (label == type_labels.end()) {
        out = "unk";
        return;
    }
    out = short_form ? label->short_form : label->long_form;
}

}  // namespace quarry
