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
              "the flags of a read say how to judge a unit");

// Holds the decompressed bytes of one unit until it is known that the unit is sound.
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

// A buffer for a unit, or for a part of a unit that is longer. No formatter makes clusters whose unit is.
constexpr std::uint64_t longest_window = std::uint64_t{1} << 20;

// One unit after the other of a stream, read through a window.
class windowed_unit : public unit_bytes {
  public:
    windowed_unit(CNtfs& ntfs, const cluster_run_list& runs, std::uint64_t window)
        : m_reader(ntfs, runs), m_window(window) {}

    // Takes up to `length` bytes from byte `position` of the stream for the unit. False if there are none.
    [[nodiscard]] bool load(std::uint64_t position, std::uint64_t length) {
        m_flags = 0;
        m_size = length;
        m_begin = 0;
        if (length <= m_window.size()) {
            m_held = m_reader.read(position, m_window.data(), m_size, m_flags) ? m_size : 0;
            return m_held != 0;
        }
        if (!m_reader.begin(position, length, m_flags)) {
            return false;
        }
        // How long the unit is shows once all of it was read. Each turn reads a window, or is the last.
        std::uint64_t end = 0;
        do {
            read_window(end);
            end += m_held;
        } while (m_held == m_window.size() && end < length);
        m_size = end;
        return m_size != 0;
    }
    // What the read said of the whole unit.
    [[nodiscard]] std::uint32_t flags() const { return m_flags; }

    [[nodiscard]] std::uint64_t size() const override { return m_size; }
    [[nodiscard]] byte_view from(std::uint64_t offset, std::uint64_t least) override {
        if (offset >= m_size) {
            return {};
        }
        const std::uint64_t wanted = std::min(least, m_size - offset);
        if (offset < m_begin || !window().holds(offset - m_begin, wanted)) {
            read_window(offset);
            // What was read before and cannot be read again is zeros.
            const std::uint64_t whole = std::min<std::uint64_t>(m_window.size(), m_size - offset);
            std::fill(m_window.begin() + static_cast<std::ptrdiff_t>(m_held),
                      m_window.begin() + static_cast<std::ptrdiff_t>(whole), std::uint8_t{0});
            m_held = whole;
        }
        return window().from(offset - m_begin);
    }

  private:
    [[nodiscard]] byte_view window() const { return {m_window.data(), m_held}; }
    void read_window(std::uint64_t offset) {
        m_begin = offset;
        m_held = m_reader.read_part(offset, m_window.data(),
                                    std::min<std::uint64_t>(m_window.size(), m_size - offset), m_flags);
    }

    stream_reader m_reader;
    std::vector<std::uint8_t> m_window;  // the unit's bytes from m_begin on, m_held of them
    std::uint64_t m_begin = 0;
    std::size_t m_held = 0;
    std::uint64_t m_size = 0;
    std::uint32_t m_flags = 0;
};

// Writes the decompressed bytes of a unit, or nothing at all if it cannot be decompressed or has none.
bool deliver_unit(stream_sink& sink, held_bytes& held, windowed_unit& unit, std::uint64_t limit) {
    std::uint64_t written = 0;
    const std::uint32_t flags = unit.flags();
    held.clear();
    if (!decompress_unit(held, written, unit, limit, flags) || written == 0) {
        return false;
    }
    if (!held.overflowed()) {
        sink.write(held.bytes());
        return true;
    }
    // More than is held, but sound: the same once more, now straight out.
    straight_to_sink straight(sink);
    return decompress_unit(straight, written, unit, limit, flags);
}

bool pump_units(CNtfs& ntfs, const cluster_run_list& runs, stream_sink& sink, std::uint64_t offset,
                std::uint64_t limit, std::uint64_t allocated) {
    const std::uint64_t unit_size = transfer_unit(ntfs);
    const std::uint64_t in_memory = std::min(unit_size, longest_window);
    windowed_unit unit(ntfs, runs, in_memory);
    held_bytes held(in_memory);
    const std::uint64_t tail = allocated > limit ? allocated - limit : 0;
    std::uint64_t left = limit;
    std::uint64_t position = offset;
    std::uint64_t length = unit_size;
    bool delivered = false;
    // Each turn moves on in the stream by what was read; the runs end it at the latest.
    while (!sink.has_failed()) {
        if (!unit.load(position, length)) {
            return delivered;
        }
        // Deliberate: a unit without any cluster on disk gives nothing, not zeros. The user sees the copy of
        // a compressed file end at its first hole of 16 clusters, and count as a success.
        //
        // A unit gives no more than the bytes of its 16 clusters, whatever its chunks claim.
        if (!deliver_unit(sink, held, unit, std::min(left, unit_size))) {
            return delivered;
        }
        delivered = true;
        if (unit.size() >= left) {
            return true;
        }
        left -= unit.size();
        position += unit.size();
        // The last unit is read up to the end of what is allocated, so that its sparse clusters are seen.
        length = unit.size() > left ? std::min(left + std::min(tail, unit_size), unit_size) : unit_size;
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
