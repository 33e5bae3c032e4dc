// Little-endian stores for the builders: every structure of a test is put together from these.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::test {

using bytes = std::vector<std::uint8_t>;

// Bytes that grow as they are written. Offsets are bytes from the start; what was never written is zero.
class byte_writer {
  public:
    byte_writer() = default;
    explicit byte_writer(std::size_t size) : m_bytes(size) {}
    explicit byte_writer(bytes content) : m_bytes(std::move(content)) {}

    byte_writer& u8(std::size_t offset, std::uint64_t value) { return number(offset, 1, value); }
    byte_writer& u16(std::size_t offset, std::uint64_t value) { return number(offset, 2, value); }
    byte_writer& u32(std::size_t offset, std::uint64_t value) { return number(offset, 4, value); }
    byte_writer& u48(std::size_t offset, std::uint64_t value) { return number(offset, 6, value); }
    byte_writer& u64(std::size_t offset, std::uint64_t value) { return number(offset, 8, value); }
    // The low `width` bytes (at most 8) of `value`.
    byte_writer& number(std::size_t offset, unsigned width, std::uint64_t value);
    byte_writer& text(std::size_t offset, std::string_view characters);
    byte_writer& raw(std::size_t offset, const bytes& content);
    byte_writer& fill(std::size_t offset, std::size_t count, std::uint8_t value);
    // Appends zeros until the size is a multiple of `step`.
    byte_writer& pad_to_multiple(std::size_t step);

    [[nodiscard]] std::size_t size() const { return m_bytes.size(); }
    [[nodiscard]] const bytes& content() const { return m_bytes; }
    [[nodiscard]] bytes take() { return std::move(m_bytes); }

  private:
    void reach(std::size_t end);
    bytes m_bytes;
};

// A change to finished bytes that a test asks for: `width` bytes of `value` at `offset`.
struct forced_number {
    std::size_t offset;
    unsigned width;
    std::uint64_t value;
};
void apply(bytes& target, const std::vector<forced_number>& changes);

// "21 18 34 56 00" as five bytes; blanks are free.
[[nodiscard]] bytes from_hex(std::string_view digits);
[[nodiscard]] bytes to_bytes(std::string_view characters);
// `size` bytes of which no two neighbouring kilobytes are alike; the same seed gives the same bytes.
[[nodiscard]] bytes pattern(std::size_t size, std::uint32_t seed = 1);
[[nodiscard]] bytes concat(const std::vector<bytes>& pieces);

// A name as it is on disk: UTF-16 units. Made from UTF-8 text, or from units for what is no text.
struct ntfs_name {
    ntfs_name() = default;
    ntfs_name(const char* utf8) : ntfs_name(std::string_view(utf8)) {}
    ntfs_name(const std::string& utf8) : ntfs_name(std::string_view(utf8)) {}
    ntfs_name(std::string_view utf8);
    ntfs_name(const char16_t* text) : units(text) {}
    ntfs_name(std::u16string text) : units(std::move(text)) {}
    [[nodiscard]] bytes on_disk() const;
    std::u16string units;
};

// A file reference: 48-bit entry number with the sequence number above it.
[[nodiscard]] constexpr std::uint64_t reference(std::uint64_t entry, std::uint16_t sequence) {
    return (entry & 0x0000FFFFFFFFFFFFu) | (static_cast<std::uint64_t>(sequence) << 48);
}

// Puts an update sequence array at `array_offset` (its number first) and replaces the last two bytes of each
// of the `count` - 1 strides with the number, as the file system does on writing a record or an index block.
// Strides that do not lie inside are left out.
void protect_sector_ends(bytes& record, std::size_t array_offset, std::uint16_t count, std::uint16_t number,
                         std::size_t stride);

}  // namespace quarry::test
