// CNtfs: one NTFS volume on one source of bytes. Read only.
//
// The object owns the source that the volume is read through, and knows where on it the volume begins. It
// holds the boot sector, the geometry that follows from it, and what record 0 of $MFT (the table of all file
// records, itself a file) says of where the other records lie. The work is done elsewhere, and the object
// brings it together:
//
//     cluster_reader    reads clusters, and adds where the volume begins on the source
//     mft_map           knows where the entries of $MFT lie
//     record_reader     reads file records by their entry numbers
//     record_parser     gathers what the records of $MFT and $Bitmap say
//
// The factories of ntfs_open.h are the only ways to a usable object: cleared, then opened (a source is
// there), then validated (the boot sector and record 0 were accepted). There is no way back. Failures are
// booleans, never exceptions, and without a message. Positions are bytes from the start of the volume unless
// a comment says otherwise, lengths are bytes, LCNs count clusters of the volume. A position that 63 bits
// cannot hold reads as a failed read.
#pragma once

#include "disk/raw_disk_io.h"
#include "foundation/budget.h"
#include "volume/attribute.h"
#include "volume/boot_sector.h"
#include "volume/cluster_reader.h"
#include "volume/file_record.h"
#include "volume/inode_stats.h"
#include "volume/limits.h"
#include "volume/mft_map.h"
#include "volume/path_cache.h"
#include "volume/record_reader.h"
#include "volume/runs.h"
#include "volume/security_entry.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace quarry {

using limits::longest_attribute_list;

class CNtfs {
  public:
    CNtfs() = default;
    CNtfs(const CNtfs&) = delete;
    CNtfs& operator=(const CNtfs&) = delete;

    NTFS_BOOT m_boot{};
    // Reserved: no flow of the program fills it.
    security_map m_sd_cache;
    std::unique_ptr<RAW_DISK_IO> m_disk;
    // 32 to 36, or 255 for a refused type; 0 for a virtual disk.
    std::uint8_t m_source_type = 0;
    bool m_Validated = false;
    // Reserved: what m_load_security said; nothing before it was asked.
    std::optional<bool> m_security_known;
    // Record 0 with its fixups restored.
    std::vector<std::uint8_t> m_mft_record;
    INODE_STATS m_mft_info;
    // Reserved: read and not looked at. $DATA of entry 6, $Bitmap; empty where that cannot be read.
    data_run_list m_bitmap_runs;
    // Bytes from one record of $MFT to the next, as record 0 says. May differ from the size that is read.
    std::uint32_t m_record_alloc = 0;
    std::uint64_t m_num_entries = 0;
    std::int32_t m_cluster_size = 0;
    std::int64_t m_total_clusters = 0;  // Reserved: not looked at.
    // Reserved: not looked at. 0 where a record is smaller than a cluster.
    std::int32_t m_mft_cluster_per_record_fixed = 0;
    std::int64_t m_mft_file_pos = 0;
    std::uint32_t m_sectors_per_cluster = 0;
    // Byte offset of the volume on the source.
    std::uint64_t m_volume_offset = 0;
    std::uint32_t m_mft_record_size = 0;
    path_cache m_path_cache;
    // What all that is kept of the volume may still take, in bytes.
    budget m_cache_memory{budget::unlimited};
    // Reserved: loads m_sd_cache; null in every flow of the program.
    security_loader m_load_security = nullptr;

    // Opening and geometry (ntfs_open, ntfs_validate).

    // Reserved: the program opens volumes with open_volume. Clears the object and opens a source: 33 and 35
    // the path, 34 the drive number, 32 is stored and treated as 33. False for a type that is none of them,
    // an empty path of type 33 and a source that cannot be used; m_disk is null then, and m_source_type 255
    // if the type was below 32 or above 36.
    [[nodiscard]] bool open_source(std::uint8_t source_type, const std::wstring& path, std::int32_t drive,
                                   std::uint64_t volume_offset, bool writable);
    // Reads the boot sector and record 0, once in the object's life unless it fails. `mft_position` is the
    // position of $MFT, 0 if the boot sector was not accepted. Returns m_Validated.
    [[nodiscard]] bool validate(std::int64_t& mft_position);
    [[nodiscard]] bool is_valid() const { return m_disk != nullptr && m_Validated; }
    [[nodiscard]] std::uint64_t get_num_entries() const { return m_Validated ? m_num_entries : 0; }
    [[nodiscard]] std::uint32_t get_mft_record_size() const {
        return m_mft_record_size == 0 ? 1024 : m_mft_record_size;
    }
    [[nodiscard]] std::uint32_t get_bytes_per_sector() const { return m_boot.bytes_per_sector; }
    [[nodiscard]] std::uint32_t get_sectors_per_cluster() const { return m_boot.sectors_per_cluster; }
    // The source if it can be used, otherwise null.
    [[nodiscard]] RAW_DISK_IO* get_disk() const {
        return m_disk != nullptr && m_disk->is_ok() ? m_disk.get() : nullptr;
    }
    // Where the volume begins on a virtual disk, in bytes, as far as the disk kept it; 0 for any other
    // source.
    [[nodiscard]] std::uint64_t disk_origin() const;
    // How index blocks of 4096 bytes and clusters fit into each other: clusters for one block (at least 1),
    // whole blocks in one cluster (0 if it is smaller than a block).
    [[nodiscard]] std::uint32_t clusters_per_block() const;
    [[nodiscard]] std::uint32_t blocks_per_cluster() const;
    // Bytes that the source can have content in: the cap of every allocation whose size the source claims.
    [[nodiscard]] std::uint64_t source_size() const;
    // Reserved: no flow asks. What was learned of the system files; asking an object that is not valid is an
    // error of this program and ends it.
    [[nodiscard]] INODE_STATS get_mft_inode_stats() const;
    [[nodiscard]] data_run_list get_mft_inode_bitmap_runlist() const;
    [[nodiscard]] data_run_list get_bitmap_inode_runlist() const;

    // Positions of MFT entries, through the runs of $MFT. False and 0 for an entry that they do not hold, for
    // one in a sparse run, and for an object that is not valid.
    [[nodiscard]] bool get_lcn_for_inode(std::uint64_t entry, std::uint64_t& lcn,
                                         std::uint32_t& byte_offset) const;
    [[nodiscard]] std::uint64_t entry_position(std::uint64_t entry) const;

    // The readers of this volume. Of an object that is not valid the one reads nothing, the other only record
    // 0. They are good as long as the object is.
    [[nodiscard]] cluster_reader clusters() const;
    [[nodiscard]] record_reader records() const;

    // See cluster_reader.
    [[nodiscard]] bool read_clusters(std::uint64_t lcn, std::uint8_t* buffer, std::uint64_t& length) {
        return clusters().read_clusters(lcn, buffer, length);
    }
    [[nodiscard]] bool read_cluster_alloc(std::uint64_t lcn, std::vector<std::uint8_t>& buffer,
                                          std::uint64_t& length, std::uint64_t& position) {
        return clusters().read_cluster_alloc(lcn, buffer, length, position);
    }

    // See record_reader.
    [[nodiscard]] bool read_record_raw(std::uint64_t entry, std::vector<std::uint8_t>& record,
                                       std::uint64_t& position, std::uint64_t& length) {
        return records().read_raw(entry, record, position, length);
    }
    [[nodiscard]] bool read_record_raw(std::uint64_t entry, std::span<std::uint8_t> buffer,
                                       std::uint64_t& position, std::uint64_t& length) {
        return records().read_raw(entry, buffer, position, length);
    }
    [[nodiscard]] bool read_record(std::uint64_t entry, std::vector<std::uint8_t>& record,
                                   std::uint64_t& position, std::uint64_t& length) {
        return records().read(entry, record, position, length);
    }
    [[nodiscard]] bool read_record(std::uint64_t entry, std::span<std::uint8_t> buffer,
                                   std::uint64_t& position, std::uint64_t& length) {
        return records().read(entry, buffer, position, length);
    }
    [[nodiscard]] bool read_record_vector(std::vector<std::uint8_t>& record, std::uint64_t& position,
                                          std::uint64_t entry) {
        return records().read_vector(record, position, entry);
    }
    [[nodiscard]] bool read_record_checked(std::vector<std::uint8_t>& record, std::uint64_t& position,
                                           record_kind& kind, std::uint64_t entry) {
        return records().read_checked(record, position, kind, entry);
    }

    // See record_parser, whose routines these are for a file other than $MFT.
    void parse_record(byte_view record, INODE_STATS& stats, std::uint64_t entry, bool append);
    [[nodiscard]] bool parse_attributes(INODE_STATS& stats, attribute& list_attribute, attribute first,
                                        std::int64_t bytes_left, bool append, bool single);

    // A byte range of a stream (stream_reader).
    [[nodiscard]] bool read_stream_bytes(const cluster_run_list& runs, std::uint64_t offset,
                                         std::uint8_t* buffer, std::uint64_t& length, std::uint32_t& flags);
    // Reserved: streams are read through a stream_reader.
    [[nodiscard]] bool read_stream_range(const cluster_run_list& runs, std::uint64_t offset,
                                         std::uint8_t* buffer, std::uint64_t& length, bool skip_sparse);

  private:
    CNtfs& operator=(CNtfs&&) = default;

    [[nodiscard]] bool learn_geometry(std::int64_t& mft_position);
    [[nodiscard]] bool read_mft_record();
    void read_bitmap_runs();
    [[nodiscard]] cluster_reader clusters_of(RAW_DISK_IO* disk) const;
    [[nodiscard]] record_reader records_by(const mft_map* map) const;
    [[nodiscard]] const std::string* owner_of(std::uint32_t security_id);

    // The part of m_cache_memory that the runs of $MFT and $Bitmap may take.
    budget m_system_run_memory{limits::system_run_memory};
    mft_map m_mft_map;
};

}  // namespace quarry
