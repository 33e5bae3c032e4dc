#include "exact/lzx.h"

#include "exact/chunk_rule.h"
#include "exact/match_copy.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace quarry::exact {

namespace {

enum block_type : unsigned { verbatim_block = 1, aligned_block = 2, stored_block = 3 };

constexpr unsigned slots = 30;
constexpr unsigned recent_slots = 3;
constexpr unsigned match_length_mask = 7;
constexpr unsigned slot_shift = 3;
constexpr unsigned shortest_match = 2;
constexpr unsigned aligned_bits = 3;
constexpr unsigned longest_code = 16;

// The extra bits of a slot, and the distance without them.
struct slot_range {
    std::uint8_t extra_bits = 0;
    std::uint16_t distance = 0;
};

constexpr std::array<slot_range, slots> slot_ranges = [] {
    // Distances are stored with 2 added, so that the first slots are free for the last three.
    constexpr unsigned added = 2;
    std::array<slot_range, slots> ranges{};
    unsigned base = recent_slots;
    for (unsigned slot = recent_slots; slot < slots; ++slot) {
        const unsigned extra = slot == recent_slots ? 0 : (slot - 2) / 2;
        ranges[slot] = {static_cast<std::uint8_t>(extra), static_cast<std::uint16_t>(base - added)};
        base += 1u << extra;
    }
    return ranges;
}();
static_assert(slot_ranges[3].distance == 1 && slot_ranges[4].distance == 2 && slot_ranges[6].distance == 6);
static_assert(slot_ranges[29].distance == 24574 && slot_ranges[29].extra_bits == 13);

// Reads the header of a block up to its size.
struct block_header {
    unsigned type = 0;
    std::size_t size = 0;

    static block_header read(bit_words& bits) {
        constexpr unsigned type_bits = 3;
        constexpr std::size_t usual_size = 32768;
        block_header header;
        header.type = bits.fetch(type_bits);
        header.size = bits.fetch(1) == 1 ? usual_size : bits.fetch(16);
        return header;
    }
};

std::uint32_t u32_at(std::span<const std::uint8_t> bytes, std::size_t at) {
    return low_32_bits(byte_view(bytes).u32_or_zero(at));
}

void store_u32(std::span<std::uint8_t> bytes, std::size_t at, std::uint32_t value) {
    store_u16(bytes, at, static_cast<std::uint16_t>(value & 0xFFFF));
    store_u16(bytes, at + 2, static_cast<std::uint16_t>(value >> 16));
}

constexpr std::uint8_t x86_call = 0xE8;

// The next call; the end if there is none.
std::uint8_t* find_call(std::uint8_t* from, std::uint8_t* end) {
    void* const found = std::memchr(from, x86_call, static_cast<std::size_t>(end - from));
    return found == nullptr ? end : static_cast<std::uint8_t*>(found);
}

// Calls of x86 programs (E8 and a target of 32 bits) were stored with absolute targets, counted from the
// start of the chunk, so that calls of one routine are alike. Makes them relative to their own place again.
void restore_calls(std::span<std::uint8_t> plain) {
    constexpr std::size_t call_size = 5;
    constexpr std::size_t never_calls = 10;  // at the end of a chunk
    constexpr std::int32_t claimed_size = 12000000;
    if (plain.size() <= never_calls) {
        return;
    }
    std::uint8_t* const end = plain.data() + (plain.size() - never_calls);
    std::uint8_t* at = plain.data();
    // Each turn passes a call or is the last.
    while ((at = find_call(at, end)) != end) {
        const auto place = static_cast<std::size_t>(at - plain.data());
        const auto distance = static_cast<std::int32_t>(place);
        const auto target = static_cast<std::int32_t>(u32_at(plain, place + 1));
        if (target >= 0 && target < claimed_size) {
            store_u32(plain, place + 1, static_cast<std::uint32_t>(target - distance));
        } else if (target < 0 && target >= -distance) {
            store_u32(plain, place + 1, static_cast<std::uint32_t>(target + claimed_size));
        }
        at += std::min<std::ptrdiff_t>(call_size, end - at);
    }
}

}  // namespace

// The lengths of one row of symbols, each run of them as its difference from what it was in the block before.
const char* lzx_decoder::read_lengths(bit_words& bits, std::span<std::uint8_t> lengths) {
    enum : unsigned { short_zeros = 17, long_zeros = 18, repeated = 19 };
    constexpr unsigned pre_length_bits = 4;
    constexpr const char* no_pre_code = "its code for code lengths is not complete";
    std::array<std::uint8_t, pre_symbols> pre_lengths;
    for (std::uint8_t& length : pre_lengths) {
        length = static_cast<std::uint8_t>(bits.fetch(pre_length_bits));
    }
    if (m_pre.build(pre_lengths) != code_kind::complete) {
        return no_pre_code;
    }
    const auto changed = [](unsigned old, unsigned symbol) {
        return static_cast<std::uint8_t>((old + longest_code + 1 - symbol) % (longest_code + 1));
    };
    // Each turn sets one length or more.
    for (std::size_t at = 0; at < lengths.size();) {
        bits.fill();
        const unsigned symbol = m_pre.read(bits);
        if (symbol <= longest_code) {
            lengths[at] = changed(lengths[at], symbol);
            ++at;
            continue;
        }
        std::size_t count = 0;
        std::uint8_t length = 0;
        if (symbol == repeated) {
            count = 4 + bits.take(1);
            const unsigned of_all = m_pre.read(bits);
            if (of_all > longest_code) {
                return "a repeated code length is none";
            }
            length = changed(lengths[at], of_all);
        } else {
            count = symbol == short_zeros ? 4 + bits.take(4) : 20 + bits.take(5);
        }
        if (count > lengths.size() - at) {
            return "it has more code lengths than symbols";
        }
        std::fill_n(lengths.begin() + static_cast<std::ptrdiff_t>(at), count, length);
        at += count;
    }
    return nullptr;
}

const char* lzx_decoder::read_codes(bit_words& bits, bool aligned) {
    m_has_aligned_code = false;
    if (aligned) {
        std::array<std::uint8_t, aligned_symbols> lengths;
        for (std::uint8_t& length : lengths) {
            length = static_cast<std::uint8_t>(bits.fetch(3));
        }
        const code_kind kind = m_aligned.build(lengths);
        if (kind == code_kind::wrong) {
            return "its code for the low bits of distances is not complete";
        }
        m_has_aligned_code = kind == code_kind::complete;
    }
    const std::span main_lengths(m_main_lengths);
    const char* rule = read_lengths(bits, main_lengths.first(byte_symbols));
    rule = rule == nullptr ? read_lengths(bits, main_lengths.subspan(byte_symbols)) : rule;
    rule = rule == nullptr ? read_lengths(bits, m_length_lengths) : rule;
    if (rule != nullptr) {
        return rule;
    }
    if (m_main.build(m_main_lengths) != code_kind::complete) {
        return "its main code is not complete";
    }
    const code_kind kind = m_length.build(m_length_lengths);
    m_has_length_code = kind == code_kind::complete;
    return kind == code_kind::wrong ? "its code for lengths is not complete" : nullptr;
}

std::size_t lzx_decoder::recent_distance(unsigned slot) {
    std::swap(m_recent[0], m_recent[slot]);
    return m_recent[0];
}

void lzx_decoder::keep_distance(std::size_t distance) {
    m_recent = {distance, m_recent[0], m_recent[1]};
}

// Decodes bytes [begin, end) of the chunk.
const char* lzx_decoder::decode_block(bit_words& bits_of_chunk, std::span<std::uint8_t> plain,
                                      std::size_t begin, std::size_t end, bool aligned) {
    bit_words bits = bits_of_chunk;  // a copy, which no byte that is written can change
    const auto ended = [&](const char* rule) {
        bits_of_chunk = bits;
        return rule;
    };
    // Each turn decodes a byte or more.
    for (std::size_t at = begin; at < end;) {
        // A main symbol, a length and the extra bits of a distance are 16 + 16 + 13 bits at most, or
        // 16 + 16 + 10 + 7.
        bits.fill();
        unsigned symbol = m_main.read(bits);
        if (symbol < byte_symbols) {
            plain[at++] = static_cast<std::uint8_t>(symbol);
            if (at == end) {
                break;
            }
            symbol = m_main.read(bits);
            if (symbol < byte_symbols) {
                plain[at++] = static_cast<std::uint8_t>(symbol);
                continue;
            }
            bits.fill();
        }
        const unsigned match = symbol - unsigned{byte_symbols};
        std::size_t length = match & match_length_mask;
        if (length == match_length_mask) {
            if (!m_has_length_code) {
                return ended("a length is read by an empty code");
            }
            length += m_length.read(bits);
        }
        length += shortest_match;
        const unsigned slot = match >> slot_shift;
        std::size_t distance = 0;
        if (slot < recent_slots) {
            distance = recent_distance(slot);
        } else {
            const slot_range range = slot_ranges[slot];
            if (aligned && range.extra_bits >= aligned_bits) {
                if (!m_has_aligned_code) {
                    return ended("a distance is read by an empty code");
                }
                distance = range.distance +
                           (std::size_t{bits.take(range.extra_bits - aligned_bits)} << aligned_bits);
                bits.fill();
                distance += m_aligned.read(bits);
            } else {
                distance = range.distance + std::size_t{bits.take(range.extra_bits)};
            }
            keep_distance(distance);
        }
        if (distance > at) {
            return ended("a match leads ahead of its chunk");
        }
        if (length > end - at) {
            return ended("a match reaches past the end of its block");
        }
        copy_match(plain, at, distance, length);
        at += length;
    }
    return ended(nullptr);
}

// The bytes of a stored block; `place` is the byte of the chunk at which it goes on.
const char* lzx_decoder::copy_stored(byte_view stored, std::size_t& place, std::span<std::uint8_t> to) {
    constexpr std::size_t distance_bytes = 4;
    for (std::size_t i = 0; i < m_recent.size(); ++i) {
        const auto distance = stored.u32(place + distance_bytes * i);
        if (!distance) {
            return ends_early;
        }
        if (*distance == 0) {
            return "a stored block has a distance of 0";
        }
        m_recent[i] = *distance;
    }
    place += distance_bytes * m_recent.size();
    const auto bytes = stored.sub(place, to.size());
    if (!bytes) {
        return ends_early;
    }
    std::memcpy(to.data(), bytes->data(), to.size());
    place += to.size() + to.size() % 2;
    return nullptr;
}

const char* lzx_decoder::decode_all(byte_view stored, std::span<std::uint8_t> plain) {
    m_recent = {1, 1, 1};
    m_main_lengths = {};
    m_length_lengths = {};
    bit_words bits(stored, 0);
    // Each turn decodes a block, which has a byte or more.
    for (std::size_t at = 0; at < plain.size();) {
        const block_header block = block_header::read(bits);
        if (bits.overran()) {
            return ends_early;
        }
        if (block.type < verbatim_block || block.type > stored_block) {
            return "a block has no type that there is";
        }
        if (block.size == 0 || block.size > plain.size() - at) {
            return "a block is empty or reaches past the end of its chunk";
        }
        const char* rule = nullptr;
        if (block.type == stored_block) {
            std::size_t place = bits.leave_word();
            rule = copy_stored(stored, place, plain.subspan(at, block.size));
            bits = bit_words(stored, place);
        } else {
            const bool aligned = block.type == aligned_block;
            rule = read_codes(bits, aligned);
            rule = rule == nullptr ? decode_block(bits, plain, at, at + block.size, aligned) : rule;
            rule = bits.overran() ? ends_early : rule;
        }
        if (rule != nullptr) {
            return rule;
        }
        at += block.size;
    }
    restore_calls(plain);
    return nullptr;
}

result<void> lzx_decoder::decode(byte_view stored, std::span<std::uint8_t> plain, const std::string& where,
                                 std::uint64_t number) {
    return unless_broken(decode_all(stored, plain), where, number);
}

}  // namespace quarry::exact
