#include "volume/compressed_pump.h"

#include "volume/compressed_unit.h"
#include "volume/lznt1.h"
#include "volume/stream_reader.h"
#include "volume/transfer_unit.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

namespace quarry {

namespace {

static_assert(unit_met_sparse == stream_met_sparse && unit_judge_by_sparse == stream_was_read,
              "the flags of a read tell how to judge a unit");

// Holds the plain bytes of one unit until it is known that the unit could be made out.
class held_bytes : public unit_output {
  public:
    explicit held_bytes(std::size_t room) : m_bytes(room) {}
    void clear() {
        m_size = 0;
        m_overflowed = false;
    }
    void take(byte_view plain) override {
        if (m_overflowed || plain.size() > m_bytes.size() - m_size) {
            m_overflowed = true;
            return;
        }
        std::memcpy(m_bytes.data() + m_size, plain.data(), plain.size());
        m_size += plain.size();
    }
    [[nodiscard]] bool overflowed() const { return m_overflowed; }
    [[nodiscard]] byte_view bytes() const { return {m_bytes.data(), m_size}; }

  private:
    std::vector<std::uint8_t> m_bytes;
    std::size_t m_size = 0;
    bool m_overflowed = false;
};

class straight_to_sink : public unit_output {
  public:
    explicit straight_to_sink(stream_sink& sink) : m_sink(sink) {}
    void take(byte_view plain) override { m_sink.write(plain); }

  private:
    stream_sink& m_sink;
};

// Bytes of a unit's output that are held: what a sound unit can have. Chunks of three bytes can claim a
// thousand times as much, and memory must not follow them.
std::size_t room_for_unit(std::uint64_t unit) {
    return (unit + lznt1_chunk_size - 1) / lznt1_chunk_size * lznt1_chunk_size;
}

// Writes the plain bytes of a unit, or nothing at all if it cannot be made out or has none.
bool deliver_unit(stream_sink& sink, held_bytes& held, byte_view unit, std::uint64_t limit,
                  std::uint32_t flags) {
    std::uint64_t written = 0;
    held.clear();
    if (!decompress_unit(held, written, unit, limit, flags) || written == 0) {
        return false;
    }
    if (!held.overflowed()) {
        sink.write(held.bytes());
        return true;
    }
    // More than could be held, but sound: the same once more, now straight out.
    straight_to_sink straight(sink);
    return decompress_unit(straight, written, unit, limit, flags);
}

bool pump_units(CNtfs& ntfs, const cluster_run_list& runs, stream_sink& sink, std::uint64_t offset,
                std::uint64_t limit, std::uint64_t allocated) {
    const std::uint64_t unit = transfer_unit(ntfs);
    std::vector<std::uint8_t> buffer(unit);
    held_bytes held(room_for_unit(unit));
    stream_reader reader(ntfs, runs);
    const std::uint64_t tail = allocated > limit ? allocated - limit : 0;
    std::uint64_t left = limit;
    std::uint64_t position = offset;
    std::uint64_t length = unit;
    bool delivered = false;
    // Each turn moves on in the stream by what was read; the runs end it at the latest.
    while (!sink.has_failed()) {
        std::uint32_t flags = 0;
        if (!reader.read(position, buffer.data(), length, flags)) {
            return delivered;
        }
        // Deliberate: one would expect zeros for a unit without any cluster on disk. Such a unit gives
        // nothing, so the first hole of 16 clusters ends the copy of a compressed file there, and what came
        // before counts as success.
        // A unit gives no more than its own 16 clusters stand for, whatever its chunks claim.
        if (!deliver_unit(sink, held, byte_view(buffer.data(), length), std::min(left, unit), flags)) {
            return delivered;
        }
        delivered = true;
        if (length >= left) {
            return true;
        }
        left -= length;
        position += length;
        // The last unit is read up to the end of what is allocated, so that its sparse clusters are seen.
        length = length > left ? std::min(left + std::min(tail, unit), unit) : unit;
    }
    return delivered;
}

}  // namespace

bool pump_compressed(CNtfs& ntfs, const cluster_run_list& runs, stream_sink& sink, std::uint64_t offset,
                     std::uint64_t limit, std::uint64_t allocated) {
    try {
        return pump_units(ntfs, runs, sink, offset, limit, allocated);
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace quarry
