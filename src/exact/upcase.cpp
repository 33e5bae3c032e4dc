#include "exact/upcase.h"

#include "exact/attribute_set.h"
#include "volume/well_known.h"

#include <algorithm>

namespace quarry::exact {

result<upcase> upcase::load(const mft& table, notices& told) {
    return table.read_system(upcase_entry, told)
        .and_then([&](record found) { return attribute_set::of(table, std::move(found), told); })
        .and_then([&](const attribute_set& set) { return set.stored(table.volume().shape(), attr_data, {}); })
        .and_then([&](const stored_stream& stored) -> result<upcase> {
            if (stored.size() != table_bytes) {
                return fail(failure_code::upcase, where::record(upcase_entry),
                            "$UpCase has " + std::to_string(stored.size()) + " bytes");
            }
            return stored.read_all(table.volume(), table_bytes).and_then([](const auto& bytes) {
                return parse(bytes);
            });
        });
}

result<upcase> upcase::parse(byte_view bytes) {
    if (bytes.size() != table_bytes) {
        return fail(failure_code::upcase, where::record(upcase_entry),
                    "$UpCase has " + std::to_string(bytes.size()) + " bytes");
    }
    upcase table;
    table.m_units.resize(table_bytes / 2);
    // Each run pays for this loop that looks up a name: the size was tested above, once.
    const std::uint8_t* const stored = bytes.data();
    for (std::size_t unit = 0; unit < table.m_units.size(); ++unit) {
        table.m_units[unit] = static_cast<char16_t>(stored[2 * unit] | stored[2 * unit + 1] << 8);
    }
    return table;
}

std::u16string upcase::upper(std::u16string_view name) const {
    std::u16string mapped(name);
    std::transform(mapped.begin(), mapped.end(), mapped.begin(), [&](char16_t unit) { return upper(unit); });
    return mapped;
}

std::strong_ordering upcase::compare(std::u16string_view a, std::u16string_view b) const {
    const std::size_t common = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < common; ++i) {
        if (const auto order = upper(a[i]) <=> upper(b[i]); order != std::strong_ordering::equal) {
            return order;
        }
    }
    return a.size() <=> b.size();
}

}  // namespace quarry::exact
