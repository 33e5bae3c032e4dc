// The file record: header, header test, and the sector ends that the update sequence array protects.
#pragma once

#include <cstdint>
#include <span>

#include "foundation/byte_view.h"

namespace quarry {

// A named view of a file record header (or the head of an index block, which shares its first fields).
class file_record {
  public:
    file_record() = default;
    explicit file_record(byte_view bytes) : m_bytes(bytes) {}
    [[nodiscard]] byte_view bytes() const { return m_bytes; }

    [[nodiscard]] bool is_file() const { return m_bytes.text_at(0, "FILE"); }
    [[nodiscard]] bool is_indx() const { return m_bytes.text_at(0, "INDX"); }
    [[nodiscard]] bool is_baad() const { return m_bytes.text_at(0, "BAAD"); }
    [[nodiscard]] std::uint16_t update_sequence_offset() const { return m_bytes.u16_or_zero(4); }
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
    // The whole 64-bit reference to the base record: 48-bit entry, 16-bit sequence number.
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

enum class record_kind : std::uint32_t { unknown = 0, file = 1, indx = 2, baad = 3 };

[[nodiscard]] bool record_header_ok(byte_view record);
[[nodiscard]] std::uint32_t record_size_from_header(byte_view record);

// Puts the saved words of the update sequence array back over the last two bytes of each sector, for words 1 up
// to (not including) the smaller of the array's count and `limit`. Never compares, never reaches outside.
// `sector_size` in bytes; 0 restores nothing.
void restore_sector_ends(std::span<std::uint8_t> record, std::uint32_t sector_size, std::uint64_t limit);

[[nodiscard]] bool apply_fixups_checked(record_kind& kind, std::span<std::uint8_t> record, std::uint32_t sector_size);

}  // namespace quarry
