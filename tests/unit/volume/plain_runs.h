// The runs of a record in a form that compares easily, and an attribute made of mapping pairs.
#pragma once

#include "support/record_builder.h"
#include "volume/ntfs.h"

#include <cstdint>
#include <vector>

namespace quarry::test {

struct plain_run {
    std::uint64_t lcn;
    std::uint32_t length;
    bool operator==(const plain_run&) const = default;
};

inline std::vector<plain_run> plain(const data_run_list& list) {
    std::vector<plain_run> result;
    for (const data_run& run : list) {
        result.push_back({run.lcn, run.num_clusters});
    }
    return result;
}

using plain_runs = std::vector<plain_run>;

// A $DATA attribute whose mapping pairs are given in hexadecimal.
inline attribute_builder data(const char* pairs) {
    return attribute_builder::with_pairs(0x80, from_hex(pairs));
}

}  // namespace quarry::test
