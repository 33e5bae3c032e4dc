// Canonical prefix codes for builders: lengths, and the bits that follow from them.
#pragma once

#include "support/byte_writer.h"

#include <cstddef>
#include <random>
#include <vector>

namespace quarry::test {

// One code for each symbol.
struct code_word {
    unsigned length = 0;  // 0 for a symbol without a code
    unsigned bits = 0;
};
[[nodiscard]] std::vector<code_word> code_words(const bytes& lengths);

// The lengths of a complete code in which no two symbols differ by more than a bit; the first symbols have
// the shorter codes.
[[nodiscard]] bytes flat_code_lengths(std::size_t symbols);
// Those of a complete code of random lengths, at most `longest`, in which every symbol has a code.
[[nodiscard]] bytes random_code_lengths(std::size_t symbols, unsigned longest, std::mt19937& random);

}  // namespace quarry::test
