// The layout of a file record, as a named view.
//
// Every file, directory and system structure of an NTFS volume has a record in $MFT, a block of one fixed
// size (1024 bytes as a rule): this header, then a chain of attributes. Index blocks begin with the same
// eight bytes. The view tests nothing; its readers decide what they accept.
#pragma once

#include "foundation/byte_view.h"

#include <cstddef>
#include <cstdint>

namespace quarry {

// Bytes of a header that are kept with a file's description.
inline constexpr std::size_t record_header_size = 42;

// A named view of a file record header (or the head of an index block, which shares its first fields).
class file_record {
  public:
    file_record() = default;
    explicit file_record(byte_view bytes) : m_bytes(bytes) {}
    [[nodiscard]] byte_view bytes() const { return m_bytes; }

    [[nodiscard]] bool is_file() const { return m_bytes.text_at(0, "FILE"); }
    [[nodiscard]] bool is_indx() const { return m_bytes.text_at(0, "INDX"); }
    // The mark of a record that the file system itself found damaged.
    [[nodiscard]] bool is_baad() const { return m_bytes.text_at(0, "BAAD"); }
    [[nodiscard]] std::uint16_t update_sequence_offset() const { return m_bytes.u16_or_zero(4); }
    // Words of the array: the number that is stored at the sector ends, then one saved word for each sector.
    [[nodiscard]] std::uint16_t update_sequence_count() const { return m_bytes.u16_or_zero(6); }
    [[nodiscard]] std::uint64_t logfile_sequence_number() const { return m_bytes.u64_or_zero(8); }
    [[nodiscard]] std::uint16_t sequence_number() const { return m_bytes.u16_or_zero(16); }
    [[nodiscard]] std::uint16_t hard_link_count() const { return m_bytes.u16_or_zero(18); }
    [[nodiscard]] std::uint16_t first_attribute_offset() const { return m_bytes.u16_or_zero(20); }
    [[nodiscard]] std::uint16_t flags() const { return m_bytes.u16_or_zero(22); }
    [[nodiscard]] bool in_use() const { return (flags() & 1) != 0; }
    [[nodiscard]] bool is_directory() const { return (flags() & 2) != 0; }
    [[nodiscard]] std::uint32_t bytes_used() const { return m_bytes.u32_or_zero(24); }
    [[nodiscard]] std::uint32_t bytes_allocated() const { return m_bytes.u32_or_zero(28); }
    // The whole 64-bit reference to the base record: 48-bit entry, 16-bit sequence number. 0 in a base
    // record.
    [[nodiscard]] std::uint64_t base_reference() const { return m_bytes.u64_or_zero(32); }
    [[nodiscard]] std::uint16_t next_attribute_id() const { return m_bytes.u16_or_zero(40); }
    [[nodiscard]] std::uint32_t entry_number() const { return m_bytes.u32_or_zero(44); }

  private:
    byte_view m_bytes;
};

// The 48-bit entry number and the sequence number of a 64-bit file reference.
[[nodiscard]] constexpr std::uint64_t reference_entry(std::uint64_t reference) {
    return reference & 0x0000FFFFFFFFFFFFu;
}
[[nodiscard]] constexpr std::uint16_t reference_sequence(std::uint64_t reference) {
    return static_cast<std::uint16_t>(reference >> 48);
}

}  // namespace quarry
