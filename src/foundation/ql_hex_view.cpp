#include "foundation/ql_hex_view.h"

#include "foundation/assertion.h"

#include <algorithm>
#include <cstddef>
#include <iomanip>
#include <limits>
#include <string>

namespace ql {

namespace {

constexpr std::uint32_t bytes_per_line = 16;
constexpr std::uint32_t bytes_per_group = 8;
constexpr std::size_t width_of_pair = 3;  // two digits and a blank

void print_four_digits(std::ostream& out, std::uint64_t value) {
    out << std::setw(4) << (value & 0xFFFF);
}

void print_address(std::ostream& out, std::uint64_t address) {
    if (address >> 32 != 0) {
        if (address >> 48 != 0) {
            print_four_digits(out, address >> 48);
            out << ' ';
        }
        print_four_digits(out, address >> 32);
        out << ' ';
    }
    print_four_digits(out, address >> 16);
    out << ' ';
    print_four_digits(out, address);
    out << ":  ";
}

void print_pairs(std::ostream& out, const binary_data& bytes, std::uint32_t first, std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) {
        if (i == bytes_per_group) {
            out << ' ';
        }
        out << std::setw(2) << static_cast<unsigned>(bytes(first + i)) << ' ';
    }
    if (count < bytes_per_line) {
        // The blank between the groups is missing too if the second group is.
        const std::size_t blanks =
            width_of_pair * (bytes_per_line - count) + (count <= bytes_per_group ? 1 : 0);
        out << std::string(blanks, ' ');
    }
}

void print_characters(std::ostream& out, const binary_data& bytes, std::uint32_t first, std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint8_t byte = bytes(first + i);
        out << (byte >= 0x20 && byte <= 0x7E ? static_cast<char>(byte) : '.');
    }
}

}  // namespace

binary_data::binary_data(const std::vector<std::uint8_t>& bytes, bool copy)
    : m_num_data(static_cast<std::uint32_t>(
          std::min<std::size_t>(bytes.size(), std::numeric_limits<std::uint32_t>::max()))),
      m_is_copy(copy) {
    if (copy) {
        m_own_bytes = bytes;
    }
    m_bytes = copy ? m_own_bytes.data() : bytes.data();
}

std::uint8_t binary_data::operator()(std::uint32_t index) const {
    quarry::require(index < m_num_data, "index < m_num_data", "ql_hex_view");
    return m_bytes[index];
}

void hex_dump(std::ostream& out, const binary_data& bytes, std::uint32_t first, std::uint32_t count,
              std::uint64_t base_address) {
    const std::ios_base::fmtflags flags = out.flags();
    out.flags(std::ios_base::hex | std::ios_base::right);
    out.fill('0');
    const std::uint64_t end = std::min<std::uint64_t>(std::uint64_t{first} + count, bytes.m_num_data);
    std::uint64_t address = base_address;
    for (std::uint64_t position = first; position < end;
         position += bytes_per_line, address += bytes_per_line) {
        const auto line_first = static_cast<std::uint32_t>(position);
        const auto line_count =
            static_cast<std::uint32_t>(std::min<std::uint64_t>(bytes_per_line, end - position));
        print_address(out, address);
        print_pairs(out, bytes, line_first, line_count);
        out << ' ';
        print_characters(out, bytes, line_first, line_count);
        out << '\n';
    }
    out.flags(flags);
}

}  // namespace ql
