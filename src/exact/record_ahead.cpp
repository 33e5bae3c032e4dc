#include "exact/record_ahead.h"

#include <algorithm>

namespace quarry::exact {

namespace {

constexpr std::size_t bytes_held = 0x200000;
// A gap of so many records is read with what lies on both sides of it: cheaper than a second read.
constexpr std::uint64_t widest_gap = 4;

// Adjacent entries that are read at once.
struct stretch {
    std::uint64_t first;
    std::size_t count;
};

}  // namespace

record_ahead::record_ahead(const mft& table)
    : m_table(&table),
      m_record_size(table.volume().shape().record_size),
      m_slots(bytes_held / m_record_size),
      m_bytes(m_slots.size() * m_record_size) {}

bool record_ahead::holds(std::uint64_t entry) const {
    const slot& held = m_slots[slot_of(entry)];
    return held.filled && held.entry == entry;
}

void record_ahead::fetch(std::vector<std::uint64_t> entries) {
    std::erase_if(entries, [&](std::uint64_t entry) {
        return entry < mft::mirrored_entries || entry >= m_table->entries() || holds(entry);
    });
    std::sort(entries.begin(), entries.end());
    std::vector<stretch> stretches;
    for (auto first = entries.begin(); first != entries.end();) {
        auto last = first;
        while (last + 1 != entries.end() && *(last + 1) - *last <= widest_gap + 1 &&
               *(last + 1) - *first < m_slots.size()) {
            ++last;
        }
        stretches.push_back({*first, static_cast<std::size_t>(*last - *first + 1)});
        first = last + 1;
    }
    // The first is read at once. What comes after it is fetched meanwhile.
    for (std::size_t later = 1; later < stretches.size(); ++later) {
        m_table->announce(stretches[later].first, stretches[later].count);
    }
    for (const stretch& each : stretches) {
        fetch_adjacent(each.first, each.count);
    }
}

void record_ahead::fetch_adjacent(std::uint64_t first, std::size_t count) {
    m_buffer.resize(count * m_record_size);
    if (!m_table->read_stored_bytes(first, m_buffer)) {
        return;
    }
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t place = slot_of(first + i);
        m_slots[place] = {first + i, true};
        std::copy_n(m_buffer.begin() + static_cast<std::ptrdiff_t>(i * m_record_size), m_record_size,
                    m_bytes.begin() + static_cast<std::ptrdiff_t>(place * m_record_size));
    }
}

std::optional<byte_view> record_ahead::stored(std::uint64_t entry) const {
    return holds(entry)
               ? std::optional(byte_view(m_bytes).clipped(slot_of(entry) * m_record_size, m_record_size))
               : std::nullopt;
}

result<record> record_ahead::read(std::uint64_t entry, notices& told) const {
    const auto bytes = stored(entry);
    return bytes ? m_table->verify_stored(entry, bytes->to_vector(), told) : m_table->read(entry, told);
}

result<record> record_ahead::read_in_use(reference wanted, notices& told) const {
    return read(wanted.entry, told).and_then([&](record found) {
        return mft::expect_in_use(std::move(found), wanted, told);
    });
}

}  // namespace quarry::exact
