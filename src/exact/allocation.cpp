#include "exact/allocation.h"

#include "exact/attribute_set.h"
#include "volume/well_known.h"

#include <algorithm>
#include <bit>
#include <optional>
#include <vector>

namespace quarry::exact {

namespace {

// Bytes of the bitmap that are read at once.
constexpr std::uint64_t block_bytes = 0x10000;

// The bits of a byte whose clusters lie in [begin, end), counted from the byte's first cluster.
std::uint8_t mask_of(std::uint64_t begin, std::uint64_t end) {
    const unsigned from = 0xFFu << begin;
    const unsigned up_to = end >= 8 ? 0xFFu : (1u << end) - 1;
    return static_cast<std::uint8_t>(from & up_to);
}

// The bits of [lcn, end) that are set; `bytes` begin with the one that has the first of them.
std::uint64_t count_set(byte_view bytes, std::uint64_t lcn, std::uint64_t end) {
    const std::uint64_t first_byte = lcn / 8;
    std::uint64_t used = 0;
    for (std::uint64_t i = 0; (first_byte + i) * 8 < end && i < bytes.size(); ++i) {
        const std::uint64_t first_cluster = (first_byte + i) * 8;
        const std::uint64_t begin = lcn > first_cluster ? lcn - first_cluster : 0;
        used += static_cast<unsigned>(std::popcount(static_cast<std::uint8_t>(
            bytes.data()[static_cast<std::size_t>(i)] & mask_of(begin, end - first_cluster))));
    }
    return used;
}

// Bytes of the bitmap around those that were asked for last. The runs of a file come in the order of their
// clusters, so that the bits of thousands of fragments are in a few blocks.
class held_block {
  public:
    static constexpr std::uint64_t longest_row = 0x1000;

    held_block(const volume_bytes& volume, const stored_stream& bitmap)
        : m_volume(&volume), m_bitmap(&bitmap) {}

    // The bytes from `begin` up to `end`, of which there are at most longest_row. Nothing if a byte near them
    // cannot be read.
    [[nodiscard]] std::optional<byte_view> row(std::uint64_t begin, std::uint64_t end) {
        if (begin < m_first || end > m_first + m_bytes.size()) {
            m_first = begin / longest_row * longest_row;
            const std::uint64_t all = (m_volume->shape().clusters + 7) / 8;
            m_bytes.resize(static_cast<std::size_t>(std::min(2 * longest_row, all - m_first)));
            if (!m_bitmap->read(*m_volume, m_bytes, m_first)) {
                m_bytes.clear();
                return std::nullopt;
            }
        }
        return byte_view(m_bytes).clipped(begin - m_first, end - begin);
    }

  private:
    const volume_bytes* m_volume;
    const stored_stream* m_bitmap;
    std::uint64_t m_first = 0;
    std::vector<std::uint8_t> m_bytes;
};

}  // namespace

result<allocation> allocation::open(const mft& table, notices& told) {
    const geometry& shape = table.volume().shape();
    return table.read_system(bitmap_entry, told)
        .and_then([&](record found) { return attribute_set::of(table, std::move(found), told); })
        .and_then([&](const attribute_set& set) { return set.stored(shape, attr_data, {}); })
        .and_then([&](stored_stream stored) -> result<allocation> {
            if (stored.size() < (shape.clusters + 7) / 8) {
                return fail(failure_code::sizes, stored.where(),
                            "has " + std::to_string(stored.size()) + " bytes for " +
                                std::to_string(shape.clusters) + " clusters",
                            stored.source_byte());
            }
            return allocation(table.volume(), std::move(stored));
        });
}

result<allocation::count> allocation::of(const run_map& runs) const {
    std::vector<run> stored;
    std::copy_if(runs.runs().begin(), runs.runs().end(), std::back_inserter(stored),
                 [](const run& each) { return !each.is_hole(); });
    std::sort(stored.begin(), stored.end(), [](const run& a, const run& b) { return a.lcn < b.lcn; });
    // Clusters that the source does not hold are not copied either, so that a claim costs nothing.
    const geometry& shape = m_volume.shape();
    const std::uint64_t source_bytes = m_volume.source().size();
    const std::uint64_t held =
        source_bytes > shape.volume_offset ? (source_bytes - shape.volume_offset) / shape.cluster_size : 0;
    count total;
    std::uint64_t done = 0;  // clusters before this one are counted
    held_block block(m_volume, m_bitmap);
    for (const run& each : stored) {
        const std::uint64_t begin = std::max(each.lcn, done);
        const std::uint64_t end = std::min(each.lcn + each.length, held);
        if (begin >= end) {
            continue;
        }
        const bool is_short = (end - begin) / 8 + 2 <= held_block::longest_row;
        const std::optional<byte_view> row = is_short ? block.row(begin / 8, (end + 7) / 8) : std::nullopt;
        // What cannot be read may be bits that nobody asked for: the second way reads no others.
        result<std::uint64_t> used = row ? count_set(*row, begin, end) : used_in(begin, end - begin);
        if (!used) {
            return passed_on(used);
        }
        total.used += *used;
        total.free += end - begin - *used;
        done = end;
    }
    return total;
}

result<std::uint64_t> allocation::used_in(std::uint64_t lcn, std::uint64_t length) const {
    const std::uint64_t end = lcn + length;
    std::uint64_t used = 0;
    std::vector<std::uint8_t> block;
    for (std::uint64_t byte = lcn / 8; byte * 8 < end; byte += block.size()) {
        block.resize(static_cast<std::size_t>(std::min(block_bytes, (end + 7) / 8 - byte)));
        if (result<void> came = m_bitmap.read(m_volume, block, byte); !came) {
            return passed_on(came);
        }
        used += count_set(byte_view(block), std::max(lcn, byte * 8), end);
    }
    return used;
}

}  // namespace quarry::exact
