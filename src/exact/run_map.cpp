#include "exact/run_map.h"

#include <algorithm>

namespace quarry::exact {

namespace {

constexpr std::uint64_t most_bytes = std::numeric_limits<std::int64_t>::max();
constexpr unsigned widest_field = 8;

// A stored number of `width` bytes (at most 8) with its sign.
std::int64_t signed_number(byte_view bytes, std::uint64_t offset, unsigned width) {
    const std::uint64_t number = bytes.number_of_width(offset, width);
    const unsigned unused_bits = 64 - 8 * width;
    return width == 0 ? 0 : static_cast<std::int64_t>(number << unused_bits) >> unused_bits;
}

}  // namespace

// The place in the mapping pairs of one piece.
struct run_map::cursor {
    byte_view attribute;
    std::string_view where;
    std::optional<std::uint64_t> source_byte;  // of the attribute
    std::uint64_t offset = 0;                  // in the attribute, of the pair
    std::int64_t lcn = 0;                      // of the stored run before

    [[nodiscard]] std::optional<std::uint64_t> source_byte_of_pair() const {
        return source_byte ? std::optional(*source_byte + offset) : std::nullopt;
    }
    [[nodiscard]] tl::unexpected<failure> broken(const std::string& rule) const {
        return fail(failure_code::runs, std::string(where), "mapping pairs at " + hex(offset) + ": " + rule,
                    source_byte_of_pair());
    }
};

result<void> run_map::add(const attribute& piece, std::string_view where,
                          std::optional<std::uint64_t> source_byte) {
    const std::uint64_t lowest = piece.lowest_vcn();
    if (m_has_piece && lowest == m_last_piece_vcn) {
        return fail(failure_code::duplicate, std::string(where),
                    "stands twice at VCN " + std::to_string(lowest), source_byte);
    }
    if (lowest != end_vcn()) {
        return fail(failure_code::gap, std::string(where),
                    "piece at VCN " + std::to_string(lowest) + ", expected " + std::to_string(end_vcn()),
                    source_byte);
    }
    m_has_piece = true;
    m_last_piece_vcn = lowest;
    cursor at{piece.own_bytes(), where, source_byte, piece.mapping_pairs_offset()};
    // Each turn takes at least the header of a pair, or is the last.
    for (;;) {
        const std::optional<std::uint8_t> header = at.attribute.u8(at.offset);
        if (!header) {
            return at.broken("they have no end inside of the attribute");
        }
        if (*header == 0) {
            break;
        }
        if (result<void> added = add_pair(at); !added) {
            return added;
        }
    }
    // An attribute without clusters may have either number for its highest VCN.
    const bool compared = lowest != 0 || piece.highest_vcn() != 0;
    if (compared && piece.highest_vcn() + 1 != end_vcn()) {
        return at.broken("they end at VCN " + std::to_string(end_vcn()) + ", the attribute says " +
                         std::to_string(piece.highest_vcn() + 1));
    }
    return {};
}

result<void> run_map::add_pair(cursor& at) {
    const unsigned header = at.attribute.u8_or_zero(at.offset);
    const unsigned length_width = header & 0xF;
    const unsigned lcn_width = header >> 4;
    if (length_width == 0 || length_width > widest_field || lcn_width > widest_field) {
        return at.broken("a header of " + hex(header));
    }
    if (!at.attribute.holds(at.offset, 1 + length_width + lcn_width)) {
        return at.broken("a pair reaches past the attribute");
    }
    const std::int64_t length = signed_number(at.attribute, at.offset + 1, length_width);
    const bool hole = lcn_width == 0;
    if (length < 0 || (length == 0 && !hole)) {
        return at.broken("a run of " + std::to_string(length) + " clusters");
    }
    std::optional<std::uint64_t> lcn;
    if (!hole) {
        const std::int64_t difference = signed_number(at.attribute, at.offset + 1 + length_width, lcn_width);
        // The LCN so far lies inside of the volume, so only an upward difference can leave 63 bits.
        if (difference > std::numeric_limits<std::int64_t>::max() - at.lcn || at.lcn + difference < 0) {
            return at.broken("an LCN below 0 or above 63 bits");
        }
        at.lcn += difference;
        lcn = static_cast<std::uint64_t>(at.lcn);
    }
    if (length > 0) {
        const auto clusters = static_cast<std::uint64_t>(length);
        if (clusters > most_bytes / m_cluster_size - end_vcn()) {
            return at.broken("the stream leaves 63 bits");
        }
        if (result<void> added = add_run(lcn, clusters, at.where, at.source_byte_of_pair()); !added) {
            return added;
        }
    }
    at.offset += 1 + length_width + lcn_width;
    return {};
}

result<void> run_map::add_run(std::optional<std::uint64_t> lcn, std::uint64_t length, std::string_view where,
                              std::optional<std::uint64_t> source_byte) {
    if (lcn && (*lcn > m_volume_clusters || length > m_volume_clusters - *lcn)) {
        return fail(failure_code::outside, std::string(where),
                    "clusters " + std::to_string(*lcn) + " to " + std::to_string(*lcn + (length - 1)) +
                        " lie outside of the volume of " + std::to_string(m_volume_clusters),
                    source_byte);
    }
    if (lcn) {
        // Runs that lie over each other would make a stream of any length out of one cluster.
        if (length > m_volume_clusters - m_stored_clusters) {
            return fail(
                failure_code::runs, std::string(where),
                "stores more than the " + std::to_string(m_volume_clusters) + " clusters of the volume",
                source_byte);
        }
        m_stored_clusters += length;
    }
    m_runs.push_back({end_vcn(), lcn.value_or(run::no_lcn), length});
    return {};
}

result<void> run_map::add_stored(std::uint64_t lcn, std::uint64_t length, std::string_view where,
                                 std::optional<std::uint64_t> source_byte) {
    return add_run(lcn, length, where, source_byte);
}

const run* run_map::find(std::uint64_t vcn) const {
    const auto after =
        std::upper_bound(m_runs.begin(), m_runs.end(), vcn,
                         [](std::uint64_t wanted, const run& each) { return wanted < each.vcn; });
    if (after == m_runs.begin()) {
        return nullptr;
    }
    const run& found = *(after - 1);
    return vcn < found.end_vcn() ? &found : nullptr;
}

std::optional<std::uint64_t> run_map::cluster_used_twice() const {
    std::vector<run> stored;
    std::copy_if(m_runs.begin(), m_runs.end(), std::back_inserter(stored),
                 [](const run& each) { return !each.is_hole(); });
    std::sort(stored.begin(), stored.end(), [](const run& a, const run& b) { return a.lcn < b.lcn; });
    // The one that reaches farthest may not be the neighbour.
    std::uint64_t used_up_to = 0;
    for (const run& each : stored) {
        if (each.lcn < used_up_to) {
            return each.lcn;
        }
        used_up_to = each.lcn + each.length;
    }
    return std::nullopt;
}

}  // namespace quarry::exact
