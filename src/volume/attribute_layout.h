// The layout of attributes and of attribute lists, as named views.
//
// Lengths, offsets and names are as the disk has them: nothing that an accessor returns is true of the bytes
// until its reader has tested it.
#pragma once

#include "foundation/byte_view.h"

#include <cstdint>

namespace quarry {

inline constexpr std::uint32_t attr_standard_information = 0x10;
inline constexpr std::uint32_t attr_attribute_list = 0x20;
inline constexpr std::uint32_t attr_file_name = 0x30;
inline constexpr std::uint32_t attr_object_id = 0x40;
inline constexpr std::uint32_t attr_security_descriptor = 0x50;
inline constexpr std::uint32_t attr_volume_name = 0x60;
inline constexpr std::uint32_t attr_volume_information = 0x70;
inline constexpr std::uint32_t attr_data = 0x80;
inline constexpr std::uint32_t attr_index_root = 0x90;
inline constexpr std::uint32_t attr_index_allocation = 0xA0;
inline constexpr std::uint32_t attr_bitmap = 0xB0;
inline constexpr std::uint32_t attr_reparse_point = 0xC0;
inline constexpr std::uint32_t attr_ea_information = 0xD0;
inline constexpr std::uint32_t attr_ea = 0xE0;
inline constexpr std::uint32_t attr_property_set = 0xF0;
inline constexpr std::uint32_t attr_logged_utility_stream = 0x100;
inline constexpr std::uint32_t attr_file_record = 0x110;  // pseudo-attribute: the record header
inline constexpr std::uint32_t attr_end_marker = 0xFFFFFFFF;

inline constexpr std::uint16_t attr_flag_compressed = 0x0001;
inline constexpr std::uint16_t attr_flag_encrypted = 0x4000;
inline constexpr std::uint16_t attr_flag_sparse = 0x8000;

// A named view that begins at an attribute and reaches to the end of the bytes that hold it (the record, or
// what a caller cut out). Field accessors read zero for what is not there. Offsets are bytes from the
// attribute's start.
class attribute {
  public:
    attribute() = default;
    explicit attribute(byte_view bytes) : m_bytes(bytes) {}
    [[nodiscard]] byte_view bytes() const { return m_bytes; }
    // No byte at all: what the walks of this system call a null attribute.
    [[nodiscard]] bool is_null() const { return m_bytes.empty(); }

    // The end marker where no whole type code is left.
    [[nodiscard]] std::uint32_t type() const { return m_bytes.u32(0).value_or(attr_end_marker); }
    // Bytes of the attribute, header included.
    [[nodiscard]] std::uint32_t length() const { return m_bytes.u32_or_zero(4); }
    [[nodiscard]] bool non_resident() const { return m_bytes.u8_or_zero(8) != 0; }
    [[nodiscard]] std::uint8_t name_length_in_units() const { return m_bytes.u8_or_zero(9); }
    [[nodiscard]] std::uint16_t name_offset() const { return m_bytes.u16_or_zero(10); }
    [[nodiscard]] std::uint16_t flags() const { return m_bytes.u16_or_zero(12); }
    [[nodiscard]] std::uint16_t id() const { return m_bytes.u16_or_zero(14); }

    // The bytes from the header to the attribute's own end, as far as they exist.
    [[nodiscard]] byte_view own_bytes() const { return m_bytes.clipped(0, length()); }

    // Resident form.
    [[nodiscard]] std::uint32_t value_length() const { return m_bytes.u32_or_zero(16); }
    [[nodiscard]] std::uint16_t value_offset() const { return m_bytes.u16_or_zero(20); }
    // The bytes of the value that exist inside the attribute's own length and the record.
    [[nodiscard]] byte_view value() const { return own_bytes().clipped(value_offset(), value_length()); }
    // All bytes from the value's start on, whatever lengths say.
    [[nodiscard]] byte_view from_value() const { return m_bytes.from(value_offset()); }

    // Non-resident form. Sizes in bytes.
    [[nodiscard]] std::uint64_t lowest_vcn() const { return m_bytes.u64_or_zero(16); }
    [[nodiscard]] std::uint64_t highest_vcn() const { return m_bytes.u64_or_zero(24); }
    // Past every attribute if the header is cut off before this field.
    [[nodiscard]] std::uint16_t mapping_pairs_offset() const { return m_bytes.u16(32).value_or(0xFFFF); }
    // As a power of two of clusters; 0 when not compressed.
    [[nodiscard]] std::uint8_t compression_unit() const { return m_bytes.u8_or_zero(34); }
    [[nodiscard]] std::uint64_t allocated_size() const { return m_bytes.u64_or_zero(40); }
    [[nodiscard]] std::uint64_t real_size() const { return m_bytes.u64_or_zero(48); }
    [[nodiscard]] std::uint64_t initialized_size() const { return m_bytes.u64_or_zero(56); }
    // Deliberate: read of every attribute, not only of a compressed one, which has this field. The user sees
    // the name or the mapping pairs of another attribute as a number.
    [[nodiscard]] std::uint64_t compressed_size() const { return m_bytes.u64_or_zero(64); }

    // The next attribute in the same bytes; null if there is none left there. The same one if its length is
    // 0.
    [[nodiscard]] attribute next() const { return attribute(m_bytes.from(length())); }

  private:
    byte_view m_bytes;
};

// One entry of an attribute list: a named view that reaches to the end of the list.
class list_entry {
  public:
    list_entry() = default;
    explicit list_entry(byte_view bytes) : m_bytes(bytes) {}
    [[nodiscard]] byte_view bytes() const { return m_bytes; }
    // The end marker where no whole type code is left.
    [[nodiscard]] std::uint32_t type() const { return m_bytes.u32(0).value_or(attr_end_marker); }
    // Bytes of the entry, its name included.
    [[nodiscard]] std::uint16_t length() const { return m_bytes.u16_or_zero(4); }
    [[nodiscard]] std::uint8_t name_length_in_units() const { return m_bytes.u8_or_zero(6); }
    [[nodiscard]] std::uint8_t name_offset() const { return m_bytes.u8_or_zero(7); }
    [[nodiscard]] std::uint64_t lowest_vcn() const { return m_bytes.u64_or_zero(8); }
    // The record that holds the attribute, and its sequence number.
    [[nodiscard]] std::uint64_t entry_number() const { return m_bytes.u48_or_zero(16); }
    [[nodiscard]] std::uint16_t sequence_number() const { return m_bytes.u16_or_zero(22); }
    [[nodiscard]] std::uint16_t id() const { return m_bytes.u16_or_zero(24); }

    // The next entry of the list; without bytes if there is none left. The same one if its length is 0.
    [[nodiscard]] list_entry next() const { return list_entry(m_bytes.from(length())); }

  private:
    byte_view m_bytes;
};

// Bytes of a list entry without a name.
inline constexpr std::int64_t smallest_list_entry = 26;

}  // namespace quarry
