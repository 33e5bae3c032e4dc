#include "support/bit_word_writer.h"

#include <stdexcept>

namespace quarry::test {

// Makes room for words until they have so many bits.
void bit_word_writer::fetch(std::size_t bits) {
    while (m_word_begin.size() * 16 < bits) {
        m_word_begin.push_back(m_bytes.size());
        m_bytes.resize(m_bytes.size() + 2);
    }
}

bit_word_writer& bit_word_writer::bits(unsigned count, std::uint64_t value) {
    for (unsigned i = count; i-- > 0;) {
        fetch(m_taken + 1);
        if ((value >> i) % 2 == 1) {
            const std::size_t in_word = m_taken % 16;
            const std::size_t byte = m_word_begin[m_taken / 16] + (in_word < 8 ? 1 : 0);
            m_bytes[byte] = static_cast<std::uint8_t>(m_bytes[byte] | 0x80u >> in_word % 8);
        }
        ++m_taken;
    }
    return *this;
}

bit_word_writer& bit_word_writer::bits(std::string_view digits) {
    for (const char digit : digits) {
        if (digit != ' ') {
            bits(1, digit == '1' ? 1 : 0);
        }
    }
    return *this;
}

bit_word_writer& bit_word_writer::byte(unsigned value) {
    fetch(m_taken + 16);
    m_bytes.push_back(static_cast<std::uint8_t>(value));
    return *this;
}

bit_word_writer& bit_word_writer::leave_word() {
    return bits(16 - static_cast<unsigned>(m_taken % 16), 0);
}

bit_word_writer& bit_word_writer::raw(const bytes& content) {
    if (m_taken % 16 != 0 || m_word_begin.size() * 16 != m_taken) {
        throw std::logic_error("bytes inside of a word");
    }
    m_bytes.insert(m_bytes.end(), content.begin(), content.end());
    return *this;
}

}  // namespace quarry::test
