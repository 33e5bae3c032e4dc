#include "support/slow_stream.h"

#include "support/slow_lznt1.h"

#include <algorithm>
#include <sstream>

namespace quarry::test {

namespace {

struct taken_cluster {
    std::uint64_t lcn = 0;
    bool sparse = false;
};

// The bytes of one cluster, empty if it cannot be read.
bytes read_cluster(CNtfs& ntfs, const taken_cluster& cluster) {
    bytes buffer(static_cast<std::size_t>(ntfs.m_cluster_size));
    std::uint64_t length = buffer.size();
    if (!cluster.sparse && !ntfs.read_clusters(cluster.lcn, buffer.data(), length)) {
        return {};
    }
    return buffer;
}

void append(bytes& out, const bytes& cluster, std::uint64_t from, std::uint64_t count) {
    out.insert(out.end(), cluster.begin() + static_cast<std::ptrdiff_t>(from),
               cluster.begin() + static_cast<std::ptrdiff_t>(from + count));
}

std::string size_line(std::uint64_t size) {
    std::ostringstream text;
    text << "info: data size 0x" << std::hex << size;
    return text.str();
}

void restore_blocks(bytes& transfer, std::uint64_t sector_size) {
    for (std::size_t block = 0; block + 4096 <= transfer.size(); block += 4096) {
        const std::size_t array = transfer[block + 4] + 256u * transfer[block + 5];
        const std::size_t count = transfer[block + 6] + 256u * transfer[block + 7];
        for (std::size_t word = 1; word < count && word < 4096 / sector_size + 1; ++word) {
            const std::size_t from = array + 2 * word;
            if (from + 2 <= 4096) {
                transfer[block + word * sector_size - 2] = transfer[block + from];
                transfer[block + word * sector_size - 1] = transfer[block + from + 1];
            }
        }
    }
}

}  // namespace

slow_read slow_read_stream(CNtfs& ntfs, const cluster_run_list& runs, std::uint64_t offset,
                           std::uint64_t length, std::uint32_t flags) {
    const auto size = static_cast<std::uint64_t>(ntfs.m_cluster_size);
    const bool skip = (flags & 1) != 0;
    const std::uint64_t first = offset / size;
    const std::uint64_t last = (offset + length) / size;
    std::uint64_t head = offset % size;
    std::uint64_t tail = (offset + length) % size;
    slow_read out;
    out.flags = 8;
    if (first % 65536 == 0) {
        out.flags = last == first + 16 ? 0x38 : 0x18;
    }

    std::vector<taken_cluster> taken;
    for (std::uint64_t vcn = first; vcn <= last; ++vcn) {
        std::size_t index = 0;
        std::uint64_t lcn = 0;
        if (!find_run(runs, vcn, index, lcn)) {
            break;
        }
        if (runs[index].sparse && skip) {
            head = vcn == first ? 0 : head;
            tail = vcn == last ? 0 : tail;
            continue;
        }
        taken.push_back({lcn, runs[index].sparse});
    }

    for (std::size_t i = 0; i < taken.size() && out.delivered.size() < length; ++i) {
        const bytes cluster = read_cluster(ntfs, taken[i]);
        if (cluster.empty()) {
            break;
        }
        if (taken[i].sparse) {
            out.flags |= 2;
        }
        if (i == 0) {
            append(out.delivered, cluster, head, std::min(size - head, length));
        } else if (i + 1 < taken.size() || tail == 0) {
            append(out.delivered, cluster, 0, size);
        } else {
            append(out.delivered, cluster, 0, std::min(tail, length - out.delivered.size()));
        }
        out.ok = true;
    }
    return out;
}

slow_copy slow_pump(CNtfs& ntfs, const attr_item& item, bool raw, bool skip_sparse, bool include_slack) {
    slow_copy out;
    const auto cluster_size = static_cast<std::uint64_t>(ntfs.m_cluster_size);
    const std::uint64_t unit = cluster_size * 16;
    const std::uint64_t size = raw ? item.allocated : std::max(item.real, item.initialized);
    out.log.push_back(size_line(size));
    std::uint64_t clusters = 0;
    for (const cluster_run& run : item.runs) {
        clusters += run.length;
    }
    std::uint64_t left = std::min(clusters * cluster_size, size);
    cluster_run_list runs = item.runs;
    if (skip_sparse) {
        drop_sparse_runs(runs);
    }
    std::uint64_t length = std::min(unit, left);
    if (length == 0) {
        return out;
    }
    out.ok = true;
    std::uint64_t slack = item.allocated - size;
    std::uint64_t offset = 0;
    for (;;) {
        slow_read read = slow_read_stream(ntfs, runs, offset, length, 0);
        if (!read.ok || read.delivered.empty()) {
            return out;
        }
        length = read.delivered.size();
        if (item.type == 0xA0 && !raw) {
            restore_blocks(read.delivered, ntfs.get_bytes_per_sector());
        }
        append(out.out, read.delivered, 0, length);
        out.bytes_copied += length;
        left -= length;
        if (left == 0) {
            if (!include_slack || slack == 0) {
                return out;
            }
            left = slack;
            slack = 0;
            offset += length;
            length = std::min(unit, left);
            continue;
        }
        offset += length;
        length = length > left ? left : unit;
    }
}

slow_copy slow_pump_compressed(CNtfs& ntfs, const attr_item& item) {
    slow_copy out;
    const auto cluster_size = static_cast<std::uint64_t>(ntfs.m_cluster_size);
    const std::uint64_t unit = cluster_size * 16;
    const std::uint64_t size = std::max(item.real, item.initialized);
    out.log.push_back(size_line(size));
    std::uint64_t clusters = 0;
    for (const cluster_run& run : item.runs) {
        clusters += run.length;
    }
    const std::uint64_t limit = std::min(clusters * cluster_size, size);
    const std::uint64_t tail = item.allocated > limit ? item.allocated - limit : 0;
    std::int64_t left = static_cast<std::int64_t>(limit);
    std::uint64_t position = 0;
    std::uint64_t transfer = unit;
    while (left > 0) {
        const slow_read read = slow_read_stream(ntfs, item.runs, position, transfer, 0);
        if (!read.ok) {
            break;
        }
        const bool sparse = (read.flags & 2) != 0;
        const bool chunks =
            sparse || (read.delivered.size() >= 2 && read.delivered[0] == 0xFF && read.delivered[1] == 0x3F);
        slow_unit plain{true, read.delivered};
        if (chunks) {
            plain = slow_decode_chunks(
                read.delivered, static_cast<std::size_t>(std::min(static_cast<std::uint64_t>(left), unit)));
        }
        if (!plain.ok || plain.plain.empty()) {
            break;
        }
        append(out.out, plain.plain, 0,
               std::min<std::uint64_t>(plain.plain.size(), static_cast<std::uint64_t>(left)));
        out.ok = true;
        left -= static_cast<std::int64_t>(read.delivered.size());
        position += read.delivered.size();
        const auto rest = static_cast<std::uint64_t>(std::max<std::int64_t>(left, 0));
        transfer = read.delivered.size() > rest ? std::min(rest + tail, unit) : unit;
    }
    if (out.ok) {
        out.bytes_copied = limit;
    }
    return out;
}

}  // namespace quarry::test
