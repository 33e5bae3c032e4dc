#include "exact/lznt1_unit.h"

#include "volume/lznt1.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace quarry::exact {

namespace {

constexpr std::size_t items_of_group = 8;
// Tokens are copied in pieces of this size where they repeat from no nearer than that; what is too much is
// overwritten by what follows.
constexpr std::size_t stride = 16;
static_assert(plain_chunk::room_behind >= stride);

constexpr unsigned header_size_mask = 0x0FFF;
constexpr unsigned header_mark_mask = 0x7000;
constexpr unsigned header_mark = 0x3000;
constexpr unsigned header_compressed = 0x8000;

// The payload of one compressed chunk.
class strict_chunk {
  public:
    // `plain` has room for a chunk and plain_chunk::room_behind bytes more.
    strict_chunk(byte_view payload, std::uint8_t* plain)
        : m_in(payload.data()), m_end(payload.data() + payload.size()), m_plain(plain) {}

    // The rule that the payload breaks; null if it is sound.
    const char* decode() {
        // Each turn takes the flag byte of a group.
        while (m_in < m_end) {
            const unsigned flags = *m_in++;
            if (const char* rule = decode_group(flags)) {
                return rule;
            }
        }
        return nullptr;
    }
    [[nodiscard]] std::size_t plain_size() const { return m_out; }

  private:
    // The items of a group, as many as the payload has.
    const char* decode_group(unsigned flags) {
        std::size_t items = items_of_group;
        // Each turn takes an item.
        while (items != 0 && m_in < m_end) {
            // The bit above the last item ends a row of literals.
            const auto literals = static_cast<std::size_t>(std::countr_zero(flags | (1u << items)));
            const char* rule = literals != 0 ? copy_literals(literals) : repeat();
            if (rule != nullptr) {
                return rule;
            }
            const std::size_t taken = std::max<std::size_t>(literals, 1);
            flags >>= taken;
            items -= taken;
        }
        return nullptr;
    }

    const char* copy_literals(std::size_t wanted) {
        const auto left = static_cast<std::size_t>(m_end - m_in);
        const std::size_t count = std::min(wanted, left);
        if (count > lznt1_chunk_size - m_out) {
            return "it has more than 4,096 bytes";
        }
        // A whole group of literals at once is faster than a count that varies.
        std::memcpy(m_plain + m_out, m_in, left >= items_of_group ? items_of_group : count);
        m_in += count;
        m_out += count;
        return nullptr;
    }

    const char* repeat() {
        if (m_end - m_in < 2) {
            return "its end cuts a token";
        }
        const unsigned token = m_in[0] | static_cast<unsigned>(m_in[1]) << 8;
        m_in += 2;
        m_split.move_to(m_out);
        const std::size_t back = m_split.back(token);
        const std::size_t length = m_split.length(token);
        if (back > m_out) {
            return "a token leads ahead of its chunk";
        }
        if (length > lznt1_chunk_size - m_out) {
            return "it has more than 4,096 bytes";
        }
        if (back >= stride && length <= stride) {
            std::memcpy(m_plain + m_out, m_plain + (m_out - back), stride);
        } else {
            repeat_any(back, length);
        }
        m_out += length;
        return nullptr;
    }

    // Byte by byte until what is repeated is long enough for strides.
    void repeat_any(std::size_t back, std::size_t length) {
        std::uint8_t* const to = m_plain + m_out;
        if (back == 1) {
            std::memset(to, to[-1], length);
            return;
        }
        // The nearest multiple of the distance that a stride does not reach over.
        const std::size_t distance = (stride + back - 1) / back * back;
        const std::size_t near = std::min(length, distance - back);
        for (std::size_t i = 0; i < near; ++i) {
            to[i] = to[static_cast<std::ptrdiff_t>(i) - static_cast<std::ptrdiff_t>(back)];
        }
        for (std::size_t i = near; i < length; i += stride) {
            std::memcpy(to + i, to + i - distance, stride);
        }
    }

    const std::uint8_t* m_in;
    const std::uint8_t* m_end;
    std::uint8_t* m_plain;
    std::size_t m_out = 0;
    token_split m_split;
};

void fill_zeros(std::span<std::uint8_t> bytes) {
    std::fill(bytes.begin(), bytes.end(), std::uint8_t{0});
}

// The chunks of one unit.
class strict_unit {
  public:
    strict_unit(byte_view stored, std::span<std::uint8_t> plain) : m_stored(stored), m_rest(plain) {}

    // The rule that chunk() breaks; null if the unit is sound.
    const char* decode() {
        // Each turn takes a chunk, or is the last.
        while (!m_rest.empty()) {
            if (m_stored.size() < 2 || m_stored.u16_or_zero(0) == 0) {
                fill_zeros(m_rest);
                return nullptr;
            }
            if (const char* rule = take_chunk(m_stored.u16_or_zero(0))) {
                return rule;
            }
            m_rest = m_rest.subspan(std::min(m_rest.size(), lznt1_chunk_size));
            ++m_chunk;
        }
        return nullptr;
    }
    [[nodiscard]] std::uint64_t chunk() const { return m_chunk; }
    [[nodiscard]] std::optional<std::uint64_t> short_chunk() const { return m_short_chunk; }

  private:
    const char* take_chunk(unsigned header) {
        if ((header & header_mark_mask) != header_mark) {
            return "its header has no mark";
        }
        const std::size_t size = (header & header_size_mask) + 1;
        const std::optional<byte_view> payload = m_stored.sub(2, size);
        if (!payload) {
            return "it reaches past the stored clusters";
        }
        m_stored = m_stored.from(2 + size);
        if ((header & header_compressed) != 0) {
            return take_compressed(*payload);
        }
        if (size != lznt1_chunk_size) {
            return "it is stored as it is and has not 4,096 bytes";
        }
        std::copy_n(payload->data(), std::min(size, m_rest.size()), m_rest.data());
        return nullptr;
    }

    const char* take_compressed(byte_view payload) {
        const bool in_place = m_rest.size() >= m_chunk_room.storage.size();
        std::uint8_t* const plain = in_place ? m_rest.data() : m_chunk_room.storage.data();
        strict_chunk chunk(payload, plain);
        if (const char* rule = chunk.decode()) {
            return rule;
        }
        const std::size_t wanted = std::min(m_rest.size(), lznt1_chunk_size);
        const std::size_t decoded = std::min(wanted, chunk.plain_size());
        if (!in_place) {
            std::copy_n(plain, decoded, m_rest.data());
        }
        if (decoded < wanted) {
            fill_zeros(m_rest.subspan(decoded, wanted - decoded));
            m_short_chunk = m_short_chunk ? m_short_chunk : m_chunk;
        }
        return nullptr;
    }

    byte_view m_stored;              // from the next header on
    std::span<std::uint8_t> m_rest;  // from the next chunk on
    std::uint64_t m_chunk = 0;
    std::optional<std::uint64_t> m_short_chunk;
    plain_chunk m_chunk_room;
};

}  // namespace

result<std::optional<std::uint64_t>> decode_lznt1_unit(byte_view stored, std::span<std::uint8_t> plain,
                                                       const std::string& where, std::uint64_t unit) {
    strict_unit decoder(stored, plain);
    if (const char* rule = decoder.decode()) {
        return fail(failure_code::unit, where::chunk(where::unit(where, unit), decoder.chunk()), rule);
    }
    return decoder.short_chunk();
}

}  // namespace quarry::exact
