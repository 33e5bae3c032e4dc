#include "volume/stream_reader.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace quarry {

namespace {

// Runs of this many bytes, and so many between them, cost less to copy than a read of their own would.
constexpr std::uint64_t cheap_to_copy = 8 << 10;
constexpr std::uint64_t most_together = 256 << 10;

}  // namespace

stream_reader::stream_reader(CNtfs& ntfs, const cluster_run_list& runs)
    : m_clusters(ntfs.clusters()),
      m_cursor(runs),
      m_cluster_size(ntfs.m_cluster_size > 0 ? static_cast<std::uint64_t>(ntfs.m_cluster_size) : 0) {}

bool stream_reader::read(std::uint64_t offset, std::uint8_t* buffer, std::uint64_t& length,
                         std::uint32_t& flags) {
    if (!begin(offset, length, flags)) {
        return false;
    }
    const std::uint64_t delivered = deliver(m_range, buffer, length, flags);
    if (delivered == 0) {
        return false;
    }
    length = delivered;
    return true;
}

bool stream_reader::begin(std::uint64_t offset, std::uint64_t length, std::uint32_t& flags) {
    if (m_cluster_size == 0) {
        return false;
    }
    const bool skip_sparse = (flags & stream_skip_sparse) != 0;
    const std::uint64_t end = offset + length;
    m_range = {offset / m_cluster_size, end / m_cluster_size, offset % m_cluster_size, end % m_cluster_size};
    m_range_bytes = length;
    flags = stream_was_read;
    // Deliberate: this flag takes 16 zero bits of the VCN, not the start of a unit of 16 clusters. It is set
    // at every 65,536th cluster only. Nothing that users see depends on it.
    if ((m_range.first & 0xFFFF) == 0) {
        flags |= stream_vcn_is_even;
        if (m_range.last == m_range.first + 16) {
            flags |= stream_is_one_unit;
        }
    }
    collect(m_range, skip_sparse);
    return !m_stretches.empty() && length != 0;
}

std::uint64_t stream_reader::read_part(std::uint64_t from, std::uint8_t* buffer, std::uint64_t length,
                                       std::uint32_t& flags) {
    const std::uint64_t end = from + std::min(length, m_range_bytes - std::min(from, m_range_bytes));
    std::uint64_t given = 0;
    std::uint64_t at = 0;  // of the present share in what the whole range gives
    for (std::size_t i = 0; i < m_stretches.size(); ++i) {
        const run_cursor::stretch& stretch = m_stretches[i];
        // Each turn takes a cluster at least.
        for (std::uint64_t done = 0; done < stretch.length_in_clusters && at < end;) {
            const share next = next_share(m_range, i, done, m_range_bytes - at);
            const std::uint64_t wanted_from = std::max(from, at);
            const std::uint64_t wanted_end = std::min(end, at + next.bytes);
            if (wanted_from < wanted_end) {
                const std::uint64_t wanted = wanted_end - wanted_from;
                const std::uint64_t skipped = next.from + (wanted_from - at);
                std::uint64_t got = wanted;
                if (stretch.sparse) {
                    flags |= stream_met_sparse;
                    std::memset(buffer + given, 0, wanted);
                } else {
                    got = bytes_of_run(stretch.lcn + done, skipped, wanted, buffer + given);
                }
                given += got;
                if (got < wanted) {
                    return given;
                }
            }
            at += next.bytes;
            done += next.clusters;
        }
    }
    return given;
}

// Bytes from byte `from` of a run on, up to the first cluster that cannot be read. Returns how many there
// were.
std::uint64_t stream_reader::bytes_of_run(std::uint64_t lcn, std::uint64_t from, std::uint64_t bytes,
                                          std::uint8_t* buffer) {
    // Each turn takes the rest of a cluster or several whole ones.
    for (std::uint64_t done = 0; done < bytes;) {
        const std::uint64_t cluster = lcn + (from + done) / m_cluster_size;
        const std::uint64_t head = (from + done) % m_cluster_size;
        const std::uint64_t left = bytes - done;
        if (head == 0 && left >= m_cluster_size) {
            const std::uint64_t wanted = left / m_cluster_size;
            const std::uint64_t got = m_clusters.read_leading_clusters(cluster, wanted, buffer + done);
            done += got * m_cluster_size;
            if (got < wanted) {
                return done;
            }
            continue;
        }
        const std::uint64_t part = std::min(left, m_cluster_size - head);
        if (!part_of_cluster(cluster, head, part, buffer + done)) {
            return done;
        }
        done += part;
    }
    return bytes;
}

// The clusters of the range, up to the first that no run covers. A sparse cluster that is left out at either
// end of the range takes the cut of that end with it.
void stream_reader::collect(cluster_range& range, bool skip_sparse) {
    m_stretches.clear();
    // Ends after the last cluster or at one without a run; each turn moves on by a cluster at least.
    for (std::uint64_t vcn = range.first; vcn <= range.last;) {
        run_cursor::stretch found;
        if (!m_cursor.find(vcn, found)) {
            break;
        }
        const std::uint64_t left_after = range.last - vcn;
        const bool reaches_end = found.length_in_clusters > left_after;
        const std::uint64_t count = reaches_end ? left_after + 1 : found.length_in_clusters;
        if (!found.sparse || !skip_sparse) {
            m_stretches.push_back({found.lcn, count, found.sparse});
        } else {
            range.head = vcn == range.first ? 0 : range.head;
            range.tail = reaches_end ? 0 : range.tail;
        }
        if (reaches_end) {
            break;
        }
        vcn += count;
    }
}

std::uint64_t stream_reader::deliver(const cluster_range& range, std::uint8_t* buffer, std::uint64_t length,
                                     std::uint32_t& flags) {
    std::uint64_t delivered = 0;
    m_close_end = 0;
    for (std::size_t i = 0; i < m_stretches.size(); ++i) {
        const run_cursor::stretch& at = m_stretches[i];
        if (i >= m_close_end) {
            read_close_runs(i);
        }
        flags |= at.sparse && delivered < length ? stream_met_sparse : 0;
        // Each turn takes a cluster at least.
        for (std::uint64_t done = 0; done < at.length_in_clusters && delivered < length;) {
            const share next = next_share(range, i, done, length - delivered);
            const std::uint64_t got = take(next, at, done, buffer + delivered);
            delivered += got;
            if (got < next.bytes) {
                return delivered;
            }
            done += next.clusters;
        }
    }
    return delivered;
}

// What the clusters of stretch `index` from `done` on give next, where `room` bytes are still wanted: as many
// whole clusters as there are, or a part of one.
//
// Deliberate: the cut of the range's end applies to the last cluster that was found, not to the cluster in
// which the range ends. Where the runs end early the last one is cut, and its rest comes with the next read.
// The user sees all of it.
stream_reader::share stream_reader::next_share(const cluster_range& range, std::size_t index,
                                               std::uint64_t done, std::uint64_t room) const {
    const std::uint64_t rest = m_stretches[index].length_in_clusters - done;
    const bool is_first = index == 0 && done == 0;
    const bool end_is_cut = index + 1 == m_stretches.size() && range.tail > 0;
    const std::uint64_t from = is_first ? range.head : 0;
    if (end_is_cut && rest == 1 && !is_first) {
        return {.from = 0, .bytes = std::min(range.tail, room), .clusters = 1};
    }
    if (from > 0 || room < m_cluster_size) {
        return {.from = from, .bytes = std::min(m_cluster_size - from, room), .clusters = 1};
    }
    const std::uint64_t whole = end_is_cut && rest > 1 ? rest - 1 : rest;
    const std::uint64_t clusters = std::min(whole, room / m_cluster_size);
    return {.from = 0, .bytes = clusters * m_cluster_size, .clusters = clusters};
}

// Reads stretch `index` and those that lie close after it, each after the one before, with one read. If
// there are none, or that read brings less, they are left to be read one by one.
void stream_reader::read_close_runs(std::size_t index) {
    const std::uint64_t most = most_together / m_cluster_size;
    const std::uint64_t cheap = cheap_to_copy / m_cluster_size;
    const std::uint64_t first = m_stretches[index].lcn;
    std::uint64_t count = m_stretches[index].length_in_clusters;
    m_close_count = 0;
    m_close_end = index + 1;
    if (m_stretches[index].sparse || count > cheap) {
        return;
    }
    for (; m_close_end < m_stretches.size(); ++m_close_end) {
        const run_cursor::stretch& next = m_stretches[m_close_end];
        if (next.sparse || next.lcn < first || next.lcn - first < count || next.lcn - first - count > cheap ||
            next.length_in_clusters > cheap || next.lcn - first > most - cheap) {
            break;
        }
        count = next.lcn - first + next.length_in_clusters;
    }
    if (m_close_end - index < 2) {
        return;
    }
    m_close.resize(std::max<std::uint64_t>(count * m_cluster_size, m_close.size()));
    if (m_clusters.read_neighbours(first, count, m_close.data())) {
        m_close_lcn = first;
        m_close_count = count;
    }
}

// Puts a share into the buffer. Fewer bytes than it has: the clusters after them cannot be read.
std::uint64_t stream_reader::take(const share& wanted, const run_cursor::stretch& at, std::uint64_t done,
                                  std::uint8_t* buffer) {
    if (at.sparse) {
        std::memset(buffer, 0, wanted.bytes);
        return wanted.bytes;
    }
    const std::uint64_t place = at.lcn + done - m_close_lcn;
    if (place < m_close_count && wanted.clusters <= m_close_count - place) {
        std::memcpy(buffer, m_close.data() + (place * m_cluster_size + wanted.from), wanted.bytes);
        return wanted.bytes;
    }
    if (wanted.bytes == wanted.clusters * m_cluster_size) {
        const std::uint64_t got =
            m_clusters.read_leading_clusters(at.lcn + done, wanted.clusters, buffer) * m_cluster_size;
        std::memset(buffer + got, 0, wanted.bytes - got);
        return got;
    }
    return part_of_cluster(at.lcn + done, wanted.from, wanted.bytes, buffer) ? wanted.bytes : 0;
}

bool stream_reader::part_of_cluster(std::uint64_t lcn, std::uint64_t from, std::uint64_t bytes,
                                    std::uint8_t* buffer) {
    // Of a cluster that is longer than a buffer, parts are asked for one after the other.
    if (m_scratch_lcn != lcn) {
        m_scratch_lcn.reset();
        m_scratch.resize(m_cluster_size);
        std::uint64_t size = m_cluster_size;
        if (!m_clusters.read_clusters(lcn, m_scratch.data(), size)) {
            return false;
        }
        m_scratch_lcn = lcn;
    }
    std::memcpy(buffer, m_scratch.data() + from, bytes);
    return true;
}

bool CNtfs::read_stream_bytes(const cluster_run_list& runs, std::uint64_t offset, std::uint8_t* buffer,
                              std::uint64_t& length, std::uint32_t& flags) {
    try {
        return stream_reader(*this, runs).read(offset, buffer, length, flags);
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool CNtfs::read_stream_range(const cluster_run_list& runs, std::uint64_t offset, std::uint8_t* buffer,
                              std::uint64_t& length, bool skip_sparse) {
    if (buffer == nullptr || length == 0 || runs.empty()) {
        return false;
    }
    std::uint32_t flags = skip_sparse ? stream_skip_sparse : 0;
    return read_stream_bytes(runs, offset, buffer, length, flags);
}

}  // namespace quarry
