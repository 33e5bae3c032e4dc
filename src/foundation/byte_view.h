// A bounded view of bytes that someone else wrote.
//
// Everything that comes from a disk, an image or a virtual disk is read through this one class. A view knows
// where its bytes begin and how many there are; a question about bytes outside of it is answered with "no"
// (an empty optional, an empty view, or zero where the accessor's name says so), never with a read.
// All numbers are little-endian, as NTFS, MBR, GPT and VMDK store them. Offsets are bytes from the view's
// start; they are 64 bits wide so that a sum of disk values cannot wrap before it is tested.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace quarry {

class byte_view {
  public:
    constexpr byte_view() = default;
    constexpr byte_view(const std::uint8_t* data, std::size_t size)
        : m_data(data), m_size(data == nullptr ? 0 : size) {}
    byte_view(std::span<const std::uint8_t> bytes) : byte_view(bytes.data(), bytes.size()) {}
    byte_view(const std::vector<std::uint8_t>& bytes) : byte_view(bytes.data(), bytes.size()) {}

    [[nodiscard]] constexpr std::size_t size() const { return m_size; }
    [[nodiscard]] constexpr bool empty() const { return m_size == 0; }
    // The first byte, for handing whole views to a copy, a digest or a write. Null for a default view.
    [[nodiscard]] constexpr const std::uint8_t* data() const { return m_data; }
    [[nodiscard]] constexpr std::span<const std::uint8_t> span() const { return {m_data, m_size}; }

    // True if `length` bytes from `offset` on all lie inside the view.
    [[nodiscard]] constexpr bool holds(std::uint64_t offset, std::uint64_t length) const {
        return offset <= m_size && length <= m_size - offset;
    }

    // Numbers at an offset; empty if any of their bytes lies outside.
    [[nodiscard]] std::optional<std::uint8_t> u8(std::uint64_t offset) const {
        return number<std::uint8_t>(offset);
    }
    [[nodiscard]] std::optional<std::uint16_t> u16(std::uint64_t offset) const {
        return number<std::uint16_t>(offset);
    }
    [[nodiscard]] std::optional<std::uint32_t> u32(std::uint64_t offset) const {
        return number<std::uint32_t>(offset);
    }
    [[nodiscard]] std::optional<std::uint64_t> u64(std::uint64_t offset) const {
        return number<std::uint64_t>(offset);
    }

    // The same with 0 for a number that is not wholly inside, for fields whose absence reads as zero.
    [[nodiscard]] std::uint8_t u8_or_zero(std::uint64_t offset) const { return u8(offset).value_or(0); }
    [[nodiscard]] std::uint16_t u16_or_zero(std::uint64_t offset) const { return u16(offset).value_or(0); }
    [[nodiscard]] std::uint32_t u32_or_zero(std::uint64_t offset) const { return u32(offset).value_or(0); }
    [[nodiscard]] std::uint64_t u64_or_zero(std::uint64_t offset) const { return u64(offset).value_or(0); }
    // A 48-bit number, as MFT entry numbers are stored.
    [[nodiscard]] std::uint64_t u48_or_zero(std::uint64_t offset) const {
        return holds(offset, 6) ? number_of_width(offset, 6) : 0;
    }
    // A number of `width` bytes (1 to 8); 0 if it is not wholly inside.
    [[nodiscard]] std::uint64_t number_of_width(std::uint64_t offset, unsigned width) const {
        std::uint64_t value = 0;
        if (width <= 8 && holds(offset, width)) {
            for (unsigned i = 0; i < width; ++i) {
                value |= static_cast<std::uint64_t>(m_data[offset + i]) << (8 * i);
            }
        }
        return value;
    }

    // Exactly `length` bytes from `offset` on, or nothing.
    [[nodiscard]] std::optional<byte_view> sub(std::uint64_t offset, std::uint64_t length) const {
        if (!holds(offset, length)) {
            return std::nullopt;
        }
        return byte_view(m_data + offset, static_cast<std::size_t>(length));
    }
    // As many of `length` bytes from `offset` on as there are.
    [[nodiscard]] byte_view clipped(std::uint64_t offset, std::uint64_t length) const {
        if (offset >= m_size) {
            return {};
        }
        const std::uint64_t rest = m_size - offset;
        return {m_data + offset, static_cast<std::size_t>(length < rest ? length : rest)};
    }
    // All bytes from `offset` on.
    [[nodiscard]] byte_view from(std::uint64_t offset) const { return clipped(offset, m_size); }

    // True if the view holds exactly these characters at `offset`.
    [[nodiscard]] bool text_at(std::uint64_t offset, std::string_view text) const {
        if (!holds(offset, text.size())) {
            return false;
        }
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (m_data[offset + i] != static_cast<std::uint8_t>(text[i])) {
                return false;
            }
        }
        return true;
    }

    [[nodiscard]] std::vector<std::uint8_t> to_vector() const {
        return m_size == 0 ? std::vector<std::uint8_t>() : std::vector<std::uint8_t>(m_data, m_data + m_size);
    }

  private:
    template <typename Number>
    [[nodiscard]] std::optional<Number> number(std::uint64_t offset) const {
        if (!holds(offset, sizeof(Number))) {
            return std::nullopt;
        }
        return static_cast<Number>(number_of_width(offset, sizeof(Number)));
    }

    const std::uint8_t* m_data = nullptr;
    std::size_t m_size = 0;
};

// The low 32 bits of a number: a cut that is meant.
[[nodiscard]] constexpr std::uint32_t low_32_bits(std::uint64_t value) {
    return static_cast<std::uint32_t>(value & 0xFFFFFFFFu);
}

// Writes a little-endian 16-bit number over two bytes; does nothing unless both lie inside.
inline void store_u16(std::span<std::uint8_t> bytes, std::uint64_t offset, std::uint16_t value) {
    if (offset <= bytes.size() && bytes.size() - offset >= 2) {
        bytes[static_cast<std::size_t>(offset)] = static_cast<std::uint8_t>(value & 0xFF);
        bytes[static_cast<std::size_t>(offset) + 1] = static_cast<std::uint8_t>(value >> 8);
    }
}

}  // namespace quarry
