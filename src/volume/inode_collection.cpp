#include "volume/inode_collection.h"

#include <algorithm>

namespace quarry {

namespace {

// Numbers that may come in before the first are put in order.
constexpr std::size_t first_ordering = 4096;

}  // namespace

_inode_collection::_inode_collection(std::initializer_list<std::uint64_t> entries) : m_entries(entries) {}

void _inode_collection::insert(std::uint64_t entry) {
    // Doubles go before the list grows to twice its size, so it never holds much more than the set.
    if (m_entries.size() >= std::max(first_ordering, 2 * m_ordered)) {
        put_in_order();
    }
    m_entries.push_back(entry);
}

void _inode_collection::clear() {
    m_entries.clear();
    m_ordered = 0;
}

const std::vector<std::uint64_t>& _inode_collection::in_order() const {
    if (m_ordered != m_entries.size()) {
        put_in_order();
    }
    return m_entries;
}

void _inode_collection::put_in_order() const {
    const auto added = m_entries.begin() + static_cast<std::ptrdiff_t>(m_ordered);
    std::sort(added, m_entries.end());
    std::inplace_merge(m_entries.begin(), added, m_entries.end());
    m_entries.erase(std::unique(m_entries.begin(), m_entries.end()), m_entries.end());
    m_ordered = m_entries.size();
}

}  // namespace quarry
