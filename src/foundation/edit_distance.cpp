#include "foundation/edit_distance.h"

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

namespace quarry {

std::size_t edit_distance(std::string_view left, std::string_view right) {
    // For each length of what `right` begins with, the distance from it to what `left` begins with.
    std::vector<std::size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < left.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < right.size(); ++j) {
            const std::size_t replaced = diagonal + (left[i] == right[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

}  // namespace quarry
