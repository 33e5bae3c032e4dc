#include "disk/damaged_ranges.h"

#include <algorithm>
#include <iterator>
#include <numeric>

namespace quarry {

void damaged_ranges::add(std::uint64_t first, std::uint64_t end) {
    if (first >= end) {
        return;
    }
    auto next = m_ends.upper_bound(first);
    if (next != m_ends.begin() && std::prev(next)->second >= first) {
        --next;
        first = next->first;
    }
    // Ends: each turn takes a range out.
    while (next != m_ends.end() && next->first <= end) {
        end = std::max(end, next->second);
        next = m_ends.erase(next);
    }
    m_ends.emplace(first, end);
}

std::optional<damaged_range> damaged_ranges::first_between(std::uint64_t first, std::uint64_t end) const {
    auto range = m_ends.upper_bound(first);
    if (range != m_ends.begin() && std::prev(range)->second > first) {
        --range;
    }
    if (range == m_ends.end() || range->first >= end) {
        return std::nullopt;
    }
    return damaged_range{std::max(range->first, first), range->second};
}

std::uint64_t damaged_ranges::bytes() const {
    return std::accumulate(
        m_ends.begin(), m_ends.end(), std::uint64_t{0},
        [](std::uint64_t sum, const auto& range) { return sum + (range.second - range.first); });
}

}  // namespace quarry
