#include "volume/lznt1.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace quarry {

namespace {

// Up to this claimed size a payload is too short to say anything of the rest of its chunk.
constexpr std::size_t longest_payload_on_zeros = 8;

constexpr std::size_t items_per_group = 8;
// Most tokens of a text repeat no more bytes than a stride has, from no nearer than a stride back. They and
// the literals ahead of them are copied in one piece each; what is too much is overwritten by what follows.
constexpr std::size_t stride = 16;
static_assert(plain_chunk::room_after >= stride, "a stride may begin at the last byte of a chunk");

void copy_stride(std::uint8_t* to, const std::uint8_t* from) {
    std::memcpy(to, from, stride);
}

class chunk_decoder {
  public:
    chunk_decoder(byte_view bytes, std::size_t size, std::uint8_t* plain)
        : m_bytes(bytes), m_size(size), m_plain(plain) {}

    // False for a token that leads ahead of the chunk.
    bool decode() {
        // Ends at the end of the payload or with the chunk full: each turn takes an item or a flag byte.
        while (m_in < m_size && m_out < lznt1_chunk_size) {
            if (m_items == 0) {
                begin_group();
            } else if (!take_item()) {
                return false;
            }
            take_strides();
        }
        return true;
    }
    [[nodiscard]] std::size_t plain_size() const { return m_out; }

  private:
    void begin_group() {
        m_flags = m_bytes.u8_or_zero(m_in++);
        m_items = items_per_group;
    }

    // One item with every test.
    bool take_item() {
        if ((m_flags & 1) == 0) {
            m_plain[m_out++] = m_bytes.u8_or_zero(m_in++);
        } else {
            const unsigned token =
                m_bytes.u8_or_zero(m_in) | static_cast<unsigned>(m_bytes.u8_or_zero(m_in + 1)) << 8;
            const std::size_t back = m_split.back(token);
            if (back > m_out) {
                return false;
            }
            repeat(back, m_split.length(token));
            m_in += 2;
        }
        m_split.move_to(m_out);
        m_flags >>= 1;
        --m_items;
        return true;
    }

    // Repeats bytes up to the end of the chunk at most.
    void repeat(std::size_t back, std::size_t length) {
        const std::size_t end = std::min(m_out + length, lznt1_chunk_size);
        if (back == 1) {
            std::memset(m_plain + m_out, m_plain[m_out - 1], end - m_out);
            m_out = end;
            return;
        }
        // From near by, byte by byte until a multiple of the distance is far enough for strides.
        const std::size_t distance = (stride + back - 1) / back * back;
        for (const std::size_t near_end = std::min(end, m_out + distance - back); m_out < near_end; ++m_out) {
            m_plain[m_out] = m_plain[m_out - back];
        }
        for (; m_out < end; m_out += stride) {
            copy_stride(m_plain + m_out, m_plain + (m_out - distance));
        }
        m_out = end;
    }

    // Takes items as long as none of them needs a closer look: not the last ones of the payload, none at a
    // position where tokens begin to split differently, no repeat that is too near or ahead of the chunk.
    // What the loop reads and writes lies inside: `last_group` keeps a whole group of tokens and a stride
    // ahead of the end of the input, `last_position` a stride ahead of the end of the chunk.
    void take_strides() {
        constexpr std::size_t longest_group = 1 + 2 * items_per_group;
        const std::size_t end = std::min(m_size, m_bytes.size() - std::min(m_bytes.size(), stride));
        if (m_in + longest_group > end || m_out < stride) {
            return;
        }
        const std::uint8_t* const text = m_bytes.data();
        const std::size_t last_group = end - longest_group;
        const std::size_t last_position = std::min(m_split.last_position(), lznt1_chunk_size - stride);
        const token_split split = m_split;
        std::size_t in = m_in;
        std::size_t out = m_out;
        std::size_t items = m_items;
        unsigned flags = m_flags;
        // Each turn takes a flag byte or an item, or is the last.
        for (;;) {
            if (items == 0) {
                if (in > last_group) {
                    break;
                }
                flags = text[in++];
                items = items_per_group;
            }
            if (out + items_per_group > last_position) {
                break;
            }
            const auto literals = static_cast<std::size_t>(std::countr_zero(flags | (1u << items)));
            std::memcpy(m_plain + out, text + in, items_per_group);
            out += literals;
            in += literals;
            items -= literals;
            flags >>= literals;
            if (items == 0) {
                continue;
            }
            const unsigned token = text[in] | static_cast<unsigned>(text[in + 1]) << 8;
            const std::size_t back = split.back(token);
            const std::size_t length = split.length(token);
            // Too near and ahead of the chunk in one comparison: what is too near wraps.
            if (back - stride > out - stride) {
                break;
            }
            copy_stride(m_plain + out, m_plain + (out - back));
            if (length > stride) {
                if (length > last_position - out) {
                    break;
                }
                for (std::size_t done = stride; done < length; done += stride) {
                    copy_stride(m_plain + (out + done), m_plain + (out + done - back));
                }
            }
            out += length;
            in += 2;
            --items;
            flags >>= 1;
        }
        m_in = in;
        m_out = out;
        m_items = items;
        m_flags = flags;
        m_split.move_to(out);
    }

    byte_view m_bytes;
    std::size_t m_size;
    std::uint8_t* m_plain;
    std::size_t m_in = 0;
    std::size_t m_out = 0;
    std::size_t m_items = 0;  // of the group, still to come
    unsigned m_flags = 0;     // theirs, the next one lowest
    token_split m_split;
};

}  // namespace

bool split_token(std::uint16_t token, std::uint64_t position, std::uint32_t& offset_back,
                 std::uint32_t& length) {
    // Position 0 wraps to the largest number, whose split makes the offset 1: no token is valid there.
    const auto bits = static_cast<unsigned>(std::bit_width((position - 1) >> 4));
    offset_back = (std::uint32_t{token} >> ((12 - bits) % 32)) + 1;
    length = (token & (0xFFFu >> (bits % 32))) + 3;
    return offset_back <= position;
}

// Deliberate: the rest of a chunk that ends early is what the chunk before had there, not zeros. The user
// rarely sees it: only the last chunk of a file ends early as a rule, and the file's size cuts it off.
bool decompress_chunk(byte_view bytes, std::size_t size, const plain_chunk& before, plain_chunk& output) {
    chunk_decoder decoder(bytes, std::min(size, bytes.size()), output.storage.data());
    if (!decoder.decode()) {
        return false;
    }
    std::uint8_t* const rest = output.storage.data() + decoder.plain_size();
    const std::size_t rest_size = lznt1_chunk_size - decoder.plain_size();
    if (size <= longest_payload_on_zeros) {
        std::memset(rest, 0, rest_size);
    } else {
        std::memcpy(rest, before.storage.data() + decoder.plain_size(), rest_size);
    }
    return true;
}

}  // namespace quarry
