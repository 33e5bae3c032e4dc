#include "volume/entry_flattening.h"

#include "foundation/ql_string.h"
#include "volume/attribute_values.h"
#include "volume/file_record.h"
#include "volume/limits.h"

#include <algorithm>

namespace quarry {

namespace {

attr_item new_item(const entry_record& record, std::uint32_t type, std::uint16_t id, std::uint16_t flags,
                   std::uint32_t record_size) {
    attr_item item;
    item.type = type;
    item.id = id;
    item.flags = flags;
    item.entry = reference_entry(record.entry);
    item.sequence = static_cast<std::uint16_t>(record.sequence);
    item.record_size = record_size;
    return item;
}

attr_item header_item(const entry_record& record) {
    const file_record header{byte_view(record.header)};
    attr_item item =
        new_item(record, attr_file_record, 0, 0, record_size_from_header(byte_view(record.record)));
    item.reference = item.entry | (std::uint64_t{item.sequence} << 48);
    // Deliberate: four bits of the count of hard links are kept, not all of it. The report of a file with 16
    // links shows 0.
    using namespace header_bits;
    const unsigned links = (header.hard_link_count() & link_count_mask) << link_count_shift;
    item.bits =
        static_cast<std::uint8_t>(always | links | (header.in_use() ? 0 : deleted) |
                                  (header.is_directory() ? directory : 0) | (record.has_base ? has_base : 0));
    item.base = record.base;
    return item;
}

template <typename Value>
void take_times(attr_item& item, const Value& value) {
    item.created = value.created();
    item.modified = value.modified();
    item.accessed = value.accessed();
    item.mft_changed = value.mft_changed();
    item.attributes = value.attributes();
}

attr_item standard_information_item(const entry_record& record, const kept_value& kept,
                                    std::uint32_t record_size) {
    attr_item item = new_item(record, attr_standard_information, kept.id, kept.flags, record_size);
    const standard_information_value value{byte_view(kept.bytes)};
    take_times(item, value);
    item.security_id = value.security_id();
    return item;
}

attr_item file_name_item(const entry_record& record, const kept_value& kept, std::uint32_t record_size) {
    attr_item item = new_item(record, attr_file_name, kept.id, kept.flags, record_size);
    const file_name_value value{byte_view(kept.bytes)};
    take_times(item, value);
    item.parent = value.parent();
    item.real = value.real_size();
    item.name_space = value.name_space();
    read_utf16_narrow(item.text, value.name_bytes(), static_cast<std::int64_t>(value.name_bytes().size()),
                      false);
    return item;
}

void take_clusters(attr_item& item, const entry_record& record, general_attribute& stored) {
    const attribute at = stored.view();
    item.owner = record.has_base ? record.base : record.entry;
    item.allocated = at.allocated_size();
    item.real = at.real_size();
    item.initialized = at.initialized_size();
    item.compressed = at.compressed_size();
    item.unit = at.compression_unit();
    item.runs = stored.runs.take();
}

// The value as long as the header says. Bytes that a damaged header places outside of the attribute are
// zeros, as far as the padding goes, which the value takes its part of.
std::vector<std::uint8_t> value_in_full(const attribute& at, budget& padding) {
    if (at.value_offset() == 0) {
        return {};
    }
    const byte_view held = at.value();
    std::vector<std::uint8_t> value(held.size() + padding.take(at.value_length() - held.size()));
    std::copy(held.span().begin(), held.span().end(), value.begin());
    return value;
}

void take_value(attr_item& item, const general_attribute& stored, std::uint32_t record_size,
                budget& padding) {
    const attribute at = stored.view();
    item.value_size = at.value_length();
    // Deliberate: a resident value as long as a record, which no sound record can hold, is dropped, not kept.
    // Its size shows in the report, and a copy finds no data.
    if (item.value_size < record_size) {
        item.value = value_in_full(at, padding);
    }
    if (item.type == attr_volume_name && stored.name.empty()) {
        read_utf16_narrow(item.name, item.value, static_cast<std::int64_t>(item.value.size()), false);
    }
    if (item.type == attr_object_id && item.value.size() == item.object_id.size()) {
        std::copy(item.value.begin(), item.value.end(), item.object_id.begin());
    }
}

attr_item general_item(const entry_record& record, general_attribute& stored, std::uint32_t record_size,
                       budget& padding) {
    const attribute at = stored.view();
    attr_item item = new_item(record, at.type(), at.id(), at.flags(), record_size);
    item.non_resident = at.non_resident();
    item.name = narrow(stored.name);
    if (item.non_resident) {
        take_clusters(item, record, stored);
    } else {
        take_value(item, stored, record_size, padding);
    }
    return item;
}

}  // namespace

attr_item_list flatten_entry(entry_record& record, std::uint32_t record_size) {
    attr_item_list items;
    budget padding(limits::value_padding);
    items.push_back(header_item(record));
    for (const auto& [id, kept] : record.std_infos) {
        items.push_back(standard_information_item(record, kept, record_size));
    }
    for (const auto& [key, kept] : record.file_names) {
        items.push_back(file_name_item(record, kept, record_size));
    }
    for (auto& [key, stored] : record.attributes) {
        items.push_back(general_item(record, stored, record_size, padding));
    }
    return items;
}

attr_item_list flatten_index_attributes(entry_record& record, std::uint32_t record_size) {
    attr_item_list items;
    budget padding(limits::value_padding);
    for (auto& [key, stored] : record.attributes) {
        const std::uint32_t type = stored.view().type();
        if (type == attr_index_root || type == attr_index_allocation) {
            items.push_back(general_item(record, stored, record_size, padding));
        }
    }
    return items;
}

}  // namespace quarry
