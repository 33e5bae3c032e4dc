#include "exact/unit_delivery.h"

#include "exact/lznt1_unit.h"

#include <algorithm>
#include <optional>

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

// Units with stored bytes, read together and handed on together.
class unit_window {
  public:
    unit_window(const volume_bytes& volume, const stored_stream& stream, careful_reader& reader,
                stream_sink& sink, notices& told)
        : m_volume(&volume), m_stream(&stream), m_reader(&reader), m_sink(&sink), m_told(&told) {}

    [[nodiscard]] result<void> add(unit_plan plan) {
        if (m_plain_bytes + plan.wanted > largest_block) {
            if (result<void> taken = hand_on(); !taken) {
                return taken;
            }
        }
        m_plain_bytes += plan.wanted;
        m_units.push_back(std::move(plan));
        return m_plain_bytes >= window_bytes ? hand_on() : result<void>();
    }

    [[nodiscard]] result<void> hand_on() {
        if (m_units.empty()) {
            return {};
        }
        if (result<void> came = read_units(); !came) {
            return came;
        }
        m_plain.resize(static_cast<std::size_t>(m_plain_bytes));
        std::span<std::uint8_t> room(m_plain);
        byte_view stored(m_stored);
        for (const unit_plan& unit : m_units) {
            const auto wanted = static_cast<std::size_t>(unit.wanted);
            const std::uint64_t stored_bytes = unit.stored_bytes();
            if (result<void> made = make_plain(unit, stored.clipped(0, stored_bytes), room.first(wanted));
                !made) {
                return made;
            }
            stored = stored.from(stored_bytes);
            room = room.subspan(wanted);
        }
        m_units.clear();
        m_plain_bytes = 0;
        return m_sink->data(byte_view(m_plain));
    }

  private:
    [[nodiscard]] result<void> read_units() {
        std::uint64_t total = 0;
        for (const unit_plan& unit : m_units) {
            total += unit.stored_bytes();
        }
        m_stored.resize(static_cast<std::size_t>(total));
        return read_joined() ? result<void>() : read_unit_by_unit();
    }

    // All stored bytes with as few reads as possible. False if one of them fails.
    [[nodiscard]] bool read_joined() {
        std::span<std::uint8_t> room(m_stored);
        stored_part row{0, 0, 0};
        const auto read_row = [&] {
            const auto length = static_cast<std::size_t>(row.length);
            const bool came = m_volume->source().read(room.first(length), row.source_byte).has_value();
            room = room.subspan(length);
            return came;
        };
        for (const unit_plan& unit : m_units) {
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
    [[nodiscard]] result<void> read_unit_by_unit() {
        std::span<std::uint8_t> room(m_stored);
        for (unit_plan& unit : m_units) {
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

    [[nodiscard]] result<void> make_plain(const unit_plan& unit, byte_view stored,
                                          std::span<std::uint8_t> plain) {
        if (unit.lost) {
            std::fill(plain.begin(), plain.end(), std::uint8_t{0});
            return {};
        }
        if (!unit.has_chunks) {
            std::copy_n(stored.data(), plain.size(), plain.data());
            return {};
        }
        result<std::optional<std::uint64_t>> short_chunk =
            decode_lznt1_unit(stored, plain, m_stream->where(), unit.number);
        if (!short_chunk) {
            return passed_on(short_chunk);
        }
        if (*short_chunk) {
            m_told->doubt("short-chunk",
                          where::chunk(where::unit(m_stream->where(), unit.number), **short_chunk),
                          "ends before its 4,096th byte; zeros follow");
        }
        return {};
    }

    const volume_bytes* m_volume;
    const stored_stream* m_stream;
    careful_reader* m_reader;
    stream_sink* m_sink;
    notices* m_told;
    std::vector<unit_plan> m_units;
    std::uint64_t m_plain_bytes = 0;
    std::vector<std::uint8_t> m_stored;
    std::vector<std::uint8_t> m_plain;
};

}  // namespace

result<void> deliver_decoded(const volume_bytes& volume, const stored_stream& stream, careful_reader& reader,
                             stream_sink& sink, notices& told) {
    unit_planner planner(volume, stream);
    unit_window window(volume, stream, reader, sink, told);
    // Ends with the valid length: each turn takes a unit.
    for (;;) {
        result<std::optional<unit_plan>> unit = planner.next();
        if (!unit) {
            return passed_on(unit);
        }
        if (!*unit) {
            return window.hand_on();
        }
        result<void> taken;
        if (!(*unit)->parts.empty()) {
            taken = window.add(std::move(**unit));
        } else if (taken = window.hand_on(); taken) {
            taken = sink.zeros((*unit)->wanted);
        }
        if (!taken) {
            return taken;
        }
    }
}

}  // namespace quarry::exact
