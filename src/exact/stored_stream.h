// One stream as its attributes store it: sizes, flags, and the value or the runs.
//
// A stream is all attributes of one type and one name. Usually that is one attribute: a value in the record,
// or runs. A stream in many fragments has several, its pieces, often in several records:
//
//     VCN 0            100             250            300
//     | piece in 40    | piece in 61   | piece in 60  |        sizes, flags and unit are those of the first
//
//     0              valid length            size         allocated size
//     | stored bytes | zeros, not stored yet | slack      |
//
// Bytes from the valid length up to the size were never written: they are zeros, whatever the clusters hold.
// This module gives the bytes as they are stored, for the structures of the volume, which are neither
// compressed nor encrypted. What a user copies is read by stream.h.
#pragma once

#include "exact/failure.h"
#include "exact/record.h"
#include "exact/run_map.h"
#include "exact/volume_bytes.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace quarry::exact {

inline constexpr std::uint16_t stream_flag_lznt1 = 0x0001;

// An attribute and the record that holds it, which must outlive it.
struct piece {
    attribute bytes;
    const record* holder = nullptr;

    [[nodiscard]] std::optional<std::uint64_t> source_byte() const {
        return holder->source_byte(bytes.bytes());
    }
};

class stored_stream {
  public:
    // Joins the pieces of one stream, at least one, in any order. `where` is its place in failures. Fails
    // with duplicate, gap, runs, outside, sizes or flags.
    [[nodiscard]] static result<stored_stream> join(const geometry& shape, std::vector<piece> pieces,
                                                    std::string where);
    // The same in steps, for $MFT, whose later pieces are found by means of the earlier ones: the first
    // piece, each further one in the order of the VCNs, then the sizes. Until then only runs() counts.
    [[nodiscard]] static result<stored_stream> begin(const geometry& shape, const piece& first,
                                                     std::string where);
    [[nodiscard]] result<void> add(const piece& next);
    [[nodiscard]] result<void> finish() const;

    // Clusters of the volume as a stream.
    [[nodiscard]] static result<stored_stream> of_clusters(const geometry& shape, std::uint64_t lcn,
                                                           std::uint64_t count, std::string where);

    [[nodiscard]] const std::string& where() const { return m_where; }
    [[nodiscard]] bool resident() const { return m_resident; }
    // All in bytes. Of a resident stream all three are the length of its value.
    [[nodiscard]] std::uint64_t size() const { return m_size; }
    [[nodiscard]] std::uint64_t valid_size() const { return m_valid; }
    [[nodiscard]] std::uint64_t allocated_size() const { return m_allocated; }
    // 0 for a resident stream, where they mean nothing.
    [[nodiscard]] std::uint16_t flags() const { return m_flags; }
    [[nodiscard]] bool compressed() const { return (m_flags & stream_flag_lznt1) != 0; }
    [[nodiscard]] bool encrypted() const { return (m_flags & attr_flag_encrypted) != 0; }
    [[nodiscard]] bool sparse() const { return (m_flags & attr_flag_sparse) != 0; }
    // Bytes of a compressed unit; 0 if the stream is not compressed.
    [[nodiscard]] std::uint64_t unit_size() const { return m_unit_size; }
    // The value of a resident stream.
    [[nodiscard]] byte_view value() const { return byte_view(m_value); }
    // Where the attribute is stored that describes the stream; nothing for clusters.
    [[nodiscard]] std::optional<std::uint64_t> source_byte() const { return m_source_byte; }
    // Empty for a resident stream.
    [[nodiscard]] const run_map& runs() const { return m_runs; }

    // Fills the buffer from byte `offset` of the stream on: zeros for holes and from the valid length on.
    // Fails with sizes if the range is not inside of the size, with flags or encrypted if the stream is not
    // stored as it is, and if its bytes cannot be read.
    [[nodiscard]] result<void> read(const volume_bytes& volume, std::span<std::uint8_t> buffer,
                                    std::uint64_t offset) const;
    // Says that these bytes of the stream will be read soon.
    void announce(const volume_bytes& volume, std::uint64_t offset, std::uint64_t length) const;
    // The whole stream, of at most `limit` bytes; fails with sizes if it is larger.
    [[nodiscard]] result<std::vector<std::uint8_t>> read_all(const volume_bytes& volume,
                                                             std::uint64_t limit) const;
    // Where a range of the stream is stored. `where` is the place in words. Parts that are not stored have no
    // byte on the source and are left out.
    [[nodiscard]] block_place place_of(const volume_bytes& volume, std::uint64_t offset, std::uint64_t length,
                                       std::string where) const;
    // The failure of a read that began at byte `offset` of the stream, which is stored at `source_byte`:
    // placed at the stream and the VCN that could not be read.
    [[nodiscard]] failure placed(failure reading, std::uint64_t offset, std::uint64_t source_byte) const;

  private:
    stored_stream(const geometry& shape, std::string where)
        : m_where(std::move(where)),
          m_cluster_size(shape.cluster_size),
          m_runs(shape.clusters, shape.cluster_size) {}
    [[nodiscard]] result<void> take_flags(const piece& first);
    [[nodiscard]] result<void> read_part(const volume_bytes& volume, std::span<std::uint8_t> buffer,
                                         std::uint64_t offset) const;

    std::string m_where;
    std::optional<std::uint64_t> m_source_byte;
    std::uint32_t m_cluster_size;
    bool m_resident = false;
    std::uint64_t m_size = 0;
    std::uint64_t m_valid = 0;
    std::uint64_t m_allocated = 0;
    std::uint16_t m_flags = 0;
    std::uint64_t m_unit_size = 0;
    std::vector<std::uint8_t> m_value;
    run_map m_runs;
};

}  // namespace quarry::exact
