#include "support/sample_text.h"

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace quarry::test {

bytes text_like(std::size_t size, std::uint32_t seed) {
    std::mt19937 random(seed);
    std::vector<std::string> words;
    for (int i = 0; i < 200; ++i) {
        std::string word;
        const std::size_t length = 2 + random() % 8;
        for (std::size_t k = 0; k < length; ++k) {
            word += static_cast<char>('a' + random() % 26);
        }
        words.push_back(word + (random() % 12 == 0 ? ".\n" : " "));
    }
    std::string text;
    while (text.size() < size) {
        text += words[std::min(random() % words.size(), random() % words.size())];
    }
    text.resize(size);
    return to_bytes(text);
}

bytes random_bytes(std::size_t size, std::uint32_t seed) {
    std::mt19937 random(seed);
    bytes out(size);
    std::generate(out.begin(), out.end(), [&] { return static_cast<std::uint8_t>(random()); });
    return out;
}

}  // namespace quarry::test
