#include "volume/ntfs.h"

#include "foundation/assertion.h"
#include "volume/buffer_size.h"
#include "volume/index_layout.h"
#include "volume/positions.h"

#include <algorithm>

namespace quarry {

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
    const std::optional<std::uint64_t> cluster =
        position_product(lcn, static_cast<std::uint64_t>(m_cluster_size));
    return cluster ? *cluster + byte_offset : 0;
}

// A cluster size that does not fit its member is not known.
cluster_reader CNtfs::clusters_of(RAW_DISK_IO* disk) const {
    return {disk, m_volume_offset, static_cast<std::uint64_t>(std::max(m_cluster_size, 0))};
}

cluster_reader CNtfs::clusters() const {
    return clusters_of(m_Validated ? get_disk() : nullptr);
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
    return clusters_of(get_disk()).read(position, buffer.data(), length);
}

bool CNtfs::read_record_raw(std::uint64_t entry, std::vector<std::uint8_t>& record, std::uint64_t& position,
                            std::uint64_t& length) {
    position = 0;
    length = 0;
    if (resized(record, record_read_size(entry)) && read_record_at(entry, record, position, length)) {
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
    return m_Validated && resized(record, get_mft_record_size()) &&
           read_record_at(entry, record, position, length);
}

bool CNtfs::read_record_checked(std::vector<std::uint8_t>& record, std::uint64_t& position, record_kind& kind,
                                std::uint64_t entry) {
    kind = record_kind::unknown;
    return read_record_vector(record, position, entry) &&
           apply_fixups_checked(kind, record, get_bytes_per_sector());
}

}  // namespace quarry
