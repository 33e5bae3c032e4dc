// $UpCase, the volume's own table of upper-case letters.
//
// Names on NTFS are compared without regard to case, by a table that was written when the volume was made
// (entry 10): for each of the 65,536 units of UTF-16 the unit that stands for it in upper case. No other
// notion of case decides which file a name means.
//
//     | 0000 | 0001 | ... | 0041 (at "A") | ... | 0041 (at "a") | ... | FFFF |       131,072 bytes
#pragma once

#include "exact/failure.h"
#include "exact/mft.h"

#include <compare>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::exact {

class upcase {
  public:
    static constexpr std::size_t table_bytes = 131072;

    // Reads entry 10. Fails with upcase if it has another size, and as any stream does.
    [[nodiscard]] static result<upcase> load(const mft& table, notices& told);
    // From the bytes of the table.
    [[nodiscard]] static result<upcase> parse(byte_view bytes);

    [[nodiscard]] char16_t upper(char16_t unit) const { return m_units[unit]; }
    [[nodiscard]] std::u16string upper(std::u16string_view name) const;
    // The order of names by their upper-case units, then by length: names that differ only in case are equal.
    [[nodiscard]] std::strong_ordering compare(std::u16string_view a, std::u16string_view b) const;
    [[nodiscard]] bool equal(std::u16string_view a, std::u16string_view b) const {
        return a.size() == b.size() && compare(a, b) == std::strong_ordering::equal;
    }

  private:
    std::vector<char16_t> m_units;
};

}  // namespace quarry::exact
