#include "volume/cluster_reader.h"

#include "volume/buffer_size.h"
#include "volume/limits.h"
#include "volume/positions.h"

#include <algorithm>

namespace quarry {

namespace {

// One read of neighbours is no longer than this, so that reading them again one by one stays cheap.
constexpr std::uint64_t longest_joined_read = std::uint64_t{4} << 20;

}  // namespace

bool read_at(RAW_DISK_IO* disk, std::uint64_t position, std::uint64_t volume_offset, void* buffer,
             std::uint64_t& length) {
    if (disk == nullptr || buffer == nullptr || length == 0) {
        return false;
    }
    const std::optional<std::uint64_t> offset = position_sum(position, volume_offset);
    return offset && disk->read(buffer, length, *offset) && length > 0;
}

std::optional<std::uint64_t> cluster_reader::cluster_position(std::uint64_t lcn) const {
    return position_product(lcn, m_cluster_size);
}

bool cluster_reader::read(std::uint64_t position, void* buffer, std::uint64_t& length) const {
    return read_at(m_disk, position, m_volume_offset, buffer, length);
}

bool cluster_reader::read_whole(std::uint64_t position, void* buffer, std::uint64_t length) const {
    const std::optional<std::uint64_t> offset = position_sum(position, m_volume_offset);
    return m_disk != nullptr && offset && m_disk->read_whole(buffer, length, *offset);
}

bool cluster_reader::read_clusters(std::uint64_t lcn, std::uint8_t* buffer, std::uint64_t& length) const {
    const std::optional<std::uint64_t> position = cluster_position(lcn);
    return is_usable() && position && length % m_cluster_size == 0 && read(*position, buffer, length);
}

bool cluster_reader::read_cluster_alloc(std::uint64_t lcn, std::vector<std::uint8_t>& buffer,
                                        std::uint64_t& length, std::uint64_t& position) const {
    buffer.clear();
    position = cluster_position(lcn).value_or(highest_position);
    if (!is_usable()) {
        return false;
    }
    length = std::max(length, m_cluster_size);
    if (length - m_cluster_size > source_size() || !resized(buffer, length)) {
        return false;
    }
    return read(position, buffer.data(), length);
}

bool cluster_reader::read_neighbours(std::uint64_t lcn, std::uint64_t count, std::uint8_t* buffer) const {
    const std::optional<std::uint64_t> position = cluster_position(lcn);
    return is_usable() && position && read_whole(*position, buffer, count * m_cluster_size);
}

// How many clusters from the first on can be read whole. Where one read of all of them brings less, halves
// are tried, so that the place where the source ends costs few reads however small clusters are.
std::uint64_t cluster_reader::read_whole_clusters(std::uint64_t lcn, std::uint64_t count,
                                                  std::uint8_t* buffer) const {
    if (count < 2 || read_neighbours(lcn, count, buffer)) {
        return count < 2 ? 0 : count;
    }
    std::uint64_t whole = 0;
    // Up to `end` there is a cluster that is not whole. Each turn halves the distance.
    for (std::uint64_t end = count; end - whole > 1;) {
        const std::uint64_t half = (end - whole) / 2;
        if (read_neighbours(lcn + whole, half, buffer + whole * m_cluster_size)) {
            whole += half;
        } else {
            end = whole + half;
        }
    }
    return whole;
}

std::uint64_t cluster_reader::read_leading_clusters(std::uint64_t lcn, std::uint64_t count,
                                                    std::uint8_t* buffer) const {
    if (!is_usable()) {
        return 0;
    }
    const std::uint64_t most = std::max<std::uint64_t>(longest_joined_read / m_cluster_size, 1);
    std::uint64_t joined = most;
    // Each turn reads a cluster at least, or returns.
    for (std::uint64_t done = 0; done < count;) {
        const std::uint64_t wanted = std::min(count - done, joined);
        const std::uint64_t whole = read_whole_clusters(lcn + done, wanted, buffer + done * m_cluster_size);
        done += whole;
        if (whole == wanted) {
            joined = std::min(2 * joined, most);
            continue;
        }
        std::uint64_t length = m_cluster_size;
        if (!read_clusters(lcn + done, buffer + done * m_cluster_size, length)) {
            return done;
        }
        ++done;
        // Where one cluster is cut, others may be: more of them are tried together as that goes well.
        joined = wanted == 1 ? 2 : 1;
    }
    return count;
}

bool cluster_reader::read_all_clusters(const cluster_run_list& runs, std::vector<std::uint8_t>& out) const {
    out.clear();
    if (!is_usable()) {
        return false;
    }
    const std::uint64_t most_bytes = limits::attribute_list_bytes(source_size());
    const std::uint64_t most = most_bytes / m_cluster_size + (most_bytes % m_cluster_size == 0 ? 0 : 1);
    const std::uint64_t room = std::min(run_bytes(runs, 1, false), most);
    if (!resized(out, room * m_cluster_size)) {
        return false;
    }
    std::uint64_t filled = 0;
    bool complete = true;
    for (const cluster_run& run : runs) {
        const std::uint64_t wanted = std::min<std::uint64_t>(run.length, room - filled);
        // Deliberate: a sparse run is read from its LCN of 0, not filled with zeros. A list with holes, which
        // no file system writes, holds the start of the volume there.
        const std::uint64_t read =
            read_leading_clusters(run.lcn, wanted, out.data() + filled * m_cluster_size);
        filled += read;
        complete = complete && read == run.length;
    }
    // A read that came short may have left something after what counts.
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(filled * m_cluster_size), out.end(), std::uint8_t{0});
    return complete;
}

bool cluster_reader::read_list_clusters(const attribute& list, std::vector<std::uint8_t>& out) const {
    data_run_list pairs;
    cluster_run_list runs;
    if (!decode_runs(list.bytes(), pairs) || !to_cluster_runs(pairs, runs)) {
        out.clear();
        return false;
    }
    return read_all_clusters(runs, out);
}

}  // namespace quarry
