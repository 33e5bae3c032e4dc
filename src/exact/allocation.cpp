#include "exact/allocation.h"

#include "exact/attribute_set.h"
#include "volume/well_known.h"

#include <algorithm>
#include <bit>

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
    for (const run& each : stored) {
        const std::uint64_t begin = std::max(each.lcn, done);
        const std::uint64_t end = std::min(each.lcn + each.length, held);
        if (begin >= end) {
            continue;
        }
        result<std::uint64_t> used = used_in(begin, end - begin);
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
        for (std::size_t i = 0; i < block.size(); ++i) {
            const std::uint64_t first_cluster = (byte + i) * 8;
            const std::uint64_t begin = lcn > first_cluster ? lcn - first_cluster : 0;
            used += static_cast<unsigned>(
                std::popcount(static_cast<std::uint8_t>(block[i] & mask_of(begin, end - first_cluster))));
        }
    }
    return used;
}

}  // namespace quarry::exact
