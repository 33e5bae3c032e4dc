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
#include "foundation/byte_view.h"

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
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

    [[nodiscard]] char16_t upper(char16_t unit) const {
        const std::uint32_t begin = m_begins[unit / page_units];
        return begin == as_they_are ? unit : m_mapped[begin + unit % page_units];
    }
    [[nodiscard]] std::u16string upper(std::u16string_view name) const;
    // The order of names by their upper-case units, then by length: names that differ only in case are equal.
    [[nodiscard]] std::strong_ordering compare(std::u16string_view a, std::u16string_view b) const;
    [[nodiscard]] bool equal(std::u16string_view a, std::u16string_view b) const {
        return a.size() == b.size() && compare(a, b) == std::strong_ordering::equal;
    }

  private:
    static constexpr std::size_t page_units = 256;
    static constexpr std::size_t page_bytes = 2 * page_units;
    static constexpr std::size_t page_count = table_bytes / page_bytes;
    static constexpr std::uint32_t as_they_are = UINT32_MAX;

    upcase() = default;
    void add_page(std::size_t number, byte_view bytes);

    // Most of the table says that a unit has no capital. Pages of it that say nothing else are not kept:
    // memory that a run touches first is a good part of the time of a small copy.
    std::array<std::uint32_t, page_count> m_begins{};  // in m_mapped
    std::vector<char16_t> m_mapped;
};

}  // namespace quarry::exact
