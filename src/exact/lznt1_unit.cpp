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
static_assert(plain_chunk::room_after >= stride);

constexpr unsigned header_size_mask = 0x0FFF;
constexpr unsigned header_mark_mask = 0x7000;
constexpr unsigned header_mark = 0x3000;
constexpr unsigned header_compressed = 0x8000;

// Repeats `length` bytes from `back` bytes ahead of `to`, and up to a stride more.
void repeat(std::uint8_t* to, std::size_t back, std::size_t length) {
    if (back >= stride && length <= stride) {
        std::memcpy(to, to - back, stride);
        return;
    }
    if (back == 1) {
        std::memset(to, to[-1], length);
        return;
    }
    // Byte by byte until what is repeated is as long as a stride: the nearest multiple of the distance that a
    // stride does not reach over.
    const std::size_t distance = (stride + back - 1) / back * back;
    const std::size_t in_bytes = std::min(length, distance - back);
    for (std::size_t i = 0; i < in_bytes; ++i) {
        to[i] = *(to + i - back);
    }
    for (std::size_t i = in_bytes; i < length; i += stride) {
        std::memcpy(to + i, to + i - distance, stride);
    }
}

// A place in a payload and in the chunk that it decodes to.
struct place_in_chunk {
    const std::uint8_t* in;
    std::size_t out = 0;
    std::size_t items = 0;  // of the group, still to come
    unsigned flags = 0;     // theirs, the next one lowest

    void begin_group() {
        flags = *in++;
        items = items_of_group;
    }
    // Literals up to the next token or the end of the group; the bit above the last item ends the row.
    [[nodiscard]] std::size_t literals() const {
        return static_cast<std::size_t>(std::countr_zero(flags | (1u << items)));
    }
    void pass_literals(std::size_t count, std::size_t bytes) {
        in += bytes;
        out += bytes;
        flags >>= count;
        items -= count;
    }
    [[nodiscard]] unsigned token() const { return in[0] | static_cast<unsigned>(in[1]) << 8; }
    void pass_token(std::size_t length) {
        in += 2;
        out += length;
        flags >>= 1;
        --items;
    }
};

// Takes items as long as none of them needs a closer look, which is most of a text: not near the start of the
// chunk, nor near the end of the payload or of the chunk, tokens that split as at the start, repeats from no
// nearer than a stride. `split` is that of the place. Nothing is tested twice: what is not taken here is left
// to decode_payload.
place_in_chunk take_ordinary_items(place_in_chunk at, const std::uint8_t* end, std::uint8_t* plain,
                                   const token_split split) {
    // A flag byte, eight tokens, and a copy of eight literals from the last of them on.
    constexpr std::ptrdiff_t longest_group = 1 + 2 * items_of_group + items_of_group;
    const std::size_t last_out = std::min(split.last_position(), lznt1_chunk_size - stride);
    if (end - at.in < longest_group || at.out < stride) {
        return at;
    }
    // Each turn takes a row of literals and the token after it, or is the last.
    while (at.out + items_of_group <= last_out) {
        if (at.items == 0) {
            if (end - at.in < longest_group) {
                break;
            }
            at.begin_group();
        }
        std::memcpy(plain + at.out, at.in, items_of_group);
        const std::size_t literals = at.literals();
        at.pass_literals(literals, literals);
        if (at.items == 0) {
            continue;
        }
        const std::size_t back = split.back(at.token());
        const std::size_t length = split.length(at.token());
        // Too near and ahead of the chunk in one comparison: what is too near wraps.
        if (back - stride > at.out - stride) {
            break;
        }
        std::memcpy(plain + at.out, plain + (at.out - back), stride);
        if (length > stride) {
            if (length > last_out - at.out) {
                break;
            }
            for (std::size_t done = stride; done < length; done += stride) {
                std::memcpy(plain + at.out + done, plain + (at.out + done - back), stride);
            }
        }
        at.pass_token(length);
    }
    return at;
}

// Decodes the payload of a compressed chunk into `plain`, which has room for a chunk and
// plain_chunk::room_after bytes more. The rule that it breaks, or null; `plain_size` is set after null.
const char* decode_payload(byte_view payload, std::uint8_t* const plain, std::size_t& plain_size) {
    const std::uint8_t* const end = payload.data() + payload.size();
    place_in_chunk at{payload.data()};
    token_split split;
    // Each turn takes a byte of the payload or more: the flags of a group, or a row of literals and the token
    // after it.
    while (at.in != end) {
        split.move_to(at.out);
        at = take_ordinary_items(at, end, plain, split);
        if (at.items == 0) {
            at.begin_group();
        }
        const std::size_t literals = at.literals();
        const std::size_t taken = std::min(literals, static_cast<std::size_t>(end - at.in));
        if (taken > lznt1_chunk_size - at.out) {
            return "it has more than 4,096 bytes";
        }
        std::copy_n(at.in, taken, plain + at.out);
        at.pass_literals(literals, taken);
        if (at.items == 0 || at.in == end) {
            continue;
        }
        if (end - at.in < 2) {
            return "its end cuts a token";
        }
        split.move_to(at.out);
        const std::size_t back = split.back(at.token());
        const std::size_t length = split.length(at.token());
        if (back > at.out) {
            return "a token leads ahead of its chunk";
        }
        if (length > lznt1_chunk_size - at.out) {
            return "it has more than 4,096 bytes";
        }
        repeat(plain + at.out, back, length);
        at.pass_token(length);
    }
    plain_size = at.out;
    return nullptr;
}

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
        std::size_t plain_size = 0;
        if (const char* rule = decode_payload(payload, plain, plain_size)) {
            return rule;
        }
        const std::size_t wanted = std::min(m_rest.size(), lznt1_chunk_size);
        const std::size_t decoded = std::min(wanted, plain_size);
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
