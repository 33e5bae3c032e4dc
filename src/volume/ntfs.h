// CNtfs: one NTFS volume on one source of bytes. Read only.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "disk/raw_disk_io.h"
#include "volume/attribute.h"
#include "volume/boot_sector.h"
#include "volume/file_record.h"
#include "volume/inode_stats.h"
#include "volume/path_cache.h"
#include "volume/runs.h"
#include "volume/security_entry.h"

namespace quarry {

class CNtfs {
  public:
    CNtfs() = default;
    CNtfs(const CNtfs&) = delete;
    CNtfs& operator=(const CNtfs&) = delete;

    NTFS_BOOT m_boot{};
    security_map m_sd_cache;
    std::unique_ptr<RAW_DISK_IO> m_disk;
    std::uint8_t m_source_type = 0;
    bool m_Validated = false;
    std::vector<std::uint8_t> m_mft_record;
    INODE_STATS m_mft_info;
    data_run_list m_bitmap_runs;
    std::uint32_t m_record_alloc = 0;
    std::uint64_t m_num_entries = 0;
    std::int32_t m_cluster_size = 0;
    std::int64_t m_total_clusters = 0;
    std::int32_t m_mft_cluster_per_record_fixed = 0;
    std::int64_t m_mft_file_pos = 0;
    std::uint32_t m_sectors_per_cluster = 0;
    std::uint64_t m_volume_offset = 0;
    std::uint32_t m_mft_record_size = 0;
    path_cache m_path_cache;
    // Loads m_sd_cache; null where no reader of descriptors is wanted.
    security_loader m_load_security = nullptr;

    // Opening and geometry (ntfs_open, ntfs_validate).
    [[nodiscard]] bool open_source(std::uint8_t source_type, const std::wstring& path, std::int32_t drive,
                                   std::uint64_t volume_offset, bool writable);
    [[nodiscard]] bool validate(std::int64_t& mft_position);
    [[nodiscard]] bool is_valid() const { return m_disk != nullptr && m_Validated; }
    [[nodiscard]] std::uint64_t get_num_entries() const { return m_Validated ? m_num_entries : 0; }
    [[nodiscard]] std::uint32_t get_mft_record_size() const {
        return m_mft_record_size == 0 ? 1024 : m_mft_record_size;
    }
    [[nodiscard]] std::uint32_t get_bytes_per_sector() const { return m_boot.bytes_per_sector; }
    [[nodiscard]] std::uint32_t get_sectors_per_cluster() const { return m_boot.sectors_per_cluster; }
    [[nodiscard]] RAW_DISK_IO* get_disk() const {
        return m_disk != nullptr && m_disk->is_ok() ? m_disk.get() : nullptr;
    }
    [[nodiscard]] std::uint64_t disk_origin() const;
    [[nodiscard]] std::uint32_t clusters_per_block() const;
    [[nodiscard]] std::uint32_t blocks_per_cluster() const;
    // Size of the source in bytes: the cap of every allocation whose size the source claims.
    [[nodiscard]] std::uint64_t source_size() const;

    // Positions of MFT entries.
    [[nodiscard]] bool get_lcn_for_inode(std::uint64_t entry, std::uint64_t& lcn, std::uint32_t& byte_offset) const;
    [[nodiscard]] std::uint64_t entry_position(std::uint64_t entry) const;

    // Reads. Positions are bytes from the start of the volume; lengths are bytes.
    [[nodiscard]] bool read_clusters(std::uint64_t lcn, std::uint8_t* buffer, std::uint64_t& length);
    [[nodiscard]] bool read_cluster_alloc(std::uint64_t lcn, std::vector<std::uint8_t>& buffer, std::uint64_t& length,
                                          std::uint64_t& position);

    // File records. `record` is sized to the record's length; what was not read of it is zeros; `length` tells
    // how many bytes were read. The vector forms allocate; the span form needs a buffer of the whole length.
    [[nodiscard]] bool read_record_raw(std::uint64_t entry, std::vector<std::uint8_t>& record,
                                       std::uint64_t& position, std::uint64_t& length);
    [[nodiscard]] bool read_record_raw(std::uint64_t entry, std::span<std::uint8_t> buffer, std::uint64_t& position,
                                       std::uint64_t& length);
    [[nodiscard]] bool read_record(std::uint64_t entry, std::vector<std::uint8_t>& record, std::uint64_t& position,
                                   std::uint64_t& length);
    [[nodiscard]] bool read_record(std::uint64_t entry, std::span<std::uint8_t> buffer, std::uint64_t& position,
                                   std::uint64_t& length);
    [[nodiscard]] bool read_record_vector(std::vector<std::uint8_t>& record, std::uint64_t& position,
                                          std::uint64_t entry);
    [[nodiscard]] bool read_record_checked(std::vector<std::uint8_t>& record, std::uint64_t& position,
                                           record_kind& kind, std::uint64_t entry);

    // The walk behind INODE_STATS (record_parser).
    void parse_record(byte_view record, INODE_STATS& stats, std::uint64_t entry, bool append);
    [[nodiscard]] bool parse_attributes(INODE_STATS& stats, attribute& list_attribute, attribute first,
                                        std::int64_t bytes_left, std::uint64_t entry, bool append, bool single);

    // A byte range of a stream (stream_reader).
    [[nodiscard]] bool read_stream_bytes(const cluster_run_list& runs, std::uint64_t offset, std::uint8_t* buffer,
                                         std::uint64_t& length, std::uint32_t& flags);
    [[nodiscard]] bool read_stream_range(const cluster_run_list& runs, std::uint64_t offset, std::uint8_t* buffer,
                                         std::uint64_t& length, bool skip_sparse);

    // All clusters of a run list, in run order, into one buffer; zeros where a read fails. The size is capped by the
    // size of the source. For attribute lists and their like.
    [[nodiscard]] std::vector<std::uint8_t> read_all_clusters(const cluster_run_list& runs);
};

// One read of the volume: false for a null disk or buffer, a zero length, or nothing read.
[[nodiscard]] bool read_at(RAW_DISK_IO* disk, std::uint64_t position, std::uint64_t volume_offset, void* buffer,
                           std::uint64_t& length);

}  // namespace quarry
