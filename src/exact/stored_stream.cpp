#include "exact/stored_stream.h"

#include <algorithm>

namespace quarry::exact {

namespace {

constexpr std::uint16_t compression_method = 0x00FF;
constexpr std::uint16_t known_flags = stream_flag_lznt1 | attr_flag_encrypted | attr_flag_sparse;
constexpr std::uint64_t smallest_unit = 4096;
constexpr std::uint64_t largest_unit = 0x200000;
// 2^16 clusters are more than any unit has; a larger power would leave 64 bits.
constexpr unsigned largest_unit_power = 16;

void fill_zeros(std::span<std::uint8_t> bytes) {
    std::fill(bytes.begin(), bytes.end(), std::uint8_t{0});
}

}  // namespace

result<stored_stream> stored_stream::begin(const geometry& shape, const piece& first, std::string where) {
    stored_stream stream(shape, std::move(where));
    stream.m_source_byte = first.source_byte();
    if (!first.bytes.non_resident()) {
        stream.m_resident = true;
        stream.m_value = first.bytes.value().to_vector();
        stream.m_size = stream.m_valid = stream.m_allocated = stream.m_value.size();
        // How it would be compressed means nothing for a value in the record.
        stream.m_flags = first.bytes.flags() & static_cast<std::uint16_t>(~compression_method);
        if ((stream.m_flags & ~known_flags) != 0) {
            return fail(failure_code::flags, stream.m_where, "flags are " + hex(stream.m_flags),
                        first.source_byte());
        }
        return stream;
    }
    stream.m_size = first.bytes.real_size();
    stream.m_valid = first.bytes.initialized_size();
    stream.m_allocated = first.bytes.allocated_size();
    if (result<void> flags = stream.take_flags(first); !flags) {
        return passed_on(flags);
    }
    if (result<void> added = stream.m_runs.add(first.bytes, stream.m_where, first.source_byte()); !added) {
        return passed_on(added);
    }
    return stream;
}

result<void> stored_stream::take_flags(const piece& first) {
    m_flags = first.bytes.flags();
    const std::uint16_t method = m_flags & compression_method;
    if (method > stream_flag_lznt1 || (m_flags & ~known_flags) != 0) {
        return fail(failure_code::flags, m_where, "flags are " + hex(m_flags), first.source_byte());
    }
    if (!compressed()) {
        return {};
    }
    const unsigned power = first.bytes.compression_unit();
    m_unit_size = power <= largest_unit_power ? std::uint64_t{m_cluster_size} << power : 0;
    if (power == 0 || m_unit_size < smallest_unit || m_unit_size > largest_unit) {
        return fail(failure_code::flags, m_where,
                    "compressed in units of 2^" + std::to_string(power) + " clusters", first.source_byte());
    }
    return {};
}

result<void> stored_stream::add(const piece& next) {
    if (m_resident || !next.bytes.non_resident()) {
        return fail(failure_code::duplicate, m_where, "stands twice at VCN 0", next.source_byte());
    }
    return m_runs.add(next.bytes, m_where, next.source_byte());
}

result<void> stored_stream::finish() const {
    if (m_resident) {
        return {};
    }
    const bool ordered = m_valid <= m_size && m_size <= m_allocated;
    // No wrap: the runs hold the product to 63 bits.
    if (!ordered || m_runs.end_vcn() * m_cluster_size != m_allocated) {
        return fail(failure_code::sizes, m_where,
                    "allocated " + std::to_string(m_allocated) + ", size " + std::to_string(m_size) +
                        ", valid " + std::to_string(m_valid) + ", clusters for " +
                        std::to_string(m_runs.end_vcn() * m_cluster_size),
                    m_source_byte);
    }
    return {};
}

result<stored_stream> stored_stream::join(const geometry& shape, std::vector<piece> pieces,
                                          std::string where) {
    std::stable_sort(pieces.begin(), pieces.end(), [](const piece& a, const piece& b) {
        const auto order = [](const piece& each) {
            return each.bytes.non_resident() ? each.bytes.lowest_vcn() : 0;
        };
        return order(a) < order(b);
    });
    result<stored_stream> stream = begin(shape, pieces.front(), std::move(where));
    if (!stream) {
        return stream;
    }
    for (auto next = pieces.begin() + 1; next != pieces.end(); ++next) {
        if (result<void> added = stream->add(*next); !added) {
            return passed_on(added);
        }
    }
    if (result<void> finished = stream->finish(); !finished) {
        return passed_on(finished);
    }
    return stream;
}

result<stored_stream> stored_stream::of_clusters(const geometry& shape, std::uint64_t lcn,
                                                 std::uint64_t count, std::string where) {
    stored_stream stream(shape, std::move(where));
    if (result<void> added = stream.m_runs.add_stored(lcn, count, stream.m_where, std::nullopt); !added) {
        return passed_on(added);
    }
    stream.m_size = stream.m_valid = stream.m_allocated = count * shape.cluster_size;
    return stream;
}

failure stored_stream::placed(failure reading, std::uint64_t offset, std::uint64_t source_byte) const {
    // Where the source ends is a fact of the source, whichever stream needs more of it.
    if (reading.code != failure_code::source_end) {
        const std::uint64_t read_so_far = reading.source_byte.value_or(source_byte) - source_byte;
        reading.where = where::vcn(m_where, (offset + read_so_far) / m_cluster_size);
        reading.why += ", at stream byte " + hex(offset + read_so_far);
    }
    return reading;
}

result<void> stored_stream::read(const volume_bytes& volume, std::span<std::uint8_t> buffer,
                                 std::uint64_t offset) const {
    if (encrypted()) {
        return fail(failure_code::encrypted, m_where, "encrypted (EFS)");
    }
    if (compressed()) {
        return fail(failure_code::flags, m_where, "is compressed, which no structure of the volume is");
    }
    if (offset > m_size || buffer.size() > m_size - offset) {
        return fail(failure_code::sizes, m_where,
                    "has " + std::to_string(m_size) + " bytes, byte " +
                        std::to_string(offset + buffer.size()) + " is needed",
                    m_source_byte);
    }
    if (m_resident) {
        std::copy_n(m_value.begin() + static_cast<std::ptrdiff_t>(offset), buffer.size(), buffer.begin());
        return {};
    }
    const std::uint64_t stored =
        offset < m_valid ? std::min<std::uint64_t>(m_valid - offset, buffer.size()) : 0;
    fill_zeros(buffer.subspan(static_cast<std::size_t>(stored)));
    return read_part(volume, buffer.first(static_cast<std::size_t>(stored)), offset);
}

// Bytes inside of the valid length, which is inside of the runs.
result<void> stored_stream::read_part(const volume_bytes& volume, std::span<std::uint8_t> buffer,
                                      std::uint64_t offset) const {
    // Each turn takes a part of the buffer, which the runs cover.
    while (!buffer.empty()) {
        const std::uint64_t vcn = offset / m_cluster_size;
        const run& held = *m_runs.find(vcn);
        const std::uint64_t into_run = offset - held.vcn * m_cluster_size;
        const auto part = static_cast<std::size_t>(
            std::min<std::uint64_t>(held.length * m_cluster_size - into_run, buffer.size()));
        if (held.is_hole()) {
            fill_zeros(buffer.first(part));
        } else if (result<void> came = volume.read(buffer.first(part), held.lcn, into_run); !came) {
            const std::uint64_t source_byte = volume.shape().source_byte_of(held.lcn) + into_run;
            return tl::make_unexpected(placed(std::move(came.error()), offset, source_byte));
        }
        buffer = buffer.subspan(part);
        offset += part;
    }
    return {};
}

void stored_stream::announce(const volume_bytes& volume, std::uint64_t offset, std::uint64_t length) const {
    const std::uint64_t end = offset < m_valid ? offset + std::min(length, m_valid - offset) : offset;
    // Each turn takes what a run holds of the range; a range has few.
    while (offset < end) {
        const run* const held = m_runs.find(offset / m_cluster_size);
        if (held == nullptr) {
            return;
        }
        const std::uint64_t into_run = offset - held->vcn * m_cluster_size;
        const std::uint64_t part = std::min(held->length * m_cluster_size - into_run, end - offset);
        if (!held->is_hole()) {
            volume.announce(held->lcn, part, into_run);
        }
        offset += part;
    }
}

result<std::vector<std::uint8_t>> stored_stream::read_all(const volume_bytes& volume,
                                                          std::uint64_t limit) const {
    if (m_size > limit) {
        return fail(
            failure_code::sizes, m_where,
            "has " + std::to_string(m_size) + " bytes, at most " + std::to_string(limit) + " are possible",
            m_source_byte);
    }
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(m_size));
    if (result<void> came = read(volume, bytes, 0); !came) {
        return passed_on(came);
    }
    return bytes;
}

block_place stored_stream::place_of(const volume_bytes& volume, std::uint64_t offset, std::uint64_t length,
                                    std::string where) const {
    block_place place{std::move(where), {}};
    for (std::uint64_t done = 0; done < length;) {
        const run* held = m_runs.find((offset + done) / m_cluster_size);
        if (held == nullptr) {
            break;
        }
        const std::uint64_t into_run = offset + done - held->vcn * m_cluster_size;
        if (!held->is_hole()) {
            place.pieces.push_back({done, volume.shape().source_byte_of(held->lcn) + into_run});
        }
        done += held->length * m_cluster_size - into_run;
    }
    return place;
}

}  // namespace quarry::exact
