#include "volume/compressed_unit.h"

#include "volume/lznt1.h"

#include <algorithm>
#include <array>
#include <utility>

namespace quarry {

namespace {

constexpr std::uint64_t block_size = lznt1_chunk_size;
constexpr std::uint64_t header_size = 2;
// A header, a payload, and the second byte of a token that begins on its last byte.
constexpr std::uint64_t longest_chunk = header_size + lznt1_chunk_size + 1;

class chunk_header {
  public:
    explicit chunk_header(std::uint16_t bits) : m_bits(bits) {}
    [[nodiscard]] bool is_compressed() const { return (m_bits & 0x8000) != 0; }
    [[nodiscard]] std::uint64_t payload_size() const { return size_less_3() + 1u; }
    [[nodiscard]] bool is_stored_block() const { return !is_compressed() && size_less_3() == 0xFFF; }
    [[nodiscard]] bool ends_block() const { return !is_compressed() && size_less_3() == 0; }

  private:
    [[nodiscard]] unsigned size_less_3() const { return m_bits & 0xFFFu; }
    std::uint16_t m_bits;
};

// A number of which the bytes past the view count as zeros.
std::uint16_t u16_before_zeros(byte_view bytes, std::uint64_t offset) {
    return static_cast<std::uint16_t>(bytes.u8_or_zero(offset) | (bytes.u8_or_zero(offset + 1) << 8));
}

bool any_byte_set(byte_view bytes) {
    return std::any_of(bytes.span().begin(), bytes.span().end(), [](std::uint8_t byte) { return byte != 0; });
}

// The last 4096 bytes of the unit, or all of a shorter one.
byte_view last_block(unit_bytes& unit) {
    const std::uint64_t size = std::min(unit.size(), block_size);
    return unit.from(unit.size() - size, size).clipped(0, size);
}

bool last_block_is_zero(unit_bytes& unit) {
    return !any_byte_set(last_block(unit));
}

// Samples four words of the last block; of a unit shorter than a block, those bytes that exist.
bool is_plain_by_tail(unit_bytes& unit) {
    constexpr std::array<std::int64_t, 4> sampled{0, 8, 0x200, 0x400};
    const byte_view block = last_block(unit);
    const std::int64_t missing = static_cast<std::int64_t>(block_size - block.size());
    for (const std::int64_t sample : sampled) {
        const std::int64_t begin = std::max<std::int64_t>(sample - missing, 0);
        const std::int64_t end = std::max<std::int64_t>(sample + 8 - missing, begin);
        if (any_byte_set(
                block.clipped(static_cast<std::uint64_t>(begin), static_cast<std::uint64_t>(end - begin)))) {
            return true;
        }
    }
    return unit.size() == block_size;
}

bool is_plain(unit_bytes& unit, std::uint32_t flags) {
    // Deliberate: a unit without sparse clusters is not always uncompressed. The header of a stored chunk at
    // its start makes it a unit of chunks. An uncompressed unit that happens to begin with these two bytes
    // reaches the user decoded wrongly.
    const byte_view head = unit.from(0, header_size);
    if (head.u8_or_zero(0) == 0xFF && head.u8_or_zero(1) == 0x3F) {
        return false;
    }
    if ((flags & unit_judge_by_tail) != 0) {
        return is_plain_by_tail(unit);
    }
    return (flags & unit_judge_by_sparse) != 0 && (flags & unit_met_sparse) == 0;
}

// Hands out pieces of decompressed bytes and counts them.
class plain_bytes {
  public:
    plain_bytes(unit_output& output, std::uint64_t& written, std::uint64_t limit)
        : m_output(output), m_written(written), m_left(limit) {}

    // As many of the bytes as the limit still allows; the answer is how many these were.
    std::uint64_t give(byte_view bytes) {
        const byte_view piece = bytes.clipped(0, m_left);
        m_written += piece.size();
        m_left -= piece.size();
        if (!piece.empty()) {
            m_output.take(piece);
        }
        return piece.size();
    }

    // The whole unit, as far as the limit allows.
    void give_all(unit_bytes& unit) {
        // Each turn gives a byte at least, or is the last.
        for (std::uint64_t at = 0; at < unit.size() && m_left != 0;) {
            at += give(unit.from(at, 1));
        }
    }

  private:
    unit_output& m_output;
    std::uint64_t& m_written;
    std::uint64_t m_left;
};

// What becomes of a unit whose chunks make no sense.
//
// Deliberate: the unit does not fail, and its raw bytes do not replace its chunks. If its last 4096 bytes are
// not all zeros it is taken for an uncompressed one after all, and its raw bytes follow the chunks that were
// given out already. The user sees both.
bool rescue(unit_bytes& unit, plain_bytes& plain) {
    if (last_block_is_zero(unit)) {
        return false;
    }
    plain.give_all(unit);
    return true;
}

bool walk_chunks(unit_bytes& unit, plain_bytes& plain) {
    std::array<plain_chunk, 2> chunks;
    plain_chunk* before = &chunks[0];
    plain_chunk* current = &chunks[1];
    std::uint64_t position = 0;
    // Each turn moves on by two bytes at least.
    //
    // Deliberate: the walk does not end when the limit is used up. The chunks after it still decide whether
    // the unit could be decoded, so damage past the end of a file can cost the user its
    // last unit.
    while (position < unit.size()) {
        const byte_view chunk = unit.from(position, longest_chunk);
        const chunk_header header(u16_before_zeros(chunk, 0));
        const byte_view payload = chunk.from(header_size);
        if (header.is_compressed()) {
            if (!decompress_chunk(payload, header.payload_size(), *before, *current)) {
                return rescue(unit, plain);
            }
            plain.give(current->bytes());
            std::swap(before, current);
            position += header_size + header.payload_size();
        } else if (header.is_stored_block()) {
            // Deliberate: the walk goes on after the part of the block that was given, not after the block.
            // Where the limit cuts a block its rest is read as chunk headers. It is zeros as a rule, which
            // end the block; anything else may cost the user the unit.
            position += header_size + plain.give(payload.clipped(0, block_size));
        } else if (header.ends_block()) {
            position = (position / block_size + 1) * block_size;
        } else {
            return rescue(unit, plain);
        }
    }
    return true;
}

// A unit that is in memory.
class held_unit : public unit_bytes {
  public:
    explicit held_unit(byte_view bytes) : m_bytes(bytes) {}
    [[nodiscard]] std::uint64_t size() const override { return m_bytes.size(); }
    [[nodiscard]] byte_view from(std::uint64_t offset, std::uint64_t /*least*/) override {
        return m_bytes.from(offset);
    }

  private:
    byte_view m_bytes;
};

}  // namespace

bool decompress_unit(unit_output& output, std::uint64_t& written, byte_view unit, std::uint64_t limit,
                     std::uint32_t flags) {
    held_unit held(unit);
    return decompress_unit(output, written, held, limit, flags);
}

bool decompress_unit(unit_output& output, std::uint64_t& written, unit_bytes& unit, std::uint64_t limit,
                     std::uint32_t flags) {
    written = 0;
    if (unit.size() == 0 || limit == 0) {
        return false;
    }
    plain_bytes plain(output, written, limit);
    if (is_plain(unit, flags)) {
        plain.give_all(unit);
        return true;
    }
    return walk_chunks(unit, plain);
}

}  // namespace quarry
