#include "support/attribute_list_builder.h"

namespace quarry::test {

bytes build_attribute_list(const std::vector<list_item>& items) {
    bytes list;
    for (const list_item& item : items) {
        byte_writer entry(26);
        entry.u32(0, item.type).u8(6, item.name.units.size()).u8(7, 26).u64(8, item.lowest_vcn);
        entry.u64(16, reference(item.record, item.sequence)).u16(24, item.id);
        entry.raw(26, item.name.on_disk()).pad_to_multiple(8);
        entry.u16(4, entry.size());
        bytes finished = entry.take();
        apply(finished, item.forced);
        list.insert(list.end(), finished.begin(), finished.end());
    }
    return list;
}

}  // namespace quarry::test
