// Where the clusters of a stream are stored: its mapping pairs as verified runs.
//
// A non-resident attribute ends in mapping pairs, one for each run of clusters that lie side by side:
//
//     31 38 21 03 00     header 31: 1 byte of length, 3 of LCN     0x38 clusters from LCN 0x321 on
//     11 10 FE           header 11: 1 byte of length, 1 of LCN     0x10 clusters, LCN 2 lower: 0x31F
//     01 08              header 01: 1 byte of length, no LCN       a hole of 8 clusters
//     00                 the end
//
// An LCN is stored as the signed difference to that of the stored run before, of the first one to 0.
// Clusters of the stream are counted by VCN, those of the volume by LCN. A stream may have several pieces,
// which are added in the order of their VCNs, each where the last one ended.
#pragma once

#include "exact/failure.h"
#include "volume/attribute_layout.h"

#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

namespace quarry::exact {

// Clusters of a stream that lie side by side on the volume, or that are not stored at all.
struct run {
    static constexpr std::uint64_t no_lcn = std::numeric_limits<std::uint64_t>::max();

    std::uint64_t vcn = 0;
    std::uint64_t lcn = no_lcn;
    std::uint64_t length = 0;  // clusters

    [[nodiscard]] bool is_hole() const { return lcn == no_lcn; }
    [[nodiscard]] std::uint64_t end_vcn() const { return vcn + length; }
    [[nodiscard]] bool operator==(const run&) const = default;
};

class run_map {
  public:
    // For streams of a volume with so many clusters of so many bytes.
    run_map(std::uint64_t volume_clusters, std::uint32_t cluster_size)
        : m_volume_clusters(volume_clusters), m_cluster_size(cluster_size) {}

    // Adds a piece of the stream: a verified, non-resident attribute. `where` is the place for a failure;
    // `source_byte` is the byte of the source at which the attribute begins. Fails with gap if the piece does
    // not begin where the last one ended, with duplicate if it begins where a piece before it did, with runs
    // or outside if its mapping pairs break a rule, and with runs if more clusters are stored than the volume
    // has. The map is then of no use.
    [[nodiscard]] result<void> add(const attribute& piece, std::string_view where,
                                   std::optional<std::uint64_t> source_byte);
    // Adds one stored run at the end. Fails with outside.
    [[nodiscard]] result<void> add_stored(std::uint64_t lcn, std::uint64_t length, std::string_view where,
                                          std::optional<std::uint64_t> source_byte);

    // The run that holds a VCN; null at and after the end.
    [[nodiscard]] const run* find(std::uint64_t vcn) const;
    // All runs, as stored, in the order of their VCNs, without a gap between them.
    [[nodiscard]] const std::vector<run>& runs() const { return m_runs; }
    // Clusters of all pieces, holes included.
    [[nodiscard]] std::uint64_t end_vcn() const { return m_runs.empty() ? 0 : m_runs.back().end_vcn(); }
    // Clusters that are stored, at most those of the volume; one that is used twice counts twice.
    [[nodiscard]] std::uint64_t stored_clusters() const { return m_stored_clusters; }
    // The lowest cluster of the volume that the stream uses twice, if there is one.
    [[nodiscard]] std::optional<std::uint64_t> cluster_used_twice() const;

  private:
    struct cursor;
    [[nodiscard]] result<void> add_pair(cursor& at);
    [[nodiscard]] result<void> add_run(std::optional<std::uint64_t> lcn, std::uint64_t length,
                                       std::string_view where, std::optional<std::uint64_t> source_byte);

    std::uint64_t m_volume_clusters;
    std::uint32_t m_cluster_size;
    std::uint64_t m_last_piece_vcn = 0;
    bool m_has_piece = false;
    std::uint64_t m_stored_clusters = 0;
    std::vector<run> m_runs;
};

}  // namespace quarry::exact
