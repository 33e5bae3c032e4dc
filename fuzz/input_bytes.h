// The bytes of one fuzz input, taken from the front: settings first, what is left is the structure under
// test. What is not there any more reads as zero.
#pragma once

#include "foundation/byte_view.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace quarry::fuzz {

class input_bytes {
  public:
    input_bytes(const std::uint8_t* data, std::size_t size) : m_left(data, size) {}

    [[nodiscard]] bool empty() const { return m_left.empty(); }
    [[nodiscard]] std::uint8_t u8() { return static_cast<std::uint8_t>(number(1)); }
    [[nodiscard]] std::uint16_t u16() { return static_cast<std::uint16_t>(number(2)); }
    [[nodiscard]] std::uint32_t u32() { return static_cast<std::uint32_t>(number(4)); }
    [[nodiscard]] std::uint64_t u64() { return number(8); }
    // As many of so many bytes as there are.
    [[nodiscard]] byte_view take(std::size_t size) {
        const byte_view taken = m_left.clipped(0, size);
        m_left = m_left.from(taken.size());
        return taken;
    }
    [[nodiscard]] byte_view rest() { return take(m_left.size()); }
    [[nodiscard]] std::string text(std::size_t size) {
        const byte_view taken = take(size);
        return {taken.span().begin(), taken.span().end()};
    }

  private:
    [[nodiscard]] std::uint64_t number(unsigned width) {
        std::uint64_t value = 0;
        for (unsigned i = 0; i < width; ++i) {
            value |= std::uint64_t{m_left.u8_or_zero(i)} << (8 * i);
        }
        m_left = m_left.from(width);
        return value;
    }

    byte_view m_left;
};

// Bytes with an allocation of their own, so that the sanitizer reports a read past them.
class lone_bytes {
  public:
    explicit lone_bytes(byte_view source)
        : m_bytes(std::make_unique<std::uint8_t[]>(source.size())), m_size(source.size()) {
        std::copy(source.span().begin(), source.span().end(), m_bytes.get());
    }
    [[nodiscard]] byte_view view() const { return {m_bytes.get(), m_size}; }
    [[nodiscard]] std::span<std::uint8_t> span() { return {m_bytes.get(), m_size}; }

  private:
    std::unique_ptr<std::uint8_t[]> m_bytes;
    std::size_t m_size;
};

}  // namespace quarry::fuzz
