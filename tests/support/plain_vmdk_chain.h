// A chain of sparse VMDK files read the plain way: every table copied whole, every grain looked up and read
// by itself. Slow, and short enough to be seen to be right. Tests compare what the program reads with what
// this gives.
#pragma once

#include "support/byte_writer.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace quarry::test {

class plain_vmdk_file {
  public:
    // The metadata of a file must be readable; damage may be anywhere after its header.
    explicit plain_vmdk_file(bytes content);

    [[nodiscard]] std::optional<std::uint64_t> position_of(std::uint64_t offset) const;
    [[nodiscard]] std::uint64_t grain_bytes() const { return m_grain_bytes; }
    [[nodiscard]] const bytes& content() const { return m_content; }

  private:
    bytes m_content;
    std::uint64_t m_grain_bytes = 0;
    std::uint64_t m_entries = 0;
    std::vector<std::vector<std::uint32_t>> m_tables;
};

// `length` bytes of the disk from an offset on; the base file comes first in the chain.
[[nodiscard]] bytes read_plainly(const std::vector<plain_vmdk_file>& chain, std::uint64_t offset,
                                 std::uint64_t length);

}  // namespace quarry::test
