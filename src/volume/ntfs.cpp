#include "volume/ntfs.h"

#include "foundation/assertion.h"
#include "volume/index_layout.h"
#include "volume/record_parser.h"

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

bool CNtfs::get_lcn_for_inode(std::uint64_t entry, std::uint64_t& lcn, std::uint32_t& byte_offset) const {
    const std::optional<mft_map::place> found = m_Validated ? m_mft_map.find(entry) : std::nullopt;
    const mft_map::place place = found.value_or(mft_map::place{});
    lcn = place.lcn;
    byte_offset = place.byte_offset;
    return found.has_value();
}

std::uint64_t CNtfs::entry_position(std::uint64_t entry) const {
    return m_Validated ? m_mft_map.position(entry) : 0;
}

// A cluster size that does not fit its member is not known.
cluster_reader CNtfs::clusters_of(RAW_DISK_IO* disk) const {
    return {disk, m_volume_offset, static_cast<std::uint64_t>(std::max(m_cluster_size, 0))};
}

cluster_reader CNtfs::clusters() const {
    return clusters_of(m_Validated ? get_disk() : nullptr);
}

record_reader CNtfs::records_by(const mft_map* map) const {
    return {clusters_of(get_disk()),
            map,
            {.mft_position = static_cast<std::uint64_t>(m_mft_file_pos),
             .size_by_boot = m_mft_record_size,
             .step = m_record_alloc,
             .bytes_per_sector = get_bytes_per_sector()}};
}

record_reader CNtfs::records() const {
    return records_by(m_Validated ? &m_mft_map : nullptr);
}

// Asks once: where there are no descriptors, each attribute of a damaged record would have them sought again.
const std::string* CNtfs::owner_of(std::uint32_t security_id) {
    if (m_mft_info.size == 0 || !m_Validated) {
        return nullptr;
    }
    if (!m_security_known) {
        m_security_known = m_load_security != nullptr && m_load_security(*this);
    }
    const auto found = m_sd_cache.find(security_id);
    return *m_security_known && found != m_sd_cache.end() ? &found->second.owner : nullptr;
}

void CNtfs::parse_record(byte_view record, INODE_STATS& stats, std::uint64_t entry, bool append) {
    const record_reader reader = records();
    quarry::parse_record({.records = reader,
                          .run_memory = m_system_run_memory,
                          .cache_memory = m_cache_memory,
                          .owner = [this](std::uint32_t id) { return owner_of(id); }},
                         record, stats, entry, append);
}

bool CNtfs::parse_attributes(INODE_STATS& stats, attribute& list_attribute, attribute first,
                             std::int64_t bytes_left, bool append, bool single) {
    const record_reader reader = records();
    return quarry::parse_attributes({.records = reader,
                                     .run_memory = m_system_run_memory,
                                     .cache_memory = m_cache_memory,
                                     .owner = [this](std::uint32_t id) { return owner_of(id); }},
                                    stats, list_attribute, first, bytes_left, append, single);
}

}  // namespace quarry
