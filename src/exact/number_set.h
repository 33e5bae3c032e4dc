// The numbers that a walk has met, so that it ends on a disk that leads it in circles.
//
// One bit for each number, in small pages that are made when a number of theirs is met: a set costs little
// where few numbers are met, whatever their size, and an eighth of a byte each where all are. It has room for
// so many pages and no more.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <unordered_map>

namespace quarry::exact {

class number_set {
  public:
    enum class answer : std::uint8_t { added, known, full };

    // Pages of 512 numbers; these take about 32 MiB at most, and have room for 2^27 numbers in a row.
    static constexpr std::size_t default_pages = 262144;
    explicit number_set(std::size_t most_pages = default_pages) : m_most_pages(most_pages) {}

    // Adds a number. `full`: it is not known, and there is no room for it.
    [[nodiscard]] answer add(std::uint64_t number) {
        const std::uint64_t page = number / bits_of_page;
        auto found = m_pages.find(page);
        if (found == m_pages.end()) {
            if (m_pages.size() >= m_most_pages) {
                return answer::full;
            }
            found = m_pages.emplace(page, page_bits{}).first;
        }
        std::uint64_t& word = found->second[number % bits_of_page / bits_of_word];
        const std::uint64_t bit = std::uint64_t{1} << (number % bits_of_word);
        const bool known = (word & bit) != 0;
        word |= bit;
        return known ? answer::known : answer::added;
    }
    // Pages that are in use.
    [[nodiscard]] std::size_t pages() const { return m_pages.size(); }

  private:
    static constexpr std::uint64_t bits_of_word = 64;
    static constexpr std::uint64_t bits_of_page = 512;
    using page_bits = std::array<std::uint64_t, bits_of_page / bits_of_word>;

    std::size_t m_most_pages;
    std::unordered_map<std::uint64_t, page_bits> m_pages;
};

}  // namespace quarry::exact
