// The input of the command line's fuzzer in its three parts: a script of arguments, standard input, an image.
// Each of the first two follows its length, a 16-bit number; the image is the rest.
#pragma once

#include "fuzz/input_bytes.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quarry::fuzz {

using part = std::vector<std::uint8_t>;

struct command_line_input {
    part script;
    part lines;
    part image;
};

[[nodiscard]] inline command_line_input take_apart(const std::uint8_t* data, std::size_t size) {
    input_bytes input(data, size);
    command_line_input parts;
    parts.script = input.take(input.u16()).to_vector();
    parts.lines = input.take(input.u16()).to_vector();
    parts.image = input.rest().to_vector();
    return parts;
}

[[nodiscard]] inline part put_together(const command_line_input& parts) {
    part whole;
    for (const part* each : {&parts.script, &parts.lines}) {
        whole.push_back(static_cast<std::uint8_t>(each->size()));
        whole.push_back(static_cast<std::uint8_t>(each->size() >> 8));
        whole.insert(whole.end(), each->begin(), each->end());
    }
    whole.insert(whole.end(), parts.image.begin(), parts.image.end());
    return whole;
}

}  // namespace quarry::fuzz
