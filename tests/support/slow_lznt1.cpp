#include "support/slow_lznt1.h"

#include <algorithm>

namespace quarry::test {

namespace {

std::size_t byte_at(const bytes& text, std::size_t at) {
    return at < text.size() ? text[at] : 0;
}

std::size_t word_at(const bytes& text, std::size_t at) {
    return byte_at(text, at) + 256 * byte_at(text, at + 1);
}

// Distance bits after `position` decompressed bytes, from the table: 4 up to 16 bytes, 5 up to 32, and so on.
std::size_t distance_bits(std::size_t position) {
    const std::size_t ends[] = {16, 32, 64, 128, 256, 512, 1024, 2048, 4096};
    std::size_t row = 0;
    while (position > ends[row]) {
        ++row;
    }
    return 4 + row;
}

void give(slow_unit& out, const bytes& piece, std::size_t& left) {
    const std::size_t size = std::min(piece.size(), left);
    out.plain.insert(out.plain.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(size));
    left -= size;
}

bool ends_in_zeros(const bytes& unit) {
    const std::size_t begin = unit.size() < 4096 ? 0 : unit.size() - 4096;
    return std::count(unit.begin() + static_cast<std::ptrdiff_t>(begin), unit.end(), 0) ==
           static_cast<std::ptrdiff_t>(unit.size() - begin);
}

slow_unit damaged(const bytes& unit, slow_unit out, std::size_t left) {
    out.ok = !ends_in_zeros(unit);
    if (out.ok) {
        give(out, unit, left);
    }
    return out;
}

}  // namespace

slow_chunk slow_decode_chunk(const bytes& unit, std::size_t payload_at, std::size_t payload_size,
                             const bytes& chunk_before) {
    bytes plain;
    std::size_t in = 0;
    const std::size_t end = payload_at < unit.size() ? std::min(payload_size, unit.size() - payload_at) : 0;
    while (in < end && plain.size() < 4096) {
        const std::size_t flags = byte_at(unit, payload_at + in);
        ++in;
        for (std::size_t item = 0; item < 8; ++item) {
            if (in >= end || plain.size() == 4096) {
                break;
            }
            const bool is_token = (flags >> item) % 2 == 1;
            if (!is_token) {
                plain.push_back(static_cast<std::uint8_t>(byte_at(unit, payload_at + in)));
                in += 1;
                continue;
            }
            if (plain.empty()) {
                return {};
            }
            const std::size_t token = word_at(unit, payload_at + in);
            const std::size_t length_bits = 16 - distance_bits(plain.size());
            const std::size_t back = (token >> length_bits) + 1;
            const std::size_t length = token % (std::size_t{1} << length_bits) + 3;
            if (back > plain.size()) {
                return {};
            }
            in += 2;
            for (std::size_t i = 0; i < length && plain.size() < 4096; ++i) {
                plain.push_back(plain[plain.size() - back]);
            }
        }
    }
    const bytes rest = payload_size < 9 ? bytes(4096, 0) : chunk_before;
    plain.insert(plain.end(), rest.begin() + static_cast<std::ptrdiff_t>(plain.size()), rest.end());
    return {true, plain};
}

slow_unit slow_decode_chunks(const bytes& unit, std::size_t limit) {
    slow_unit out;
    std::size_t left = limit;
    bytes before(4096, 0);
    std::size_t at = 0;
    while (at < unit.size()) {
        const std::size_t header = word_at(unit, at);
        const bool compressed = header >= 0x8000;
        const std::size_t size_less_3 = header % 0x1000;
        if (compressed) {
            const slow_chunk chunk = slow_decode_chunk(unit, at + 2, size_less_3 + 1, before);
            if (!chunk.sound) {
                return damaged(unit, out, left);
            }
            give(out, chunk.plain, left);
            before = chunk.plain;
            at += size_less_3 + 3;
        } else if (size_less_3 == 0xFFF) {
            const std::size_t rest = unit.size() < at + 2 ? 0 : unit.size() - at - 2;
            const std::size_t size = std::min({std::size_t{4096}, left, rest});
            const auto begin = unit.begin() + static_cast<std::ptrdiff_t>(std::min(at + 2, unit.size()));
            give(out, bytes(begin, begin + static_cast<std::ptrdiff_t>(size)), left);
            at += 2 + size;
        } else if (size_less_3 == 0) {
            at = at - at % 4096 + 4096;
        } else {
            return damaged(unit, out, left);
        }
    }
    out.ok = true;
    return out;
}

std::optional<bytes> slow_strict_unit(const bytes& stored, std::size_t wanted) {
    bytes plain;
    std::size_t at = 0;
    const auto byte = [&](std::size_t i) { return static_cast<unsigned>(stored[i]); };
    while (plain.size() < wanted) {
        if (stored.size() - at < 2 || (byte(at) == 0 && byte(at + 1) == 0)) {
            break;
        }
        const unsigned header = byte(at) + 256 * byte(at + 1);
        const std::size_t size = header % 4096 + 1;
        if (header / 4096 % 8 != 3 || stored.size() - at - 2 < size) {
            return std::nullopt;
        }
        const std::size_t end = at + 2 + size;
        at += 2;
        bytes out;
        if (header < 0x8000) {
            if (size != 4096) {
                return std::nullopt;
            }
            out.assign(stored.begin() + static_cast<std::ptrdiff_t>(at),
                       stored.begin() + static_cast<std::ptrdiff_t>(end));
            at = end;
        }
        while (at < end) {
            const unsigned flags = byte(at++);
            for (unsigned item = 0; item < 8 && at < end; ++item) {
                if ((flags >> item) % 2 == 0) {
                    if (out.size() == 4096) {
                        return std::nullopt;
                    }
                    out.push_back(stored[at++]);
                    continue;
                }
                if (end - at < 2 || out.empty()) {
                    return std::nullopt;
                }
                const unsigned token = byte(at) + 256 * byte(at + 1);
                at += 2;
                unsigned length_bits = 12;
                for (std::size_t limit = 16; limit < out.size(); limit *= 2) {
                    --length_bits;
                }
                const std::size_t back = (token >> length_bits) + 1;
                const std::size_t length = token % (1u << length_bits) + 3;
                if (back > out.size() || out.size() + length > 4096) {
                    return std::nullopt;
                }
                for (std::size_t i = 0; i < length; ++i) {
                    out.push_back(out[out.size() - back]);
                }
            }
        }
        out.resize(4096);
        plain.insert(plain.end(), out.begin(), out.end());
    }
    plain.resize(wanted);
    return plain;
}

}  // namespace quarry::test
