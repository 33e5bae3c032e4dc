// The flat description of one attribute, from which copies and reports work.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "volume/runs.h"

namespace quarry {

struct attr_item {
    std::uint32_t type = 0;
    std::uint16_t id = 0;
    std::uint16_t flags = 0;
    std::uint64_t entry = 0;  // 48-bit MFT entry number
    std::uint16_t sequence = 0;
    bool non_resident = false;

    // Non-resident attribute. Sizes in bytes.
    std::uint64_t owner = 0;
    std::uint64_t allocated = 0;
    std::uint64_t real = 0;  // also of 0x30
    std::uint64_t initialized = 0;
    std::uint64_t compressed = 0;
    std::uint8_t unit = 0;

    // Resident attribute.
    std::uint32_t value_size = 0;
    // Type 0x40 with a value of exactly 16 bytes.
    std::array<std::uint8_t, 16> object_id{};

    // Types 0x10 and 0x30: FILETIMEs.
    std::uint64_t created = 0;
    std::uint64_t modified = 0;
    std::uint64_t accessed = 0;
    std::uint64_t mft_changed = 0;
    std::uint32_t attributes = 0;
    std::uint32_t security_id = 0;
    std::uint64_t parent = 0;  // the full reference
    std::uint8_t name_space = 0;

    // Type 0x110.
    std::uint64_t reference = 0;  // 48-bit entry and 16-bit sequence number
    std::uint8_t bits = 0;
    std::uint64_t base = 0;

    std::string name;
    std::string text;
    cluster_run_list runs;
    std::uint64_t cache_position = 0;
    std::vector<std::uint8_t> cache;
    std::vector<std::uint8_t> value;
    std::uint32_t record_size = 0;
};
using attr_item_list = std::vector<attr_item>;

}  // namespace quarry
