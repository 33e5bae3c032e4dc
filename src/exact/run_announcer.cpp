#include "exact/run_announcer.h"

#include <algorithm>

namespace quarry::exact {

void run_announcer::reading(std::uint64_t offset) {
    const std::vector<run>& runs = m_stream->runs().runs();
    const std::uint64_t cluster_size = m_volume->shape().cluster_size;
    while (m_at + 1 < runs.size() && runs[m_at + 1].vcn * cluster_size <= offset) {
        ++m_at;
    }
    while (!m_ahead.empty() && m_ahead.front().run <= m_at) {
        m_bytes_ahead -= m_ahead.front().bytes;
        m_ahead.pop_front();
    }
    m_next = std::max(m_next, m_at + 1);
    // Ends with the runs, with the bytes that were ever written, or when enough is announced.
    while (m_next < runs.size() && m_ahead.size() < most_pieces && m_bytes_ahead < most_bytes) {
        const run& next = runs[m_next];
        const std::uint64_t begin = next.vcn * cluster_size;
        if (begin >= m_stream->valid_size()) {
            return;
        }
        if (!next.is_hole()) {
            const std::uint64_t bytes = std::min(
                {next.length * cluster_size, m_stream->valid_size() - begin, most_bytes - m_bytes_ahead});
            m_volume->announce(next.lcn, bytes);
            m_ahead.push_back({m_next, bytes});
            m_bytes_ahead += bytes;
        }
        ++m_next;
    }
}

}  // namespace quarry::exact
