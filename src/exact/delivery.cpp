#include "exact/delivery.h"

#include <algorithm>
#include <array>

namespace quarry::exact {

namespace {

// Bytes that are read before they are handed on. Larger blocks leave the processor's caches.
constexpr std::size_t block_bytes = 0x40000;
static_assert(block_bytes <= largest_block);

// Pieces in which a failed read is repeated; the last is the smallest sector there is.
constexpr std::array<std::uint64_t, 3> retry_steps = {0x10000, 0x1000, 512};

// Bytes of a stream that are collected until a block is full.
class block_buffer {
  public:
    block_buffer(careful_reader& reader, stream_sink& sink, std::uint64_t most)
        : m_reader(&reader),
          m_sink(&sink),
          m_bytes(static_cast<std::size_t>(std::min<std::uint64_t>(block_bytes, most))) {}

    // Takes bytes that are stored in one row.
    [[nodiscard]] result<void> take(std::uint64_t offset, std::uint64_t source_byte, std::uint64_t length) {
        for (std::uint64_t done = 0; done < length;) {
            const auto part =
                static_cast<std::size_t>(std::min<std::uint64_t>(length - done, m_bytes.size() - m_filled));
            const std::span<std::uint8_t> room = std::span(m_bytes).subspan(m_filled, part);
            if (result<void> came = m_reader->read(room, offset + done, source_byte + done); !came) {
                return came;
            }
            m_filled += part;
            done += part;
            if (m_filled == m_bytes.size()) {
                if (result<void> taken = hand_on(); !taken) {
                    return taken;
                }
            }
        }
        return {};
    }

    [[nodiscard]] result<void> hand_on() {
        if (m_filled == 0) {
            return {};
        }
        const byte_view block(m_bytes.data(), m_filled);
        m_filled = 0;
        return m_sink->data(block);
    }

  private:
    careful_reader* m_reader;
    stream_sink* m_sink;
    std::vector<std::uint8_t> m_bytes;
    std::size_t m_filled = 0;
};

// Clusters of runs that lie side by side on the volume, or of holes, from the run `at` on.
run joined_run(const std::vector<run>& runs, std::size_t& at) {
    run joined = runs[at++];
    while (at < runs.size()) {
        const run& next = runs[at];
        const bool continues = joined.is_hole() ? next.is_hole() : next.lcn == joined.lcn + joined.length;
        if (!continues) {
            break;
        }
        joined.length += next.length;
        ++at;
    }
    return joined;
}

}  // namespace

result<void> careful_reader::read(std::span<std::uint8_t> buffer, std::uint64_t offset,
                                  std::uint64_t source_byte) {
    announce_from(offset);
    result<void> came = m_volume->source().read(buffer, source_byte);
    if (came) {
        return came;
    }
    if (!m_zero_unreadable) {
        return tl::make_unexpected(m_stream->placed(std::move(came.error()), offset, source_byte));
    }
    // The source may end inside of a sector: its last bytes are there to be read.
    const std::uint64_t source_size = m_volume->source().size();
    const auto stored = static_cast<std::size_t>(
        std::min<std::uint64_t>(buffer.size(), source_byte < source_size ? source_size - source_byte : 0));
    read_in_pieces(buffer.first(stored), offset, source_byte, 0);
    if (stored < buffer.size()) {
        lose(buffer.subspan(stored), offset + stored);
    }
    return {};
}

void careful_reader::read_in_pieces(std::span<std::uint8_t> buffer, std::uint64_t offset,
                                    std::uint64_t source_byte, std::size_t step) {
    // Each turn takes up to the next multiple of the step on the source.
    while (!buffer.empty()) {
        const std::uint64_t to_multiple = retry_steps[step] - source_byte % retry_steps[step];
        const std::span<std::uint8_t> piece =
            buffer.first(static_cast<std::size_t>(std::min<std::uint64_t>(to_multiple, buffer.size())));
        if (!m_volume->source().read(piece, source_byte)) {
            if (step + 1 < retry_steps.size()) {
                read_in_pieces(piece, offset, source_byte, step + 1);
            } else {
                lose(piece, offset);
            }
        }
        buffer = buffer.subspan(piece.size());
        offset += piece.size();
        source_byte += piece.size();
    }
}

void careful_reader::lose(std::span<std::uint8_t> bytes, std::uint64_t offset) {
    std::fill(bytes.begin(), bytes.end(), std::uint8_t{0});
    note_unread(offset, bytes.size());
}

void careful_reader::note_unread(std::uint64_t offset, std::uint64_t length) {
    if (!m_unread.empty() && m_unread.back().offset + m_unread.back().length == offset) {
        m_unread.back().length += length;
    } else {
        m_unread.push_back({offset, length});
    }
}

result<void> deliver_stored(const volume_bytes& volume, const stored_stream& stream, std::uint64_t end,
                            careful_reader& reader, stream_sink& sink) {
    if (stream.resident()) {
        return end == 0 ? result<void>() : sink.data(stream.value());
    }
    const std::uint64_t cluster_size = volume.shape().cluster_size;
    const std::vector<run>& runs = stream.runs().runs();
    block_buffer buffer(reader, sink, end);
    std::uint64_t offset = 0;
    // Each turn takes a run or several; the runs reach as far as the allocated size.
    for (std::size_t at = 0; offset < end;) {
        const run part = joined_run(runs, at);
        const std::uint64_t length = std::min(part.length * cluster_size, end - offset);
        result<void> taken;
        if (!part.is_hole()) {
            taken = buffer.take(offset, volume.shape().source_byte_of(part.lcn), length);
        } else if (taken = buffer.hand_on(); taken) {
            taken = sink.zeros(length);
        }
        if (!taken) {
            return taken;
        }
        offset += length;
    }
    return buffer.hand_on();
}

}  // namespace quarry::exact
