#include "support/plain_vmdk_chain.h"

#include <algorithm>

namespace quarry::test {

namespace {

// A number of the file; bytes past its end are zeros.
std::uint64_t number_at(const bytes& content, std::uint64_t offset, unsigned width) {
    std::uint64_t value = 0;
    for (unsigned i = 0; i < width; ++i) {
        const std::uint64_t byte = offset + i < content.size() ? content[offset + i] : 0;
        value |= byte << (8 * i);
    }
    return value;
}

}  // namespace

plain_vmdk_file::plain_vmdk_file(bytes content) : m_content(std::move(content)) {
    m_grain_bytes = number_at(m_content, 20, 8) * 512;
    m_entries = number_at(m_content, 44, 4);
    const std::uint64_t directory = number_at(m_content, 56, 8) * 512;
    const std::uint64_t first_table = number_at(m_content, directory, 4) * 512;
    const std::uint64_t end = std::min<std::uint64_t>(first_table, m_content.size());
    for (std::uint64_t at = directory; at + 4 <= end; at += 4) {
        const std::uint64_t table = number_at(m_content, at, 4) * 512;
        std::vector<std::uint32_t> entries;
        for (std::uint64_t index = 0; index < m_entries; ++index) {
            entries.push_back(static_cast<std::uint32_t>(number_at(m_content, table + 4 * index, 4)));
        }
        m_tables.push_back(entries);
    }
}

std::optional<std::uint64_t> plain_vmdk_file::position_of(std::uint64_t offset) const {
    const std::uint64_t table = offset / (m_grain_bytes * m_entries);
    if (table >= m_tables.size()) {
        return std::nullopt;
    }
    const std::uint64_t entry = m_tables[table][offset % (m_grain_bytes * m_entries) / m_grain_bytes];
    if (entry == 0) {
        return std::nullopt;
    }
    return entry * 512 + offset % m_grain_bytes;
}

bytes read_plainly(const std::vector<plain_vmdk_file>& chain, std::uint64_t offset, std::uint64_t length) {
    bytes out;
    while (out.size() < length) {
        const std::uint64_t here = offset + out.size();
        const plain_vmdk_file* holder = nullptr;
        for (auto file = chain.rbegin(); file != chain.rend() && holder == nullptr; ++file) {
            holder = file->position_of(here) ? &*file : nullptr;
        }
        const plain_vmdk_file& measure = holder != nullptr ? *holder : chain.front();
        const std::uint64_t chunk =
            std::min(length - out.size(), measure.grain_bytes() - here % measure.grain_bytes());
        const std::uint64_t position = holder != nullptr ? *holder->position_of(here) : 0;
        for (std::uint64_t i = 0; i < chunk; ++i) {
            const bool held = holder != nullptr && position + i < holder->content().size();
            out.push_back(held ? holder->content()[position + i] : 0);
        }
    }
    return out;
}

}  // namespace quarry::test
