// A byte range of a stream, read through its cluster runs.
//
// The clusters of a stream lie anywhere on the volume, and some of them nowhere: a sparse run reads as zeros.
// A range is read cluster after cluster; what it needs of the first and the last cluster is cut out of a
// whole cluster, since whole clusters are what can be read or not. Clusters that are neighbours on the volume
// as in the stream come with one read. If that read fails or gives less, they are read again one by one, so
// that a damaged disk yields every cluster before the damage, the same as if none had been joined. Runs that
// are close to each other also come with one read: what lies between them is read and thrown away, which
// costs less than another read.
#pragma once

#include "volume/ntfs.h"
#include "volume/run_cursor.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace quarry {

// The flags word of a read. In:
inline constexpr std::uint32_t stream_skip_sparse = 0x01;  // leave sparse clusters out of what is delivered
// Out:
inline constexpr std::uint32_t stream_met_sparse = 0x02;   // zeros of a sparse cluster were delivered
inline constexpr std::uint32_t stream_was_read = 0x08;     // always set
inline constexpr std::uint32_t stream_vcn_is_even = 0x10;  // the low 16 bits of the first VCN are zero
inline constexpr std::uint32_t stream_is_one_unit =
    0x20;  // the same, and the range ends 16 clusters after it

// Reads many ranges of one stream: it remembers its place in the run list and keeps its buffers.
class stream_reader {
  public:
    // Both must outlive the reader; the list must stay as it is.
    stream_reader(CNtfs& ntfs, const cluster_run_list& runs);

    // Reads up to `length` bytes from byte `offset` of the stream into `buffer`, which has room for them. The
    // read ends early at a VCN that no run covers and at a cluster that cannot be read. True if at least one
    // cluster was processed; `length` is then the number of bytes delivered, which begin the buffer. After
    // false `length` is as it was. After the delivered bytes the buffer holds what it held, or zeros.
    // `flags` is replaced by the flags above on every call with a usable cluster size.
    [[nodiscard]] bool read(std::uint64_t offset, std::uint8_t* buffer, std::uint64_t& length,
                            std::uint32_t& flags);

    // The same read in parts, for a range that is longer than a buffer may be. `begin` takes the range and
    // says whether there is anything to read. `read_part` then gives the bytes from byte `from` of what
    // `read` would deliver: up to `length` of them, fewer where the read ends. Returns how many; the buffer
    // holds nothing of use after them. Sets stream_met_sparse in `flags` if it met a hole.
    [[nodiscard]] bool begin(std::uint64_t offset, std::uint64_t length, std::uint32_t& flags);
    [[nodiscard]] std::uint64_t read_part(std::uint64_t from, std::uint8_t* buffer, std::uint64_t length,
                                          std::uint32_t& flags);

  private:
    // Where a range begins and ends in clusters; bytes of the first one ahead of it, bytes of the last one in
    // it.
    struct cluster_range {
        std::uint64_t first = 0;
        std::uint64_t last = 0;
        std::uint64_t head = 0;
        std::uint64_t tail = 0;
    };
    // Bytes that one cluster gives from `from` on, or that a number of whole ones give.
    struct share {
        std::uint64_t from = 0;
        std::uint64_t bytes = 0;
        std::uint64_t clusters = 0;
    };
    void collect(cluster_range& range, bool skip_sparse);
    [[nodiscard]] std::uint64_t deliver(const cluster_range& range, std::uint8_t* buffer,
                                        std::uint64_t length, std::uint32_t& flags);
    [[nodiscard]] share next_share(const cluster_range& range, std::size_t index, std::uint64_t done,
                                   std::uint64_t room) const;
    void read_close_runs(std::size_t index);
    [[nodiscard]] std::uint64_t take(const share& wanted, const run_cursor::stretch& at, std::uint64_t done,
                                     std::uint8_t* buffer);
    [[nodiscard]] bool part_of_cluster(std::uint64_t lcn, std::uint64_t from, std::uint64_t bytes,
                                       std::uint8_t* buffer);
    [[nodiscard]] std::uint64_t bytes_of_run(std::uint64_t lcn, std::uint64_t from, std::uint64_t bytes,
                                             std::uint8_t* buffer);

    cluster_reader m_clusters;
    run_cursor m_cursor;
    std::uint64_t m_cluster_size;
    std::vector<run_cursor::stretch> m_stretches;  // the clusters of the present range, in order
    cluster_range m_range;                         // the present range ...
    std::uint64_t m_range_bytes = 0;               // ... and its length
    std::vector<std::uint8_t> m_scratch;           // one cluster ...
    std::optional<std::uint64_t> m_scratch_lcn;    // ... which is this one
    // Clusters of the volume that were read together, from this LCN on; and the first stretch after those for
    // which that was tried.
    std::vector<std::uint8_t> m_close;
    std::uint64_t m_close_lcn = 0;
    std::uint64_t m_close_count = 0;
    std::size_t m_close_end = 0;
};

}  // namespace quarry
