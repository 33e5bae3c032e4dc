#include "exact/unit_delivery.h"

#include "exact/lznt1_unit.h"
#include "exact/ordered_windows.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

namespace quarry::exact {

namespace {

// Units are collected until their decompressed bytes reach this much.
constexpr std::uint64_t window_bytes = 0x40000;

// Stored bytes in one row.
struct stored_part {
    std::uint64_t offset;  // in the stream
    std::uint64_t source_byte;
    std::uint64_t length;
};

struct unit_plan {
    std::uint64_t number = 0;
    std::uint64_t wanted = 0;        // decompressed bytes, from the start of the unit
    bool has_chunks = false;         // otherwise the bytes as they are
    bool lost = false;               // could not be read
    std::vector<stored_part> parts;  // empty for a unit that is a hole

    [[nodiscard]] std::uint64_t stored_bytes() const {
        std::uint64_t sum = 0;
        for (const stored_part& each : parts) {
            sum += each.length;
        }
        return sum;
    }
};

// The units of a stream one after the other.
class unit_planner {
  public:
    unit_planner(const volume_bytes& volume, const stored_stream& stream)
        : m_volume(&volume), m_stream(&stream) {}

    // The next unit that begins ahead of the valid length; nothing after the last. Fails with unit.
    [[nodiscard]] result<std::optional<unit_plan>> next() {
        const std::uint64_t begin = m_unit * m_stream->unit_size();
        if (begin >= m_stream->valid_size()) {
            return std::nullopt;
        }
        unit_plan plan;
        plan.number = m_unit++;
        plan.wanted = std::min(m_stream->unit_size(), m_stream->valid_size() - begin);
        if (result<void> parts = take_runs(plan); !parts) {
            return passed_on(parts);
        }
        if (plan.parts.empty()) {
            take_rest_of_hole(plan);
        }
        if (!plan.has_chunks) {
            trim(plan);
        }
        return plan;
    }

  private:
    [[nodiscard]] tl::unexpected<failure> broken(const unit_plan& plan, std::string rule) const {
        return fail(failure_code::unit, where::unit(m_stream->where(), plan.number), std::move(rule));
    }

    [[nodiscard]] result<void> take_runs(unit_plan& plan) {
        const std::uint64_t cluster_size = m_volume->shape().cluster_size;
        const std::vector<run>& runs = m_stream->runs().runs();
        const std::uint64_t clusters = m_stream->unit_size() / cluster_size;
        const std::uint64_t end = (plan.number + 1) * clusters;
        bool hole_seen = false;
        // Each turn takes clusters of one run.
        for (std::uint64_t vcn = plan.number * clusters; vcn < end;) {
            while (m_run < runs.size() && runs[m_run].end_vcn() <= vcn) {
                ++m_run;
            }
            if (m_run == runs.size()) {
                return broken(plan, "the runs end inside of it");
            }
            const run& held = runs[m_run];
            const std::uint64_t count = std::min(held.end_vcn(), end) - vcn;
            if (held.is_hole()) {
                hole_seen = true;
            } else if (hole_seen) {
                return broken(plan, "a stored cluster follows a hole");
            } else {
                plan.parts.push_back({vcn * cluster_size,
                                      m_volume->shape().source_byte_of(held.lcn + (vcn - held.vcn)),
                                      count * cluster_size});
            }
            vcn += count;
        }
        plan.has_chunks = hole_seen && !plan.parts.empty();
        return {};
    }

    // All units that lie in the same hole are one, however many there are.
    void take_rest_of_hole(unit_plan& plan) {
        const std::vector<run>& runs = m_stream->runs().runs();
        const std::uint64_t clusters = m_stream->unit_size() / m_volume->shape().cluster_size;
        const std::uint64_t end = m_run < runs.size() ? runs[m_run].end_vcn() / clusters : 0;
        if (end > m_unit) {
            m_unit = end;
            const std::uint64_t begin = plan.number * m_stream->unit_size();
            plan.wanted = std::min(end * m_stream->unit_size(), m_stream->valid_size()) - begin;
        }
    }

    // Bytes that are stored as they are need not be read past the wanted ones.
    static void trim(unit_plan& plan) {
        std::uint64_t left = plan.wanted;
        for (stored_part& part : plan.parts) {
            part.length = std::min(part.length, left);
            left -= part.length;
        }
        std::erase_if(plan.parts, [](const stored_part& part) { return part.length == 0; });
    }

    const volume_bytes* m_volume;
    const stored_stream* m_stream;
    std::uint64_t m_unit = 0;
    std::size_t m_run = 0;
};

// Units with stored bytes, read together and handed on together; or a hole.
struct unit_window {
    const stored_stream* stream;
    stream_sink* sink;
    notices* told;
    std::vector<unit_plan> units = {};
    std::uint64_t plain_bytes = 0;
    std::uint64_t hole = 0;  // bytes; there are no units then
    std::vector<std::uint8_t> stored = {};
    std::vector<std::uint8_t> plain = {};
    result<void> decoded = {};
    std::vector<std::string> short_chunks = {};  // where they are

    void decode() {
        std::span<std::uint8_t> room(plain);
        byte_view bytes(stored);
        // Ends with the last unit of the window.
        for (auto unit = units.begin(); decoded && unit != units.end(); ++unit) {
            const auto wanted = static_cast<std::size_t>(unit->wanted);
            const std::uint64_t stored_bytes = unit->stored_bytes();
            decoded = make_plain(*unit, bytes.clipped(0, stored_bytes), room.first(wanted));
            bytes = bytes.from(stored_bytes);
            room = room.subspan(wanted);
        }
    }

    [[nodiscard]] result<void> hand_on() {
        for (std::string& each : short_chunks) {
            told->doubt("short-chunk", std::move(each), "ends before its 4,096th byte; zeros follow");
        }
        short_chunks.clear();
        units.clear();
        plain_bytes = 0;
        if (!decoded) {
            return decoded;
        }
        const std::uint64_t zeros = std::exchange(hole, 0);
        return zeros == 0 ? sink->data(byte_view(plain)) : sink->zeros(zeros);
    }

  private:
    [[nodiscard]] result<void> make_plain(const unit_plan& unit, byte_view bytes,
                                          std::span<std::uint8_t> room) {
        if (unit.lost) {
            std::fill(room.begin(), room.end(), std::uint8_t{0});
            return {};
        }
        if (!unit.has_chunks) {
            std::copy_n(bytes.data(), room.size(), room.data());
            return {};
        }
        const auto short_chunk = decode_lznt1_unit(bytes, room, stream->where(), unit.number);
        if (!short_chunk) {
            return passed_on(short_chunk);
        }
        if (*short_chunk) {
            short_chunks.push_back(where::chunk(where::unit(stream->where(), unit.number), **short_chunk));
        }
        return {};
    }
};

// Collects units and holes into windows, and reads their stored bytes.
class unit_collector {
  public:
    unit_collector(const volume_bytes& volume, const stored_stream& stream, careful_reader& reader,
                   stream_sink& sink, notices& told, worker_pool* workers)
        : m_volume(&volume),
          m_stream(&stream),
          m_reader(&reader),
          m_windows(workers, [&stream, &sink, &told] {
              return unit_window{&stream, &sink, &told};
          }) {}

    [[nodiscard]] result<void> add(unit_plan plan) {
        if (m_windows.current().plain_bytes + plan.wanted > largest_block) {
            if (result<void> begun = begin_window(); !begun) {
                return begun;
            }
        }
        unit_window& window = m_windows.current();
        window.plain_bytes += plan.wanted;
        window.units.push_back(std::move(plan));
        return window.plain_bytes >= window_bytes ? begin_window() : result<void>();
    }

    [[nodiscard]] result<void> add_hole(std::uint64_t length) {
        if (result<void> begun = begin_window(); !begun) {
            return begun;
        }
        m_windows.current().hole = length;
        return m_windows.begin_current();
    }

    [[nodiscard]] result<void> finish() {
        result<void> begun = begin_window();
        return begun ? m_windows.finish() : begun;
    }

    // What comes after the units so far has failed.
    [[nodiscard]] result<void> finish_with(failure why) {
        result<void> begun = begin_window();
        return begun ? m_windows.finish_with(std::move(why)) : begun;
    }

  private:
    [[nodiscard]] result<void> begin_window() {
        unit_window& window = m_windows.current();
        if (window.units.empty()) {
            return {};
        }
        if (result<void> came = read_units(window); !came) {
            return m_windows.finish_with(std::move(came.error()));
        }
        window.plain.resize(static_cast<std::size_t>(window.plain_bytes));
        return m_windows.begin_current();
    }

    [[nodiscard]] result<void> read_units(unit_window& window) {
        std::uint64_t total = 0;
        for (const unit_plan& unit : window.units) {
            total += unit.stored_bytes();
        }
        window.stored.resize(static_cast<std::size_t>(total));
        m_reader->announce_from(window.units.front().parts.front().offset);
        return read_joined(window) ? result<void>() : read_unit_by_unit(window);
    }

    // All stored bytes with as few reads as possible. False if one of them fails.
    [[nodiscard]] bool read_joined(unit_window& window) {
        std::span<std::uint8_t> room(window.stored);
        stored_part row{0, 0, 0};
        const auto read_row = [&] {
            const auto length = static_cast<std::size_t>(row.length);
            const bool came = m_volume->source().read(room.first(length), row.source_byte).has_value();
            room = room.subspan(length);
            return came;
        };
        for (const unit_plan& unit : window.units) {
            for (const stored_part& part : unit.parts) {
                if (part.source_byte != row.source_byte + row.length) {
                    if (!read_row()) {
                        return false;
                    }
                    row = {part.offset, part.source_byte, 0};
                }
                row.length += part.length;
            }
        }
        return read_row();
    }

    // Finds out what cannot be read.
    [[nodiscard]] result<void> read_unit_by_unit(unit_window& window) {
        std::span<std::uint8_t> room(window.stored);
        for (unit_plan& unit : window.units) {
            for (const stored_part& part : unit.parts) {
                const std::span<std::uint8_t> piece = room.first(static_cast<std::size_t>(part.length));
                room = room.subspan(piece.size());
                if (result<void> came = read_part(unit, part, piece); !came) {
                    return came;
                }
            }
            if (unit.lost) {
                m_reader->note_unread(unit.number * m_stream->unit_size(), unit.wanted);
            }
        }
        return {};
    }

    [[nodiscard]] result<void> read_part(unit_plan& unit, const stored_part& part,
                                         std::span<std::uint8_t> piece) {
        if (!unit.has_chunks) {
            return m_reader->read(piece, part.offset, part.source_byte);
        }
        result<void> came = m_volume->source().read(piece, part.source_byte);
        if (came) {
            return came;
        }
        if (!m_reader->zero_unreadable()) {
            return tl::make_unexpected(
                m_stream->placed(std::move(came.error()), part.offset, part.source_byte));
        }
        unit.lost = true;
        return {};
    }

    const volume_bytes* m_volume;
    const stored_stream* m_stream;
    careful_reader* m_reader;
    ordered_windows<unit_window> m_windows;
};

}  // namespace

result<void> deliver_decoded(const volume_bytes& volume, const stored_stream& stream, careful_reader& reader,
                             stream_sink& sink, notices& told, worker_pool* workers) {
    unit_planner planner(volume, stream);
    unit_collector collector(volume, stream, reader, sink, told, workers);
    // Ends with the valid length: each turn takes a unit.
    for (;;) {
        result<std::optional<unit_plan>> unit = planner.next();
        if (!unit) {
            return collector.finish_with(std::move(unit.error()));
        }
        if (!*unit) {
            return collector.finish();
        }
        result<void> taken =
            (*unit)->parts.empty() ? collector.add_hole((*unit)->wanted) : collector.add(std::move(**unit));
        if (!taken) {
            return taken;
        }
    }
}

}  // namespace quarry::exact
