#include "exact/system_compression.h"

#include "exact/lzx.h"
#include "exact/ordered_windows.h"
#include "exact/xpress.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace quarry::exact {

namespace {

constexpr std::uint32_t only_version = 1;
constexpr std::uint32_t provider_wim = 1;
constexpr std::uint32_t provider_file = 2;

// Chunks are collected until their decoded bytes reach this much.
constexpr std::uint64_t window_bytes = 0x40000;
// Bytes of the table that are read at once.
constexpr std::uint64_t table_part = 0x4000;

struct format_facts {
    std::string_view name;
    std::uint64_t chunk_size;
};

// In the order of wof_format.
constexpr std::array<format_facts, 4> formats = {{
    {"xpress4k", 4096},
    {"lzx", lzx_decoder::largest_chunk},
    {"xpress8k", 8192},
    {"xpress16k", 16384},
}};

const format_facts& facts_of(wof_format format) {
    return formats[static_cast<std::size_t>(format)];
}

// A chunk in the stored stream.
struct chunk_place {
    std::uint64_t number = 0;
    std::uint64_t offset = 0;  // in the stored stream
    std::uint64_t stored_bytes = 0;
    std::uint64_t plain_bytes = 0;
};

// The chunks of a file one after the other, by its table. Of the table no more than a part is in memory: its
// size is whatever the disk claims.
class chunk_table {
  public:
    chunk_table(const volume_bytes& volume, const stored_stream& stored, wof_format format,
                std::uint64_t size)
        : m_volume(&volume),
          m_stored(&stored),
          m_size(size),
          m_chunk_size(chunk_size(format)),
          m_chunks(size / m_chunk_size + (size % m_chunk_size == 0 ? 0 : 1)),
          m_offset_bytes(size <= 0xFFFFFFFFu ? 4 : 8),
          m_table_bytes(m_chunks == 0 ? 0 : (m_chunks - 1) * m_offset_bytes) {}

    // Fails with wof if the table does not fit into the stream.
    [[nodiscard]] result<void> check() const {
        if (m_table_bytes > m_stored->size()) {
            return fail(failure_code::wof, m_stored->where(),
                        "has " + std::to_string(m_stored->size()) + " bytes, its table of " +
                            std::to_string(m_chunks) + " chunks takes " + std::to_string(m_table_bytes));
        }
        return {};
    }

    [[nodiscard]] bool at_end() const { return m_next == m_chunks; }

    // The next chunk; there must be one. Fails with wof if its offsets break a rule, and as reads do.
    [[nodiscard]] result<chunk_place> next() {
        chunk_place place;
        place.number = m_next++;
        place.plain_bytes = std::min(m_chunk_size, m_size - place.number * m_chunk_size);
        const std::uint64_t all = m_stored->size() - m_table_bytes;
        const result<std::uint64_t> end = m_next == m_chunks ? all : offset_of(m_next);
        if (!end) {
            return passed_on(end);
        }
        if (*end < m_begin || *end > all) {
            return broken(place, "ends at byte " + std::to_string(*end) + ", begins at byte " +
                                     std::to_string(m_begin) + "; all chunks have " + std::to_string(all));
        }
        place.offset = m_table_bytes + m_begin;
        place.stored_bytes = *end - m_begin;
        if (place.stored_bytes == 0 || place.stored_bytes > place.plain_bytes) {
            return broken(place, "has " + std::to_string(place.stored_bytes) + " bytes for " +
                                     std::to_string(place.plain_bytes));
        }
        m_begin = *end;
        return place;
    }

  private:
    [[nodiscard]] tl::unexpected<failure> broken(const chunk_place& place, std::string rule) const {
        return fail(failure_code::wof, where::chunk(m_stored->where(), place.number), std::move(rule));
    }

    // Where a chunk other than the first begins, counted from the end of the table.
    [[nodiscard]] result<std::uint64_t> offset_of(std::uint64_t chunk) {
        const std::uint64_t at = (chunk - 1) * m_offset_bytes;
        if (at < m_part_begin || at - m_part_begin >= m_part.size()) {
            m_part.resize(static_cast<std::size_t>(std::min(table_part, m_table_bytes - at)));
            m_part_begin = at;
            if (auto came = m_stored->read(*m_volume, m_part, at); !came) {
                return passed_on(came);
            }
        }
        return byte_view(m_part).number_of_width(at - m_part_begin, m_offset_bytes);
    }

    const volume_bytes* m_volume;
    const stored_stream* m_stored;
    std::uint64_t m_size;
    std::uint64_t m_chunk_size;
    std::uint64_t m_chunks;
    unsigned m_offset_bytes;
    std::uint64_t m_table_bytes;
    std::uint64_t m_next = 0;
    std::uint64_t m_begin = 0;  // of the next chunk, counted from the end of the table
    std::vector<std::uint8_t> m_part;
    std::uint64_t m_part_begin = 0;
};

// What decodes the chunks of one format. Its tables are made once for many chunks.
class chunk_decoder {
  public:
    explicit chunk_decoder(wof_format format) {
        if (format == wof_format::lzx_32k) {
            m_lzx = std::make_unique<lzx_decoder>();
        } else {
            m_xpress = std::make_unique<xpress_decoder>();
        }
    }

    [[nodiscard]] result<void> decode(byte_view stored, std::span<std::uint8_t> plain,
                                      const std::string& where, std::uint64_t number) {
        if (stored.size() == plain.size()) {
            std::copy_n(stored.data(), stored.size(), plain.data());
            return {};
        }
        return m_lzx ? m_lzx->decode(stored, plain, where, number)
                     : m_xpress->decode(stored, plain, where, number);
    }

  private:
    std::unique_ptr<lzx_decoder> m_lzx;
    std::unique_ptr<xpress_decoder> m_xpress;
};

struct held_chunk : chunk_place {
    bool lost = false;  // could not be read
};

// Chunks that are read together and decoded one after the other.
class chunk_window {
  public:
    chunk_window(const stored_stream& from, wof_format format, stream_sink& to)
        : m_stream(&from), m_sink(&to), m_decoder(format) {}

    std::vector<held_chunk> chunks;
    std::uint64_t stored_bytes = 0;
    std::uint64_t plain_bytes = 0;
    std::vector<std::uint8_t> stored;
    std::vector<std::uint8_t> plain;

    void decode() {
        byte_view bytes(stored);
        std::span<std::uint8_t> room(plain);
        // Ends with the last chunk of the window.
        for (auto chunk = chunks.begin(); m_decoded && chunk != chunks.end(); ++chunk) {
            const std::span<std::uint8_t> wanted = room.first(static_cast<std::size_t>(chunk->plain_bytes));
            if (chunk->lost) {
                std::fill(wanted.begin(), wanted.end(), std::uint8_t{0});
            } else {
                m_decoded = m_decoder.decode(bytes.clipped(0, chunk->stored_bytes), wanted, m_stream->where(),
                                             chunk->number);
            }
            bytes = bytes.from(chunk->stored_bytes);
            room = room.subspan(wanted.size());
        }
    }

    [[nodiscard]] result<void> hand_on() {
        chunks.clear();
        stored_bytes = 0;
        plain_bytes = 0;
        return m_decoded ? m_sink->data(byte_view(plain)) : m_decoded;
    }

  private:
    const stored_stream* m_stream;
    stream_sink* m_sink;
    chunk_decoder m_decoder;
    result<void> m_decoded;
};

// Collects chunks into windows, and reads their stored bytes.
class chunk_collector {
  public:
    chunk_collector(const volume_bytes& volume, const stored_stream& stored, wof_format format,
                    careful_reader& reader, stream_sink& sink, worker_pool* workers)
        : m_volume(&volume),
          m_stored_stream(&stored),
          m_chunk_size(chunk_size(format)),
          m_reader(&reader),
          m_windows(workers, [&stored, format, &sink] { return chunk_window(stored, format, sink); }) {}

    [[nodiscard]] result<void> add(const chunk_place& place) {
        chunk_window& window = m_windows.current();
        window.chunks.push_back({place});
        window.stored_bytes += place.stored_bytes;
        window.plain_bytes += place.plain_bytes;
        return window.plain_bytes >= window_bytes ? begin_window() : result<void>();
    }

    [[nodiscard]] result<void> finish() {
        result<void> begun = begin_window();
        return begun ? m_windows.finish() : begun;
    }

    // What comes after the chunks so far has failed.
    [[nodiscard]] result<void> finish_with(failure why) {
        result<void> begun = begin_window();
        return begun ? m_windows.finish_with(std::move(why)) : begun;
    }

  private:
    [[nodiscard]] result<void> begin_window() {
        chunk_window& window = m_windows.current();
        if (window.chunks.empty()) {
            return {};
        }
        window.stored.resize(static_cast<std::size_t>(window.stored_bytes));
        if (result<void> came = read_chunks(window); !came) {
            return m_windows.finish_with(std::move(came.error()));
        }
        window.plain.resize(static_cast<std::size_t>(window.plain_bytes));
        return m_windows.begin_current();
    }

    // Chunks follow each other without a gap, so that one read gets them all.
    [[nodiscard]] result<void> read_chunks(chunk_window& window) {
        m_reader->announce_from(window.chunks.front().offset);
        auto came = m_stored_stream->read(*m_volume, window.stored, window.chunks.front().offset);
        return came || !m_reader->zero_unreadable() ? came : read_chunk_by_chunk(window);
    }

    // Finds out what cannot be read.
    [[nodiscard]] result<void> read_chunk_by_chunk(chunk_window& window) {
        std::span<std::uint8_t> room(window.stored);
        for (held_chunk& chunk : window.chunks) {
            const std::span<std::uint8_t> bytes = room.first(static_cast<std::size_t>(chunk.stored_bytes));
            room = room.subspan(bytes.size());
            auto came = m_stored_stream->read(*m_volume, bytes, chunk.offset);
            if (came) {
                continue;
            }
            if (came.error().code != failure_code::source_read &&
                came.error().code != failure_code::source_end) {
                return came;
            }
            chunk.lost = true;
            m_reader->note_unread(chunk.number * m_chunk_size, chunk.plain_bytes);
        }
        return {};
    }

    const volume_bytes* m_volume;
    const stored_stream* m_stored_stream;
    std::uint64_t m_chunk_size;
    careful_reader* m_reader;
    ordered_windows<chunk_window> m_windows;
};

}  // namespace

std::uint64_t chunk_size(wof_format format) {
    return facts_of(format).chunk_size;
}

std::string_view format_name(wof_format format) {
    return facts_of(format).name;
}

result<wof_format> read_wof_format(const reparse_point& point, std::string_view where) {
    const auto refused = [&](std::string why) {
        return fail(failure_code::wof, std::string(where), std::move(why));
    };
    const auto number = [&](std::uint64_t offset) { return point.data.u32_or_zero(offset); };
    if (number(0) == only_version && number(4) == provider_wim) {
        return refused("the data is in a WIM file (provider 1)");
    }
    constexpr std::uint64_t value_bytes = 16;
    if (point.data.size() < value_bytes) {
        return refused("the reparse point has " + std::to_string(point.data.size()) + " bytes of data");
    }
    if (number(0) != only_version || number(4) != provider_file || number(8) != only_version ||
        number(12) >= formats.size()) {
        return refused("the reparse point has version " + std::to_string(number(0)) + ", provider " +
                       std::to_string(number(4)) + ", version " + std::to_string(number(8)) + ", format " +
                       std::to_string(number(12)));
    }
    return static_cast<wof_format>(number(12));
}

result<void> deliver_system_compressed(const volume_bytes& volume, const stored_stream& stored,
                                       wof_format format, std::uint64_t size, careful_reader& reader,
                                       stream_sink& sink, worker_pool* workers) {
    chunk_table table(volume, stored, format, size);
    if (auto checked = table.check(); !checked) {
        return checked;
    }
    chunk_collector collector(volume, stored, format, reader, sink, workers);
    // Ends with the last chunk: each has a stored byte at least.
    while (!table.at_end()) {
        result<chunk_place> place = table.next();
        if (!place) {
            return collector.finish_with(std::move(place.error()));
        }
        if (auto taken = collector.add(*place); !taken) {
            return taken;
        }
    }
    return collector.finish();
}

}  // namespace quarry::exact
