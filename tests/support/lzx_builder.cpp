#include "support/lzx_builder.h"

#include <algorithm>

namespace quarry::test {

namespace {

bytes part(const bytes& whole, std::size_t begin, std::size_t end) {
    return {whole.begin() + static_cast<std::ptrdiff_t>(begin),
            whole.begin() + static_cast<std::ptrdiff_t>(end)};
}

struct slot_place {
    unsigned slot;
    unsigned extra_bits;
    std::size_t extra;
};

// By the table of slots: two slots for each number of extra bits, and slot 3 on its own before them.
slot_place place_of(std::size_t distance) {
    std::size_t base = 1;
    for (unsigned slot = 3;; ++slot) {
        const unsigned extra_bits = slot == 3 ? 0 : slot / 2 - 1;
        const std::size_t next = base + (std::size_t{1} << extra_bits);
        if (distance < next) {
            return {slot, extra_bits, distance - base};
        }
        base = next;
    }
}

}  // namespace

lzx_builder& lzx_builder::header(unsigned type, std::size_t size) {
    m_bits.bits(3, type);
    if (size == 32768) {
        m_bits.bits(1, 1);
    } else {
        m_bits.bits(1, 0).bits(16, size);
    }
    return *this;
}

void lzx_builder::block(unsigned type, std::size_t size, const lzx_codes& codes) {
    header(type, size);
    m_aligned = type == 2;
    if (m_aligned) {
        for (const std::uint8_t length : codes.aligned) {
            m_bits.bits(3, length);
        }
        m_aligned_code = code_words(codes.aligned);
    }
    lengths(part(codes.main, 0, 256), part(m_main_before, 0, 256));
    lengths(part(codes.main, 256, lzx_main_symbols), part(m_main_before, 256, lzx_main_symbols));
    lengths(codes.length, m_length_before);
    m_main_before = codes.main;
    m_length_before = codes.length;
    m_main = code_words(codes.main);
    m_length = code_words(codes.length);
}

lzx_builder& lzx_builder::verbatim(std::size_t size, const lzx_codes& codes) {
    block(1, size, codes);
    return *this;
}

lzx_builder& lzx_builder::aligned(std::size_t size, const lzx_codes& codes) {
    block(2, size, codes);
    return *this;
}

lzx_builder& lzx_builder::stored(const bytes& content, std::uint32_t r0, std::uint32_t r1, std::uint32_t r2) {
    header(3, content.size());
    m_bits.leave_word();
    m_bits.raw(byte_writer().u32(0, r0).u32(4, r1).u32(8, r2).take());
    m_bits.raw(byte_writer(content).pad_to_multiple(2).take());
    return *this;
}

lzx_builder& lzx_builder::symbol(unsigned symbol) {
    m_bits.bits(m_main[symbol].length, m_main[symbol].bits);
    return *this;
}

lzx_builder& lzx_builder::literals(const bytes& content) {
    for (const std::uint8_t byte : content) {
        symbol(byte);
    }
    return *this;
}

void lzx_builder::main_match(unsigned slot, std::size_t length) {
    const std::size_t in_symbol = std::min<std::size_t>(length - 2, 7);
    symbol(static_cast<unsigned>(256 + 8 * slot + in_symbol));
    if (in_symbol == 7) {
        const code_word& more = m_length[length - 2 - 7];
        m_bits.bits(more.length, more.bits);
    }
}

lzx_builder& lzx_builder::match(std::size_t distance, std::size_t length) {
    const slot_place place = place_of(distance);
    main_match(place.slot, length);
    if (m_aligned && place.extra_bits >= 3) {
        m_bits.bits(place.extra_bits - 3, place.extra / 8);
        const code_word& low = m_aligned_code[place.extra % 8];
        m_bits.bits(low.length, low.bits);
    } else {
        m_bits.bits(place.extra_bits, place.extra);
    }
    return *this;
}

lzx_builder& lzx_builder::recent(unsigned slot, std::size_t length) {
    main_match(slot, length);
    return *this;
}

lzx_builder& lzx_builder::lengths(const bytes& lengths, const bytes& before) {
    const bytes pre_lengths = flat_code_lengths(20);
    const std::vector<code_word> pre = code_words(pre_lengths);
    for (const std::uint8_t length : pre_lengths) {
        m_bits.bits(4, length);
    }
    const auto write = [&](unsigned symbol) { m_bits.bits(pre[symbol].length, pre[symbol].bits); };
    for (std::size_t at = 0; at < lengths.size();) {
        std::size_t equal = 1;
        while (at + equal < lengths.size() && lengths[at + equal] == lengths[at]) {
            ++equal;
        }
        const unsigned difference = (before[at] + 17u - lengths[at]) % 17;
        if (lengths[at] == 0 && equal >= 20) {
            const std::size_t count = std::min<std::size_t>(equal, 51);
            write(18);
            m_bits.bits(5, count - 20);
            at += count;
        } else if (lengths[at] == 0 && equal >= 4) {
            write(17);
            m_bits.bits(4, equal - 4);
            at += equal;
        } else if (equal >= 4) {
            const std::size_t count = std::min<std::size_t>(equal, 5);
            write(19);
            m_bits.bits(1, count - 4);
            write(difference);
            at += count;
        } else {
            write(difference);
            ++at;
        }
    }
    return *this;
}

bytes lzx_builder::build() const {
    bit_word_writer words = m_bits;
    return words.take();
}

}  // namespace quarry::test
