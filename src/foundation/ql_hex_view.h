// A read-only view of bytes, and their print as an offset, two groups of eight pairs, and characters:
//
//     0000 0000:  41 00 42 00                                       A.B.
//
// The address grows to three or four groups of four digits when its upper 32 bits are not zero.
#pragma once

#include <cstdint>
#include <ostream>
#include <vector>

namespace ql {

class binary_data {
  public:
    // Looks at the bytes of a vector that outlives the view, or with `copy` at bytes of its own.
    binary_data(const std::vector<std::uint8_t>& bytes, bool copy);
    binary_data(const binary_data&) = delete;
    binary_data& operator=(const binary_data&) = delete;
    virtual ~binary_data() = default;

    // The byte at an index below `m_num_data`. Any other index is a fault of the program and ends it with a
    // message.
    [[nodiscard]] std::uint8_t operator()(std::uint32_t index) const;

    std::uint32_t m_num_data = 0;
    std::vector<std::uint8_t> m_own_bytes;
    std::uint32_t m_format = 0;  // without effect
    bool m_is_copy = false;
    const std::uint8_t* m_bytes = nullptr;
};

// Prints `count` bytes from the index `first` on, as far as the view has them, 16 in a line, the first line
// under the address `base_address`. Nothing is printed for no bytes. The stream keeps its format flags; its
// fill becomes "0".
void hex_dump(std::ostream& out, const binary_data& bytes, std::uint32_t first, std::uint32_t count,
              std::uint64_t base_address);

}  // namespace ql
