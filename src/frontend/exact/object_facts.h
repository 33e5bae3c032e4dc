// What became known of the object of one copy, for the record of it.
//
// It is filled in on the way, step by step, so that a copy that fails leaves what was known until then.
#pragma once

#include "exact/delivery.h"
#include "exact/entry_facts.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quarry::exact {

struct object_facts {
    std::optional<std::string> asked = std::nullopt;  // as typed
    bool raw = false;
    std::optional<std::uint64_t> lcn = std::nullopt;  // of clusters: the first, and how many
    std::optional<std::uint64_t> clusters = std::nullopt;
    std::optional<std::vector<std::u16string>> path = std::nullopt;  // from the root down
    std::vector<std::string> links = {};                             // that were followed, such as C:\Users
    std::optional<entry_facts> entry = std::nullopt;
    std::optional<stream_facts> stream = std::nullopt;
    std::optional<std::uint64_t> reused_clusters = std::nullopt;
    std::vector<byte_range> unread = {};  // of the copy, which are zeros
};

}  // namespace quarry::exact
