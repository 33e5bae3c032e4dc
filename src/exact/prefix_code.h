// Canonical prefix codes, as both codecs of system compression use them.
//
// Only the length of the code of each symbol is stored, 0 for a symbol that has none. The codes follow from
// the lengths: shorter codes come first, those of one length in the order of their symbols.
//
//     symbol   A  B  C  D  E         code   B 0
//     length   2  1  0  3  3                A 10
//                                           D 110
//                                           E 111
//
// A code is complete if every row of bits begins with a code, as here. Then nothing that is read is no
// symbol. Codes of up to `table_bits` bits, which are nearly all that are met, are found by a table of all
// rows of that many bits; longer ones by the first row of each length.
#pragma once

#include "exact/bit_words.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace quarry::exact {

enum class code_kind : std::uint8_t {
    complete,
    empty,  // no symbol has a code
    wrong,  // some rows of bits are no symbol's, or two symbols'
};

template <std::size_t symbols, unsigned table_bits>
class prefix_code {
  public:
    static constexpr unsigned longest = 16;

    // Takes the lengths of the codes, each at most `longest`. Unless the code is complete, nothing must be
    // read by it afterwards.
    [[nodiscard]] code_kind build(std::span<const std::uint8_t, symbols> lengths) {
        std::array<std::uint16_t, longest + 1> count{};
        for (const std::uint8_t length : lengths) {
            ++count[length];
        }
        if (count[0] == symbols) {
            return code_kind::empty;
        }
        // Rows of 16 bits that begin with codes, shorter codes first.
        std::array<std::uint16_t, longest + 1> place{};
        std::uint32_t rows = 0;
        unsigned placed = 0;
        for (unsigned length = 1; length <= longest; ++length) {
            place[length] = static_cast<std::uint16_t>(placed);
            m_first[length] =
                static_cast<std::int32_t>(placed) - static_cast<std::int32_t>(rows >> (longest - length));
            placed += count[length];
            rows += std::uint32_t{count[length]} << (longest - length);
            m_end[length] = rows;
        }
        if (rows != std::uint32_t{1} << longest) {
            return code_kind::wrong;
        }
        // Symbols without a code come last, where nothing reads them.
        place[0] = static_cast<std::uint16_t>(placed);
        for (std::size_t symbol = 0; symbol < symbols; ++symbol) {
            m_sorted[place[lengths[symbol]]++] = static_cast<std::uint16_t>(symbol);
        }
        fill_table(count);
        return code_kind::complete;
    }

    // The next symbol; its bits are taken. Needs 16 bits that are fetched.
    unsigned read(bit_words& bits) const {
        const unsigned row = bits.look(longest);
        const unsigned known = m_table[row >> (longest - table_bits)];
        if (known != 0) [[likely]] {
            bits.pass(known & length_mask);
            return known >> length_bits;
        }
        unsigned length = table_bits + 1;
        while (row >= m_end[length]) {  // ends at the longest: the code is complete
            ++length;
        }
        bits.pass(length);
        const std::int32_t place = m_first[length] + static_cast<std::int32_t>(row >> (longest - length));
        return m_sorted[static_cast<std::size_t>(place)];
    }

  private:
    static constexpr unsigned length_bits = 4;
    static constexpr unsigned length_mask = (1u << length_bits) - 1;
    static_assert(table_bits <= length_mask && symbols <= std::size_t{1} << (16 - length_bits));

    void fill_table(const std::array<std::uint16_t, longest + 1>& count) {
        std::uint16_t* next = m_table.data();
        const std::uint16_t* symbol = m_sorted.data();
        for (unsigned length = 1; length <= table_bits; ++length) {
            for (unsigned i = 0; i < count[length]; ++i) {
                const auto entry = static_cast<std::uint16_t>(unsigned{*symbol++} << length_bits | length);
                next = std::fill_n(next, std::size_t{1} << (table_bits - length), entry);
            }
        }
        std::fill(next, m_table.data() + m_table.size(), std::uint16_t{0});
    }

    // By the next bits: a symbol and the length of its code; 0 for a longer code.
    std::array<std::uint16_t, std::size_t{1} << table_bits> m_table{};
    std::array<std::uint16_t, symbols> m_sorted{};  // in the order of their codes
    // For each length: the first row of 16 bits after its codes, and what makes a place in m_sorted of a
    // code.
    std::array<std::uint32_t, longest + 1> m_end{};
    std::array<std::int32_t, longest + 1> m_first{};
};

}  // namespace quarry::exact
