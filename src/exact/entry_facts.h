// What is known of a file and of one of its streams, for the record of a copy.
//
// Everything here is a plain value: it outlives the record and the stream that it was taken from, so that
// evidence can be written when the copy is made, or has failed half-way.
#pragma once

#include "exact/attribute_set.h"
#include "exact/exact_volume.h"
#include "exact/file_names.h"
#include "exact/record.h"
#include "exact/stream.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::exact {

struct entry_facts {
    reference self;
    bool in_use = false;
    std::vector<file_name> names;              // all of them
    std::optional<file_name> used;             // the one that the file goes by; none if it has no name
    std::optional<four_times> standard;        // of $STANDARD_INFORMATION
    std::optional<std::uint32_t> reparse_tag;  // none without a reparse point that can be read
};

// `looked_up` is the last name of the path that led to the file; empty if none did.
[[nodiscard]] entry_facts facts_of(const exact_volume& volume, const attribute_set& file,
                                   std::u16string_view looked_up = {});

// The path of a file that was found by its number, from the root down, under the name that it goes by; none
// for the root itself. Nothing if the way to the root cannot be verified.
[[nodiscard]] std::optional<std::vector<std::u16string>> verified_path(const exact_volume& volume,
                                                                       const attribute_set& file);

struct stream_facts {
    std::uint32_t type = 0;  // of the attribute
    std::u16string name;     // in units; empty for the unnamed stream
    bool resident = false;
    bool encrypted = false;
    bool sparse = false;
    std::optional<std::uint64_t> lznt1_unit;  // bytes of a compressed unit
    std::optional<wof_format> system_format;  // if the system compressed the file
    std::uint64_t allocated = 0;              // sizes in bytes
    std::uint64_t size = 0;
    std::uint64_t valid = 0;
    std::uint64_t runs = 0;  // holes are runs too
};

[[nodiscard]] stream_facts facts_of(const stream& content);

}  // namespace quarry::exact
