// From the boot sector and record 0 to the geometry of a volume.
#include "volume/ntfs.h"
#include "volume/positions.h"
#include "volume/record_parser.h"
#include "volume/well_known.h"

#include <algorithm>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

namespace quarry {

namespace {

// Deliberate: the eight bytes after the jump instruction are all that makes a sector a boot sector, not the
// end marker 55 AA, the checksum or the numbers. A volume whose boot sector is damaged elsewhere still opens.
bool has_ntfs_signature(const NTFS_BOOT& boot) {
    const std::string_view signature(boot.signature, sizeof(boot.signature));
    const std::string_view rest(boot.oem_rest, sizeof(boot.oem_rest));
    return signature == "NTFS" && rest == "    ";
}

// Bytes of a file record: so many clusters, or, below zero, the negated power of two of bytes.
std::uint64_t claimed_record_size(std::int8_t clusters_per_record, std::uint32_t cluster_size) {
    if (clusters_per_record >= 0) {
        return std::uint64_t{cluster_size} * static_cast<std::uint8_t>(clusters_per_record);
    }
    // Deliberate: a power of 32 and more is taken modulo 32, not refused. The byte 0xD6 says 1024 as 0xF6
    // does.
    const auto shift = static_cast<std::uint32_t>(256 - clusters_per_record) % 32;
    return std::uint64_t{1} << shift;
}

}  // namespace

bool CNtfs::validate(std::int64_t& mft_position) {
    mft_position = 0;
    if (m_disk == nullptr) {
        m_Validated = false;
        return false;
    }
    if (m_Validated) {
        mft_position = m_mft_file_pos;
        return true;
    }
    m_cache_memory = budget(limits::cache_memory(source_size()));
    m_system_run_memory = budget(limits::system_run_memory);
    try {
        m_Validated = learn_geometry(mft_position) && read_mft_record();
    } catch (const std::bad_alloc&) {
        m_Validated = false;
    }
    if (m_Validated) {
        read_bitmap_runs();
    }
    return m_Validated;
}

bool CNtfs::learn_geometry(std::int64_t& mft_position) {
    std::uint64_t length = sizeof(m_boot);
    if (!clusters_of(get_disk()).read(0, &m_boot, length) || !has_ntfs_signature(m_boot)) {
        return false;
    }
    if (m_boot.bytes_per_sector == 0 || m_boot.sectors_per_cluster == 0) {
        return false;
    }
    const std::uint32_t cluster_size = std::uint32_t{m_boot.bytes_per_sector} * m_boot.sectors_per_cluster;
    m_cluster_size = static_cast<std::int32_t>(cluster_size);
    const std::uint64_t record_size = claimed_record_size(m_boot.clusters_per_record, cluster_size);
    m_mft_record_size = low_32_bits(std::min<std::uint64_t>(record_size, longest_record));
    m_mft_cluster_per_record_fixed = static_cast<std::int32_t>(record_size / cluster_size);
    m_total_clusters = static_cast<std::int64_t>(m_boot.total_sectors / m_boot.sectors_per_cluster);
    const std::optional<std::uint64_t> position = position_product(m_boot.mft_lcn, cluster_size);
    if (!position) {
        return false;
    }
    m_mft_file_pos = static_cast<std::int64_t>(*position);
    mft_position = m_mft_file_pos;
    m_sectors_per_cluster = m_boot.sectors_per_cluster;
    return true;
}

// Deliberate: the mirror of $MFT is never read, not even where record 0 is damaged. Such a volume does not
// open.
bool CNtfs::read_mft_record() {
    std::uint64_t position = 0;
    std::uint64_t length = 0;
    if (!read_record(0, m_mft_record, position, length)) {
        return false;
    }
    const std::uint32_t size = record_size_from_header(m_mft_record);
    if (size > m_mft_record_size) {
        // The record is longer than the boot sector says, and the update sequence array knows better.
        m_mft_record_size = size;
        if (!read_record(0, m_mft_record, position, length) || !record_header_ok(m_mft_record)) {
            return false;
        }
    }
    // Deliberate: the step from one record to the next is the size in the header of record 0, not that in the
    // boot sector. A volume where the two differ is read by the header.
    m_record_alloc = file_record(m_mft_record).bytes_allocated();
    if (m_record_alloc == 0) {
        return false;
    }
    const auto cluster_size = static_cast<std::uint64_t>(m_cluster_size);
    m_mft_map = mft_map(m_record_alloc, cluster_size);
    // Extension records of $MFT are found through the runs that record 0 holds itself.
    const record_reader records = records_by(&m_mft_map);
    // Deliberate: a $MFT without usable attributes is not refused. The volume opens all the same, and record
    // 0 can be read.
    quarry::parse_record({.records = records,
                          .run_memory = m_system_run_memory,
                          .cache_memory = m_cache_memory,
                          .growing_map = &m_mft_map},
                         m_mft_record, m_mft_info, mft_entry, false);
    const std::uint64_t bytes =
        position_product(count_clusters(m_mft_info.data_runs), cluster_size).value_or(highest_position);
    m_num_entries = bytes / m_record_alloc;
    return true;
}

void CNtfs::read_bitmap_runs() {
    try {
        std::vector<std::uint8_t> record;
        std::uint64_t position = 0;
        std::uint64_t length = 0;
        if (read_record(bitmap_entry, record, position, length)) {
            INODE_STATS stats;
            parse_record(record, stats, bitmap_entry, false);
            m_bitmap_runs = std::move(stats.data_runs);
        }
    } catch (const std::bad_alloc&) {
        m_bitmap_runs.clear();
    }
}

}  // namespace quarry
