// $UpCase, the volume's own table of upper-case letters.
//
// Names on NTFS are compared without regard to case, by a table that was written when the volume was made
// (entry 10): for each of the 65,536 units of UTF-16 its unit in upper case. No other notion of case decides
// which file a name means.
//
//     | 0000 | 0001 | ... | 0041 (at "A") | ... | 0041 (at "a") | ... | FFFF |       131,072 bytes
#pragma once

#include "exact/failure.h"
#include "exact/mft.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quarry::exact {

class upcase {
  public:
    static constexpr std::size_t table_bytes = 131072;

    // Reads entry 10. Fails with upcase if it has another size, and as any stream does.
    [[nodiscard]] static result<upcase> load(const mft& table, notices& told);
    // From the bytes of the table.
    [[nodiscard]] static result<upcase> parse(byte_view bytes);

    [[nodiscard]] char16_t upper(char16_t unit) const {
        const std::size_t at = std::size_t{2} * unit;
        return static_cast<char16_t>(m_table[at] | m_table[at + 1] << 8);
    }
    [[nodiscard]] std::u16string upper(std::u16string_view name) const;
    // The order of names by their upper-case units, then by length: names that differ only in case are equal.
    [[nodiscard]] std::strong_ordering compare(std::u16string_view a, std::u16string_view b) const;
    [[nodiscard]] bool equal(std::u16string_view a, std::u16string_view b) const {
        return a.size() == b.size() && compare(a, b) == std::strong_ordering::equal;
    }

  private:
    explicit upcase(std::vector<std::uint8_t> table) : m_table(std::move(table)) {}

    // As it is stored. Most runs look up a few letters only, so it is not converted.
    std::vector<std::uint8_t> m_table;
};

}  // namespace quarry::exact
