// Which bytes of a source are known to be damaged.
//
// A container names its damage piece by piece, in any order, sometimes twice. Ranges that touch become one,
// so that looking up costs the same whatever was told.
#pragma once

#include <cstdint>
#include <map>
#include <optional>

namespace quarry {

// Bytes from `first` up to `end`.
struct damaged_range {
    std::uint64_t first = 0;
    std::uint64_t end = 0;
};

class damaged_ranges {
  public:
    // Adds the bytes from `first` up to `end`; none if that is no range.
    void add(std::uint64_t first, std::uint64_t end);

    // The first damaged bytes from byte `first` on and before `end`, as far as the damage reaches, which may
    // be past `end`. Nothing if there are none.
    [[nodiscard]] std::optional<damaged_range> first_between(std::uint64_t first, std::uint64_t end) const;

    // How many bytes are damaged.
    [[nodiscard]] std::uint64_t bytes() const;

  private:
    std::map<std::uint64_t, std::uint64_t> m_ends;  // by first byte
};

}  // namespace quarry
