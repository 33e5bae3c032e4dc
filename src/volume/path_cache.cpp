#include "volume/path_cache.h"

#include <algorithm>

namespace quarry {

void child_name_table::assign(std::vector<named_child> names) {
    // The order of pairs is that of the names, and then that of the numbers.
    // Files are often made in that order.
    if (!std::is_sorted(names.begin(), names.end())) {
        std::sort(names.begin(), names.end());
    }
    const auto same_name = [](const named_child& left, const named_child& right) {
        return left.first == right.first;
    };
    names.erase(std::unique(names.begin(), names.end(), same_name), names.end());
    m_names = std::move(names);
    m_names.shrink_to_fit();
}

std::optional<std::uint64_t> child_name_table::find(const std::string& name) const {
    const auto at = std::lower_bound(
        m_names.begin(), m_names.end(), name,
        [](const named_child& each, const std::string& wanted) { return each.first < wanted; });
    return at != m_names.end() && at->first == name ? std::optional(at->second) : std::nullopt;
}

}  // namespace quarry
