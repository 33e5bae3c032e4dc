// The input of the fuzzer of lists, in its parts.
#pragma once

#include "fuzz/input_bytes.h"
#include "fuzz/sparse_input.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quarry::fuzz {

struct list_input {
    std::uint8_t options = 0;  // a bit for each
    std::uint8_t repeats = 0;  // times that the lines are typed again
    std::string lines;
    sparse_input image;
};

[[nodiscard]] inline list_input take_list(byte_view input) {
    input_bytes bytes(input.data(), input.size());
    list_input parts;
    parts.options = bytes.u8();
    parts.repeats = bytes.u8();
    parts.lines = bytes.text(bytes.u16());
    parts.image = take_sparse(bytes.rest());
    return parts;
}

[[nodiscard]] inline std::vector<std::uint8_t> put_list(const list_input& parts) {
    std::vector<std::uint8_t> whole = {parts.options, parts.repeats,
                                       static_cast<std::uint8_t>(parts.lines.size()),
                                       static_cast<std::uint8_t>(parts.lines.size() >> 8)};
    whole.insert(whole.end(), parts.lines.begin(), parts.lines.end());
    const std::vector<std::uint8_t> image = put_sparse(parts.image);
    whole.insert(whole.end(), image.begin(), image.end());
    return whole;
}

}  // namespace quarry::fuzz
