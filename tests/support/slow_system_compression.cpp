#include "support/slow_system_compression.h"

#include <deque>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>

namespace quarry::test {

namespace {

struct broken_rule : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A bit of the chunk, or one of the zeros after its end, which may be fetched and not taken.
struct ahead {
    bool bit;
    bool inside;
};

class slow_bits {
  public:
    slow_bits(const bytes& stored, std::size_t start) : m_stored(&stored), m_next(start) {}

    unsigned take() {
        fetch(1);
        const ahead first = m_fetched.front();
        m_fetched.pop_front();
        if (!first.inside) {
            throw broken_rule("bits");
        }
        return first.bit ? 1 : 0;
    }
    std::size_t take(std::size_t count) {
        std::size_t value = 0;
        for (std::size_t i = 0; i < count; ++i) {
            value = 2 * value + take();
        }
        return value;
    }
    // Words are fetched until so many bits are held.
    void fetch(std::size_t count) {
        while (m_fetched.size() < count) {
            const bool inside = m_next + 2 <= m_stored->size();
            const std::size_t word = inside ? (*m_stored)[m_next] + 256u * (*m_stored)[m_next + 1] : 0;
            for (unsigned i = 0; i < 16; ++i) {
                m_fetched.push_back({(word >> (15 - i)) % 2 == 1, inside});
            }
            m_next += 2;
        }
    }
    std::size_t byte() {
        if (m_next >= m_stored->size()) {
            throw broken_rule("bytes");
        }
        return (*m_stored)[m_next++];
    }
    std::size_t number(unsigned byte_count) {
        std::size_t value = 0;
        for (unsigned i = 0; i < byte_count; ++i) {
            value += byte() << (8 * i);
        }
        return value;
    }
    // What is left of a word that was begun; a whole word if none was.
    void leave_word() { take_any(m_fetched.empty() ? 16 : m_fetched.size()); }

  private:
    void take_any(std::size_t count) {
        fetch(count);
        m_fetched.erase(m_fetched.begin(), m_fetched.begin() + static_cast<std::ptrdiff_t>(count));
    }

    const bytes* m_stored;
    std::size_t m_next;
    std::deque<ahead> m_fetched;
};

class slow_code {
  public:
    slow_code() = default;
    explicit slow_code(const bytes& lengths) {
        unsigned next = 0;
        std::size_t used = 0;
        for (unsigned length = 1; length <= 16; ++length) {
            next *= 2;
            for (unsigned symbol = 0; symbol < lengths.size(); ++symbol) {
                if (lengths[symbol] == length) {
                    m_symbols[{length, next++}] = symbol;
                    used += std::size_t{65536} >> length;
                }
            }
        }
        if (used != 0 && used != 65536) {
            throw broken_rule("code");
        }
    }
    unsigned take(slow_bits& bits) const {
        unsigned row = 0;
        for (unsigned length = 1; length <= 16; ++length) {
            row = 2 * row + bits.take();
            const auto found = m_symbols.find({length, row});
            if (found != m_symbols.end()) {
                return found->second;
            }
        }
        throw broken_rule("symbol");
    }

  private:
    std::map<std::pair<unsigned, unsigned>, unsigned> m_symbols;
};

void repeat(bytes& plain, std::size_t distance, std::size_t length, std::size_t limit) {
    if (distance > plain.size() || plain.size() + length > limit) {
        throw broken_rule("match");
    }
    for (std::size_t i = 0; i < length; ++i) {
        plain.push_back(plain[plain.size() - distance]);
    }
}

bytes xpress(const bytes& stored, std::size_t plain_size) {
    if (stored.size() < 256) {
        throw broken_rule("lengths");
    }
    bytes lengths;
    for (std::size_t i = 0; i < 256; ++i) {
        lengths.push_back(stored[i] % 16);
        lengths.push_back(stored[i] / 16);
    }
    if (lengths == bytes(512)) {
        throw broken_rule("code");
    }
    const slow_code code(lengths);
    slow_bits bits(stored, 256);
    bytes plain;
    while (plain.size() < plain_size) {
        const unsigned symbol = code.take(bits);
        if (symbol < 256) {
            plain.push_back(static_cast<std::uint8_t>(symbol));
            continue;
        }
        bits.fetch(16);
        const unsigned distance_bits = (symbol - 256) / 16;
        std::size_t length = symbol % 16;
        if (length == 15) {
            const std::size_t more = bits.byte();
            length = more == 255 ? bits.number(2) : 15 + more;
            if (length < 15) {
                throw broken_rule("length");
            }
        }
        std::size_t distance = 1;
        for (unsigned i = 0; i < distance_bits; ++i) {
            distance = 2 * distance + bits.take();
        }
        repeat(plain, distance, length + 3, plain_size);
    }
    return plain;
}

void take_lengths(slow_bits& bits, bytes& lengths, std::size_t begin, std::size_t end) {
    bytes pre_lengths;
    for (int i = 0; i < 20; ++i) {
        pre_lengths.push_back(static_cast<std::uint8_t>(bits.take(4)));
    }
    const slow_code pre(pre_lengths);
    const auto changed = [&](std::size_t at, unsigned symbol) {
        if (symbol > 16) {
            throw broken_rule("repeated");
        }
        const int difference = int{lengths[at]} - static_cast<int>(symbol);
        return static_cast<std::uint8_t>(difference < 0 ? difference + 17 : difference);
    };
    while (begin < end) {
        const unsigned symbol = pre.take(bits);
        std::size_t count = 1;
        std::uint8_t length = 0;
        if (symbol == 17) {
            count = 4 + bits.take(4);
        } else if (symbol == 18) {
            count = 20 + bits.take(5);
        } else if (symbol == 19) {
            count = 4 + bits.take(1);
            length = changed(begin, pre.take(bits));
        } else {
            length = changed(begin, symbol);
        }
        for (std::size_t i = 0; i < count; ++i) {
            if (begin == end) {
                throw broken_rule("lengths");
            }
            lengths[begin++] = length;
        }
    }
}

void restore_calls(bytes& plain) {
    std::size_t i = 0;
    while (i + 10 < plain.size()) {
        if (plain[i] != 0xE8) {
            i += 1;
            continue;
        }
        std::int64_t target = 0;
        for (unsigned b = 0; b < 4; ++b) {
            target += std::int64_t{plain[i + 1 + b]} << (8 * b);
        }
        target -= target >= 0x80000000 ? 0x100000000 : 0;
        const auto here = static_cast<std::int64_t>(i);
        if (target >= 0 && target < 12000000) {
            target -= here;
        } else if (target < 0 && target >= -here) {
            target += 12000000;
        }
        for (unsigned b = 0; b < 4; ++b) {
            plain[i + 1 + b] = static_cast<std::uint8_t>((target >> (8 * b)) & 0xFF);
        }
        i += 5;
    }
}

bytes lzx(const bytes& stored, std::size_t plain_size) {
    slow_bits bits(stored, 0);
    std::deque<std::size_t> recent{1, 1, 1};
    bytes main_lengths(496);
    bytes length_lengths(249);
    bytes plain;
    while (plain.size() < plain_size) {
        const std::size_t type = bits.take(3);
        const std::size_t size = bits.take() == 1 ? 32768 : bits.take(16);
        const std::size_t end = plain.size() + size;
        if (type < 1 || type > 3 || size == 0 || end > plain_size) {
            throw broken_rule("block");
        }
        if (type == 3) {
            bits.leave_word();
            for (std::size_t& distance : recent) {
                distance = bits.number(4);
                if (distance == 0) {
                    throw broken_rule("distance");
                }
            }
            while (plain.size() < end) {
                plain.push_back(static_cast<std::uint8_t>(bits.byte()));
            }
            if (size % 2 == 1 && plain.size() < plain_size) {
                bits.byte();
            }
            continue;
        }
        slow_code aligned;
        if (type == 2) {
            bytes lengths;
            for (int i = 0; i < 8; ++i) {
                lengths.push_back(static_cast<std::uint8_t>(bits.take(3)));
            }
            aligned = slow_code(lengths);
        }
        take_lengths(bits, main_lengths, 0, 256);
        take_lengths(bits, main_lengths, 256, 496);
        take_lengths(bits, length_lengths, 0, 249);
        const slow_code main(main_lengths);
        const slow_code length_code(length_lengths);
        while (plain.size() < end) {
            const unsigned symbol = main.take(bits);
            if (symbol < 256) {
                plain.push_back(static_cast<std::uint8_t>(symbol));
                continue;
            }
            const unsigned slot = (symbol - 256) / 8;
            std::size_t length = symbol % 8 + 2;
            if (symbol % 8 == 7) {
                length += length_code.take(bits);
            }
            if (slot < 3) {
                std::swap(recent[0], recent[slot]);
            } else {
                const auto extra_bits = [](unsigned of) { return of < 4 ? 0u : (of - 2) / 2; };
                std::size_t distance = 0;
                for (unsigned before = 0; before < slot; ++before) {
                    distance += std::size_t{1} << extra_bits(before);
                }
                const unsigned extra = extra_bits(slot);
                if (type == 2 && extra >= 3) {
                    const std::size_t high = bits.take(extra - 3);
                    distance += 8 * high + aligned.take(bits);
                } else {
                    distance += bits.take(extra);
                }
                recent.push_front(distance - 2);
                recent.pop_back();
            }
            repeat(plain, recent[0], length, end);
        }
    }
    restore_calls(plain);
    return plain;
}

}  // namespace

std::optional<bytes> slow_xpress_chunk(const bytes& stored, std::size_t plain_size) {
    try {
        return xpress(stored, plain_size);
    } catch (const broken_rule&) {
        return std::nullopt;
    }
}

std::optional<bytes> slow_lzx_chunk(const bytes& stored, std::size_t plain_size) {
    try {
        return lzx(stored, plain_size);
    } catch (const broken_rule&) {
        return std::nullopt;
    }
}

}  // namespace quarry::test
