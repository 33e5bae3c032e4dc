// How far the attribute lists of one entry are followed.
//
// NTFS ends a list at 256 KiB, which can name some 8,000 records of 4 KiB. A damaged list may name the same
// records again and again, and a damaged boot sector may claim that each is half a megabyte long, with room
// for an attribute of a quarter of a million runs: a run would be busy for hours.
#pragma once

#include <cstdint>

namespace quarry {

class followed_reads {
  public:
    // Counts the read of a list or of a record that a list names.
    void count(std::uint64_t bytes) {
        ++m_reads;
        m_bytes += bytes;
    }
    // Counts an attribute that was found in such a record.
    void count_attribute(std::uint64_t bytes) { m_attribute_bytes += bytes; }
    [[nodiscard]] bool may_go_on() const {
        return (m_bytes < most_bytes || m_reads < usual_reads) && m_attribute_bytes < most_attribute_bytes;
    }

  private:
    static constexpr std::uint64_t most_bytes = std::uint64_t{64} << 20;
    // So many are always made, however long records are.
    static constexpr std::uint64_t usual_reads = 4096;
    // All that 8,000 records of 4 KiB hold.
    static constexpr std::uint64_t most_attribute_bytes = std::uint64_t{32} << 20;

    std::uint64_t m_reads = 0;
    std::uint64_t m_bytes = 0;
    std::uint64_t m_attribute_bytes = 0;
};

}  // namespace quarry
