// The values of the attributes that have a structure of their own, as named views.
//
// Each view begins at a value and reaches as far as the bytes that a caller gives it. Accessors read zero for
// what is not there. Times are FILETIMEs (100 ns since 1601), file references 48 bits of entry number below
// 16 bits of sequence number, names UTF-16LE bytes without a terminating zero.
#pragma once

#include "foundation/byte_view.h"

#include <cstdint>
#include <optional>
#include <string>

namespace quarry {

// $STANDARD_INFORMATION (0x10). Older volumes have 48 bytes of it, newer ones 72.
class standard_information_value {
  public:
    explicit standard_information_value(byte_view value) : m_bytes(value.clipped(0, 72)) {}
    [[nodiscard]] byte_view bytes() const { return m_bytes; }
    [[nodiscard]] std::uint64_t created() const { return m_bytes.u64_or_zero(0); }
    [[nodiscard]] std::uint64_t modified() const { return m_bytes.u64_or_zero(8); }
    [[nodiscard]] std::uint64_t mft_changed() const { return m_bytes.u64_or_zero(16); }
    [[nodiscard]] std::uint64_t accessed() const { return m_bytes.u64_or_zero(24); }
    [[nodiscard]] std::uint32_t attributes() const { return m_bytes.u32_or_zero(32); }
    // A directory in which names that differ only in case are different names.
    [[nodiscard]] bool is_case_sensitive_directory() const {
        return m_bytes.u32_or_zero(36) == 0 && (m_bytes.u32_or_zero(40) & 1) != 0;
    }
    [[nodiscard]] std::uint32_t security_id() const { return m_bytes.u32_or_zero(52); }

  private:
    byte_view m_bytes;
};

// $FILE_NAME (0x30): 66 bytes and the name.
class file_name_value {
  public:
    static constexpr std::uint32_t size_without_name = 66;
    explicit file_name_value(byte_view value) : m_bytes(value) {}
    [[nodiscard]] byte_view bytes() const { return m_bytes; }
    // The whole reference to the directory.
    [[nodiscard]] std::uint64_t parent() const { return m_bytes.u64_or_zero(0); }
    [[nodiscard]] std::uint64_t created() const { return m_bytes.u64_or_zero(8); }
    [[nodiscard]] std::uint64_t modified() const { return m_bytes.u64_or_zero(16); }
    [[nodiscard]] std::uint64_t mft_changed() const { return m_bytes.u64_or_zero(24); }
    [[nodiscard]] std::uint64_t accessed() const { return m_bytes.u64_or_zero(32); }
    // Sizes of the file in bytes.
    [[nodiscard]] std::uint64_t allocated_size() const { return m_bytes.u64_or_zero(40); }
    [[nodiscard]] std::uint64_t real_size() const { return m_bytes.u64_or_zero(48); }
    [[nodiscard]] std::uint32_t attributes() const { return m_bytes.u32_or_zero(56); }
    [[nodiscard]] std::uint32_t ea_or_reparse_word() const { return m_bytes.u32_or_zero(60); }
    [[nodiscard]] std::uint8_t name_length_in_units() const { return m_bytes.u8_or_zero(64); }
    // 0 POSIX, 1 Win32, 2 DOS (a short name), 3 Win32 and DOS.
    [[nodiscard]] std::uint8_t name_space() const { return m_bytes.u8_or_zero(65); }
    // The name, as much of it as there is.
    [[nodiscard]] byte_view name_bytes() const {
        return m_bytes.clipped(size_without_name, std::uint64_t{2} * name_length_in_units());
    }

  private:
    byte_view m_bytes;
};

// What is wrong with the four times of a file: "null" if one of them is zero, or else "future" if one is
// later than `limit`. Empty if nothing is.
[[nodiscard]] std::string judge_times(std::uint64_t created, std::uint64_t modified,
                                      std::uint64_t mft_changed, std::uint64_t accessed,
                                      std::uint64_t limit = ~std::uint64_t{0});
template <typename Value>
[[nodiscard]] std::string judge_times_of(const Value& value, std::uint64_t limit = ~std::uint64_t{0}) {
    return judge_times(value.created(), value.modified(), value.mft_changed(), value.accessed(), limit);
}

// $OBJECT_ID (0x40): four GUIDs of 16 bytes, of which the first is always there.
class object_id_value {
  public:
    // A value of less than this holds no object id.
    static constexpr std::size_t smallest = 16;
    explicit object_id_value(byte_view value) : m_bytes(value.clipped(0, 64)) {}
    [[nodiscard]] byte_view bytes() const { return m_bytes; }
    [[nodiscard]] byte_view object_id() const { return m_bytes.clipped(0, 16); }
    [[nodiscard]] byte_view birth_volume_id() const { return m_bytes.clipped(16, 16); }
    [[nodiscard]] byte_view birth_object_id() const { return m_bytes.clipped(32, 16); }
    [[nodiscard]] byte_view domain_id() const { return m_bytes.clipped(48, 16); }

  private:
    byte_view m_bytes;
};

// $VOLUME_INFORMATION (0x70): 12 bytes.
class volume_information_value {
  public:
    explicit volume_information_value(byte_view value) : m_bytes(value.clipped(0, 12)) {}
    [[nodiscard]] byte_view bytes() const { return m_bytes; }
    [[nodiscard]] std::uint8_t major_version() const { return m_bytes.u8_or_zero(8); }
    [[nodiscard]] std::uint8_t minor_version() const { return m_bytes.u8_or_zero(9); }
    // Such as "ver: 3:1 (WinXP)".
    [[nodiscard]] std::string text() const;

  private:
    byte_view m_bytes;
};

// $REPARSE_POINT (0xC0): a junction or a symbolic link. The tag says what it is, then a path buffer holds two
// names: the substitute name, for the system, and the print name, for people. A symbolic link has four bytes
// of flags ahead of its path buffer that a junction does not have. Offsets and lengths are bytes; offsets
// count from the buffer.
class reparse_value {
  public:
    explicit reparse_value(byte_view value) : m_bytes(value) {}
    [[nodiscard]] byte_view bytes() const { return m_bytes; }
    [[nodiscard]] std::uint32_t tag() const { return m_bytes.u32_or_zero(0); }
    // Bytes after the first eight.
    [[nodiscard]] std::uint16_t data_length() const { return m_bytes.u16_or_zero(4); }
    [[nodiscard]] std::uint16_t substitute_name_offset() const { return m_bytes.u16_or_zero(8); }
    [[nodiscard]] std::uint16_t substitute_name_length() const { return m_bytes.u16_or_zero(10); }
    [[nodiscard]] std::uint16_t print_name_offset() const { return m_bytes.u16_or_zero(12); }
    [[nodiscard]] std::uint16_t print_name_length() const { return m_bytes.u16_or_zero(14); }
    [[nodiscard]] byte_view path_buffer() const { return m_bytes.from(16); }

    // Bytes of zero words from the substitute name's offset on, by which both names are moved.
    [[nodiscard]] std::uint64_t bytes_passed_over() const;
    // The names, as much of them as there is.
    [[nodiscard]] byte_view substitute_name() const;
    [[nodiscard]] byte_view print_name() const;

    // True if the lengths and offsets agree with each other and with the value: its whole length is at least
    // 17 bytes and more than the data length, there is a name, and both names end ahead of the data length.
    [[nodiscard]] bool is_sound() const;
    // The name that a report shows: the print name if there is one, otherwise the substitute name.
    [[nodiscard]] byte_view shown_name() const;

  private:
    byte_view m_bytes;
};

}  // namespace quarry
