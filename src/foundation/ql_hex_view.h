// A read-only view of bytes and their print as offset, pairs and characters.
#pragma once

#include <cstdint>
#include <ostream>
#include <vector>

namespace ql {

class binary_data {
  public:
    binary_data(const std::vector<std::uint8_t>& bytes, bool copy);
    virtual ~binary_data() = default;
    [[nodiscard]] std::uint8_t operator()(std::uint32_t index) const;

    std::uint32_t m_num_data = 0;
    std::vector<std::uint8_t> m_own_bytes;
    std::uint32_t m_format = 0;
    bool m_is_copy = false;
    const std::uint8_t* m_bytes = nullptr;
};

void hex_dump(std::ostream& out, const binary_data& bytes, std::uint32_t first, std::uint32_t count,
              std::uint64_t base_address);

}  // namespace ql
