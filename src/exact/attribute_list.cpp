#include "exact/attribute_list.h"

#include "exact/name_text.h"
#include "exact/stored_stream.h"

namespace quarry::exact {

namespace {

const char* broken_rule(const list_entry& entry) {
    const std::uint64_t length = entry.length();
    if (length < static_cast<std::uint64_t>(smallest_list_entry) || length % 8 != 0) {
        return "its length is no multiple of 8 from 26 on";
    }
    if (length > entry.bytes().size()) {
        return "it reaches past the end of the list";
    }
    const std::uint64_t name_bytes = std::uint64_t{2} * entry.name_length_in_units();
    if (name_bytes != 0 &&
        (entry.name_offset() < smallest_list_entry || entry.name_offset() + name_bytes > length)) {
        return "its name is not inside of it";
    }
    return nullptr;
}

}  // namespace

tl::unexpected<failure> broken_item(const std::string& where, const list_item& item,
                                    const std::string& rule) {
    return fail(failure_code::list, where, "attribute list, entry at " + hex(item.offset) + ": " + rule,
                item.source_byte);
}

bool list_item::names(const attribute& candidate) const {
    const std::uint64_t vcn = candidate.non_resident() ? candidate.lowest_vcn() : 0;
    return candidate.type() == type && candidate.id() == id && vcn == lowest_vcn &&
           name_of(candidate) == name;
}

result<std::vector<list_item>> parse_attribute_list(byte_view value, const block_place& place) {
    std::vector<list_item> items;
    std::uint64_t offset = 0;
    // Each turn moves on by at least 26 bytes.
    while (offset < value.size()) {
        const list_entry entry(value.from(offset));
        list_item item;
        item.offset = offset;
        item.source_byte = place.source_byte(offset);
        if (const char* rule = broken_rule(entry)) {
            return broken_item(place.where, item, rule);
        }
        item.type = entry.type();
        item.name = units_of_bytes(
            entry.bytes().clipped(entry.name_offset(), std::uint64_t{2} * entry.name_length_in_units()));
        item.lowest_vcn = entry.lowest_vcn();
        item.holder = {entry.entry_number(), entry.sequence_number()};
        item.id = entry.id();
        items.push_back(std::move(item));
        offset += entry.length();
    }
    return items;
}

result<const attribute*> find_attribute_list(const record& base) {
    const attribute* found = nullptr;
    for (const attribute& each : base.attributes()) {
        if (each.type() == attr_attribute_list && found != nullptr) {
            return fail(failure_code::list, base.place().where, "has two attribute lists",
                        base.source_byte(each.bytes()));
        }
        found = each.type() == attr_attribute_list ? &each : found;
    }
    return found;
}

namespace {

block_place place_of_list(const volume_bytes& volume, const record& base, const attribute& list,
                          const stored_stream& stored) {
    if (!stored.resident()) {
        return stored.place_of(volume, 0, stored.size(), base.place().where);
    }
    block_place place{base.place().where, {}};
    if (const auto begin = base.source_byte(list.value())) {
        place.pieces.push_back({0, *begin});
    }
    return place;
}

}  // namespace

result<std::vector<list_item>> read_attribute_list(const volume_bytes& volume, const record& base,
                                                   const attribute& list) {
    const std::string where = where::stream(base.entry(), attr_attribute_list, "");
    return stored_stream::join(volume.shape(), {{list, &base}}, where)
        .and_then([&](const stored_stream& stored) {
            return stored.read_all(volume, longest_attribute_list)
                .and_then([&](const std::vector<std::uint8_t>& value) {
                    return parse_attribute_list(value, place_of_list(volume, base, list, stored));
                });
        });
}

result<std::size_t> attribute_named_by(const list_item& item, const record& holder,
                                       const std::string& where) {
    const auto& all = holder.attributes();
    std::size_t found = all.size();
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (!item.names(all[i])) {
            continue;
        }
        if (found != all.size()) {
            return broken_item(where, item,
                               "names two attributes of record " + std::to_string(holder.entry()));
        }
        found = i;
    }
    if (found == all.size()) {
        return broken_item(where, item, "names no attribute of record " + std::to_string(holder.entry()));
    }
    return found;
}

}  // namespace quarry::exact
