#include "exact/upcase.h"

#include "exact/attribute_set.h"
#include "volume/well_known.h"

#include <algorithm>

namespace quarry::exact {

namespace {

tl::unexpected<failure> wrong_size(std::uint64_t size, std::optional<std::uint64_t> source_byte) {
    return fail(failure_code::upcase, where::record(upcase_entry),
                "$UpCase has " + std::to_string(size) + " bytes", source_byte);
}

}  // namespace

result<upcase> upcase::load(const mft& table, notices& told) {
    return table.read_system(upcase_entry, told)
        .and_then([&](record found) { return attribute_set::of(table, std::move(found), told); })
        .and_then([&](const attribute_set& set) { return set.stored(table.volume().shape(), attr_data, {}); })
        .and_then([&](const stored_stream& stored) -> result<upcase> {
            if (stored.size() != table_bytes) {
                return wrong_size(stored.size(), stored.source_byte());
            }
            return stored.read_all(table.volume(), table_bytes).map([](std::vector<std::uint8_t> bytes) {
                return upcase(std::move(bytes));
            });
        });
}

result<upcase> upcase::parse(byte_view bytes) {
    return bytes.size() == table_bytes ? result<upcase>(upcase(bytes.to_vector()))
                                       : wrong_size(bytes.size(), std::nullopt);
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
