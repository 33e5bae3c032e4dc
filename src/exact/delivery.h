// What every way of delivering a stream shares: the receiver, the reads that may fail, what is said of them.
#pragma once

#include "exact/failure.h"
#include "exact/run_announcer.h"
#include "exact/stored_stream.h"
#include "exact/volume_bytes.h"
#include "foundation/worker_pool.h"

#include <cstdint>
#include <span>
#include <vector>

namespace quarry::exact {

// The largest block that a receiver gets, in bytes.
inline constexpr std::size_t largest_block = 0x400000;

// Where the bytes of a stream go, in order and without a gap.
class stream_sink {
  public:
    stream_sink() = default;
    stream_sink(const stream_sink&) = delete;
    stream_sink& operator=(const stream_sink&) = delete;
    virtual ~stream_sink() = default;

    // Bytes that are stored, at most largest_block. The view is good during the call. A failure ends the
    // delivery and is handed on.
    [[nodiscard]] virtual result<void> data(byte_view block) = 0;
    // So many zero bytes for which nothing is stored: a hole, or what follows the valid length. There may be
    // more of them than a disk holds.
    [[nodiscard]] virtual result<void> zeros(std::uint64_t length) = 0;
};

struct delivery_options {
    bool raw = false;                // the clusters as they lie
    bool zero_unreadable = false;    // zeros for what cannot be read
    worker_pool* workers = nullptr;  // decode; without them the caller does
};

// Bytes of the delivered stream.
struct byte_range {
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
    [[nodiscard]] bool operator==(const byte_range&) const = default;
};

// Reads stored bytes of one stream and keeps account of those that could not be read.
//
// A read that fails is repeated in smaller and smaller pieces, if the user wants zeros for what is lost:
//
//     failed:  |-------------------------- block --------------------------|
//     64 KiB:  |------- good -------|------ failed ------|----- good ------|
//      4 KiB:                       |good|good|fail|good |
//      512:                                   |.. x .....|       x is zeros
//
// What lies after the end of the source is zeros too.
class careful_reader {
  public:
    // Both must outlive the reader.
    careful_reader(const volume_bytes& volume, const stored_stream& stream, bool zero_unreadable)
        : m_volume(&volume),
          m_stream(&stream),
          m_zero_unreadable(zero_unreadable),
          m_announcer(volume, stream) {}

    // Fills the buffer with byte `offset` of the stream and those after it, which are stored from
    // `source_byte` on in one row.
    [[nodiscard]] result<void> read(std::span<std::uint8_t> buffer, std::uint64_t offset,
                                    std::uint64_t source_byte);
    // Announces what follows byte `offset` of the stream, which is going to be read in some other way.
    void announce_from(std::uint64_t offset) { m_announcer.reading(offset); }
    [[nodiscard]] bool zero_unreadable() const { return m_zero_unreadable; }
    // Notes that so many bytes of the stream are zeros because they, or what they are decoded from, could not
    // be read. Ranges are noted in the order of the stream.
    void note_unread(std::uint64_t offset, std::uint64_t length);
    [[nodiscard]] const std::vector<byte_range>& unread() const { return m_unread; }

  private:
    void read_in_pieces(std::span<std::uint8_t> buffer, std::uint64_t offset, std::uint64_t source_byte,
                        std::size_t step);
    // Fills bytes of the stream with zeros, and notes that.
    void lose(std::span<std::uint8_t> bytes, std::uint64_t offset);

    const volume_bytes* m_volume;
    const stored_stream* m_stream;
    bool m_zero_unreadable;
    run_announcer m_announcer;
    std::vector<byte_range> m_unread;
};

// Delivers bytes [0, end) of a stream as they are stored: data from its runs, zeros for its holes. `end` is
// at most the allocated size.
[[nodiscard]] result<void> deliver_stored(const volume_bytes& volume, const stored_stream& stream,
                                          std::uint64_t end, careful_reader& reader, stream_sink& sink);

}  // namespace quarry::exact
