// Clusters of a volume, read from the source that holds it.
//
// NTFS counts the space of a volume in clusters, each a fixed number of sectors. Cluster 0 begins with the
// boot sector, so the position of a cluster within the volume is its number (LCN) times the cluster size. The
// volume itself begins anywhere on its source: at byte 0 of a partition's device, after the partition table
// of a whole disk. This is the one place that adds where it begins; every reader of the volume thinks in
// clusters, or in bytes from the start of the volume.
//
// A reader is a small value without a state of its own. CNtfs makes one whenever it is asked for one, and the
// source must outlive it. What was not read of a buffer is zeros, unless a comment says otherwise.
#pragma once

#include "disk/raw_disk_io.h"
#include "volume/attribute.h"
#include "volume/runs.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace quarry {

class cluster_reader {
  public:
    // `disk`: null where nothing can be read. `volume_offset`: bytes of the source before the volume.
    // `cluster_size` in bytes; 0 as long as it is not known, and no cluster can be read then.
    cluster_reader(RAW_DISK_IO* disk, std::uint64_t volume_offset, std::uint64_t cluster_size)
        : m_disk(disk), m_volume_offset(volume_offset), m_cluster_size(cluster_size) {}

    [[nodiscard]] std::uint64_t cluster_size() const { return m_cluster_size; }
    // Bytes that the source can have content in: the cap of every allocation whose size the source claims.
    [[nodiscard]] std::uint64_t source_size() const { return m_disk == nullptr ? 0 : m_disk->content_size(); }
    // Position of a cluster in bytes from the start of the volume; nothing if 63 bits cannot hold it.
    [[nodiscard]] std::optional<std::uint64_t> cluster_position(std::uint64_t lcn) const;

    // One read from a position in bytes. False if nothing was read; `length` becomes what the source had.
    [[nodiscard]] bool read(std::uint64_t position, void* buffer, std::uint64_t& length) const;
    // The same, true only if all of it came from the source. After false the buffer holds nothing of use.
    [[nodiscard]] bool read_whole(std::uint64_t position, void* buffer, std::uint64_t length) const;

    // Clusters that lie side by side. The length must be a multiple of the cluster size; it becomes what the
    // source had of it. One read that comes short is a read all the same. False if nothing was read.
    [[nodiscard]] bool read_clusters(std::uint64_t lcn, std::uint8_t* buffer, std::uint64_t& length) const;
    // The same into a buffer of its own, of `length` bytes or one cluster if that is more. `position` is set
    // also after a failed read.
    [[nodiscard]] bool read_cluster_alloc(std::uint64_t lcn, std::vector<std::uint8_t>& buffer,
                                          std::uint64_t& length, std::uint64_t& position) const;
    // Contiguous clusters, as if each was read on its own, up to the first that cannot be read. Returns how
    // many were read; the rest of the buffer, which has room for `count` clusters, holds nothing of use.
    [[nodiscard]] std::uint64_t read_leading_clusters(std::uint64_t lcn, std::uint64_t count,
                                                      std::uint8_t* buffer) const;
    // Contiguous clusters, all of them with one read of the source. False if that brings less; the buffer,
    // which has room for `count` clusters, then holds nothing of use.
    [[nodiscard]] bool read_neighbours(std::uint64_t lcn, std::uint64_t count, std::uint8_t* buffer) const;
    // All clusters of the runs of an attribute list, in run order, into one buffer. A cluster that cannot be
    // read ends its run, the next run goes on at the same place, and zeros make up the rest. The buffer is
    // cut at longest_attribute_list and at the size of the source, each rounded up to a cluster. True if
    // every cluster of every run was read.
    [[nodiscard]] bool read_all_clusters(const cluster_run_list& runs, std::vector<std::uint8_t>& out) const;
    // The same of a non-resident attribute list, through the runs of its mapping pairs.
    [[nodiscard]] bool read_list_clusters(const attribute& list, std::vector<std::uint8_t>& out) const;

  private:
    [[nodiscard]] bool is_usable() const { return m_disk != nullptr && m_cluster_size != 0; }
    [[nodiscard]] std::uint64_t read_whole_clusters(std::uint64_t lcn, std::uint64_t count,
                                                    std::uint8_t* buffer) const;

    RAW_DISK_IO* m_disk;
    std::uint64_t m_volume_offset;
    std::uint64_t m_cluster_size;
};

// One read of a volume, which begins `volume_offset` bytes into the source: false for a null disk or buffer,
// a zero length, a position that 63 bits cannot hold, or nothing read. `length` becomes what the source had
// of it.
[[nodiscard]] bool read_at(RAW_DISK_IO* disk, std::uint64_t position, std::uint64_t volume_offset,
                           void* buffer, std::uint64_t& length);

}  // namespace quarry
