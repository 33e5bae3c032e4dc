// An output stream that keeps what it is given and is full after a while: damage may claim a stream of
// terabytes of zeros, and a copy of it is right but takes its time.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <streambuf>
#include <vector>

namespace quarry::test {

class limited_buffer : public std::streambuf {
  public:
    explicit limited_buffer(std::size_t room) : m_room(room) {}
    std::vector<std::uint8_t> m_taken;

  protected:
    int_type overflow(int_type character) override {
        if (m_taken.size() == m_room) {
            return traits_type::eof();
        }
        m_taken.push_back(static_cast<std::uint8_t>(traits_type::to_char_type(character)));
        return traits_type::not_eof(character);
    }
    std::streamsize xsputn(const char* bytes, std::streamsize count) override {
        const auto taken =
            static_cast<std::ptrdiff_t>(std::min(static_cast<std::size_t>(count), m_room - m_taken.size()));
        const auto* const first = static_cast<const std::uint8_t*>(static_cast<const void*>(bytes));
        m_taken.insert(m_taken.end(), first, first + taken);
        return taken;
    }

  private:
    std::size_t m_room;
};

class limited_sink : public std::ostream {
  public:
    explicit limited_sink(std::size_t room) : std::ostream(nullptr), m_buffer(room) { rdbuf(&m_buffer); }
    [[nodiscard]] const std::vector<std::uint8_t>& taken() const { return m_buffer.m_taken; }

  private:
    limited_buffer m_buffer;
};

}  // namespace quarry::test
