#include "volume/record_read_ahead.h"

#include <algorithm>

namespace quarry {

namespace {

constexpr std::uint64_t longest_stretch = std::uint64_t{256} * 1024;
// Bytes that are not wanted, between two records that are. More of them cost more than a second read.
constexpr std::uint64_t widest_gap = std::uint64_t{4} * 1024;

}  // namespace

bool record_read_ahead::read(std::span<const std::uint64_t> entries, std::span<std::uint8_t> record,
                             std::uint64_t& length) {
    const std::uint64_t entry = entries.front();
    const std::uint64_t size = m_records.size_of(entry);
    std::uint64_t position = m_records.position_of(entry);
    // Entry 0 has a place of its own, and what has no place is for the single read to refuse.
    if (entry != 0 && position != 0 && size <= record.size()) {
        if (!m_held.holds(position, size) && !m_refused.holds(position, size)) {
            fetch(neighbours(entries, size));
        }
        if (m_held.holds(position, size)) {
            const auto from = m_bytes.begin() + static_cast<std::ptrdiff_t>(position - m_held.begin);
            std::copy_n(from, size, record.begin());
            length = size;
            return m_records.accept(record.first(size));
        }
    }
    return m_records.read(entry, record, position, length);
}

// The place of the first entry and of those after it that lie near enough.
record_read_ahead::stretch record_read_ahead::neighbours(std::span<const std::uint64_t> entries,
                                                         std::uint64_t size) const {
    const std::uint64_t begin = m_records.position_of(entries.front());
    stretch found{begin, begin + size};
    for (const std::uint64_t entry : entries.subspan(1)) {
        const std::uint64_t position = m_records.position_of(entry);
        if (position < begin || position > found.end + widest_gap ||
            position + size > begin + longest_stretch) {
            break;
        }
        found.end = std::max(found.end, position + size);
    }
    return found;
}

void record_read_ahead::fetch(const stretch& wanted) {
    const std::uint64_t size = wanted.end - wanted.begin;
    m_bytes.resize(static_cast<std::size_t>(size));
    if (m_records.clusters().read_whole(wanted.begin, m_bytes.data(), size)) {
        m_held = wanted;
    } else {
        m_held = {};
        m_refused = wanted;
    }
}

}  // namespace quarry
