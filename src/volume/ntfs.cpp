#include "volume/ntfs.h"

#include "foundation/assertion.h"

#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>

namespace quarry {

namespace {

constexpr std::uint64_t highest_position = std::numeric_limits<std::int64_t>::max();
// Index blocks have one size here, whatever the volume says of them.
constexpr std::uint32_t index_block_size = 4096;
// One read of neighbours is no longer than this, so that reading them again one by one stays cheap.
constexpr std::uint64_t longest_joined_read = std::uint64_t{4} << 20;

// The product of two numbers if a position can hold it.
std::optional<std::uint64_t> position_product(std::uint64_t count, std::uint64_t size) {
    if (size != 0 && count > highest_position / size) {
        return std::nullopt;
    }
    return count * size;
}

// Where on the source a position of the volume lies; nothing if 63 bits cannot hold it.
std::optional<std::uint64_t> source_position(std::uint64_t position, std::uint64_t volume_offset) {
    if (position > highest_position || volume_offset > highest_position - position) {
        return std::nullopt;
    }
    return position + volume_offset;
}

bool resize(std::vector<std::uint8_t>& buffer, std::uint64_t size) {
    try {
        buffer.resize(size);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const std::length_error&) {
        return false;
    }
}

}  // namespace

bool read_at(RAW_DISK_IO* disk, std::uint64_t position, std::uint64_t volume_offset, void* buffer,
             std::uint64_t& length) {
    if (disk == nullptr || buffer == nullptr || length == 0) {
        return false;
    }
    const std::optional<std::uint64_t> offset = source_position(position, volume_offset);
    return offset && disk->read(buffer, length, *offset) && length > 0;
}

std::uint64_t CNtfs::disk_origin() const {
    const RAW_DISK_IO* const disk = get_disk();
    return disk == nullptr ? 0 : disk->origin();
}

std::uint32_t CNtfs::clusters_per_block() const {
    const auto size = static_cast<std::uint32_t>(m_cluster_size);
    return size == 0 || size > index_block_size ? 1 : index_block_size / size;
}

std::uint32_t CNtfs::blocks_per_cluster() const {
    return static_cast<std::uint32_t>(m_cluster_size) / index_block_size;
}

std::uint64_t CNtfs::source_size() const {
    const RAW_DISK_IO* const disk = get_disk();
    return disk == nullptr ? 0 : disk->content_size();
}

INODE_STATS CNtfs::get_mft_inode_stats() const {
    require(m_Validated, "m_Validated", "ntfs");
    return m_mft_info;
}

data_run_list CNtfs::get_mft_inode_bitmap_runlist() const {
    require(m_Validated, "m_Validated", "ntfs");
    return m_mft_info.bitmap_runs;
}

data_run_list CNtfs::get_bitmap_inode_runlist() const {
    require(m_Validated, "m_Validated", "ntfs");
    return m_bitmap_runs;
}

void CNtfs::index_mft_runs() {
    const data_run_list& runs = m_mft_info.data_runs;
    if (m_mft_run_ends.size() > runs.size()) {
        m_mft_run_ends.clear();
    }
    std::uint64_t end = m_mft_run_ends.empty() ? 0 : m_mft_run_ends.back();
    for (std::size_t i = m_mft_run_ends.size(); i < runs.size(); ++i) {
        end += runs[i].num_clusters;
        m_mft_run_ends.push_back(end);
    }
}

bool CNtfs::get_lcn_for_inode(std::uint64_t entry, std::uint64_t& lcn, std::uint32_t& byte_offset) const {
    lcn = 0;
    byte_offset = 0;
    const std::optional<std::uint64_t> byte = position_product(entry, m_record_alloc);
    if (!m_Validated || m_cluster_size <= 0 || !byte) {
        return false;
    }
    const auto cluster_size = static_cast<std::uint64_t>(m_cluster_size);
    const std::uint64_t target = *byte / cluster_size;
    const auto end = std::upper_bound(m_mft_run_ends.begin(), m_mft_run_ends.end(), target);
    const auto index = static_cast<std::size_t>(end - m_mft_run_ends.begin());
    if (end == m_mft_run_ends.end() || index >= m_mft_info.data_runs.size()) {
        return false;
    }
    const data_run& run = m_mft_info.data_runs[index];
    const std::uint64_t clusters_in = target - (*end - run.num_clusters);
    if (run.lcn == sparse_lcn || run.lcn > sparse_lcn - clusters_in) {
        return false;
    }
    lcn = run.lcn + clusters_in;
    byte_offset = low_32_bits(*byte % cluster_size);
    return true;
}

std::uint64_t CNtfs::entry_position(std::uint64_t entry) const {
    std::uint64_t lcn = 0;
    std::uint32_t byte_offset = 0;
    if (!get_lcn_for_inode(entry, lcn, byte_offset)) {
        return 0;
    }
    const std::optional<std::uint64_t> cluster = cluster_position(lcn);
    return cluster ? *cluster + byte_offset : 0;
}

std::optional<std::uint64_t> CNtfs::cluster_position(std::uint64_t lcn) const {
    return position_product(lcn, static_cast<std::uint64_t>(m_cluster_size));
}

bool CNtfs::read_clusters(std::uint64_t lcn, std::uint8_t* buffer, std::uint64_t& length) {
    const std::optional<std::uint64_t> position = cluster_position(lcn);
    if (!m_Validated || m_cluster_size <= 0 || !position) {
        return false;
    }
    if (length % static_cast<std::uint64_t>(m_cluster_size) != 0) {
        return false;
    }
    return read_at(get_disk(), *position, m_volume_offset, buffer, length);
}

bool CNtfs::read_cluster_alloc(std::uint64_t lcn, std::vector<std::uint8_t>& buffer, std::uint64_t& length,
                               std::uint64_t& position) {
    buffer.clear();
    position = cluster_position(lcn).value_or(highest_position);
    if (!m_Validated || m_cluster_size <= 0 || get_disk() == nullptr) {
        return false;
    }
    const auto cluster_size = static_cast<std::uint64_t>(m_cluster_size);
    length = std::max(length, cluster_size);
    if (length - cluster_size > source_size() || !resize(buffer, length)) {
        return false;
    }
    return read_at(get_disk(), position, m_volume_offset, buffer.data(), length);
}

bool CNtfs::read_neighbours(std::uint64_t lcn, std::uint64_t count, std::uint8_t* buffer) {
    if (!m_Validated || m_cluster_size <= 0 || get_disk() == nullptr) {
        return false;
    }
    const std::optional<std::uint64_t> position = cluster_position(lcn);
    const std::optional<std::uint64_t> offset =
        position ? source_position(*position, m_volume_offset) : std::nullopt;
    return offset && m_disk->read_whole(buffer, count * static_cast<std::uint64_t>(m_cluster_size), *offset);
}

// How many clusters from the first on can be read whole. Where one read of all of them brings less, halves
// are tried, so that the place where the source ends costs few reads however small clusters are.
std::uint64_t CNtfs::read_whole_clusters(std::uint64_t lcn, std::uint64_t count, std::uint8_t* buffer) {
    const auto cluster_size = static_cast<std::uint64_t>(m_cluster_size);
    if (count < 2 || read_neighbours(lcn, count, buffer)) {
        return count < 2 ? 0 : count;
    }
    std::uint64_t whole = 0;
    // Up to `end` there is a cluster that is not whole. Each turn halves the distance.
    for (std::uint64_t end = count; end - whole > 1;) {
        const std::uint64_t half = (end - whole) / 2;
        if (read_neighbours(lcn + whole, half, buffer + whole * cluster_size)) {
            whole += half;
        } else {
            end = whole + half;
        }
    }
    return whole;
}

std::uint64_t CNtfs::read_leading_clusters(std::uint64_t lcn, std::uint64_t count, std::uint8_t* buffer) {
    if (!m_Validated || m_cluster_size <= 0 || get_disk() == nullptr) {
        return 0;
    }
    const auto cluster_size = static_cast<std::uint64_t>(m_cluster_size);
    const std::uint64_t most = std::max<std::uint64_t>(longest_joined_read / cluster_size, 1);
    std::uint64_t joined = most;
    // Each turn reads a cluster at least, or returns.
    for (std::uint64_t done = 0; done < count;) {
        const std::uint64_t wanted = std::min(count - done, joined);
        const std::uint64_t whole = read_whole_clusters(lcn + done, wanted, buffer + done * cluster_size);
        done += whole;
        if (whole == wanted) {
            joined = std::min(2 * joined, most);
            continue;
        }
        std::uint64_t length = cluster_size;
        if (!read_clusters(lcn + done, buffer + done * cluster_size, length)) {
            return done;
        }
        ++done;
        // Where one cluster is cut, others may be: more of them are tried together as that goes well.
        joined = wanted == 1 ? 2 : 1;
    }
    return count;
}

bool CNtfs::read_all_clusters(const cluster_run_list& runs, std::vector<std::uint8_t>& out) {
    out.clear();
    if (!m_Validated || m_cluster_size <= 0 || get_disk() == nullptr) {
        return false;
    }
    const auto cluster_size = static_cast<std::uint64_t>(m_cluster_size);
    const std::uint64_t most_bytes = limits::attribute_list_bytes(source_size());
    const std::uint64_t most = most_bytes / cluster_size + (most_bytes % cluster_size == 0 ? 0 : 1);
    const std::uint64_t room = std::min(run_bytes(runs, 1, false), most);
    if (!resize(out, room * cluster_size)) {
        return false;
    }
    std::uint64_t filled = 0;
    bool complete = true;
    for (const cluster_run& run : runs) {
        const std::uint64_t wanted = std::min<std::uint64_t>(run.length, room - filled);
        // Deliberate: one would expect zeros for a sparse run. Its LCN of 0 is read from, so a list with
        // holes, which no file system writes, holds the start of the volume there.
        const std::uint64_t read = read_leading_clusters(run.lcn, wanted, out.data() + filled * cluster_size);
        filled += read;
        complete = complete && read == run.length;
    }
    // A read that came short may have left something after what counts.
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(filled * cluster_size), out.end(), std::uint8_t{0});
    return complete;
}

bool CNtfs::read_list_clusters(const attribute& list, std::vector<std::uint8_t>& out) {
    data_run_list pairs;
    cluster_run_list runs;
    if (!decode_runs(list.bytes(), pairs) || !to_cluster_runs(pairs, runs)) {
        out.clear();
        return false;
    }
    return read_all_clusters(runs, out);
}

// Deliberate: one would expect all records of a volume to have one length. Entry 0 has the boot sector's, the
// others have that in the header of record 0, so where the two differ a reader with a buffer for the one does
// not get the others.
std::uint32_t CNtfs::record_read_size(std::uint64_t entry) const {
    return std::min(entry == 0 ? m_mft_record_size : m_record_alloc, longest_record);
}

// Reads as many bytes as the buffer holds from the start of a record. Deliberate: one would expect a record
// that begins at the end of a piece of $MFT to go on in the next piece. It is read on where it stands, so its
// end is whatever lies there on disk.
bool CNtfs::read_record_at(std::uint64_t entry, std::span<std::uint8_t> buffer, std::uint64_t& position,
                           std::uint64_t& length) {
    if (entry != 0 && (!m_Validated || get_disk() == nullptr)) {
        return false;
    }
    position = entry == 0 ? static_cast<std::uint64_t>(m_mft_file_pos) : entry_position(entry);
    length = buffer.size();
    return read_at(m_disk.get(), position, m_volume_offset, buffer.data(), length);
}

bool CNtfs::read_record_raw(std::uint64_t entry, std::vector<std::uint8_t>& record, std::uint64_t& position,
                            std::uint64_t& length) {
    position = 0;
    length = 0;
    if (resize(record, record_read_size(entry)) && read_record_at(entry, record, position, length)) {
        return true;
    }
    record.clear();
    return false;
}

bool CNtfs::read_record_raw(std::uint64_t entry, std::span<std::uint8_t> buffer, std::uint64_t& position,
                            std::uint64_t& length) {
    position = 0;
    length = record_read_size(entry);
    return buffer.size() >= length && read_record_at(entry, buffer.first(length), position, length);
}

// Tests what was read for a record or an index block, and puts the sector ends back.
bool CNtfs::accept_record(std::span<std::uint8_t> record) const {
    const byte_view bytes(record);
    // Deliberate: one would expect an index block in the place of a record to be refused. It is accepted, and
    // what its bytes say as a record is used.
    if (!record_header_ok(bytes) && !file_record(bytes).is_indx()) {
        return false;
    }
    restore_sector_ends(record, get_bytes_per_sector(),
                        sector_end_limit(record.size(), get_bytes_per_sector()));
    return true;
}

bool CNtfs::read_record(std::uint64_t entry, std::vector<std::uint8_t>& record, std::uint64_t& position,
                        std::uint64_t& length) {
    if (!read_record_raw(entry, record, position, length)) {
        return false;
    }
    if (!accept_record(std::span(record).first(length))) {
        record.clear();
        return false;
    }
    return true;
}

bool CNtfs::read_record(std::uint64_t entry, std::span<std::uint8_t> buffer, std::uint64_t& position,
                        std::uint64_t& length) {
    return read_record_raw(entry, buffer, position, length) && accept_record(buffer.first(length));
}

bool CNtfs::read_record_vector(std::vector<std::uint8_t>& record, std::uint64_t& position,
                               std::uint64_t entry) {
    position = 0;
    std::uint64_t length = 0;
    return m_Validated && resize(record, get_mft_record_size()) &&
           read_record_at(entry, record, position, length);
}

bool CNtfs::read_record_checked(std::vector<std::uint8_t>& record, std::uint64_t& position, record_kind& kind,
                                std::uint64_t entry) {
    kind = record_kind::unknown;
    return read_record_vector(record, position, entry) &&
           apply_fixups_checked(kind, record, get_bytes_per_sector());
}

}  // namespace quarry
