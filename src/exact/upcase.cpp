#include "exact/upcase.h"

#include "exact/attribute_set.h"
#include "volume/well_known.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <span>
#include <utility>

namespace quarry::exact {

namespace {

tl::unexpected<failure> wrong_size(std::uint64_t size, std::optional<std::uint64_t> source_byte) {
    return fail(failure_code::upcase, where::record(upcase_entry),
                "$UpCase has " + std::to_string(size) + " bytes", source_byte);
}

// Bytes of the table that are read at once.
constexpr std::size_t block_bytes = 32768;

// Room for the letters of a usual table: the one of mkntfs has capitals in 16 pages.
constexpr std::size_t usual_mapped_units = std::size_t{19} * 256;

// Whether a page maps each unit to itself, `first` and those after it. Four units are compared at once.
bool maps_to_itself(byte_view page, std::uint64_t first) {
    if constexpr (std::endian::native != std::endian::little) {
        return false;
    }
    constexpr std::uint64_t one_for_each = 0x0001000100010001;
    std::uint64_t expected = first * one_for_each + 0x0003000200010000;
    std::uint64_t differing = 0;
    for (std::size_t at = 0; at < page.size(); at += sizeof(expected)) {
        std::uint64_t units = 0;
        std::memcpy(&units, page.span().data() + at, sizeof(units));
        differing |= units ^ expected;
        expected += 4 * one_for_each;
    }
    return differing == 0;
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
            upcase made;
            made.m_mapped.reserve(usual_mapped_units);
            std::vector<std::uint8_t> block(block_bytes);
            for (std::size_t offset = 0; offset < table_bytes; offset += block.size()) {
                if (result<void> came = stored.read(table.volume(), block, offset); !came) {
                    return passed_on(came);
                }
                for (std::size_t at = 0; at < block.size(); at += page_bytes) {
                    made.add_page((offset + at) / page_bytes, byte_view(block).clipped(at, page_bytes));
                }
            }
            return made;
        });
}

result<upcase> upcase::parse(byte_view bytes) {
    if (bytes.size() != table_bytes) {
        return wrong_size(bytes.size(), std::nullopt);
    }
    upcase made;
    for (std::size_t number = 0; number < page_count; ++number) {
        made.add_page(number, bytes.clipped(number * page_bytes, page_bytes));
    }
    return made;
}

void upcase::add_page(std::size_t number, byte_view bytes) {
    if (maps_to_itself(bytes, number * page_units)) {
        m_begins[number] = as_they_are;
        return;
    }
    m_begins[number] = static_cast<std::uint32_t>(m_mapped.size());
    m_mapped.resize(m_mapped.size() + page_units);
    const std::span<char16_t> page = std::span(m_mapped).last(page_units);
    for (std::size_t unit = 0; unit < page_units; ++unit) {
        page[unit] = static_cast<char16_t>(bytes.u16_or_zero(2 * unit));
    }
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
