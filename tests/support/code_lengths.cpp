#include "support/code_lengths.h"

#include <algorithm>

namespace quarry::test {

std::vector<code_word> code_words(const bytes& lengths) {
    std::vector<code_word> words(lengths.size());
    unsigned next = 0;
    for (unsigned length = 1; length <= 16; ++length) {
        next *= 2;
        for (std::size_t symbol = 0; symbol < lengths.size(); ++symbol) {
            if (lengths[symbol] == length) {
                words[symbol] = {length, next++};
            }
        }
    }
    return words;
}

bytes flat_code_lengths(std::size_t symbols) {
    std::uint8_t longer = 0;
    while (std::size_t{1} << longer < symbols) {
        ++longer;
    }
    bytes lengths(symbols, longer);
    const std::size_t shorter = (std::size_t{1} << longer) - symbols;
    std::fill_n(lengths.begin(), shorter, static_cast<std::uint8_t>(longer - 1));
    return lengths;
}

bytes random_code_lengths(std::size_t symbols, unsigned longest, std::mt19937& random) {
    bytes lengths{0};
    while (lengths.size() < symbols) {
        // A code is split into two that are a bit longer. The first ones are split more often.
        const std::size_t chosen = random() % 2 == 0 ? random() % lengths.size() : 0;
        if (lengths[chosen] < longest) {
            const auto length = static_cast<std::uint8_t>(lengths[chosen] + 1);
            lengths[chosen] = length;
            lengths.push_back(length);
        }
        std::swap(lengths[random() % lengths.size()], lengths[0]);
    }
    std::shuffle(lengths.begin(), lengths.end(), random);
    return lengths;
}

}  // namespace quarry::test
