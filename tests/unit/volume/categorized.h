// Categorises one entry of a volume and keeps what came of it, in forms that compare easily.
#pragma once

#include "support/capturing_log.h"
#include "support/opened_volume.h"
#include "volume/mft_entries.h"

#include <cstdint>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace quarry::test {

using lines = std::vector<std::string>;

// What became of one entry.
struct categorized {
    bool ok = false;
    attr_item_list items;
    lines log;
};

inline categorized categorize(CNtfs& ntfs, std::uint64_t entry) {
    categorized out;
    out.items.resize(3);
    capturing_log log;
    out.ok = categorize_entry(ntfs, entry, out.items, log);
    out.log = log.lines;
    return out;
}

inline categorized categorize(const volume_builder& volume, std::uint64_t entry = first_user_entry) {
    opened_volume opened(volume);
    return categorize(opened.ntfs(), entry);
}

inline std::vector<const attr_item*> of_type(const attr_item_list& items, std::uint32_t type) {
    std::vector<const attr_item*> found;
    for (const attr_item& item : items) {
        if (item.type == type) {
            found.push_back(&item);
        }
    }
    return found;
}

inline std::vector<std::uint32_t> types_of(const attr_item_list& items) {
    std::vector<std::uint32_t> types;
    for (const attr_item& item : items) {
        types.push_back(item.type);
    }
    return types;
}

// VCN, LCN, length; LCN 0 and a mark for holes.
using flat_runs = std::vector<std::tuple<std::uint64_t, std::uint64_t, std::uint32_t, bool>>;
inline flat_runs runs_of(const attr_item& item) {
    flat_runs out;
    for (const cluster_run& run : item.runs) {
        out.emplace_back(run.vcn, run.lcn, run.length, run.sparse);
    }
    return out;
}

// One record's piece of the data stream, from a VCN on.
inline attribute_builder piece(run_list where, std::uint64_t lowest_vcn, std::uint16_t id) {
    return attribute_builder::non_resident(attr_data, std::move(where)).lowest_vcn(lowest_vcn).id(id);
}

}  // namespace quarry::test
