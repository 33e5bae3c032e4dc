#include "support/byte_writer.h"

#include <algorithm>
#include <stdexcept>

namespace quarry::test {

void byte_writer::reach(std::size_t end) {
    if (end > m_bytes.size()) {
        m_bytes.resize(end);
    }
}

byte_writer& byte_writer::number(std::size_t offset, unsigned width, std::uint64_t value) {
    reach(offset + width);
    for (unsigned i = 0; i < width && i < 8; ++i) {
        m_bytes[offset + i] = static_cast<std::uint8_t>((value >> (8 * i)) & 0xFF);
    }
    return *this;
}

byte_writer& byte_writer::text(std::size_t offset, std::string_view characters) {
    return raw(offset, to_bytes(characters));
}

byte_writer& byte_writer::raw(std::size_t offset, const bytes& content) {
    reach(offset + content.size());
    std::copy(content.begin(), content.end(), m_bytes.begin() + static_cast<std::ptrdiff_t>(offset));
    return *this;
}

byte_writer& byte_writer::fill(std::size_t offset, std::size_t count, std::uint8_t value) {
    return raw(offset, bytes(count, value));
}

byte_writer& byte_writer::pad_to_multiple(std::size_t step) {
    m_bytes.resize((m_bytes.size() + step - 1) / step * step);
    return *this;
}

void apply(bytes& target, const std::vector<forced_number>& changes) {
    byte_writer writer(std::move(target));
    for (const forced_number& change : changes) {
        writer.number(change.offset, change.width, change.value);
    }
    target = writer.take();
}

bytes from_hex(std::string_view digits) {
    bytes result;
    int high = -1;
    for (const char c : digits) {
        if (c == ' ' || c == '\n') {
            continue;
        }
        const std::size_t digit = std::string_view("0123456789abcdefABCDEF").find(c);
        if (digit == std::string_view::npos) {
            throw std::invalid_argument("not a hexadecimal digit");
        }
        const int value = static_cast<int>(digit < 16 ? digit : digit - 6);
        if (high < 0) {
            high = value;
        } else {
            result.push_back(static_cast<std::uint8_t>(high * 16 + value));
            high = -1;
        }
    }
    if (high >= 0) {
        throw std::invalid_argument("an odd number of hexadecimal digits");
    }
    return result;
}

bytes to_bytes(std::string_view characters) {
    return {characters.begin(), characters.end()};
}

bytes pattern(std::size_t size, std::uint32_t seed) {
    bytes result(size);
    std::uint32_t state = seed * 2654435761u + 12345u;
    for (std::uint8_t& byte : result) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<std::uint8_t>(state >> 24);
    }
    return result;
}

bytes concat(const std::vector<bytes>& pieces) {
    bytes result;
    for (const bytes& piece : pieces) {
        result.insert(result.end(), piece.begin(), piece.end());
    }
    return result;
}

ntfs_name::ntfs_name(std::string_view utf8) {
    for (std::size_t i = 0; i < utf8.size();) {
        const auto lead = static_cast<std::uint8_t>(utf8[i]);
        const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        if (i + length > utf8.size()) {
            throw std::invalid_argument("a name ends inside of a UTF-8 sequence");
        }
        std::uint32_t code = length == 1 ? lead : lead & (0x7Fu >> length);
        for (std::size_t k = 1; k < length; ++k) {
            code = (code << 6) | (static_cast<std::uint8_t>(utf8[i + k]) & 0x3Fu);
        }
        if (code < 0x10000) {
            units.push_back(static_cast<char16_t>(code));
        } else {
            units.push_back(static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10)));
            units.push_back(static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF)));
        }
        i += length;
    }
}

bytes ntfs_name::on_disk() const {
    byte_writer writer;
    for (const char16_t unit : units) {
        writer.u16(writer.size(), unit);
    }
    return writer.take();
}

void protect_sector_ends(bytes& record, std::size_t array_offset, std::uint16_t count, std::uint16_t number,
                         std::size_t stride) {
    if (array_offset + 2 > record.size()) {
        return;
    }
    byte_writer writer(record);
    writer.u16(array_offset, number);
    for (std::size_t i = 1; i < count; ++i) {
        const std::size_t end = i * stride;
        if (stride < 2 || end > record.size() || array_offset + 2 * i + 2 > record.size()) {
            break;
        }
        writer.raw(array_offset + 2 * i, {record[end - 2], record[end - 1]});
        writer.u16(end - 2, number);
    }
    record = writer.take();
}

}  // namespace quarry::test
