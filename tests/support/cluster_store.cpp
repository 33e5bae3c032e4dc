#include "support/cluster_store.h"

#include <algorithm>
#include <stdexcept>

namespace quarry::test {

namespace {

// Runs that begin or end past this cluster are lies about a volume, not places on it.
constexpr std::uint64_t largest_lcn = std::uint64_t{1} << 22;

bool lies_on_a_volume(const run& piece) {
    return piece.lcn >= 0 && static_cast<std::uint64_t>(piece.lcn) < largest_lcn &&
           piece.length < largest_lcn;
}

}  // namespace

std::uint64_t cluster_store::clusters_for(std::uint64_t size) const {
    return (size + m_cluster_size - 1) / m_cluster_size;
}

void cluster_store::take(const run_list& where) {
    for (const run& piece : where) {
        if (!lies_on_a_volume(piece)) {
            continue;
        }
        const auto first = static_cast<std::size_t>(piece.lcn);
        const std::size_t end = first + static_cast<std::size_t>(piece.length);
        if (m_taken.size() < end) {
            m_taken.resize(end);
        }
        std::fill(m_taken.begin() + static_cast<std::ptrdiff_t>(first),
                  m_taken.begin() + static_cast<std::ptrdiff_t>(end), true);
    }
}

run cluster_store::allocate(std::uint64_t count) {
    std::uint64_t first = 0;
    std::uint64_t free_so_far = 0;
    while (free_so_far < count) {
        if (taken(first + free_so_far)) {
            first += free_so_far + 1;
            free_so_far = 0;
        } else {
            ++free_so_far;
        }
    }
    const run result{static_cast<std::int64_t>(first), count};
    take({result});
    return result;
}

void cluster_store::write(const run_list& where, const bytes& content) {
    std::size_t done = 0;
    for (const run& piece : where) {
        const std::size_t room = static_cast<std::size_t>(piece.length) * m_cluster_size;
        const std::size_t part = std::min(room, content.size() - done);
        if (piece.lcn != hole) {
            const auto from = content.begin() + static_cast<std::ptrdiff_t>(done);
            write_at(static_cast<std::uint64_t>(piece.lcn) * m_cluster_size,
                     bytes(from, from + static_cast<std::ptrdiff_t>(part)));
        }
        done += part;
    }
    if (done < content.size()) {
        throw std::length_error("the content is longer than its runs");
    }
}

void cluster_store::write_at(std::uint64_t position, const bytes& content) {
    m_bytes = byte_writer(std::move(m_bytes)).raw(static_cast<std::size_t>(position), content).take();
}

std::uint64_t cluster_store::end_cluster() const {
    return std::max(clusters_for(m_bytes.size()), std::uint64_t{m_taken.size()});
}

bool cluster_store::taken(std::uint64_t lcn) const {
    return lcn < m_taken.size() && m_taken[static_cast<std::size_t>(lcn)];
}

bytes cluster_store::content(std::uint64_t total_clusters) const {
    bytes result = m_bytes;
    result.resize(static_cast<std::size_t>(total_clusters) * m_cluster_size);
    return result;
}

}  // namespace quarry::test
